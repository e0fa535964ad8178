#pragma once

#include <cstdint>

namespace lidcam {

/// Width and height in pixels.
struct ImageSize {
  std::int32_t Width;
  std::int32_t Height;
};

/// Part of a picture, in pixels. It is clipped to the picture.
struct ImageRegion {
  std::int32_t X;
  std::int32_t Y;
  std::int32_t Width;
  std::int32_t Height;
};

/// Interpolation codes of the resize entries.
enum Interpolation : std::int32_t {
  InterpolationNearest = 1,
  InterpolationLinear = 2,
  InterpolationCubic = 4,     ///< done linearly
  InterpolationSuper = 8,     ///< done linearly
  InterpolationLanczos = 16,  ///< done linearly; three bytes a pixel only
};

}  // namespace lidcam
