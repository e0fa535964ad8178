#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/host/nt/simulation/schedule_record.h"
#include "scenarios/runner.h"

namespace lidcam::scenarios {

/// A failed run, and the shortest schedule and the fewest faults and operations that were found for it.
struct MinimizedRun {
  RunResult Result;                ///< of the run with that schedule
  host::ScheduleRecord Schedule;   ///< its deviations from the default; each one is needed
  std::size_t Before = 0;          ///< deviations of the seed's own schedule
  std::vector<std::string> Parts;  ///< faults, stalls and operations that are left; see RunParts
  std::size_t PartsBefore = 0;
  std::uint64_t Runs = 0;  ///< that were played for it
  bool IsMinimal = false;  ///< no single deviation, fault or operation can be left out
};

/// Removes deviations from a failed run's schedule, and then faults and operations, as long as it fails in the same
/// way.
///
/// @param seen  called ahead of each run with the number of deviations and parts that are left; false stops
/// @return a result that has not failed if the run, or its repetition by its deviations alone, doesn't
[[nodiscard]] MinimizedRun Minimize(const Scenario& scenario, const RunKey& key,
                                    const std::function<bool(std::size_t left)>& seen);

}  // namespace lidcam::scenarios
