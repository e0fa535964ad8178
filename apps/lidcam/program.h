#pragma once

namespace lidcam::app {

/// Runs the command that the arguments name, and tells a failure on the standard error.
///
/// @return the exit status: 0 done, 1 failed, 2 wrong use
int RunProgram(int argc, char** argv);

}  // namespace lidcam::app
