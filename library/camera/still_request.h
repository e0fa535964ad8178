#pragma once

#include <cstdint>

#include "library/camera/opened_camera.h"

namespace lidcam::app {

/// Has the driver write its next frame to its still file.
///
/// @param value  marked in the file, the low 16 bits
/// Throws CommandError.
void AskForStill(const OpenedCamera& opened, std::uint32_t value);

}  // namespace lidcam::app
