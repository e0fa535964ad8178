#pragma once

#include "driver/core/camera_context.h"

namespace lidcam {

/// Returns the light state machine to Initial, at each stream start, and sets the limits that the
/// sensor family has.
void ResetLightState(CameraContext& context);

}  // namespace lidcam
