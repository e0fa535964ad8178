#pragma once

#include <cstdint>

#include "driver/frame/resampler/jobs/scale_job.h"

namespace lidcam {

/// ResampleFrame() between saving and restoring the floating-point state: kept apart, so that the
/// compiler can't move work with these registers in front of the save.
ResizeStatus ResampleWithFloatingPoint(std::uint8_t* destination, const std::uint8_t* source,
                                       std::int32_t sourceWidth, std::int32_t sourceHeight,
                                       std::int32_t destinationWidth,
                                       std::int32_t destinationHeight, std::uint32_t yuy2);

}  // namespace lidcam
