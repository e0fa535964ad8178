#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/host/nt/simulation/simulated_scheduler.h"

namespace lidcam::scenarios {

enum class Verdict : std::uint8_t {
  Passed,
  StatedHang,  ///< it hangs, as the driver's rules say that it does there
  CutShort,    ///< after a stall something came too late to go on, which is no failure
  Failed,
};

[[nodiscard]] std::string_view ToString(Verdict verdict);

/// What a run has beside its scenario.
struct RunOptions {
  bool HasPoints = false;    ///< switch points between the kernel calls, too
  bool HasStalls = false;    ///< threads stand still while time goes on
  bool HasExposure = false;  ///< the exposure loop runs: see Surroundings

  bool operator==(const RunOptions&) const = default;
};

/// What either of two has.
[[nodiscard]] RunOptions operator|(const RunOptions& a, const RunOptions& b);

/// As a user types them, each with a space ahead: " --points"; empty if there are none.
[[nodiscard]] std::string ToString(const RunOptions& options);

/// Which run.
struct RunKey {
  std::string Scenario;
  std::uint64_t Seed = 1;

  /// The scenario's own counter, for those that try every n: the allocation or the call that fails.
  /// 0: the seed chooses.
  std::uint64_t Step = 0;

  RunOptions Options{};
};

/// What happened in a run, counted.
struct RunCounts {
  std::uint64_t Steps = 0;       ///< operations of the device that the scenario asked for
  std::uint64_t Frames = 0;      ///< delivered whole
  std::uint64_t Disturbed = 0;   ///< delivered torn, or of a wrong size
  std::uint64_t Recoveries = 0;  ///< that came to their end
  std::uint64_t Faults = 0;      ///< carried out, by the count of the scenario
};

struct RunResult {
  RunKey Key;
  Verdict Outcome = Verdict::Passed;
  std::string Hang;    ///< name of the stated hang
  std::string What;    ///< what is wrong, or came too late, in one line
  std::string Report;  ///< of the verifier: threads, last calls
  std::string Trace;   ///< all lines if they were asked for, the last ones otherwise
  RunCounts Counts;
  std::uint64_t Hash = 0;            ///< over the canonical trace and the schedule
  std::uint64_t ScheduleLength = 0;  ///< switch points
  LONGLONG Time = 0;                 ///< virtual time, 100 ns
  bool ReachedFault = false;         ///< of a run with a step: the n-th call came
};

/// The command line that makes this run again.
[[nodiscard]] std::string ReplayCommand(const RunKey& key);

}  // namespace lidcam::scenarios
