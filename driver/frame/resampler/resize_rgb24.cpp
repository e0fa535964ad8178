// Three bytes a pixel. No camera frame uses this format: the plain form is enough.

#include <algorithm>

#include "driver/frame/resampler/image_resampler.h"
#include "driver/frame/resampler/jobs/resize_arguments.h"
#include "driver/frame/resampler/jobs/scale_tables.h"
#include "driver/frame/resampler/jobs/source_bytes.h"
#include "driver/frame/resampler/resize_nearest.h"

namespace lidcam {
namespace {

constexpr std::int32_t kPixelBytes = 3;
constexpr std::uint32_t kHalfOfProducts = 1U << 27;  // two weights of 14 fraction bits
constexpr std::uint32_t kShiftOfProducts = 28;

bool TakesInterpolation(const ResizeArguments& arguments) {
  switch (arguments.Interpolation) {
    case InterpolationNearest:
    case InterpolationLinear:
    case InterpolationCubic:
    case InterpolationLanczos:
      return true;
    case InterpolationSuper:
      return arguments.XFactor <= 1.0 && arguments.YFactor <= 1.0;
    default:
      return false;
  }
}

constexpr ResizeRules kRules{.IsPaired = false, .TakesInterpolation = TakesInterpolation};

std::uint8_t BlendFour(const SourceBytes& source, std::int64_t place, std::int64_t step,
                       std::uint32_t right, std::uint32_t lower) {
  const std::uint32_t left = kWeightOne - right;
  const std::uint32_t top = left * source.At(place) + right * source.At(place + kPixelBytes);
  const std::uint32_t bottom =
      left * source.At(place + step) + right * source.At(place + step + kPixelBytes);
  const std::uint64_t sum =
      std::uint64_t{top} * (kWeightOne - lower) + std::uint64_t{bottom} * lower + kHalfOfProducts;
  return static_cast<std::uint8_t>(sum >> kShiftOfProducts);
}

void ScaleLinearly(const ResizeArguments& arguments, const AxisTable& rows,
                   const AxisTable& columns) {
  const SourceBytes source = BytesOf(arguments, kPixelBytes);
  const std::int64_t bytes =
      std::min<std::int64_t>(std::int64_t{columns.Count} * kPixelBytes, arguments.DestinationStep);
  for (std::uint32_t r = 0; r < rows.Count; ++r) {
    const std::int64_t row = source.First + std::int64_t{rows.Index[r]} * arguments.SourceStep;
    std::uint8_t* const destination =
        MovedBy(arguments.Destination, std::int64_t{r} * arguments.DestinationStep);
    for (std::int64_t byte = 0; byte < bytes; ++byte) {
      const std::int64_t pixel = byte / kPixelBytes;
      const std::int64_t place =
          row + std::int64_t{columns.Index[pixel]} * kPixelBytes + byte % kPixelBytes;
      destination[byte] =
          BlendFour(source, place, arguments.SourceStep, columns.Weight[pixel], rows.Weight[r]);
    }
  }
}

// Pixels without a neighbour in one direction can't be blended.
bool IsTooSmall(ImageSize source) {
  return source.Width < 2 || source.Height < 2;
}

}  // namespace

ResizeStatus ResizeRgb24(const std::uint8_t* source, ImageSize sourceSize, std::int32_t sourceStep,
                         ImageRegion region, std::uint8_t* destination,
                         std::int32_t destinationStep, ImageSize destinationSize, double xFactor,
                         double yFactor, std::int32_t interpolation) {
  const ResizeArguments arguments{source,      sourceSize,      sourceStep,      region,
                                  destination, destinationStep, destinationSize, xFactor,
                                  yFactor,     interpolation};
  const ResizeStatus status = CheckResizeArguments(arguments, kRules);
  if (status != ResizeDone) return status;

  const ImageRegion clipped = ClipRegion(arguments);
  const std::int32_t width = OutputCount(clipped.Width, xFactor, destinationSize.Width, 1);
  const std::int32_t height = OutputCount(clipped.Height, yFactor, destinationSize.Height, 1);
  if (width == 0 || height == 0) return ResizeNothingLeft;
  if (interpolation == InterpolationNearest || IsTooSmall(sourceSize)) {
    ScaleRgb24ByNearest(arguments, {width, height});
    return ResizeDone;
  }

  const ScaleAxis axes[] = {
      {clipped.Height, sourceSize.Height - region.Y - 1, yFactor,
       static_cast<std::uint32_t>(height)},
      {clipped.Width, sourceSize.Width - region.X - 1, xFactor, static_cast<std::uint32_t>(width)},
  };
  const AlignedMemory memory(TableBytes(axes));
  if (memory.Bytes() == nullptr) return ResizeOutOfMemory;
  AxisTable tables[2];
  BuildTables(axes, BuildColumns, memory.Bytes(), tables);
  ScaleLinearly(arguments, tables[0], tables[1]);
  return ResizeDone;
}

}  // namespace lidcam
