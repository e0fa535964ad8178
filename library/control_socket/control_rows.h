#pragma once

#include <nlohmann/json.hpp>
#include <vector>

#include "library/camera/controls/control_lines.h"

namespace lidcam::app {

/// Controls as programs read them, an object each.
[[nodiscard]] nlohmann::json ToJson(const std::vector<ControlLine>& lines);

}  // namespace lidcam::app
