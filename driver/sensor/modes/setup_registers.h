#pragma once

#include "driver/core/record/camera_context.h"
#include "platform/kernel.h"

namespace lidcam {

/// Writes the setup table, then replays the image controls. Without a table only the replay runs.
_IRQL_requires_max_(PASSIVE_LEVEL)
void ApplySetupRegisters(CameraContext& context);

}  // namespace lidcam
