// Which jobs every kernel may take: those whose reads stay inside the source, and whose writes apart
// from it.

#include <gtest/gtest.h>

#include <array>
#include <cstdint>

#include "driver/frame/resampler/yuy2_scale.h"

namespace lidcam {
namespace {

// Three rows of four pixels from a source of four rows of eight pixels, with a place of its own for the
// destination behind it. The last row reads rows 2 and 3; the last pixel samples 6 and 7.
class SuitedJobs : public testing::Test {
 protected:
  ScaleJob Job() {
    return {.Source = memory_.data(),
            .SourceStep = 16,
            .ReadBegin = memory_.data(),
            .ReadEnd = memory_.data() + 64,
            .Destination = memory_.data() + 64,
            .DestinationStep = 8,
            .Rows = {rows_.data(), weights_.data(), 3},
            .Luma = {luma_.data(), weights_.data(), 4},
            .Chroma = {chroma_.data(), weights_.data(), 2},
            .Work = nullptr};
  }

  std::array<std::uint8_t, 256> memory_{};
  std::array<std::int32_t, 3> rows_{0, 1, 2};
  std::array<std::int32_t, 4> luma_{0, 2, 4, 6};
  std::array<std::int32_t, 2> chroma_{0, 2};
  std::array<std::uint16_t, 4> weights_{};
};

TEST_F(SuitedJobs, ReadUpToTheSourcesEnd) {
  EXPECT_TRUE(SuitsEveryKernel(Job()));
  ScaleJob job = Job();
  --job.ReadEnd;
  EXPECT_FALSE(SuitsEveryKernel(job));
}

TEST_F(SuitedJobs, ReadNothingBeforeTheSource) {
  for (std::int32_t* const first : {&rows_[0], &luma_[0], &chroma_[0]}) {
    *first = -1;
    EXPECT_FALSE(SuitsEveryKernel(Job())) << first - rows_.data();
    *first = 0;
  }
  ScaleJob job = Job();
  ++job.ReadBegin;
  EXPECT_FALSE(SuitsEveryKernel(job));
}

// Of the last pixel a kernel also reads the chroma byte behind its luma.
TEST_F(SuitedJobs, ReadThePixelBehindTheLastSampleWhole) {
  luma_[3] = 7;
  EXPECT_FALSE(SuitsEveryKernel(Job()));
  luma_[3] = 6;
  chroma_[1] = 3;
  EXPECT_FALSE(SuitsEveryKernel(Job()));
  chroma_[1] = 0;
  EXPECT_TRUE(SuitsEveryKernel(Job()));
  luma_[3] = 0;
  chroma_[1] = 2;
  EXPECT_TRUE(SuitsEveryKernel(Job()));
  chroma_[1] = 3;
  EXPECT_FALSE(SuitsEveryKernel(Job()));
}

TEST_F(SuitedJobs, ReadTheRowBelowTheLast) {
  rows_[2] = 3;
  EXPECT_FALSE(SuitsEveryKernel(Job()));
  rows_[2] = 1;
  EXPECT_TRUE(SuitsEveryKernel(Job()));
}

TEST_F(SuitedJobs, ReadFromARegionFurtherIn) {
  ScaleJob job = Job();
  job.Source += 16;
  EXPECT_FALSE(SuitsEveryKernel(job));
  job.ReadEnd += 16;
  job.Destination += 16;
  EXPECT_TRUE(SuitsEveryKernel(job));
}

// Nothing is read or written: the places are numbers.
std::uint8_t* PlaceAt(std::uintptr_t address) {
  return reinterpret_cast<std::uint8_t*>(address);  // NOLINT(performance-no-int-to-ptr)
}

TEST_F(SuitedJobs, CountARowsBytesIn32Bits) {
  ScaleJob job = Job();
  job.SourceStep = std::ptrdiff_t{1} << 32;
  job.Source = PlaceAt(std::uintptr_t{1} << 40);
  job.ReadBegin = job.Source;
  job.ReadEnd = PlaceAt(std::uintptr_t{1} << 41);
  job.Destination = PlaceAt(std::uintptr_t{1} << 42);
  luma_[3] = 0x3FFFFFFD;  // ends at byte 0x7FFFFFFE
  EXPECT_TRUE(SuitsEveryKernel(job));
  luma_[3] = 0x3FFFFFFE;  // ends at byte 0x80000000
  EXPECT_FALSE(SuitsEveryKernel(job));
}

TEST_F(SuitedJobs, WriteBehindTheSourceOrWhollyAheadOfIt) {
  ScaleJob job = Job();
  --job.Destination;
  EXPECT_FALSE(SuitsEveryKernel(job));
  // Three rows of 8 bytes end where the source begins.
  job = Job();
  job.Source += 64;
  job.ReadBegin += 64;
  job.ReadEnd += 64;
  job.Destination = memory_.data() + 64 - 24;
  EXPECT_TRUE(SuitsEveryKernel(job));
  ++job.Destination;
  EXPECT_FALSE(SuitsEveryKernel(job));
  // Rows that are further apart than their bytes: the last has its 8 bytes only.
  job.DestinationStep = 12;
  job.Destination = memory_.data() + 64 - 32;
  EXPECT_TRUE(SuitsEveryKernel(job));
  ++job.Destination;
  EXPECT_FALSE(SuitsEveryKernel(job));
}

TEST_F(SuitedJobs, HaveRoomForTheirPairsInARow) {
  ScaleJob job = Job();
  job.DestinationStep = 7;
  EXPECT_FALSE(SuitsEveryKernel(job));
}

}  // namespace
}  // namespace lidcam
