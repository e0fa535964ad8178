#pragma once

#include <cstdint>
#include <span>

#include "driver/frame/resampler/jobs/aligned_memory.h"
#include "driver/frame/resampler/jobs/scale_job.h"

namespace lidcam {

/// One axis of a scale: rows, luma columns or chroma columns.
struct ScaleAxis {
  std::int32_t Count;     ///< samples of the clipped region
  std::int32_t Last;      ///< last sample of the source, counted from the region's first
  double Factor;          ///< output samples per source sample
  std::uint32_t Entries;  ///< output samples
};

/// Bytes that the tables of these axes take.
[[nodiscard]] std::uint64_t TableBytes(std::span<const ScaleAxis> axes);

/// Columns are written in groups of so many entries: they have room for all of the last group.
inline constexpr std::uint32_t kGroupEntries = 8;

/// Fills the columns of an axis whose entries are `step` source samples apart.
///
/// Positions are 64-bit floating point, with the step added entry by entry: every way to build
/// columns has to give the positions of this one, as others have other weights for some sizes.
///
/// @param index, weight  aligned, with room for `entries` rounded up to whole groups
using ColumnBuilder = void (*)(double step, std::uint32_t entries, std::int32_t* index,
                               std::uint16_t* weight);

/// The reference for all builders of columns: entry by entry.
void BuildColumns(double step, std::uint32_t entries, std::int32_t* index, std::uint16_t* weight);

/// Builds a table for each axis.
///
/// @param memory  TableBytes(axes), aligned; has to outlive the tables
/// @param tables  one for each of `axes`
void BuildTables(std::span<const ScaleAxis> axes, ColumnBuilder build, std::uint8_t* memory,
                 std::span<AxisTable> tables);

/// Positions beyond the range of an index are clamped to this, far outside any picture.
inline constexpr double kFarthestPosition = 2147483646.0;

/// The distance of two output samples in source samples: the first output sample sits on the
/// first source sample, the last on the last.
[[nodiscard]] double AxisStep(const ScaleAxis& axis);

}  // namespace lidcam
