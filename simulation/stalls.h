#pragma once

#include <cstdint>
#include <functional>
#include <limits>

#include "platform/host/nt/simulated_scheduler.h"
#include "simulation/random.h"

namespace lidcam::simulation {

/// The stalls of one run: a thread stands still at some switch point, with whatever it holds, while time
/// goes on for all others.
class Stalls {
 public:
  explicit Stalls(std::uint64_t seed);

  /// From now on up to three stalls at any threads and points that the seed says: for a moment, or for as
  /// long as a stream takes to be stopped and started again.
  void BeginAnywhere();

  /// One stall of a thread that `isMeant`, at the `point`-th switch point that such a thread comes to
  /// from now on.
  void PlanOne(std::function<bool(const host::Thread& thread)> isMeant, std::uint64_t point,
               LONGLONG length);
  /// Takes it back if it hasn't begun.
  void ForgetPlan() { isMeant_ = nullptr; }

  /// @return for how long the thread that has come there stands still, 100 ns; 0: not at all
  LONGLONG At(const host::SwitchPlace& place, LONGLONG now);

  [[nodiscard]] bool HaveBegun() const { return end_ != kNever; }

  /// When the last one so far ends, or has ended; before all time if there was none.
  [[nodiscard]] LONGLONG End() const { return end_; }

 private:
  static constexpr LONGLONG kNever = std::numeric_limits<LONGLONG>::min();

  [[nodiscard]] LONGLONG LengthAnywhere();
  [[nodiscard]] LONGLONG LengthAsPlanned(const host::Thread& thread);
  void ChooseNext();

  Random chance_;
  std::uint64_t left_ = 0;       ///< stalls anywhere to come
  std::uint64_t countdown_ = 0;  ///< switch points up to the next one
  std::function<bool(const host::Thread& thread)> isMeant_;
  std::uint64_t plannedCountdown_ = 0;
  LONGLONG plannedLength_ = 0;
  LONGLONG end_ = kNever;
};

}  // namespace lidcam::simulation
