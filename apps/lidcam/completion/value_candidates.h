#pragma once

#include <string>

#include "apps/lidcam/completion/completer.h"

namespace lidcam::app {

/// Candidates for a value: cameras that are plugged in and simulated ones, picture sizes, controls with their
/// ranges, scenarios, register chips, and so on.
///
/// @param option  the option's long name without its dashes, or the argument's name
/// @param type    how --help names its value: "CAMERA", "WxH", "NAME=VALUE", "TEXT:{bridge,sensor}"
/// @param typed   the beginning of the value
[[nodiscard]] Completion ValuesOf(const std::string& option, const std::string& type,
                                  const std::string& typed);

}  // namespace lidcam::app
