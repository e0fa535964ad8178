#include "platform/host/nt/scheduling/real_time_scheduler.h"

#include <sched.h>

#include <algorithm>
#include <ctime>
#include <ratio>
#include <thread>
#include <utility>

#include "base/time_units.h"
#include "platform/host/nt/scheduling/thread.h"

namespace lidcam::host {
namespace {

using Units = std::chrono::duration<LONGLONG, std::ratio<1, base::kUnitsPerSecond>>;

// From 1601 to 1970.
constexpr LONGLONG kUnixEpoch = 116'444'736'000'000'000;

LONGLONG SystemTimeNow() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return kUnixEpoch + std::chrono::duration_cast<Units>(sinceEpoch).count();
}

}  // namespace

RealTimeScheduler& RealTimeScheduler::The() {
  static auto* const scheduler = new RealTimeScheduler;
  return *scheduler;
}

RealTimeScheduler::RealTimeScheduler()
    : Scheduler(true),
      start_(std::chrono::steady_clock::now()),
      ticksAtStart_(ProcessorTicks()),
      systemTimeAtStart_(SystemTimeNow()) {}

Thread* RealTimeScheduler::Adopt() {
  const std::lock_guard guard(Lock());
  return new Thread(*this, nextThread_++, "machine thread");
}

// As steady_clock::now(), without a call of one more library.
LONGLONG RealTimeScheduler::ReadClock() const {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const auto sinceBoot = std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
  return std::chrono::duration_cast<Units>(sinceBoot - start_.time_since_epoch()).count();
}

// The rate is the one from the world's start to the present.
LONGLONG RealTimeScheduler::TimeOfTicks(std::uint64_t ticks) const {
  const auto present = static_cast<double>(ProcessorTicks() - ticksAtStart_);
  const auto wanted = static_cast<double>(ticks - ticksAtStart_);
  return present > 0 ? static_cast<LONGLONG>(static_cast<double>(Now()) * (wanted / present)) : 0;
}

std::chrono::steady_clock::time_point RealTimeScheduler::PointOf(LONGLONG time) const {
  return start_ + Units(std::max(time, LONGLONG{0}));
}

void RealTimeScheduler::SwitchPoint(Thread& self, const char*, SwitchKind) {
  self.Late.WakeAll();
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#endif
  // There may be fewer processors than spinning threads.
  ::sched_yield();
}

void RealTimeScheduler::Block(Thread& self, std::unique_lock<WorldLock>& guard) {
  while (!self.Woken.IsSet) SleepFor(self.Woken, guard, nullptr);
  self.Woken.IsSet = 0;
}

void RealTimeScheduler::BlockUntil(Thread& self, std::unique_lock<WorldLock>& guard, LONGLONG due,
                                   const TimerEntry& limit) {
  const auto end = PointOf(due);
  while (!self.Woken.IsSet) {
    const bool hasCome = SleepFor(self.Woken, guard, &end);
    if (hasCome && !self.Woken.IsSet) limit.Expire(*this, limit.Object);
  }
  self.Woken.IsSet = 0;
}

void RealTimeScheduler::Wake(Thread& thread) {
  Lock().Set(thread.Woken);
}

void RealTimeScheduler::TimersChanged() {
  if (!std::exchange(hasClock_, true)) std::thread([this] { RunClock(); }).detach();
  const auto due = Timers().Earliest();
  if (due && *due < clockWakes_) Lock().Set(timersChanged_);
}

void RealTimeScheduler::StartMachine(Thread&, std::function<void()> body) {
  std::thread(std::move(body)).detach();
}

void RealTimeScheduler::RunClock() {
  // Limits sleeps to a length that every standard library can represent.
  constexpr Units kLongestSleep = std::chrono::hours(1);
  std::unique_lock guard(Lock());
  while (true) {
    ExpireTimers(*this);
    const LONGLONG longest = Now() + kLongestSleep.count();
    clockWakes_ = std::min(Timers().Earliest().value_or(longest), longest);
    const auto end = PointOf(clockWakes_);
    if (!timersChanged_.IsSet) SleepFor(timersChanged_, guard, &end);
    timersChanged_.IsSet = 0;
  }
}

}  // namespace lidcam::host
