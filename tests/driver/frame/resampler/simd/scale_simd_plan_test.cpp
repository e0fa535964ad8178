// How the kernels with byte shuffles load a picture's bytes: the narrowest gather that holds them.

#include "driver/frame/resampler/simd/scale_simd_plan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "driver/frame/resampler/jobs/aligned_memory.h"
#include "driver/frame/resampler/jobs/scale_reference.h"
#include "driver/frame/resampler/yuy2_scale.h"

namespace lidcam {
namespace {

// A scale of whole pictures, without pixels.
class Scale {
 public:
  Scale(ImageSize from, ImageSize to)
      : source_(static_cast<std::size_t>(from.Width) * 2 * static_cast<std::size_t>(from.Height)),
        destination_(static_cast<std::size_t>(to.Width) * 2 * static_cast<std::size_t>(to.Height)),
        scale_({source_.data(),
                from,
                from.Width * 2,
                {0, 0, from.Width, from.Height},
                destination_.data(),
                to.Width * 2,
                to,
                static_cast<double>(to.Width) / from.Width,
                static_cast<double>(to.Height) / from.Height,
                2},
               to, ScaleKernels().front()) {}

  [[nodiscard]] const ScaleJob& Job() const { return *scale_.Job(); }

 private:
  std::vector<std::uint8_t> source_;
  std::vector<std::uint8_t> destination_;
  Yuy2Scale scale_;
};

struct Planned {
  Gather Kind;
  std::size_t Blocks;
  std::size_t OneLoadBlocks;

