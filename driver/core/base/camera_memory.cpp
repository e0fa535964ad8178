#include "driver/core/base/camera_memory.h"

#include <cstring>

#include "platform/kernel.h"

namespace lidcam {
namespace {

// The letters "Wdm " as they lie in memory.
constexpr ULONG kCameraPoolTag = 0x206D6457;

}  // namespace

void* AllocateCameraMemory(std::size_t size) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  return ExAllocatePoolWithTag(NonPagedPool, size, kCameraPoolTag);
}

void FreeCameraMemory(void* memory) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  if (memory != nullptr) ExFreePool(memory);
}

void ZeroCameraMemory(void* memory, std::size_t size) {
  std::memset(memory, 0, size);
}

}  // namespace lidcam
