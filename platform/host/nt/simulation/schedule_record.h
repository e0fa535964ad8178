#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/host/nt/simulation/thread_chooser.h"

namespace lidcam::host {

/// A choice that differs from the default: a thread continues until it waits, and then the one with the lowest
/// number runs.
struct Deviation {
  std::uint32_t Thread = 0;  ///< at whose switch point the choice is made
  std::uint64_t Choice = 0;  ///< its number among the choices at that thread's points, from 1
  std::uint32_t Chosen = 0;  ///< the thread that runs next

  auto operator<=>(const Deviation&) const = default;
};

/// The schedule of one run.
struct ScheduleRecord {
  std::vector<Deviation> Deviations;
  std::vector<std::uint64_t> Ties;  ///< the order of entries that are due at the same time

  /// A line for each deviation: the threads, and the call ahead of which the first is suspended.
  std::vector<std::string> Texts;
};

/// Chooses as `chooser` and adds what it chooses to `record`, which outlives the result.
[[nodiscard]] std::unique_ptr<ThreadChooser> MakeRecordingChooser(
    std::unique_ptr<ThreadChooser> chooser, ScheduleRecord& record);

/// Repeats the choices of `record`, which outlives the result, as far as the threads can run. Only its deviations that
/// take place are in `played`.
[[nodiscard]] std::unique_ptr<ThreadChooser> MakeFollowingChooser(const ScheduleRecord& record,
                                                                  ScheduleRecord& played);

}  // namespace lidcam::host
