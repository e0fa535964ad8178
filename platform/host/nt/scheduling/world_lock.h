#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "base/inline_mutex.h"

namespace lidcam::host {

/// A flag for which one machine thread may sleep.
struct WakeFlag {
  std::atomic<std::uint32_t> IsSet{0};
  bool HasSleeper = false;  ///< under the lock
};

/// Flags whose sleepers a thread at DISPATCH_LEVEL has to wake when it leaves the level. A kernel runs no other thread
/// on a processor at that level, and a thread that is woken by the first of several completions would often sleep
/// again before the second.
class LateWakes {
 public:
  LateWakes() = default;
  LateWakes(const LateWakes&) = delete;
  LateWakes& operator=(const LateWakes&) = delete;
  ~LateWakes() { WakeAll(); }

  [[nodiscard]] bool IsEmpty() const { return count_ == 0; }

  /// Wakes the sleeper at once if there is no room.
  void Add(WakeFlag* flag);
  void WakeAll();

 private:
  static constexpr std::size_t kMost = 8;

  std::array<WakeFlag*, kMost> flags_{};
  std::size_t count_ = 0;
};

/// The lock of a world. Machine threads whose wait ends under it are woken after its release, and after the releasing
/// thread's return from DISPATCH_LEVEL: one that wakes earlier finds the lock taken, and sleeps a second time.
class WorldLock {
 public:
  /// @param isNeeded  false in a world of which one thread runs at a time: the lock does nothing
  explicit WorldLock(bool isNeeded) : isNeeded_(isNeeded) {}
  WorldLock(const WorldLock&) = delete;
  WorldLock& operator=(const WorldLock&) = delete;

  // Named as the standard library's lock guards expect.
  void lock() {
    if (isNeeded_) mutex_.lock();
  }
  void unlock() {
    if (isNeeded_) UnlockAndWake();
  }

  /// Sets a flag, and wakes the thread that sleeps for it. Under the lock. The flag may be gone by the time of the
  /// lock's release.
  void Set(WakeFlag& flag);

 private:
  static constexpr std::size_t kMostSleepers = 8;

  void UnlockAndWake();

  const bool isNeeded_;
  base::InlineMutex mutex_;
  std::array<WakeFlag*, kMostSleepers> sleepers_{};
  std::size_t sleeperCount_ = 0;
};

/// Sleeps until the flag is set or the time has come, possibly less. The lock is held before and after, and released
/// between.
///
/// @param end  null: no limit
/// @return whether the time has come; the flag may be set as well
bool SleepFor(WakeFlag& flag, std::unique_lock<WorldLock>& guard,
              const std::chrono::steady_clock::time_point* end);

}  // namespace lidcam::host
