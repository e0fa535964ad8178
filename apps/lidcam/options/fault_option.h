#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "apps/lidcam/options/common_options.h"
#include "apps/lidcam/output/file_roles.h"
#include "library/camera/gates/faulty_port.h"

namespace lidcam::app {

/// Adds --faults, which lets things go wrong on the camera's bus.
void AddFaultOption(CLI::App& command, std::optional<std::string>& faults);

/// The file that a fault script comes from; nothing for one in the command line.
[[nodiscard]] std::vector<InputRole> FilesOfFaults(const std::optional<std::string>& faults);

/// The bus time that a stream within these limits takes; a guess where nothing limits it.
[[nodiscard]] std::chrono::microseconds LikelyDuration(const StreamLimits& limits);

}  // namespace lidcam::app
