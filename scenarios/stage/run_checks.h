#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/host/nt/declarations/nt_declarations.h"
#include "scenarios/run/stalls.h"

namespace lidcam::scenarios {

/// What one of a run's threads does, and since when.
struct Activity {
  std::string Step = "begin";
  LONGLONG Began = 0;
  bool IsOver = false;  ///< it does nothing any more, or waits for the others
  const host::Thread* Thread = nullptr;
};

/// What must hold in a run, what its threads are doing, and the stalls that may be why something doesn't
/// hold.
///
/// What doesn't hold ends the run by a violation.
class RunChecks {
 public:
  explicit RunChecks(std::uint64_t seed) : stalls_(seed) {}
  RunChecks(const RunChecks&) = delete;
  RunChecks& operator=(const RunChecks&) = delete;

  /// Ends the run unless `holds`: as failed, or as cut short if a thread has been stalled, which may be
  /// why it doesn't.
  void Require(bool holds, const std::string& what);
  /// For what no stall is a reason for: ends the run, as failed, unless `holds`.
  void RequireAlways(bool holds, const std::string& what);
  void RequireStatus(const char* operation, NTSTATUS status,
                     std::initializer_list<NTSTATUS> allowed);
  /// What came too late after a stall to go on; empty if nothing did.
  [[nodiscard]] const std::string& CutShort() const { return cutShort_; }

  // ---- What the threads do.

  /// The scenario's own thread does something, or waits for the others.
  void Begin(const char* name);
  void WaitForOthers() { own_.IsOver = true; }
  /// One more thread whose steps count; `activity` lives until ForgetOthers().
  void Watch(const Activity& activity) { others_.push_back(&activity); }
  void ForgetOthers() { others_.clear(); }

  /// What the scenario's threads are doing, those that do nothing any more aside.
  [[nodiscard]] std::vector<const Activity*> Activities() const;
  /// Of those, what takes longest; the scenario's own last one if there are none.
  [[nodiscard]] const Activity& Longest() const;
  /// One of the threads does this.
  [[nodiscard]] bool IsDoing(std::string_view step) const;
  /// Steps that the scenario's own thread has begun.
  [[nodiscard]] std::uint64_t Steps() const { return steps_; }

  // ---- Stalls.

  /// A thread that `isMeant` stands still for a while, at the `point`-th switch point that such a thread
  /// comes to from now on.
  void StallOne(IsMeant isMeant, std::uint64_t point, LONGLONG length) {
    stalls_.PlanOne(std::move(isMeant), point, length);
  }
  void ForgetStall() { stalls_.ForgetPlan(); }
  [[nodiscard]] bool WasStalled() const { return stalls_.HaveBegun(); }
  /// When a wait that began at `time` begins to count: no time limit holds while a thread is stalled.
  [[nodiscard]] LONGLONG CountedFrom(LONGLONG time) const;

 protected:
  [[nodiscard]] Stalls& RunStalls() { return stalls_; }

 private:
  Stalls stalls_;
  std::string cutShort_;
  Activity own_;
  std::vector<const Activity*> others_;
  std::uint64_t steps_ = 0;
};

}  // namespace lidcam::scenarios
