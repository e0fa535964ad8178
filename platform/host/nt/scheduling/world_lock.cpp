#include "platform/host/nt/scheduling/world_lock.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <span>

#include "platform/host/nt/scheduling/thread.h"

namespace lidcam::host {
namespace {

static_assert(offsetof(WakeFlag, IsSet) == 0 && sizeof(WakeFlag::IsSet) == sizeof(std::uint32_t),
              "the system reads the flag");

// Only the address counts. If the flag is gone, no thread sleeps there, or its new user wakes once too often.
void WakeSleeper(WakeFlag* flag) {
  ::syscall(SYS_futex, flag, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

timespec ToTimespec(std::chrono::steady_clock::time_point time) {
  const auto sinceStart = time.time_since_epoch();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(sinceStart);
  const std::chrono::nanoseconds rest = sinceStart - seconds;
  return {.tv_sec = static_cast<std::time_t>(seconds.count()),
          .tv_nsec = static_cast<long>(rest.count())};
}

}  // namespace

void WorldLock::UnlockAndWake() {
  if (sleeperCount_ == 0) {
    mutex_.unlock();
    return;
  }
  const std::array<WakeFlag*, kMostSleepers> sleepers = sleepers_;
  const std::size_t count = sleeperCount_;
  sleeperCount_ = 0;
  mutex_.unlock();
  const auto flags = std::span(sleepers).first(count);
  Thread* const self = FindCurrentThread();
  if (self == nullptr || self->Level < DISPATCH_LEVEL) {
    std::ranges::for_each(flags, WakeSleeper);
  } else {
    for (WakeFlag* const flag : flags) self->Late.Add(flag);
  }
}

void LateWakes::Add(WakeFlag* flag) {
  if (count_ == kMost) {
    WakeSleeper(flag);
  } else {
    flags_[count_++] = flag;
  }
}

void LateWakes::WakeAll() {
  std::ranges::for_each(std::span(flags_).first(count_), WakeSleeper);
  count_ = 0;
}

void WorldLock::Set(WakeFlag& flag) {
  const bool wasSet = flag.IsSet.exchange(1, std::memory_order_relaxed) != 0;
  if (wasSet || !flag.HasSleeper) return;
  if (sleeperCount_ == kMostSleepers) {
    WakeSleeper(&flag);
  } else {
    sleepers_[sleeperCount_++] = &flag;
  }
}

bool SleepFor(WakeFlag& flag, std::unique_lock<WorldLock>& guard,
              const std::chrono::steady_clock::time_point* end) {
  timespec limit{};
  if (end != nullptr) limit = ToTimespec(*end);
  flag.HasSleeper = true;
  guard.unlock();
  if (Thread* const self = FindCurrentThread()) self->Late.WakeAll();
  // Of steady_clock. Returns at once if the flag is set already.
  const long result = ::syscall(SYS_futex, &flag, FUTEX_WAIT_BITSET_PRIVATE, 0,
                                end != nullptr ? &limit : nullptr, nullptr, FUTEX_BITSET_MATCH_ANY);
  const bool hasCome = result == -1 && errno == ETIMEDOUT;
  guard.lock();
  flag.HasSleeper = false;
  return hasCome;
}

}  // namespace lidcam::host
