#include "driver/frame/resampler/jobs/scale_tables.h"

#include <algorithm>
#include <cstddef>

#include "driver/frame/resampler/jobs/resize_arguments.h"

namespace lidcam {
namespace {

// Entries that are built together: their positions one after another, then their weights side by
// side. A multiple of what an aligned boundary holds of either column.
constexpr std::size_t kBlockEntries = 32;

// Positions beyond the range of an index are clamped to this, far outside any picture.
constexpr double kFarthestPosition = 2147483646.0;

struct TableBuilder {
  double Position;
  double Step;
  std::int32_t* Index;
  std::uint16_t* Weight;
  std::size_t BlocksLeft;
};

std::uint64_t BlocksOf(const ScaleAxis& axis) {
  return (std::uint64_t{axis.Entries} + kBlockEntries - 1) / kBlockEntries;
}

std::uint64_t IndexBytes(const ScaleAxis& axis) {
  return BlocksOf(axis) * kBlockEntries * sizeof(std::int32_t);
}

std::uint64_t WeightBytes(const ScaleAxis& axis) {
  return BlocksOf(axis) * kBlockEntries * sizeof(std::uint16_t);
}

void BuildBlock(TableBuilder& builder) {
  double positions[kBlockEntries];
  double next = builder.Position;
  for (double& position : positions) {
    position = next;
    next += builder.Step;
  }
  builder.Position = next;
  for (std::size_t entry = 0; entry < kBlockEntries; ++entry) {
    const double position =
        positions[entry] < kFarthestPosition ? positions[entry] : kFarthestPosition;
    const auto index = static_cast<std::int32_t>(position + kPositionSlack);
    const double weight = (position - index) * kWeightOne + kPositionSlack;
    builder.Index[entry] = index;
    builder.Weight[entry] = static_cast<std::uint16_t>(static_cast<std::int32_t>(weight));
  }
  builder.Index += kBlockEntries;
  builder.Weight += kBlockEntries;
  --builder.BlocksLeft;
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

void BuildTables(std::span<const ScaleAxis> axes, std::uint8_t* memory,
                 std::span<AxisTable> tables) {
  constexpr std::size_t kMostAxes = 3;
  TableBuilder builders[kMostAxes] = {};
  std::int32_t* indexes[kMostAxes] = {};
  std::uint16_t* weights[kMostAxes] = {};
  std::size_t mostBlocks = 0;
  for (std::size_t i = 0; i < axes.size() && i < kMostAxes; ++i) {
    indexes[i] = reinterpret_cast<std::int32_t*>(memory);
    memory += IndexBytes(axes[i]);
    weights[i] = reinterpret_cast<std::uint16_t*>(memory);
    memory += WeightBytes(axes[i]);
    builders[i] = {0.0, AxisStep(axes[i]), indexes[i], weights[i],
                   static_cast<std::size_t>(BlocksOf(axes[i]))};
    mostBlocks = std::max(mostBlocks, builders[i].BlocksLeft);
    tables[i] = {indexes[i], weights[i], axes[i].Entries};
  }
  // The axes side by side: each is one long chain of additions, and they don't wait for each other.
  for (std::size_t block = 0; block < mostBlocks; ++block) {
    for (TableBuilder& builder : builders) {
      if (builder.BlocksLeft > 0) BuildBlock(builder);
    }
  }
  for (std::size_t i = 0; i < axes.size() && i < kMostAxes; ++i) {
    EndOnLastSample(axes[i], indexes[i], weights[i]);
  }
}

}  // namespace lidcam
