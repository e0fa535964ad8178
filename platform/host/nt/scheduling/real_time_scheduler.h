#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>

#include "platform/host/nt/scheduling/scheduler.h"

namespace lidcam::host {

/// The machine's threads and its steady clock. Every machine thread that calls the kernel belongs to
/// this world unless a simulation made it.
class RealTimeScheduler final : public Scheduler {
 public:
  /// The process's only instance. It is never destroyed: drivers may call during static
  /// destruction.
  static RealTimeScheduler& The();

  /// A kernel thread for the calling machine thread; the caller owns it.
  [[nodiscard]] Thread* Adopt();

  [[nodiscard]] bool IsPunctual() const override { return false; }
  [[nodiscard]] LONGLONG SystemTimeAtStart() const override { return systemTimeAtStart_; }
  void SwitchPoint(Thread& self, const char* call, SwitchKind kind) override;
  void Block(Thread& self, std::unique_lock<WorldLock>& guard) override;
  /// The thread itself wakes at its limit: for a common clock each wait would wake one more thread.
  void BlockUntil(Thread& self, std::unique_lock<WorldLock>& guard, LONGLONG due,
                  const TimerEntry& limit) override;
  void Wake(Thread& thread) override;
  void TimersChanged() override;
  [[nodiscard]] std::uint64_t TieNumber() override { return 0; }
  void StartMachine(Thread& thread, std::function<void()> body) override;
  void ThreadEnds(Thread&, std::unique_lock<WorldLock>&) override {}

 private:
  RealTimeScheduler();

  [[nodiscard]] LONGLONG ReadClock() const override;
  [[nodiscard]] LONGLONG TimeOfTicks(std::uint64_t ticks) const override;

  void RunClock();
  /// @param time  interrupt time; 0 stands for all before
  [[nodiscard]] std::chrono::steady_clock::time_point PointOf(LONGLONG time) const;

  const std::chrono::steady_clock::time_point start_;
  const std::uint64_t ticksAtStart_;
  const LONGLONG systemTimeAtStart_;
  WakeFlag timersChanged_;   ///< a timer is due before clockWakes_
  LONGLONG clockWakes_ = 0;  ///< interrupt time to which the clock sleeps
  bool hasClock_ = false;
};

}  // namespace lidcam::host
