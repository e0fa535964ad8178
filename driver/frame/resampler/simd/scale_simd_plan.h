#pragma once

#include <cstddef>
#include <cstdint>

#include "driver/frame/resampler/jobs/scale_job.h"

namespace lidcam {

// What the kernels with byte shuffles determine about a picture before they touch a pixel.
//
// A lane is 16 bytes of a register: eight 16-bit samples, which are the bytes Y0 U Y1 V Y0 U Y1 V of
// two neighbouring output pairs. Every sample comes from two source bytes, two apart for luma and
// four apart for chroma; a shuffle brings the eight byte pairs of a lane into output order straight
// from packed YUY2. A block is two registers, which give one register of output bytes. The blocks
// of a row stand side by side; the last one is moved back to end with the row, so that it computes
// some pairs of its neighbour again instead of writing past the end.

inline constexpr std::size_t kLaneBytes = 16;
inline constexpr std::size_t kLaneSamples = 8;
inline constexpr std::size_t kLanePairs = 2;

/// Line buffers of a picture.
inline constexpr std::size_t kLines = 3;

/// How the source bytes of a lane are reached.
enum class Gather : std::uint8_t {
  Halving,    ///< output pair j starts at source pair 2j: one fixed shuffle of successive bytes
  Loads,      ///< each lane lies in 16 source bytes, or each of its pairs does
  Window64,   ///< each register's samples lie in 64 source bytes
  Window128,  ///< each register's samples lie in 128 source bytes
  None,       ///< the pairs are too far apart, or the picture is too small
};

/// Properties of a kernel.
struct SimdShape {
  std::size_t Lanes;    ///< in a register
  bool WindowShuffles;  ///< shuffles reach across lanes: windows instead of loads
};

/// The blocks of a row in the order in which they are computed: first those whose lanes need one
/// load, then those with two. Sorted, so that the branch between them is predictable.
struct BlockRow {
  std::size_t Blocks;
  std::size_t OneLoadBlocks;
  const std::int32_t* Places;  ///< output byte at which each block starts
};

/// Gather tables of one picture, in the order of the blocks, their registers and lanes. With Loads
/// the first register of a block holds every other lane of the output from the first on, so that
/// packing inside lanes gives output order; otherwise it holds the first half.
struct SimdPlan {
  Gather Kind;
  BlockRow Row;
  std::int32_t* Places;
  std::uint8_t* Shuffles;      ///< of the only load, or of each lane's first pair
  std::uint8_t* MoreShuffles;  ///< of the second pair, from the first block with two loads on
  std::int32_t* Offsets;       ///< of the loads into the source row: per lane or per register
  std::int32_t* MoreOffsets;
  std::int16_t* Weights;        ///< -2 times the weight of the right sample
  std::int16_t* Lines[kLines];  ///< line buffers, each as many samples as Weights
};

/// Whether output row and source row are the same for every row: nothing to blend.
[[nodiscard]] bool IsPlainCopy(const ScaleJob& job);

/// Copies a picture that IsPlainCopy().
void CopyPicture(const ScaleJob& job);

/// Fills the tables of a plan, in the job's work memory. Kind None leaves the job to another kernel.
void MakeSimdPlan(const ScaleJob& job, const SimdShape& shape, SimdPlan& plan);

/// ScaleJob::Work of a kernel with registers of so many lanes: also enough for one with fewer, and for
/// the reference.
[[nodiscard]] std::uint64_t SimdWorkBytes(std::uint32_t pairs, std::uint32_t lanes);

/// Scales a picture by a plan. False, with nothing written, if it can't use the plan.
using PlannedScale = bool (*)(const ScaleJob& job, const SimdPlan& plan);

/// Plans a picture and scales it. What `scale` can't do goes to `other`: pictures that are too
/// narrow for its registers, and those that shrink too far.
void ScaleWithPlan(const ScaleJob& job, const SimdShape& shape, PlannedScale scale,
                   ScaleFunction other);

/// Blocks of a row of `pairs` output pairs; 0 if it is too narrow for one.
[[nodiscard]] constexpr std::size_t BlocksOf(std::size_t pairs, std::size_t blockPairs) {
  return pairs < blockPairs ? 0 : (pairs + blockPairs - 1) / blockPairs;
}

/// First output pair of a block. The last block ends with the row.
[[nodiscard]] constexpr std::size_t BlockStart(std::size_t block, std::size_t pairs,
                                               std::size_t blockPairs) {
  const std::size_t last = pairs - blockPairs;
  return block * blockPairs < last ? block * blockPairs : last;
}

}  // namespace lidcam
