#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"
#include "driver/core/record/control_table.h"
#include "platform/kernel.h"

namespace lidcam {

/// Writes the hardware from the value that the record holds for a control.
///
/// @param step  an ImageControlStep; any other number does nothing
/// @return 0, or for most steps the status of the last register operation
_IRQL_requires_max_(PASSIVE_LEVEL)
Status ApplyImageControl(std::uint32_t step, CameraContext& context);

}  // namespace lidcam
