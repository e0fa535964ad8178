#include "driver/frame/resampler/resample_frame.h"

#include <limits>

#include "driver/frame/resampler/image_resampler.h"

namespace lidcam {
namespace {

constexpr std::int32_t kYuy2PixelBytes = 2;
constexpr std::int32_t kRgb24PixelBytes = 3;

// A row too long for a 32-bit step is refused like an empty one.
std::int32_t PackedStep(std::int32_t width, std::int32_t pixelBytes) {
  const std::int64_t step = std::int64_t{width} * pixelBytes;
  return step <= std::numeric_limits<std::int32_t>::max() ? static_cast<std::int32_t>(step) : 0;
}

}  // namespace

ResizeStatus ResampleWithFloatingPoint(std::uint8_t* destination, const std::uint8_t* source,
                                       std::int32_t sourceWidth, std::int32_t sourceHeight,
                                       std::int32_t destinationWidth,
                                       std::int32_t destinationHeight, std::uint32_t yuy2) {
  // Both entries refuse the size itself; the factors are never computed from it.
  if (sourceWidth <= 0 || sourceHeight <= 0) return ResizeBadSize;
  const double xFactor = static_cast<double>(destinationWidth) / sourceWidth;
  const double yFactor = static_cast<double>(destinationHeight) / sourceHeight;
  const auto resize = yuy2 != 0 ? ResizeYuy2 : ResizeRgb24;
  const std::int32_t pixelBytes = yuy2 != 0 ? kYuy2PixelBytes : kRgb24PixelBytes;
  return resize(source, {sourceWidth, sourceHeight}, PackedStep(sourceWidth, pixelBytes),
                {0, 0, sourceWidth, sourceHeight}, destination,
                PackedStep(destinationWidth, pixelBytes), {destinationWidth, destinationHeight},
                xFactor, yFactor, InterpolationLinear);
}

}  // namespace lidcam
