#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"

namespace lidcam {

/// Steps of ApplyImageControl(). 3, 7, 17 and 18 are not used.
enum ImageControlStep : std::uint32_t {
  ImageControlBrightness = 1,
  ImageControlContrast = 2,
  ImageControlSaturation = 4,
  ImageControlSharpness = 5,
  ImageControlGamma = 6,
  ImageControlBackLight = 8,
  ImageControlColorEnable = 9,
  ImageControlExposure = 10,
  ImageControlMirror = 11,
  ImageControlVertical = 12,
  ImageControlFlicker = 13,
  ImageControlEffect = 14,
  ImageControlLDMode = 15,
  ImageControlRawRegister = 16,
  ImageControlLed = 19,
};

/// Writes the hardware from the value that the record holds for a control.
///
/// @param step  an ImageControlStep; any other number does nothing
/// @return 0, or for most steps the status of the last register operation
/// @par Callable at passive level only
Status ApplyImageControl(std::uint32_t step, CameraContext& context);

}  // namespace lidcam