  friend bool operator==(const Planned&, const Planned&) = default;
  friend std::ostream& operator<<(std::ostream& stream, const Planned& planned) {
    return stream << "kind " << static_cast<int>(planned.Kind) << ", " << planned.OneLoadBlocks
                  << " of " << planned.Blocks << " blocks with one load";
  }
};

Planned PlanOf(ScaleJob job, const SimdShape& shape) {
  const AlignedMemory memory(
      SimdWorkBytes(job.Chroma.Count, static_cast<std::uint32_t>(shape.Lanes)));
  job.Work = memory.Bytes();
  SimdPlan plan;
  MakeSimdPlan(job, shape, plan);
  return {plan.Kind, plan.Row.Blocks, plan.Row.OneLoadBlocks};
}

// The bytes of a source row that output pairs [first, last] blend: each sample two pixels, or two
// pairs, on.
std::int32_t SpanOf(const ScaleJob& job, std::size_t first, std::size_t last) {
  std::int32_t begin = INT32_MAX;
  std::int32_t end = 0;
  for (std::size_t pair = first; pair <= last; ++pair) {
    for (const std::size_t pixel : {2 * pair, 2 * pair + 1}) {
      begin = std::min(begin, 2 * job.Luma.Index[pixel]);
      end = std::max(end, 2 * job.Luma.Index[pixel] + 2 + 1);
    }
    begin = std::min(begin, 4 * job.Chroma.Index[pair] + 1);
    end = std::max(end, 4 * job.Chroma.Index[pair] + 4 + 3 + 1);
  }
  return end - begin;
}

// The expected plan of a job that halves nothing, with `lanes` lanes of two pairs in a register and
// blocks of two registers, the last one moved back to end with the row.
Planned ExpectedOf(const ScaleJob& job, std::size_t lanes, bool windows) {
  const std::size_t pairs = job.Chroma.Count;
  const std::size_t blockPairs = 4 * lanes;
  const std::size_t blocks = (pairs + blockPairs - 1) / blockPairs;
  std::int32_t widestRegister = 0;
  std::int32_t widestPair = 0;
  std::size_t oneLoad = 0;
  for (std::size_t block = 0; block < blocks; ++block) {
    const std::size_t start = std::min(block * blockPairs, pairs - blockPairs);
    std::int32_t widestLane = 0;
    for (std::size_t pair = start; pair < start + blockPairs; ++pair) {
      widestPair = std::max(widestPair, SpanOf(job, pair, pair));
      if ((pair - start) % 2 == 0) widestLane = std::max(widestLane, SpanOf(job, pair, pair + 1));
      if ((pair - start) % (2 * lanes) == 0) {
        widestRegister = std::max(widestRegister, SpanOf(job, pair, pair + 2 * lanes - 1));
      }
    }
    if (widestLane <= 16) ++oneLoad;
  }
  const std::ptrdiff_t lastRow = job.Rows.Index[job.Rows.Count - 1] + 1;
  const std::ptrdiff_t readable = job.ReadEnd - (job.Source + lastRow * job.SourceStep);
  if (windows) {
    if (widestRegister <= 64 && readable >= 64) return {Gather::Window64, blocks, blocks};
    if (widestRegister <= 128 && readable >= 128) return {Gather::Window128, blocks, blocks};
    return {Gather::None, blocks, blocks};
  }
  if (widestPair > 16 || readable < 16) return {Gather::None, blocks, blocks};
  return {Gather::Loads, blocks, oneLoad};
}

TEST(SimdPlan, OfPicturesOfHalfTheWidthIsAFixedShuffle) {
  for (const std::int32_t width : {640, 320, 352, 176, 64}) {
    const Scale scale({width, 8}, {width / 2, 6});
    for (const bool windows : {false, true}) {
      const Planned planned = PlanOf(scale.Job(), {.Lanes = 1, .WindowShuffles = windows});
      EXPECT_EQ(planned.Kind, Gather::Halving) << width;
      EXPECT_EQ(planned.OneLoadBlocks, planned.Blocks) << width;
    }
  }
}

TEST(SimdPlan, IsTheNarrowestThatHoldsThePicture) {
  std::size_t kinds[5] = {};
  for (std::int32_t from = 16; from <= 400; from += 6) {
    for (std::int32_t to = 8; to <= 400; to += 14) {
      if (from == 2 * to) continue;
      const Scale scale({from, 4}, {to, 3});
      for (const std::size_t lanes : {1U, 2U, 4U}) {
        if (static_cast<std::size_t>(to) / 2 < 4 * lanes) continue;
        for (const bool windows : {false, true}) {
          const Planned planned = PlanOf(scale.Job(), {.Lanes = lanes, .WindowShuffles = windows});
          const Planned expected = ExpectedOf(scale.Job(), lanes, windows);
          ASSERT_EQ(planned.Kind, expected.Kind)
              << from << " to " << to << " in " << lanes << " lanes";
          if (planned.Kind != Gather::None) {
            ASSERT_EQ(planned, expected) << from << " to " << to << " in " << lanes << " lanes";
          }
          ++kinds[static_cast<std::size_t>(planned.Kind)];
        }
      }
    }
  }
  EXPECT_EQ(kinds[0], 0U);
  for (const std::size_t kind : {1U, 2U, 3U, 4U}) EXPECT_GT(kinds[kind], 20U) << kind;
}

TEST(SimdPlan, OfAPictureNarrowerThanABlockIsNone) {
  const Scale scale({64, 4}, {14, 3});
  EXPECT_EQ(PlanOf(scale.Job(), {.Lanes = 2, .WindowShuffles = false}),
            (Planned{Gather::None, 0, 0}));
  EXPECT_EQ(PlanOf(scale.Job(), {.Lanes = 1, .WindowShuffles = false}).Blocks, 2U);
}

TEST(SimdPlan, OfWiderRegistersHasTheMemoryOfNarrowerOnesToo) {
  for (std::uint32_t pairs = 1; pairs <= 700; ++pairs) {
    EXPECT_LE(ReferenceWorkBytes(pairs), SimdWorkBytes(pairs, 1)) << pairs;
    EXPECT_LE(SimdWorkBytes(pairs, 1), SimdWorkBytes(pairs, 2)) << pairs;
    EXPECT_LE(SimdWorkBytes(pairs, 2), SimdWorkBytes(pairs, 4)) << pairs;
  }
}

}  // namespace
}  // namespace lidcam
