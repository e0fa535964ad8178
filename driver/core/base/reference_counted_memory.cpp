#include "driver/core/base/reference_counted_memory.h"

#include <new>

#include "driver/core/base/camera_memory.h"

namespace lidcam {
namespace {

constexpr std::size_t RoundUp(std::size_t size) {
  return (size + alignof(ReferenceCountedMemory) - 1) & ~(alignof(ReferenceCountedMemory) - 1);
}

}  // namespace

ReferenceCountedMemory* AllocateReferenceCountedMemory(std::size_t size) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  const std::size_t recordAt = RoundUp(size);
  if (size == 0 || recordAt < size || recordAt + sizeof(ReferenceCountedMemory) < recordAt)
    return nullptr;
  void* const block = AllocateCameraMemory(recordAt + sizeof(ReferenceCountedMemory));
  if (block == nullptr) return nullptr;
  ZeroCameraMemory(block, size);
  auto* const memory =
      ::new (static_cast<std::uint8_t*>(block) + recordAt) ReferenceCountedMemory{};
  memory->Block = block;
  memory->Size = size;
  memory->Holds = 1;
  return memory;
}

void Hold(ReferenceCountedMemory& memory) {
  InterlockedIncrement(&memory.Holds);
}

void LetGo(ReferenceCountedMemory& memory) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  const LONG left = InterlockedDecrement(&memory.Holds);
  NT_ASSERT(left >= 0);
  if (left != 0) return;
  if (memory.Irp != nullptr) IoFreeIrp(memory.Irp);
  FreeCameraMemory(memory.Block);
}

void GiveUp(ReferenceCountedMemory& memory) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  memory.GivenUp = 1;
  LetGo(memory);
}

}  // namespace lidcam
