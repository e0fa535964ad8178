#pragma once

#include <cstdint>
#include <span>

namespace lidcam::camera_model {

enum class LineFilterKind : std::uint8_t {
  Sharpen,  ///< adds the difference from the neighbours
  Relief,   ///< the slope, around a middle grey
  Sketch,   ///< dark lines at edges
};

/// The bridge's filter along a line.
struct LineFilter {
  LineFilterKind Kind = LineFilterKind::Sharpen;
  int Amount = 0;  ///< of the sharpening, in sixteenths, 0 to 63

  [[nodiscard]] bool HasEffect() const { return Kind != LineFilterKind::Sharpen || Amount != 0; }
};

/// Filters a line of luma. The ends count as their own neighbours.
/// @param out  as long as `luma`, and another line
void FilterLine(const LineFilter& filter, std::span<const std::uint8_t> luma,
                std::span<std::uint8_t> out);

}  // namespace lidcam::camera_model
