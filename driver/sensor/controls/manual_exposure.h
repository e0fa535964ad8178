#pragma once

#include "driver/core/record/camera_context.h"
#include "platform/kernel.h"

namespace lidcam {

/// Hands exposure to the sensor or the host, or sets the sensor to the manual `Exposure`, cut to
/// whole bands of the mains flicker.
///
/// @return the status of the last register operation on SensorTypeVGA0408, and on SensorTypeVGA0708
///         with `AutoExposure` off; else 0
_IRQL_requires_max_(PASSIVE_LEVEL)
Status ApplyExposure(CameraContext& context);

}  // namespace lidcam
