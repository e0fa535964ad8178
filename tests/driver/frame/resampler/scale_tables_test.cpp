#include "driver/frame/resampler/jobs/scale_tables.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "driver/frame/resampler/yuy2_scale.h"

namespace lidcam {
namespace {

struct Table {
  std::vector<std::int32_t> Index;
  std::vector<std::uint32_t> Weight;
};

Table TableOf(const ScaleAxis& axis) {
  const ScaleAxis axes[] = {axis};
  const AlignedMemory memory(TableBytes(axes));
  AxisTable built[1];
  BuildTables(axes, memory.Bytes(), built);
  EXPECT_EQ(built[0].Count, axis.Entries);
  Table table;
  for (std::uint32_t n = 0; n < built[0].Count; ++n) {
    table.Index.push_back(built[0].Index[n]);
    table.Weight.push_back(built[0].Weight[n]);
  }
  return table;
}

constexpr ScaleAxis Axis(std::int32_t from, std::uint32_t to) {
  return {from, from - 1, static_cast<double>(to) / from, to};
}

TEST(ScaleTables, StepBy639Of351For640LumaColumnsTo352) {
  EXPECT_DOUBLE_EQ(AxisStep({640, 639, 0.55, 352}), 639.0 / 351.0);
}

TEST(ScaleTables, StepChromaBy319Of175AndNotByHalfTheLumaStep) {
  const double step = AxisStep({320, 319, 0.55, 176});
  EXPECT_DOUBLE_EQ(step, 319.0 / 175.0);
  EXPECT_GT(step - AxisStep({640, 639, 0.55, 352}), 0.002);
}

TEST(ScaleTables, CopyTheLastSampleIntoTheLastColumn) {
  const Table luma = TableOf(Axis(640, 352));
  EXPECT_EQ(luma.Index.back(), 638);
  EXPECT_EQ(luma.Weight.back(), 16384U);
  const Table rows = TableOf(Axis(480, 288));
  EXPECT_EQ(rows.Index.back(), 478);
  EXPECT_EQ(rows.Weight.back(), 16384U);
}

TEST(ScaleTables, StartOnTheFirstSample) {
  const Table luma = TableOf(Axis(640, 352));
  EXPECT_EQ(luma.Index.front(), 0);
  EXPECT_EQ(luma.Weight.front(), 0U);
}

TEST(ScaleTables, StepByOneForTheSameSize) {
  for (const std::int32_t size : {2, 3, 120, 480, 640, 1280}) {
    EXPECT_EQ(AxisStep(Axis(size, static_cast<std::uint32_t>(size))), 1.0) << size;
  }
}

// Step (5 - 1) / (9 - 1).
TEST(ScaleTables, HoldEveryPositionOfFiveSamplesToNine) {
  const Table table = TableOf(Axis(5, 9));
  EXPECT_EQ(table.Index, (std::vector<std::int32_t>{0, 0, 1, 1, 2, 2, 3, 3, 3}));
  EXPECT_EQ(table.Weight, (std::vector<std::uint32_t>{0, 8192, 0, 8192, 0, 8192, 0, 8192, 16384}));
}

// Step 3 / 6: with four samples more to the right the last position is no end.
TEST(ScaleTables, BlendTheLastPositionWhereTheSourceGoesOn) {
  const Table table = TableOf({4, 7, 1.75, 7});
  EXPECT_EQ(table.Index, (std::vector<std::int32_t>{0, 0, 1, 1, 2, 2, 3}));
  EXPECT_EQ(table.Weight.back(), 0U);
}

// Three tenths, added one by one, come to a hair less than 3 after ten steps: step (31 - 1) / 100.
TEST(ScaleTables, TakeAPositionAHairBelowAWholeNumberForThatNumber) {
  const ScaleAxis axis = Axis(31, 101);
  double position = 0.0;
  std::size_t hairs = 0;
  const Table table = TableOf(axis);
  for (std::size_t n = 0; n + 1 < table.Index.size(); ++n, position += AxisStep(axis)) {
    const auto whole = static_cast<std::int32_t>(position + 0.5);
    if (position >= whole || whole - position > 0.0000001) continue;
    ++hairs;
    EXPECT_EQ(table.Index[n], whole) << n;
    EXPECT_EQ(table.Weight[n], 0U) << n;
  }
  EXPECT_GT(hairs, 0U);
}

TEST(ScaleTables, StandStillWhereTheScaledSizeIsNotAboveOne) {
  EXPECT_EQ(AxisStep({480, 479, 1.0 / 480, 1}), 0.0);
  EXPECT_EQ(AxisStep({480, 479, 0.6 / 480, 1}), 0.0);
  EXPECT_GT(AxisStep({480, 479, 1.001 / 480, 1}), 0.0);
}

// A lone last sample: nothing stands before it in the region.
TEST(ScaleTables, PutTheOnlySampleRightOfTheOneBefore) {
  const Table table = TableOf({1, 0, 3.0, 3});
  EXPECT_EQ(table.Index, (std::vector<std::int32_t>{-1, -1, -1}));
  EXPECT_EQ(table.Weight, (std::vector<std::uint32_t>{16384, 16384, 16384}));
}

TEST(ScaleTables, KeepPositionsFarOutsideAnyPictureWithinAnIndex) {
  const Table table = TableOf({2147483647, 2147483646, 1.9 / 2147483647, 3});
  EXPECT_EQ(table.Index, (std::vector<std::int32_t>{0, 2147483646 - 1, 2147483646 - 1}));
  EXPECT_EQ(table.Weight, (std::vector<std::uint32_t>{0, 16384, 16384}));
}

TEST(ScaleTables, StandOn32Bytes) {
  std::vector<std::uint8_t> source(std::size_t{66} * 50 * 2);
  std::vector<std::uint8_t> destination(std::size_t{35} * 31 * 2);
  const Yuy2Scale scale({.Source = source.data(),
                         .SourceSize = {66, 50},
                         .SourceStep = 132,
                         .Region = {0, 0, 66, 50},
                         .Destination = destination.data(),
                         .DestinationStep = 70,
                         .DestinationSize = {35, 31},
                         .XFactor = 35.0 / 66,
                         .YFactor = 31.0 / 50,
                         .Interpolation = 2},
                        {35, 31}, ChosenScaleKernel());
  ASSERT_NE(scale.Job(), nullptr);
  const ScaleJob& job = *scale.Job();
  EXPECT_EQ(job.Rows.Count, 31U);
  EXPECT_EQ(job.Luma.Count, 34U);
  EXPECT_EQ(job.Chroma.Count, 17U);
  for (const AxisTable& table : {job.Rows, job.Luma, job.Chroma}) {
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(table.Index) % 32, 0U);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(table.Weight) % 32, 0U);
  }
}

}  // namespace
}  // namespace lidcam
