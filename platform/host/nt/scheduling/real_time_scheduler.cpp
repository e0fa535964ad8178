#include "platform/host/nt/scheduling/real_time_scheduler.h"

#include <sched.h>

#include <algorithm>
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
    : start_(std::chrono::steady_clock::now()), systemTimeAtStart_(SystemTimeNow()) {}

Thread* RealTimeScheduler::Adopt() {
  const std::lock_guard guard(Lock());
  return new Thread(*this, nextThread_++, "machine thread");
}

LONGLONG RealTimeScheduler::Now() const {
  return std::chrono::duration_cast<Units>(std::chrono::steady_clock::now() - start_).count();
}

void RealTimeScheduler::SwitchPoint(Thread&, const char*, SwitchKind kind) {
  if (kind == SwitchKind::Call) return;
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#endif
  // There may be fewer processors than spinning threads.
  ::sched_yield();
}

void RealTimeScheduler::Block(Thread& self, std::unique_lock<std::mutex>& guard) {
  self.Resumed.wait(guard, [&self] { return self.IsWoken; });
  self.IsWoken = false;
}

void RealTimeScheduler::Wake(Thread& thread) {
  thread.IsWoken = true;
  thread.Resumed.notify_one();
}

void RealTimeScheduler::TimersChanged() {
  if (!std::exchange(hasClock_, true)) std::thread([this] { RunClock(); }).detach();
  timersChanged_.notify_one();
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
    const auto due = Timers().Earliest();
    const Units sleep = due ? std::min(Units(*due - Now()), kLongestSleep) : kLongestSleep;
    timersChanged_.wait_for(guard, sleep);
  }
}

}  // namespace lidcam::host
