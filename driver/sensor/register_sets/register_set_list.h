#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"
#include "driver/sensor/registers/register_access.h"

namespace lidcam {

enum class RegisterList : std::uint32_t { Normal = 0, LowLight = 1 };

/// Writes the normal or the low-light register list, with the user's settings patched into their
/// registers.
///
/// @param path  on the application path a fixed tail follows on SensorTypeVGA0708
/// @return the status of the list's last write; 0 for an absent or overlong list, which writes
///         nothing
Status ApplyRegisterSet(CameraContext& context, RegisterList list, RegisterPath path);

}  // namespace lidcam
