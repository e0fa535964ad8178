#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"
#include "library/base/units.h"

namespace lidcam::app {

/// Makes a stream deliver YUY2 of a size, 30 frames a second, as the pin negotiates it. The raw buffers of a
/// stream that runs fit any size.
///
/// @return bytes of one raw buffer
std::uint32_t DeliverAs(CameraContext& context, PictureSize size);

}  // namespace lidcam::app
