#pragma once

#include <optional>
#include <string>

namespace lidcam::app {

/// Where the process that has a camera open takes requests of others: a socket in lidcam/ of the user's run-time folder,
/// $XDG_RUNTIME_DIR. Nothing without that folder or a unit.
///
/// @param unit  as UnitOf() names it
[[nodiscard]] std::optional<std::string> ControlSocketOf(const std::string& unit);

}  // namespace lidcam::app
