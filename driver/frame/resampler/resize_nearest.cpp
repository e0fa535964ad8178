#include "driver/frame/resampler/resize_nearest.h"

#include <algorithm>

#include "driver/frame/resampler/jobs/source_bytes.h"

namespace lidcam {
namespace {

std::int32_t NearestSample(std::int64_t output, double factor, std::int32_t last) {
  const double position = (static_cast<double>(output) + 0.5) / factor + kPositionSlack;
  return std::min(TruncateSaturated(position), last);
}

// Where a byte of a YUY2 output row comes from: luma at even places, chroma by pairs.
std::int64_t Yuy2Place(const ResizeArguments& arguments, std::int64_t place) {
  const std::int32_t width = arguments.SourceSize.Width - arguments.Region.X;
  if (place % 2 == 0)
    return 2 * std::int64_t{NearestSample(place / 2, arguments.XFactor, width - 1)};
  const std::int32_t pair = NearestSample(place / 4, arguments.XFactor, width / 2 - 1);
  return 4 * std::int64_t{pair} + place % 4;
}

std::int64_t Rgb24Place(const ResizeArguments& arguments, std::int64_t place) {
  const std::int32_t last = arguments.SourceSize.Width - arguments.Region.X - 1;
  return 3 * std::int64_t{NearestSample(place / 3, arguments.XFactor, last)} + place % 3;
}

using PlaceOfByte = std::int64_t (*)(const ResizeArguments& arguments, std::int64_t place);

void ScaleByNearest(const ResizeArguments& arguments, const SourceBytes& source,
                    std::int64_t rowBytes, std::int32_t rows, PlaceOfByte placeOfByte) {
  const std::int32_t lastRow = arguments.SourceSize.Height - arguments.Region.Y - 1;
  const std::int64_t bytes = std::min<std::int64_t>(rowBytes, arguments.DestinationStep);
  for (std::int32_t r = 0; r < rows; ++r) {
    const std::int64_t row =
        source.First +
        std::int64_t{NearestSample(r, arguments.YFactor, lastRow)} * arguments.SourceStep;
    std::uint8_t* const destination =
        MovedBy(arguments.Destination, std::int64_t{r} * arguments.DestinationStep);
    for (std::int64_t place = 0; place < bytes; ++place) {
      destination[place] = source.At(row + placeOfByte(arguments, place));
    }
  }
}

}  // namespace

void ScaleYuy2ByNearest(const ResizeArguments& arguments, ImageSize output) {
  ScaleByNearest(arguments, BytesOf(arguments, 4), std::int64_t{output.Width / 2} * 4,
                 output.Height, Yuy2Place);
}

void ScaleRgb24ByNearest(const ResizeArguments& arguments, ImageSize output) {
  ScaleByNearest(arguments, BytesOf(arguments, 3), std::int64_t{output.Width} * 3, output.Height,
                 Rgb24Place);
}

}  // namespace lidcam
