#include "platform/host/nt/memory/guards/pool_guard.h"

#include <algorithm>
#include <cstring>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define LIDCAM_ADDRESS_SANITIZER 1
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define LIDCAM_ADDRESS_SANITIZER 1
#endif

#ifdef LIDCAM_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace lidcam::host {
namespace {

constexpr std::size_t kGuard = 16;  // keeps malloc's alignment
constexpr unsigned char kGuardByte = 0xFD;

// The content of fresh memory, so that no code relies on zeroes.
constexpr int kFreshByte = 0xCD;

void Poison([[maybe_unused]] const void* guard, [[maybe_unused]] std::size_t size) {
#ifdef LIDCAM_ADDRESS_SANITIZER
  __asan_poison_memory_region(guard, size);
#endif
}

void Unpoison([[maybe_unused]] const void* guard, [[maybe_unused]] std::size_t size) {
#ifdef LIDCAM_ADDRESS_SANITIZER
  __asan_unpoison_memory_region(guard, size);
#endif
}

// The offset of the first byte of a guard that was overwritten, or its size.
std::size_t FirstChanged(const unsigned char* guard, std::size_t size) {
  Unpoison(guard, size);
  const auto* const changed =
      std::find_if(guard, guard + size, [](unsigned char byte) { return byte != kGuardByte; });
  const auto offset = static_cast<std::size_t>(changed - guard);
  Poison(guard, size);
  return offset;
}

}  // namespace

std::size_t GuardedBytes(std::size_t size) {
  return size <= SIZE_MAX - 2 * kGuard ? size + 2 * kGuard : 0;
}

std::size_t GuardBytesBehind() {
  return kGuard;
}

void* LayGuards(void* start, std::size_t size, std::size_t behind) {
  auto* const before = static_cast<unsigned char*>(start);
  unsigned char* const memory = before + kGuard;
  std::memset(before, kGuardByte, kGuard);
  std::memset(memory, kFreshByte, size);
  std::memset(memory + size, kGuardByte, behind);
  Poison(before, kGuard);
  Poison(memory + size, behind);
  return memory;
}

void* StartOfGuarded(void* memory) {
  return static_cast<unsigned char*>(memory) - kGuard;
}

const void* MemoryBehindGuard(const void* start) {
  return static_cast<const unsigned char*>(start) + kGuard;
}

std::string FindOverrun(const void* memory, std::size_t size, std::size_t behind) {
  const auto* const bytes = static_cast<const unsigned char*>(memory);
  const std::size_t changed = FirstChanged(bytes + size, behind);
  if (changed != behind) return "byte " + std::to_string(changed) + " behind its end";
  const std::size_t before = FirstChanged(bytes - kGuard, kGuard);
  if (before != kGuard) return "byte " + std::to_string(kGuard - before) + " ahead of its start";
  return {};
}

}  // namespace lidcam::host
