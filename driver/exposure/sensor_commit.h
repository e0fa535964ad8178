#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"

namespace lidcam {

// SensorTypeVGA0708 is given this write after a change of its registers, and again while an
// exposure stands still.
inline constexpr RegisterAddress kCommitRegister = 0xFF2F;
inline constexpr std::uint8_t kCommitValue = 0x83;

}  // namespace lidcam
