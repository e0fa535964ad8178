#pragma once

#include <atomic>
#include <cstdint>

namespace lidcam::base {

/// A mutex that costs two interlocked operations in its caller's own code if no other thread wants it: one of the
/// standard library is a call of another library, whose code isn't in the caches after a sleep.
class InlineMutex {
 public:
  constexpr InlineMutex() = default;
  InlineMutex(const InlineMutex&) = delete;
  InlineMutex& operator=(const InlineMutex&) = delete;
  ~InlineMutex() = default;

  // Named as the standard library's lock guards expect.
  void lock() {
    std::uint32_t present = kFree;
    if (!state_.compare_exchange_strong(present, kTaken, std::memory_order_acquire)) [[unlikely]]
      WaitAndLock();
  }
  void unlock() {
    if (state_.exchange(kFree, std::memory_order_release) == kAwaited) [[unlikely]]
      state_.notify_one();
  }

  /// By any thread.
  [[nodiscard]] bool IsLocked() const { return state_.load(std::memory_order_relaxed) != kFree; }

 private:
  static constexpr std::uint32_t kFree = 0;
  static constexpr std::uint32_t kTaken = 1;
  static constexpr std::uint32_t kAwaited = 2;  ///< taken, and threads may wait for it

  [[gnu::cold, gnu::noinline]] void WaitAndLock() {
    while (state_.exchange(kAwaited, std::memory_order_acquire) != kFree) {
      state_.wait(kAwaited, std::memory_order_relaxed);
    }
  }

  std::atomic<std::uint32_t> state_{kFree};
};

}  // namespace lidcam::base
