#pragma once

namespace lidcam::app {

/// From here on Ctrl-C and a termination request ask commands to end in order, and a closed pipe
/// shows as a failed write.
void WatchForInterrupt();

/// Whether the user asked to end.
[[nodiscard]] bool IsInterrupted();

}  // namespace lidcam::app
