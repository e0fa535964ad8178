#pragma once

#include <CLI/CLI.hpp>

namespace lidcam::app {

/// Adds `rtsp` to the commands of `serve`.
void AddServeRtspCommand(CLI::App& serve);

}  // namespace lidcam::app
