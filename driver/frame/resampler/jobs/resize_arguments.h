#pragma once

#include <cstdint>

#include "driver/frame/resampler/jobs/image_types.h"
#include "driver/frame/resampler/jobs/scale_job.h"

namespace lidcam {

/// The arguments of a resize entry.
struct ResizeArguments {
  const std::uint8_t* Source;
  ImageSize SourceSize;
  std::int32_t SourceStep;
  ImageRegion Region;
  std::uint8_t* Destination;
  std::int32_t DestinationStep;
  ImageSize DestinationSize;
  double XFactor;
  double YFactor;
  std::int32_t Interpolation;
};

/// A pixel format's requirements on the arguments.
struct ResizeRules {
  bool IsPaired;  ///< pixels share chroma in pairs, which must not be split
  bool (*TakesInterpolation)(const ResizeArguments& arguments);
};

/// Checks all arguments; the first check that fails gives the status.
ResizeStatus CheckResizeArguments(const ResizeArguments& arguments, const ResizeRules& rules);

/// The part of the region that lies inside the source.
ImageRegion ClipRegion(const ResizeArguments& arguments);

/// Output samples of an axis: `count` times the factor, but at most `room`. If that is less than
/// `least` samples, half a sample less rounds up.
/// @return 0 when the scaled size rounds to nothing
std::int32_t OutputCount(std::int32_t count, double factor, std::int32_t room, std::int32_t least);

/// Truncates toward zero; values beyond 32 bits become the largest or smallest one.
std::int32_t TruncateSaturated(double value);

/// Added to positions, which rounding may have left slightly below the intended whole number.
inline constexpr double kPositionSlack = 0.0000001;

}  // namespace lidcam
