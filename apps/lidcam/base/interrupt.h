#pragma once

#include <string>

namespace lidcam::app {

/// From here on Ctrl-C, a termination request and a terminal that goes away ask commands to end in
/// order, and a closed pipe or a file that may grow no more shows as a failed write. A hangup that is
/// ignored, as under nohup, stays so.
///
/// A second request ends the program at once; those that come together count as one.
void WatchForInterrupt();

/// Whether the program was asked to end.
[[nodiscard]] bool IsInterrupted();

/// Whether it was asked by Ctrl-C.
[[nodiscard]] bool IsInterruptedByUser();

/// How it was asked: "interrupted", "ended by SIGTERM". Empty if it was not.
[[nodiscard]] std::string InterruptText();

}  // namespace lidcam::app
