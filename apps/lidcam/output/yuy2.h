#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "library/base/units.h"

namespace lidcam::app {

/// Separates packed YUY2 into the planes Y, U and V with halved chroma width, one after the other.
/// `planar` is resized to fit.
void SeparatePlanes(std::span<const std::uint8_t> yuy2, PictureSize size,
                    std::vector<std::uint8_t>& planar);

/// Converts packed YUY2 (ITU-R BT.601, studio range) to packed RGB. `rgb` is resized to fit.
void ConvertToRgb(std::span<const std::uint8_t> yuy2, PictureSize size,
                  std::vector<std::uint8_t>& rgb);

}  // namespace lidcam::app
