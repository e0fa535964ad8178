#include "driver/exposure/auto_exposure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "driver/exposure/exposure_table.h"
#include "tests/driver/exposure/support/exposure_bench.h"
#include "tests/driver/exposure/support/operating_points.h"

namespace lidcam::test {
namespace {

// --- The table -----------------------------------------------------------------------------------

class ExposureTable : public testing::TestWithParam<OperatingPoint> {};

TEST_P(ExposureTable, HasTheRow) {
  const OperatingPoint& row = GetParam();
  const AeTableEntry& entry = AeTable.at(static_cast<std::size_t>(row.Index));
  EXPECT_EQ(entry.Exposure, row.Exposure);
  EXPECT_EQ(entry.CoarseGain, row.CoarseGain);
  EXPECT_EQ(entry.FineGain, row.FineGain);
}

INSTANTIATE_TEST_SUITE_P(EveryRow, ExposureTable, testing::ValuesIn(kOperatingPoints),
                         [](const auto& row) { return std::to_string(row.param.Index); });

TEST(ExposureTableRows, Are81AndTheRowsOfThisTestStandAtTheirIndex) {
  EXPECT_EQ(AeTable.size(), 81U);
  for (int index = 0; index < 81; ++index) {
    EXPECT_EQ(kOperatingPoints.at(static_cast<std::size_t>(index)).Index, index);
  }
}

// --- The step ------------------------------------------------------------------------------------

class Loop {
 public:
  Loop() { ResetSharedExposure(); }
  bool Step(std::uint32_t luma, std::uint32_t lightMode) {
    return AutoExposureStep(luma, AeOutput, lightMode);
  }
};

struct LumaRange {
  int First;
  int Last;
  int Step;
};

constexpr LumaRange kLumaRanges[] = {
    {0, 25, 24},   {26, 35, 16},   {36, 50, 8},    {51, 70, 4},     {71, 79, 1},     {80, 96, 0},
    {97, 109, -1}, {110, 125, -4}, {126, 137, -8}, {138, 151, -16}, {152, 255, -24},
};

int StepOfLuma(int luma) {
  for (const LumaRange& range : kLumaRanges) {
    if (luma >= range.First && luma <= range.Last) return range.Step;
  }
  ADD_FAILURE() << "no range for " << luma;
  return 0;
}

struct ModeLimit {
  std::uint32_t Mode;
  int Limit;
};

class LumaTable : public testing::TestWithParam<ModeLimit> {};

TEST_P(LumaTable, GivesTheStepOfEveryLuminanceFromManyRows) {
  const auto [mode, limit] = GetParam();
  for (int luma = 0; luma <= 255; ++luma) {
    for (const int index : {0, 1, 3, 24, 30, 52, 53, 54, 55, 60, 75, 76, 77, 79, 80}) {
      SCOPED_TRACE("luma " + std::to_string(luma) + " index " + std::to_string(index));
      Loop loop;
      AeIndex = index;
      const int step = StepOfLuma(luma);
      const bool refused = step == 0 || index == (step > 0 ? limit : 0);
      ASSERT_EQ(loop.Step(static_cast<std::uint32_t>(luma), mode), !refused);
      const int expected = refused ? index : std::clamp(index + step, 0, limit);
      ASSERT_EQ(AeIndex, expected);
      ASSERT_EQ(AeHoldOff, refused ? 0 : 5);
      const OperatingPoint& row = kOperatingPoints.at(static_cast<std::size_t>(expected));
      ASSERT_EQ(AeOutput.Exposure, refused ? 0 : row.Exposure);
      ASSERT_EQ(AeOutput.CoarseGain, refused ? 0 : row.CoarseGain);
      ASSERT_EQ(AeOutput.FineGain, refused ? 0 : row.FineGain);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(EveryMode, LumaTable,
                         testing::Values(ModeLimit{0, 54}, ModeLimit{1, 80}, ModeLimit{2, 76},
                                         ModeLimit{3, 80}, ModeLimit{0xFFFFFFFF, 80}),
                         [](const auto& row) { return "Mode" + std::to_string(row.param.Mode); });

// A luminance that gives the ratio, or nearly; the frame path has bytes only, the step takes more.
struct RatioRow {
  std::uint32_t Luma;
  std::uint32_t Ratio;
  int Step;
};

// The luminances at both sides of each bound, as far as whole ones exist.
constexpr RatioRow kRatioRows[] = {
    {0, 9012, 24},          {1, 9012, 24},          {9, 9012, 24},     {10, 9011, 24},
    {25, 3604, 24},         {26, 3465, 16},         {35, 2574, 16},    {36, 2503, 8},
    {50, 1802, 8},          {51, 1766, 4},          {70, 1287, 4},     {71, 1269, 1},
    {79, 1140, 1},          {97, 928, -1},          {109, 826, -1},    {110, 819, -4},
    {125, 720, -4},         {126, 715, -8},         {137, 657, -8},    {138, 652, -16},
    {151, 596, -16},        {152, 592, -24},        {255, 353, -24},   {703, 128, -24},
    {704, 128, -24},        {705, 128, -24},        {90112, 128, -24}, {90113, 128, -24},
    {0xFFFFFFFF, 128, -24}, {0x80000058, 128, -24},
};

class RatioLadder : public testing::TestWithParam<RatioRow> {};

TEST_P(RatioLadder, StoresTheClampedRatioAndSteps) {
  const RatioRow& row = GetParam();
  Loop loop;
  EXPECT_TRUE(loop.Step(row.Luma, 1));
  EXPECT_EQ(AeRatio, row.Ratio);
  EXPECT_EQ(AeIndex, std::clamp(30 + row.Step, 0, 80));
}

INSTANTIATE_TEST_SUITE_P(EveryBound, RatioLadder, testing::ValuesIn(kRatioRows),
                         [](const auto& row) { return "Luma" + std::to_string(row.param.Luma); });

// 90112 / 705 is 127: the bound is what shows.
TEST(AutoExposure, RatioBelow128ShowsAs128) {
  Loop loop;
  EXPECT_TRUE(loop.Step(705, 1));
  EXPECT_EQ(AeRatio, 128U);
}

TEST(AutoExposure, RefusedStepStillShowsItsRatio) {
  Loop loop;
  AeIndex = 0;
  EXPECT_FALSE(loop.Step(200, 0));
  EXPECT_EQ(AeRatio, 450U);
  AeIndex = 54;
  EXPECT_FALSE(loop.Step(0, 0));
  EXPECT_EQ(AeRatio, 9012U);
}

TEST(AutoExposure, NothingMovesInTheDeadBand) {
  for (const std::uint32_t luma : {88U, 80U, 96U}) {
    Loop loop;
    AeRatio = 77;
    EXPECT_FALSE(loop.Step(luma, 0)) << luma;
    EXPECT_EQ(AeIndex, 30);
    EXPECT_EQ(AeHoldOff, 0);
    EXPECT_EQ(AeRatio, 77U) << "the ratio is not computed";
  }
}

TEST(AutoExposure, StepsByOneOnEitherSideOfTheDeadBand) {
  Loop loop;
  EXPECT_TRUE(loop.Step(79, 0));
  EXPECT_EQ(AeIndex, 31);
  Loop other;
  EXPECT_TRUE(other.Step(97, 0));
  EXPECT_EQ(AeIndex, 29);
}

TEST(AutoExposure, BlackFrameGivesTheLargestRatioAndStep) {
  Loop loop;
  EXPECT_TRUE(loop.Step(0, 0));
  EXPECT_EQ(AeRatio, 9012U);
  EXPECT_EQ(AeIndex, 54);
}

TEST(AutoExposure, WhiteFrameGivesTheRatio353AndTheLargestStepDown) {
  Loop loop;
  EXPECT_TRUE(loop.Step(255, 0));
  EXPECT_EQ(AeRatio, 353U);
  EXPECT_EQ(AeIndex, 6);
}

TEST(AutoExposure, AtTheLimitNothingMovesOnAnyDarkFrame) {
  Loop loop;
  AeIndex = 54;
  for (int frame = 0; frame < 20; ++frame) {
    EXPECT_FALSE(loop.Step(30, 0));
    EXPECT_EQ(AeIndex, 54);
    EXPECT_EQ(AeHoldOff, 0);
  }
}

TEST(AutoExposure, IndexAboveAFallenLimitComesDownToItOnADarkFrame) {
  Loop loop;
  AeIndex = 60;
  EXPECT_TRUE(loop.Step(30, 0));
  EXPECT_EQ(AeIndex, 54);
  EXPECT_EQ(AeHoldOff, 5);
  EXPECT_EQ(AeOutput.Exposure, 7U);
  EXPECT_EQ(AeOutput.CoarseGain, 3);
  EXPECT_EQ(AeOutput.FineGain, 142);
}

TEST(AutoExposure, IndexAboveAFallenLimitComesDownToItOnABrightFrame) {
  Loop loop;
  AeIndex = 60;
  EXPECT_TRUE(loop.Step(100, 0));
  EXPECT_EQ(AeIndex, 54);
}

TEST(AutoExposure, IndexAboveAFallenLimitStaysInTheDeadBand) {
  Loop loop;
  AeIndex = 60;
  for (int frame = 0; frame < 20; ++frame) EXPECT_FALSE(loop.Step(88, 0));
  EXPECT_EQ(AeIndex, 60);
}

TEST(AutoExposure, SumBelowTheTableBecomesRow0) {
  Loop loop;
  AeIndex = 3;
  EXPECT_TRUE(loop.Step(200, 0));
  EXPECT_EQ(AeIndex, 0);
  EXPECT_EQ(AeHoldOff, 5);
  EXPECT_EQ(AeOutput.Exposure, 1U);
  EXPECT_EQ(AeOutput.CoarseGain, 1);
  EXPECT_EQ(AeOutput.FineGain, 128);
}

TEST(AutoExposure, FiveCallsAfterAStepReturnAtOnceAndTheSixthMayStep) {
  Loop loop;
  EXPECT_TRUE(loop.Step(79, 0));
  AeRatio = 77;
  for (int left = 4; left >= 0; --left) {
    EXPECT_FALSE(loop.Step(0, 0));
    EXPECT_EQ(AeHoldOff, left);
    EXPECT_EQ(AeIndex, 31);
    EXPECT_EQ(AeRatio, 77U) << "the luminance is not used";
  }
  EXPECT_TRUE(loop.Step(79, 0));
  EXPECT_EQ(AeIndex, 32);
}

TEST(AutoExposure, HoldOffCountsDownInTheDeadBandToo) {
  Loop loop;
  AeHoldOff = 2;
  EXPECT_FALSE(loop.Step(88, 0));
  EXPECT_FALSE(loop.Step(88, 0));
  EXPECT_EQ(AeHoldOff, 0);
  EXPECT_TRUE(loop.Step(0, 0));
}

// Another camera's step may leave the index outside the table for a moment, a step below 0 or above
// 80 at most: a reader at that moment still takes a row of the table.
TEST_P(LumaTable, IndexReadOutsideTheTableGivesARowInsideIt) {
  const auto [mode, limit] = GetParam();
  for (int luma = 0; luma <= 255; ++luma) {
    for (const int index : {-24, -16, -8, -4, -1, 81, 84, 88, 96, 104}) {
      SCOPED_TRACE("luma " + std::to_string(luma) + " index " + std::to_string(index));
      Loop loop;
      AeIndex = index;
      const int step = StepOfLuma(luma);
      ASSERT_EQ(loop.Step(static_cast<std::uint32_t>(luma), mode), step != 0);
      const int expected = step == 0 ? index : std::clamp(index + step, 0, limit);
      ASSERT_EQ(AeIndex, expected);
      if (step == 0) continue;
      const OperatingPoint& row = kOperatingPoints.at(static_cast<std::size_t>(expected));
      ASSERT_EQ(AeOutput.Exposure, row.Exposure);
      ASSERT_EQ(AeOutput.CoarseGain, row.CoarseGain);
      ASSERT_EQ(AeOutput.FineGain, row.FineGain);
    }
  }
}

// The row goes to the record handed in, the index to the shared variable.
TEST(AutoExposure, RowGoesToTheRecordHandedIn) {
  Loop loop;
  AeOutputRecord mine;
  EXPECT_TRUE(AutoExposureStep(97, mine, 0));
  EXPECT_EQ(mine.Exposure, 3U);
  EXPECT_EQ(mine.CoarseGain, 1);
  EXPECT_EQ(mine.FineGain, 156);
  EXPECT_EQ(AeOutput.Exposure, 0U);
}

}  // namespace
}  // namespace lidcam::test
