#pragma once

#include "driver/core/record/camera_context.h"
#include "platform/kernel.h"

namespace lidcam {

/// Puts bridge and sensor into the mode that a stream needs, by raw size, sensor type and alternate
/// setting, and starts the sensor. Once per stream start.
/// @return 0 always: register errors are not acted on
_IRQL_requires_max_(PASSIVE_LEVEL)
Status ProgramStreamMode(CameraContext& context);

}  // namespace lidcam
