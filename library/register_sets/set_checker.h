#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "library/register_sets/set_layout.h"

namespace lidcam::app {

/// Looks for everything in a set file that the camera would stumble over.
///
/// @return all findings in the order of their offsets; tables that the file does not fill are a note
[[nodiscard]] std::vector<SetFinding> CheckRegisterSet(std::span<const std::uint8_t> file);

/// "S001.set: offset 16: fault: section length 4 is below 8, its head's".
[[nodiscard]] std::string FindingText(std::string_view fileName, const SetFinding& finding);

}  // namespace lidcam::app
