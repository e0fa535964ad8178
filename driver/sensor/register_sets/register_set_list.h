#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"

namespace lidcam {

/// Writes the normal or the low-light register list, with the registers patched that carry what the
/// user has set.
///
/// @param lowLight  nonzero: the low-light list
/// @param wait      nonzero: the waiting primitives (and on SensorTypeVGA0708 a fixed tail), else
///                  the refusing ones of the frame path
/// @return the status of the list's last write; 0 for an absent or overlong list, which writes
///         nothing
Status ApplyRegisterSet(CameraContext& context, std::uint32_t lowLight, std::uint32_t wait);

}  // namespace lidcam
