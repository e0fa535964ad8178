#include "platform/image/driver_stack.h"

#include <sys/mman.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

#include "platform/host/nt/scheduling/thread.h"

namespace lidcam::image {
namespace {

constexpr std::size_t kGuard = 4096;
// A world has about ten threads at once.
constexpr std::size_t kMostUnused = 32;
// What a call reads above its return address: home places and arguments.
constexpr std::size_t kCallArea = 256;

// A stack's bytes stay zero until they are used.
struct Stacks {
  std::mutex Lock;
  std::vector<std::byte*> Unused;
  std::vector<const std::byte*> InUse;
  std::size_t DeepestOfOld = 0;
};

// Never destroyed: worlds may end during static destruction.
Stacks& TheStacks() {
  static auto* const stacks = new Stacks;
  return *stacks;
}

std::byte* MapStack() {
  void* const guard = mmap(nullptr, kGuard + DriverStack::kBytes, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (guard == MAP_FAILED) throw std::bad_alloc();
  if (mprotect(guard, kGuard, PROT_NONE) != 0) {
    munmap(guard, kGuard + DriverStack::kBytes);
    throw std::bad_alloc();
  }
  return static_cast<std::byte*>(guard) + kGuard;
}

std::size_t UsedBytes(const std::byte* bottom) {
  const std::byte* const end = bottom + DriverStack::kBytes;
  return static_cast<std::size_t>(
      end - std::find_if(bottom, end, [](std::byte value) { return value != std::byte{0}; }));
}

std::byte* TakeStack() {
  Stacks& stacks = TheStacks();
  const std::lock_guard guard(stacks.Lock);
  std::byte* bottom = nullptr;
  if (stacks.Unused.empty()) {
    bottom = MapStack();
  } else {
    bottom = stacks.Unused.back();
    stacks.Unused.pop_back();
  }
  stacks.InUse.push_back(bottom);
  return bottom;
}

void GiveBackStack(std::byte* bottom) {
  Stacks& stacks = TheStacks();
  const std::lock_guard guard(stacks.Lock);
  std::erase(stacks.InUse, bottom);
  if (stacks.Unused.size() < kMostUnused) {
    stacks.Unused.push_back(bottom);
    return;
  }
  stacks.DeepestOfOld = std::max(stacks.DeepestOfOld, UsedBytes(bottom));
  munmap(bottom - kGuard, kGuard + DriverStack::kBytes);
}

}  // namespace

DriverStack::DriverStack() : bottom_(TakeStack()) {
  Driver = reinterpret_cast<std::uintptr_t>(bottom_ + kBytes - kCallArea);
}

DriverStack::~DriverStack() {
  GiveBackStack(bottom_);
}

DriverStack& DriverStack::OfCurrentThread() {
  std::shared_ptr<void>& stack = host::CurrentThread().DriverStack;
  if (stack == nullptr) stack = std::make_shared<DriverStack>();
  return *static_cast<DriverStack*>(stack.get());
}

DriverStack* DriverStack::FindOfCurrentThread() {
  const host::Thread* const thread = host::FindCurrentThread();
  return thread != nullptr ? static_cast<DriverStack*>(thread->DriverStack.get()) : nullptr;
}

bool DriverStack::IsInGuard(const void* address) const {
  return address >= bottom_ - kGuard && address < bottom_;
}

std::size_t DeepestDriverStack() {
  Stacks& stacks = TheStacks();
  const std::lock_guard guard(stacks.Lock);
  std::size_t deepest = stacks.DeepestOfOld;
  for (const std::byte* const bottom : stacks.Unused)
    deepest = std::max(deepest, UsedBytes(bottom));
  for (const std::byte* const bottom : stacks.InUse) deepest = std::max(deepest, UsedBytes(bottom));
  return deepest;
}

}  // namespace lidcam::image
