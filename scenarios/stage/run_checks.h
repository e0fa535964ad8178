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

/// The present operation of one of the run's threads, and its start.
struct Activity {
  std::string Step = "begin";
  LONGLONG Began = 0;
  bool IsOver = false;  ///< it has ended, or waits for the others
  const host::Thread* Thread = nullptr;
};

/// The checks of a run, the present operations of its threads, and the stalls that may explain a
/// failed check.
///
/// A failed check ends the run by a violation.
class RunChecks {
 public:
  RunChecks(std::uint64_t seed, RunParts& parts, Swarm& swarm) : stalls_(seed, parts, swarm) {}
  RunChecks(const RunChecks&) = delete;
  RunChecks& operator=(const RunChecks&) = delete;

  /// Ends the run unless `holds`: as failed, or as cut short if a thread has been stalled, which
  /// may be the cause.
  void Require(bool holds, const std::string& what);
  /// For checks that no stall can affect: ends the run, as failed, unless `holds`.
  void RequireAlways(bool holds, const std::string& what);
  void RequireStatus(const char* operation, NTSTATUS status,
                     std::initializer_list<NTSTATUS> allowed);
  /// The operation that ended too late after a stall; empty if none.
  [[nodiscard]] const std::string& CutShort() const { return cutShort_; }

  // ---- Operations of the threads.

  /// Begins an operation of the scenario's own thread, or its wait for the others.
  void Begin(const char* name);
  void WaitForOthers() { own_.IsOver = true; }
  /// Adds a thread whose steps count; `activity` must exist until ForgetOthers().
  void Watch(const Activity& activity) { others_.push_back(&activity); }
  void ForgetOthers() { others_.clear(); }

  /// The operations in progress of the scenario's threads.
  [[nodiscard]] std::vector<const Activity*> Activities() const;
  /// The longest of them; the scenario's own last one if there are none.
  [[nodiscard]] const Activity& Longest() const;
  /// Whether one of the threads performs this step.
  [[nodiscard]] bool IsDoing(std::string_view step) const;
  /// Steps that the scenario's own thread has begun.
  [[nodiscard]] std::uint64_t Steps() const { return steps_; }

  // ---- Stalls.

  /// Stalls a thread that `isMeant`, at the `point`-th switch point of such threads from now on.
  void StallOne(IsMeant isMeant, std::uint64_t point, LONGLONG length) {
    stalls_.PlanOne(std::move(isMeant), point, length);
  }
  void ForgetStall() { stalls_.ForgetPlan(); }
  [[nodiscard]] bool WasStalled() const { return stalls_.HaveBegun(); }
  /// The time from which a wait that began at `time` counts: no limit applies while a thread is
  /// stalled.
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
