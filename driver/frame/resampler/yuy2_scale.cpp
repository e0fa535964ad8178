#include "driver/frame/resampler/yuy2_scale.h"

#include <algorithm>
#include <limits>

#include "driver/frame/resampler/jobs/source_bytes.h"

namespace lidcam {
namespace {

constexpr std::int32_t kScaledPixelBytes = 2;
constexpr std::int32_t kYuy2PairBytes = 4;

bool Yuy2TakesInterpolation(const ResizeArguments& arguments) {
  switch (arguments.Interpolation) {
    case InterpolationNearest:
    case InterpolationLinear:
    case InterpolationCubic:
    case InterpolationSuper:
      return true;
    default:
      return false;
  }
}

constexpr ResizeRules kYuy2Rules{.IsPaired = true, .TakesInterpolation = Yuy2TakesInterpolation};

ScaleAxis RowAxis(const ResizeArguments& arguments, ImageSize output) {
  return {ClipRegion(arguments).Height, arguments.SourceSize.Height - arguments.Region.Y - 1,
          arguments.YFactor, static_cast<std::uint32_t>(output.Height)};
}

ScaleAxis LumaAxis(const ResizeArguments& arguments, ImageSize output) {
  return {ClipRegion(arguments).Width, arguments.SourceSize.Width - arguments.Region.X - 1,
          arguments.XFactor, static_cast<std::uint32_t>(output.Width / 2 * 2)};
}

// Chroma has a grid of its own: it doesn't follow the luma positions.
ScaleAxis ChromaAxis(const ResizeArguments& arguments, ImageSize output) {
  return {ClipRegion(arguments).Width / 2,
          (arguments.SourceSize.Width - arguments.Region.X) / 2 - 1, arguments.XFactor,
          static_cast<std::uint32_t>(output.Width / 2)};
}

bool ReadsStayInside(const ScaleJob& job) {
  const std::int32_t firstRow = job.Rows.Index[0];
  if (firstRow < 0 || job.Luma.Index[0] < 0 || job.Chroma.Index[0] < 0) return false;
  const std::int64_t lastRow = std::int64_t{job.Rows.Index[job.Rows.Count - 1]} + 1;
  // Kernels load whole pixels: of the last one also the chroma byte behind its luma.
  const std::int64_t pixels = std::int64_t{job.Luma.Index[job.Luma.Count - 1]} + 2;
  const std::int64_t pairs = std::int64_t{job.Chroma.Index[job.Chroma.Count - 1]} + 2;
  const std::int64_t rowEnd = std::max(pixels * kScaledPixelBytes, pairs * kYuy2PairBytes);
  // Kernels count the bytes of a row in 32 bits.
  if (rowEnd > std::numeric_limits<std::int32_t>::max()) return false;
  const auto first = static_cast<std::int64_t>(job.Source - job.ReadBegin);
  const auto length = static_cast<std::int64_t>(job.ReadEnd - job.ReadBegin);
  return first >= 0 && first + lastRow * job.SourceStep + rowEnd <= length;
}

bool WritesStayApart(const ScaleJob& job) {
  const std::int64_t rowBytes = std::int64_t{kYuy2PairBytes} * job.Chroma.Count;
  if (job.DestinationStep < rowBytes) return false;
  const std::int64_t written = std::int64_t{job.DestinationStep} * (job.Rows.Count - 1) + rowBytes;
  const auto begin = reinterpret_cast<std::uintptr_t>(job.Destination);
  const auto readBegin = reinterpret_cast<std::uintptr_t>(job.ReadBegin);
  const auto readEnd = reinterpret_cast<std::uintptr_t>(job.ReadEnd);
  return begin >= readEnd ||
         (begin < readBegin && readBegin - begin >= static_cast<std::uint64_t>(written));
}

}  // namespace

ResizeStatus CheckYuy2(const ResizeArguments& arguments, ImageSize& output) {
  const ResizeStatus status = CheckResizeArguments(arguments, kYuy2Rules);
  if (status != ResizeDone) return status;
  const ImageRegion region = ClipRegion(arguments);
  const std::int32_t width =
      OutputCount(region.Width, arguments.XFactor, arguments.DestinationSize.Width, 2);
  const std::int32_t height =
      OutputCount(region.Height, arguments.YFactor, arguments.DestinationSize.Height, 1);
  if (width == 0 || height == 0) return ResizeNothingLeft;
  output = {width, height};
  return ResizeDone;
}

bool NeedsNearest(const ResizeArguments& arguments) {
  return arguments.SourceSize.Width < 4 || arguments.SourceSize.Height < 2;
}

Yuy2Scale::Yuy2Scale(const ResizeArguments& arguments, ImageSize output, const ScaleKernel& kernel)
    : axes_{RowAxis(arguments, output), LumaAxis(arguments, output), ChromaAxis(arguments, output)},
      memory_(AlignedMemory::Padded(TableBytes(axes_)) + kernel.WorkBytes(axes_[2].Entries)) {
  if (memory_.Bytes() == nullptr) return;
  AxisTable tables[3];
  BuildTables(axes_, kernel.BuildColumns, memory_.Bytes(), tables);
  const SourceBytes source = BytesOf(arguments, kYuy2PairBytes);
  job_ = {.Source = MovedBy(source.Begin, source.First),
          .SourceStep = arguments.SourceStep,
          .ReadBegin = source.Begin,
          .ReadEnd = MovedBy(source.Begin, source.Length),
          .Destination = arguments.Destination,
          .DestinationStep = arguments.DestinationStep,
          .Rows = tables[0],
          .Luma = tables[1],
          .Chroma = tables[2],
          .Work = memory_.Bytes() + AlignedMemory::Padded(TableBytes(axes_))};
}

const ScaleJob* Yuy2Scale::Job() const {
  return memory_.Bytes() != nullptr ? &job_ : nullptr;
}

bool SuitsEveryKernel(const ScaleJob& job) {
  return ReadsStayInside(job) && WritesStayApart(job);
}

}  // namespace lidcam
