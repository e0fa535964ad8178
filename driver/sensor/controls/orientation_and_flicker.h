#pragma once

#include "driver/core/record/camera_context.h"

namespace lidcam {

/// Sets the orientation bits of sensor and bridge; exists on SensorTypeVGA0708 only.
/// @return the status of the last write, 0 on other sensors
Status ProgramMirrorFlip(CameraContext& context);

/// Sets up the suppression of mains flicker and computes `FlickerBandStep`, the number of lines in
/// one half cycle of the mains.
/// @return as the sensor's row says; 0 for most
Status ProgramFlicker(CameraContext& context);

}  // namespace lidcam
