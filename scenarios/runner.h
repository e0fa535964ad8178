#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include "scenarios/plays/scenario.h"
#include "scenarios/run/run_parts.h"
#include "scenarios/run/run_result.h"

namespace lidcam::scenarios {

struct RunRecords {
  bool KeepsTrace = false;  ///< all lines of it, not only the last ones

  /// The schedule to follow in place of the seed's, as far as it goes; null: none. Needs `Record`.
  const host::ScheduleRecord* Follow = nullptr;
  host::ScheduleRecord* Record = nullptr;  ///< receives the run's schedule; may be null

  RunParts* Parts = nullptr;  ///< what of the run is left out; null: nothing

  /// Called at each switch point behind the key's reseedings, with a number for the state in which the driver is there.
  ///
  /// @return a further reseeding of the run; nothing: it goes on as it does
  std::function<std::optional<std::uint64_t>(const host::SwitchPlace& place,
                                             std::uint64_t driverState)>
      Guide{};
};

/// Runs a scenario once, in a world of its own. A function of the key alone. One at a time in a
/// process.
[[nodiscard]] RunResult RunScenario(const Scenario& scenario, const RunKey& key,
                                    const RunRecords& records = {});

/// Runs a scenario that has steps with step 1, 2, 3 ... until one that it doesn't reach.
///
/// @param seen  receives each result; false ends the loop
/// @return the number of steps that were reached
std::uint64_t RunAllSteps(const Scenario& scenario, std::uint64_t seed, const RunOptions& options,
                          const std::function<bool(const RunResult&)>& seen);

}  // namespace lidcam::scenarios
