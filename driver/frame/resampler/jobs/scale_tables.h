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

/// Builds a table for each axis.
///
/// Positions are 64-bit floating point, with the step added entry by entry: any other way to the
/// same positions gives other weights for some sizes.
///
/// @param memory  TableBytes(axes), aligned; has to outlive the tables
/// @param tables  one for each of `axes`
void BuildTables(std::span<const ScaleAxis> axes, std::uint8_t* memory,
                 std::span<AxisTable> tables);

/// The distance of two output samples in source samples: the first output sample sits on the
/// first source sample, the last on the last.
[[nodiscard]] double AxisStep(const ScaleAxis& axis);

}  // namespace lidcam
