#pragma once

#include <cstdint>
#include <functional>
#include <limits>

#include "platform/host/nt/simulation/simulated_scheduler.h"
#include "scenarios/run/random.h"

namespace lidcam::scenarios {

/// Whether a thread is one of those that are to stand still.
using IsMeant = std::function<bool(const host::Thread& thread)>;

/// The stalls of one run: a thread stands still at some switch point, with whatever it holds, while time
/// goes on for all others.
class Stalls {
 public:
  explicit Stalls(std::uint64_t seed);

  /// From now on up to three stalls at places that the seed says, of any thread, or of those at which the
  /// stream's threads meet; for a moment, or for as long as a stream takes to be stopped and started again.
  void BeginAnywhere();

  /// One stall of a thread that `isMeant`, at the `point`-th switch point that such threads come to from
  /// now on. In place of the plan before.
  void PlanOne(IsMeant isMeant, std::uint64_t point, LONGLONG length);
  /// Takes it back if it hasn't begun.
  void ForgetPlan() { planned_.Meant = nullptr; }

  /// @return for how long the thread that has come there stands still, 100 ns; 0: not at all
  LONGLONG At(const host::SwitchPlace& place, LONGLONG now);

  [[nodiscard]] bool HaveBegun() const { return end_ != kNever; }

  /// When the last one so far ends, or has ended; before all time if there was none.
  [[nodiscard]] LONGLONG End() const { return end_; }

 private:
  static constexpr LONGLONG kNever = std::numeric_limits<LONGLONG>::min();

  struct Plan {
    IsMeant Meant{};  ///< null: there is no plan
    std::uint64_t Points = 0;
    LONGLONG Length = 0;

    LONGLONG At(const host::Thread& thread);
  };

  void PlanNextAnywhere();

  Random chance_;
  std::uint64_t left_ = 0;  ///< stalls anywhere behind the planned one
  Plan anywhere_;
  Plan planned_;
  LONGLONG end_ = kNever;
};

}  // namespace lidcam::scenarios
