#pragma once

#include "driver/core/record/camera_context.h"
#include "platform/kernel.h"

namespace lidcam {

inline constexpr Time100ns kPollPeriod = 20'000;  ///< 2 ms

/// Relative times of the platform: negative counts of 100 ns.
inline LARGE_INTEGER RelativeTime(Time100ns units) {
  LARGE_INTEGER time{};
  time.QuadPart = -units;
  return time;
}

/// Sleeps between two polls of a condition that sets no event.
_IRQL_requires_max_(PASSIVE_LEVEL)
inline void SleepOnePoll() {
  RequireLevelAtMost(PASSIVE_LEVEL);
  LARGE_INTEGER time = RelativeTime(kPollPeriod);
  KeDelayExecutionThread(KernelMode, FALSE, &time);
}

}  // namespace lidcam
