#pragma once

#include <cstdint>
#include <string_view>

#include "viewer/camera/camera_telemetry.h"

namespace lidcam::viewer {

/// What the driver calls a register of a camera with this sensor ("VGA0708"); empty for one whose use is unknown.
[[nodiscard]] std::string_view NameOfRegister(RegisterChip chip, std::uint16_t address,
                                              std::string_view sensor);

}  // namespace lidcam::viewer
