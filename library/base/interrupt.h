#pragma once

#include <string>

namespace lidcam::app {

/// After this call SIGINT, SIGTERM and SIGHUP request that commands end in order,
/// and a closed pipe or a file at its size limit causes a failed write. A hangup that is
/// ignored, as under nohup, stays ignored.
///
/// A second request ends the program at once; those that come together count as one.
void WatchForInterrupt();

/// Whether the end of the program was requested.
[[nodiscard]] bool IsInterrupted();

/// Whether it was requested by Ctrl-C.
[[nodiscard]] bool IsInterruptedByUser();

/// How it was requested: "interrupted", "ended by SIGTERM". Empty if it was not.
[[nodiscard]] std::string InterruptText();

/// After this call SIGUSR1 requests a save.
void WatchForSaveRequest();

/// Whether a save was requested since the last call. Several requests count as one.
[[nodiscard]] bool TakeSaveRequest();

}  // namespace lidcam::app
