#pragma once

#include <cstddef>
#include <cstdint>

namespace lidcam::image {

struct DriverCall;

/// The stack of one kernel thread on which a loaded driver runs: as small as the platform's, with a guard page
/// below it. Host code called by the driver runs on the thread's own stack.
class DriverStack {
 public:
  /// As the platform's on x64.
  static constexpr std::size_t kBytes = 24 * 1024;

  /// The calling thread's.
  static DriverStack& OfCurrentThread();
  /// Null if the driver has never run on this thread. Callable in signal handlers.
  static DriverStack* FindOfCurrentThread();

  DriverStack();
  DriverStack(const DriverStack&) = delete;
  DriverStack& operator=(const DriverStack&) = delete;
  ~DriverStack();

  [[nodiscard]] bool Contains(const void* address) const {
    return address >= bottom_ && address < bottom_ + kBytes;
  }
  [[nodiscard]] bool IsInGuard(const void* address) const;

  // The two stack pointers of the thread, where each of the stacks continues.
  std::uintptr_t Host = 0;
  std::uintptr_t Driver = 0;

 private:
  std::byte* bottom_;
};

/// Most bytes of a driver's stack that were in use at once, since the program began.
[[nodiscard]] std::size_t DeepestDriverStack();

}  // namespace lidcam::image
