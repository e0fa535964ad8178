#include "platform/host/nt/simulation/fiber_stack.h"

#include <sys/mman.h>
#include <unistd.h>

#include <mutex>
#include <new>
#include <vector>

#include "platform/host/nt/simulation/sanitizer_fibers.h"

namespace lidcam::host {
namespace {

// A world has about ten threads at once.
constexpr std::size_t kMostUnused = 32;

struct UnusedStacks {
  std::mutex Lock;
  std::vector<std::byte*> Begins;
};

// Never destroyed: worlds may end during static destruction.
UnusedStacks& Unused() {
  static auto* const stacks = new UnusedStacks;
  return *stacks;
}

std::size_t GuardBytes() {
  static const auto bytes = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return bytes;
}

std::byte* MapStack() {
  void* const begin = mmap(nullptr, GuardBytes() + FiberStack::kBytes, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
  if (begin == MAP_FAILED) throw std::bad_alloc();
  if (mprotect(begin, GuardBytes(), PROT_NONE) != 0) {
    munmap(begin, GuardBytes() + FiberStack::kBytes);
    throw std::bad_alloc();
  }
  return static_cast<std::byte*>(begin);
}

std::byte* TakeStack() {
  UnusedStacks& unused = Unused();
  const std::lock_guard guard(unused.Lock);
  if (unused.Begins.empty()) return MapStack();
  std::byte* const begin = unused.Begins.back();
  unused.Begins.pop_back();
  return begin;
}

void GiveBackStack(std::byte* begin) {
  UnusedStacks& unused = Unused();
  {
    const std::lock_guard guard(unused.Lock);
    if (unused.Begins.size() < kMostUnused) {
      unused.Begins.push_back(begin);
      return;
    }
  }
  munmap(begin, GuardBytes() + FiberStack::kBytes);
}

}  // namespace

FiberStack::FiberStack() : begin_(TakeStack()) {}

FiberStack::~FiberStack() {
  ForgetFramesOn(Bottom(), kBytes);
  GiveBackStack(begin_);
}

std::byte* FiberStack::Bottom() const {
  return begin_ + GuardBytes();
}

std::byte* FiberStack::Top() const {
  return Bottom() + kBytes;
}

}  // namespace lidcam::host
