#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/nt/simulation/simulated_scheduler.h"

namespace lidcam::scenarios {

enum class Verdict : std::uint8_t {
  Passed,
  StatedHang,  ///< a hang that the driver's rules allow
  CutShort,    ///< an operation ended too late after a stall, which is no failure
  Failed,
};

[[nodiscard]] std::string_view ToString(Verdict verdict);

/// Options of a run in addition to its scenario.
struct RunOptions {
  bool HasPoints = false;    ///< switch points also between the kernel calls
  bool HasStalls = false;    ///< threads are stalled while time advances
  bool HasExposure = false;  ///< the exposure loop runs: see Surroundings
  bool IsSwarm = false;      ///< kinds are left out, and parameters drawn: see Swarm
  host::SchedulerKind Scheduler = host::SchedulerKind::Walk;

  /// Schedule and trace are the same for every compilation of the driver: no switch points at what images have as
  /// instructions; control requests, debug messages, pool and pictures in the trace, in place of the driver's own
  /// lines.
  bool IsSideBySide = false;

  bool operator==(const RunOptions&) const = default;
};

/// The options of both; the scheduler is that of the second unless it is the walk.
[[nodiscard]] RunOptions operator|(const RunOptions& a, const RunOptions& b);

/// As options of the command line, each preceded by a space: " --points"; empty without options.
[[nodiscard]] std::string ToString(const RunOptions& options);

/// From a switch point on the threads are chosen by other random numbers than those of the run's seed.
struct Reseeding {
  std::uint64_t Point = 0;  ///< number of the switch point, from 1
  std::uint64_t Seed = 0;

  bool operator==(const Reseeding&) const = default;
};

/// Identifies a run.
struct RunKey {
  std::string Scenario;
  std::uint64_t Seed = 1;

  /// The scenario's own counter, for scenarios that try every n: the allocation or the call that
  /// fails. 0: the seed chooses.
  std::uint64_t Step = 0;

  RunOptions Options{};

  std::vector<Reseeding> Reseedings{};  ///< in the order of their points
};

/// Counts of a run's events.
struct RunCounts {
  std::uint64_t Steps = 0;       ///< operations of the device that the scenario called
  std::uint64_t Frames = 0;      ///< delivered whole
  std::uint64_t Disturbed = 0;   ///< delivered torn, or of a wrong size
  std::uint64_t Recoveries = 0;  ///< that have ended
  std::uint64_t Faults = 0;      ///< injected, by the scenario's own count

  bool operator==(const RunCounts&) const = default;
};

/// A run's result as far as another process can leave it in shared memory.
struct RunFigures {
  Verdict Outcome = Verdict::Passed;
  std::string_view Hang;  ///< name of the stated hang, one of StatedHangs(); empty without one
  RunCounts Counts;
  std::uint64_t Hash = 0;            ///< over the canonical trace and the schedule
  std::uint64_t ScheduleLength = 0;  ///< switch points
  LONGLONG Time = 0;                 ///< virtual time, 100 ns
  bool ReachedFault = false;         ///< of a run with a step: whether the n-th call was made
};

struct RunResult : RunFigures {
  RunKey Key;
  std::string What;    ///< the failed check, or the late operation, in one line
  std::string Report;  ///< of the verifier: threads, last calls
  std::string Trace;   ///< all lines if they were requested, otherwise the last ones

  // Of a run that differs from its scenario's usual ones: see Swarm.
  std::set<std::string> LeftOut;
  std::map<std::string, std::uint64_t> Parameters;
};

/// As an option of the command line, preceded by a space: " --reseed 120:7,340:9"; empty without reseedings.
[[nodiscard]] std::string ToString(const std::vector<Reseeding>& reseedings);

/// The command line that repeats this run.
[[nodiscard]] std::string ReplayCommand(const RunKey& key);

}  // namespace lidcam::scenarios
