#include "driver/frame/resampler/jobs/scale_tables.h"

#include <cstddef>

#include "driver/frame/resampler/jobs/resize_arguments.h"

namespace lidcam {
namespace {

// A multiple of what an aligned boundary holds of either column, and of a group.
constexpr std::size_t kBlockEntries = 32;
static_assert(kBlockEntries % kGroupEntries == 0);

std::uint64_t PaddedEntries(const ScaleAxis& axis) {
  return (std::uint64_t{axis.Entries} + kBlockEntries - 1) / kBlockEntries * kBlockEntries;
}

std::uint64_t IndexBytes(const ScaleAxis& axis) {
  return PaddedEntries(axis) * sizeof(std::int32_t);
}

std::uint64_t WeightBytes(const ScaleAxis& axis) {
  return PaddedEntries(axis) * sizeof(std::uint16_t);
}

// The last source sample has no right neighbour: it becomes one itself, with all the weight.
void EndOnLastSample(const ScaleAxis& axis, std::int32_t* index, std::uint16_t* weight) {
  for (std::size_t entry = axis.Entries; entry-- > 0 && index[entry] >= axis.Last;) {
    if (index[entry] != axis.Last) continue;
    index[entry] = axis.Last - 1;
    weight[entry] = static_cast<std::uint16_t>(kWeightOne);
  }
}

}  // namespace

double AxisStep(const ScaleAxis& axis) {
  const double scaled = axis.Count * axis.Factor;
  return scaled > 1.0 ? (axis.Count - 1) / (scaled - 1.0) : 0.0;
}

std::uint64_t TableBytes(std::span<const ScaleAxis> axes) {
  std::uint64_t bytes = 0;
  for (const ScaleAxis& axis : axes) bytes += IndexBytes(axis) + WeightBytes(axis);
  return bytes;
}

void BuildColumns(double step, std::uint32_t entries, std::int32_t* index, std::uint16_t* weight) {
  double next = 0.0;
  for (std::uint32_t entry = 0; entry < entries; ++entry) {
    const double position = next < kFarthestPosition ? next : kFarthestPosition;
    const auto whole = static_cast<std::int32_t>(position + kPositionSlack);
    const double part = (position - whole) * kWeightOne + kPositionSlack;
    index[entry] = whole;
    weight[entry] = static_cast<std::uint16_t>(static_cast<std::int32_t>(part));
    next += step;
  }
}

void BuildTables(std::span<const ScaleAxis> axes, ColumnBuilder build, std::uint8_t* memory,
                 std::span<AxisTable> tables) {
  for (std::size_t i = 0; i < axes.size(); ++i) {
    auto* const index = reinterpret_cast<std::int32_t*>(memory);
    memory += IndexBytes(axes[i]);
    auto* const weight = reinterpret_cast<std::uint16_t*>(memory);
    memory += WeightBytes(axes[i]);
    build(AxisStep(axes[i]), axes[i].Entries, index, weight);
    EndOnLastSample(axes[i], index, weight);
    tables[i] = {index, weight, axes[i].Entries};
  }
}

}  // namespace lidcam
