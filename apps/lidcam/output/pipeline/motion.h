#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "library/base/units.h"

namespace lidcam::app {

/// Finds what moves between the frames of a stream, in blocks of 16 by 16 pixels. What moves does so for several
/// frames: a change between two of them alone, by light or exposure, is none.
class MotionWatch {
 public:
  explicit MotionWatch(PictureSize size);

  /// Compares the frame with the two before.
  /// @return percent of the picture's blocks that have moved in both steps
  [[nodiscard]] double PercentMoved(std::span<const std::uint8_t> yuy2);

 private:
  [[nodiscard]] std::vector<int> BlocksOf(std::span<const std::uint8_t> yuy2) const;

  const PictureSize size_;
  std::vector<int> before_;  ///< luminance of each block
  double movedBefore_ = 0;   ///< percent, from the frame before that
};

}  // namespace lidcam::app
