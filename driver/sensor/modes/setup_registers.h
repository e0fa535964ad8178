#pragma once

#include "driver/core/record/camera_context.h"

namespace lidcam {

/// Writes the setup table, then replays the image controls. Without a table only the replay runs.
/// @par Callable at passive level only
void ApplySetupRegisters(CameraContext& context);

}  // namespace lidcam
