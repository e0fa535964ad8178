#pragma once

#include <cstddef>
#include <cstdint>

namespace lidcam {

/// Result of a resize entry.
enum ResizeStatus : std::int32_t {
  ResizeDone = 0,
  ResizeRegionOutside = 29,  ///< the region lies outside the source: a warning, nothing is written
  ResizeBadSize = -6,
  ResizeNullPointer = -8,
  ResizeOutOfMemory = -9,
  ResizeBadInterpolation = -22,
  ResizeBadFactor = -23,
  ResizeNothingLeft = -201,  ///< the scaled size rounds to nothing
};

/// Weights have 14 fraction bits.
inline constexpr std::uint32_t kWeightOne = 16384;

/// Where the samples of one axis come from: entry `n` blends sample Index[n] with weight
/// 16384 - Weight[n] and sample Index[n] + 1 with weight Weight[n].
struct AxisTable {
  const std::int32_t* Index;    ///< never descending; 32-byte aligned
  const std::uint16_t* Weight;  ///< 0 to 16384, of the right or lower sample; 32-byte aligned
  std::uint32_t Count;
};

/// One checked and clipped linear scale of packed YUY2: all that a kernel needs to know.
struct ScaleJob {
  const std::uint8_t* Source;     ///< first byte of the region
  std::ptrdiff_t SourceStep;      ///< bytes from row to row, above 0
  const std::uint8_t* ReadBegin;  ///< no byte below this may be read
  const std::uint8_t* ReadEnd;    ///< no byte at or above this may be read
  std::uint8_t* Destination;
  std::ptrdiff_t DestinationStep;  ///< bytes from row to row, above 0
  AxisTable Rows;                  ///< one entry per output row
  AxisTable Luma;                  ///< one entry per output pixel; sample i is byte 2i
  AxisTable Chroma;    ///< one entry per output pair; U is byte 4i + 1, V is byte 4i + 3
  std::uint8_t* Work;  ///< what the kernel asks for in ScaleKernel::WorkBytes; 64-byte aligned
};

/// Scales one picture.
///
/// Writes exactly 4 * Chroma.Count bytes to each of Rows.Count destination rows. Allocates nothing.
using ScaleFunction = void (*)(const ScaleJob& job);

/// Bytes of ScaleJob::Work for rows of `pairs` output pairs.
using WorkBytesFunction = std::uint64_t (*)(std::uint32_t pairs);

}  // namespace lidcam
