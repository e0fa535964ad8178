#include "driver/frame/resampler/jobs/resize_arguments.h"

#include <algorithm>
#include <limits>

namespace lidcam {
namespace {

bool IsOdd(std::int32_t value) {
  return value % 2 != 0;
}

bool HasSourceSize(const ResizeArguments& arguments) {
  const auto& [x, y, width, height] = arguments.Region;
  return arguments.SourceSize.Width > 0 && arguments.SourceSize.Height > 0 && width > 0 &&
         height > 0 && x >= 0 && y >= 0;
}

bool StartsInSource(const ResizeArguments& arguments) {
  return arguments.Region.X < arguments.SourceSize.Width &&
         arguments.Region.Y < arguments.SourceSize.Height;
}

bool CutsNoPair(const ResizeArguments& arguments) {
  return !IsOdd(arguments.SourceSize.Width) && !IsOdd(arguments.Region.Width) &&
         !IsOdd(arguments.Region.X) && arguments.DestinationSize.Width >= 2;
}

// NaN is a bad factor too: it is not above 0.
bool HasFactors(const ResizeArguments& arguments) {
  return arguments.XFactor > 0.0 && arguments.YFactor > 0.0;
}

}  // namespace

ResizeStatus CheckResizeArguments(const ResizeArguments& arguments, const ResizeRules& rules) {
  if (arguments.Source == nullptr || arguments.Destination == nullptr) return ResizeNullPointer;
  if (!HasSourceSize(arguments)) return ResizeBadSize;
  if (!StartsInSource(arguments)) return ResizeRegionOutside;
  if (arguments.DestinationSize.Width < 1 || arguments.DestinationSize.Height < 1) {
    return ResizeBadSize;
  }
  if (rules.IsPaired && !CutsNoPair(arguments)) return ResizeBadSize;
  if (!HasFactors(arguments)) return ResizeBadFactor;
  if (!rules.TakesInterpolation(arguments)) return ResizeBadInterpolation;
  // Rows of no bytes hold no pixels.
  if (arguments.SourceStep <= 0 || arguments.DestinationStep <= 0) return ResizeBadSize;
  return ResizeDone;
}

ImageRegion ClipRegion(const ResizeArguments& arguments) {
  ImageRegion region = arguments.Region;
  region.Width = std::min(region.Width, arguments.SourceSize.Width - region.X);
  region.Height = std::min(region.Height, arguments.SourceSize.Height - region.Y);
  return region;
}

std::int32_t OutputCount(std::int32_t count, double factor, std::int32_t room, std::int32_t least) {
  const double scaled = count * factor + kPositionSlack;
  const std::int32_t whole = TruncateSaturated(scaled);
  if (room <= whole) return room;
  if (whole >= least) return whole;
  return scaled < least - 0.5 ? 0 : least;
}

std::int32_t TruncateSaturated(double value) {
  constexpr double kLargest = std::numeric_limits<std::int32_t>::max();
  constexpr double kSmallest = std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(std::clamp(value, kSmallest, kLargest));
}

}  // namespace lidcam
