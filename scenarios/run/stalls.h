#pragma once

#include <cstdint>
#include <functional>
#include <limits>

#include "platform/host/nt/simulation/simulated_scheduler.h"
#include "scenarios/run/random.h"
#include "scenarios/run/run_parts.h"
#include "scenarios/run/swarm.h"

namespace lidcam::scenarios {

/// Selects the threads to be stalled.
using IsMeant = std::function<bool(const host::Thread& thread)>;

/// The stalls of one run: a thread halts at a switch point, with all its locks, while time advances
/// for all others.
class Stalls {
 public:
  /// @param parts  what of the run is left out; outlives it
  /// @param swarm  outlives it
  Stalls(std::uint64_t seed, RunParts& parts, Swarm& swarm);

  /// From now on up to three stalls, or as many as the run's parameters allow, at places that the seed chooses, of any thread, or of those at
  /// which the stream's threads interact; for a moment, or for as long as a stream takes to be
  /// stopped and restarted.
  void BeginAnywhere();

  /// One stall of a thread that `isMeant`, at the `point`-th switch point of such threads from now
  /// on. Replaces the previous plan.
  void PlanOne(IsMeant isMeant, std::uint64_t point, LONGLONG length);
  /// Cancels the plan if its stall hasn't begun.
  void ForgetPlan() { planned_.Meant = nullptr; }

  /// @return how long the calling thread is stalled there, 100 ns; 0: not at all
  LONGLONG At(const host::SwitchPlace& place, LONGLONG now);

  /// Whether At() can stall a thread.
  [[nodiscard]] bool ArePlanned() const { return anywhere_.Meant || planned_.Meant; }

  [[nodiscard]] bool HaveBegun() const { return end_ != kNever; }

  /// End of the last stall so far, past or future; the earliest time if there was none.
  [[nodiscard]] LONGLONG End() const { return end_; }

 private:
  static constexpr LONGLONG kNever = std::numeric_limits<LONGLONG>::min();

  struct Plan {
    IsMeant Meant{};  ///< null: no plan
    std::uint64_t Points = 0;
    LONGLONG Length = 0;

    LONGLONG At(const host::Thread& thread);
  };

  void PlanNextAnywhere();

  RunParts& parts_;
  Swarm& swarm_;
  Random chance_;
  std::uint64_t begun_ = 0;  ///< those left out included
  std::uint64_t left_ = 0;   ///< remaining random stalls after the planned one
  Plan anywhere_;
  Plan planned_;
  LONGLONG end_ = kNever;
};

}  // namespace lidcam::scenarios
