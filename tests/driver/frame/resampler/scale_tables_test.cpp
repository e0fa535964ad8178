#include "driver/frame/resampler/jobs/scale_tables.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "driver/frame/resampler/simd/scale_simd_columns.h"
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
  BuildTables(axes, BuildColumns, memory.Bytes(), built);
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

#if defined(__x86_64__)
struct NoIsa {};

// Bit by bit: a position's last place rarely shows in a table.
void ExpectPositionsOfRepeatedAddition(double step, std::uint32_t groups, std::uint32_t& even) {
  PositionWalk<NoIsa> walk(step);
  double position = 0.0;
  for (std::uint32_t group = 0; group < groups; ++group) {
    double positions[kGroupEntries];
    if (walk.IsEven()) {
      ++even;
      for (std::uint32_t n = 0; n < kGroupEntries; ++n) {
        positions[n] = walk.First() + n * walk.Increment();
      }
      walk.PassEven();
    } else {
      walk.Pass(positions);
    }
    for (const double each : positions) {
      ASSERT_EQ(each, position) << "in group " << group << " of step " << step;
      position += step;
    }
  }
}

// An addition rounds a tie where the step's last binary one is half a place of the sum. Which power of
// two that is above depends on the zeros behind it.
TEST(PositionWalk, GivesThePositionsOfRepeatedAdditionAlsoWhereAdditionsAreTies) {
  std::mt19937_64 random(20090704);
  std::uint32_t even = 0;
  for (int n = 0; n < 100000; ++n) {
    const std::uint64_t zeros = random() % 8;
    const double odd = static_cast<double>((random() >> (11U + zeros)) | 1U);
    const double step = std::ldexp(odd, static_cast<int>(random() % 10) - 55);
    ExpectPositionsOfRepeatedAddition(step, 20, even);
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(even, 1000000U);
}

TEST(PositionWalk, GivesThePositionsOfRepeatedAdditionForAllSizes) {
  std::uint32_t even = 0;
  for (std::int32_t from = 2; from <= 700; ++from) {
    for (std::uint32_t to = 2; to <= 700; ++to) {
      ExpectPositionsOfRepeatedAddition(AxisStep(Axis(from, to)), to / kGroupEntries, even);
      if (HasFatalFailure()) return;
    }
  }
  EXPECT_GT(even, 10000000U);
}
#endif

class ColumnsOfAKernel : public testing::TestWithParam<const ScaleKernel*> {
 protected:
  void SetUp() override {
    if (!GetParam()->IsSupported()) GTEST_SKIP() << "this processor lacks " << GetParam()->Name;
  }

  void ExpectLikeReference(double step, std::uint32_t entries) {
    const AlignedMemory memory(2 * kIndexBytes);
    const AlignedMemory wanted(2 * kIndexBytes);
    ASSERT_LE(entries, kMostEntries);
    const auto index = [](const AlignedMemory& m) {
      return reinterpret_cast<std::int32_t*>(m.Bytes());
    };
    const auto weight = [](const AlignedMemory& m) {
      return reinterpret_cast<std::uint16_t*>(m.Bytes() + kIndexBytes);
    };
    BuildColumns(step, entries, index(wanted), weight(wanted));
    GetParam()->BuildColumns(step, entries, index(memory), weight(memory));
    for (std::uint32_t n = 0; n < entries; ++n) {
      ASSERT_EQ(index(memory)[n], index(wanted)[n]) << "entry " << n << " of step " << step;
      ASSERT_EQ(weight(memory)[n], weight(wanted)[n]) << "entry " << n << " of step " << step;
    }
    entries_ += entries;
  }

  std::uint64_t entries_ = 0;

 private:
  static constexpr std::uint32_t kMostEntries = 4096;
  static constexpr std::uint64_t kIndexBytes = kMostEntries * sizeof(std::int32_t);
};

TEST_P(ColumnsOfAKernel, AreThoseOfTheReferenceForEveryTwoSizesUpTo200) {
  for (std::int32_t from = 2; from <= 200; ++from) {
    for (std::uint32_t to = 2; to <= 200; ++to) {
      ExpectLikeReference(AxisStep(Axis(from, to)), to);
      if (HasFatalFailure()) return;
    }
  }
}

TEST_P(ColumnsOfAKernel, AreThoseOfTheReferenceForTheSizesOfStreams) {
  constexpr std::int32_t kSizes[] = {640, 480, 352, 320, 288, 240, 176, 160, 144, 120, 88, 80};
  for (const std::int32_t from : kSizes) {
    for (std::uint32_t to = 2; to <= 1280; ++to) {
      ExpectLikeReference(AxisStep(Axis(from, to)), to);
      if (HasFatalFailure()) return;
    }
  }
}

// Steps of few places: most positions are exact, among them every power of two.
TEST_P(ColumnsOfAKernel, AreThoseOfTheReferenceForStepsThatMeetPowersOfTwo) {
  for (std::uint32_t eighths = 0; eighths <= 200; ++eighths) {
    const double step = eighths / 8.0;
    for (const double each : {step, std::nextafter(step, 1e9), std::nextafter(step, 0.0)}) {
      ExpectLikeReference(each, 4000);
      if (HasFatalFailure()) return;
    }
  }
  EXPECT_GT(entries_, 2000000U);
}

TEST_P(ColumnsOfAKernel, AreThoseOfTheReferenceForStepsBeyondAnyPicture) {
  for (const double step : {0.0, 1e-310, 1e-300, 1e-20, 1e-7, 5e-8, 1e6, 1e8, 5e8, 2147483646.0,
                            1e10, 1e300, 1.7e308}) {
    for (const std::uint32_t entries : {1U, 2U, 7U, 8U, 9U, 16U, 17U, 100U, 4096U}) {
      ExpectLikeReference(step, entries);
      if (HasFatalFailure()) return;
    }
  }
}

std::vector<const ScaleKernel*> AllKernels() {
  std::vector<const ScaleKernel*> kernels;
  for (const ScaleKernel& kernel : ScaleKernels()) kernels.push_back(&kernel);
  return kernels;
}

INSTANTIATE_TEST_SUITE_P(Kernels, ColumnsOfAKernel, testing::ValuesIn(AllKernels()),
                         [](const auto& test) {
                           std::string name = test.param->Name;
                           std::erase_if(
                               name, [](char letter) { return letter == '-' || letter == ' '; });
                           return name;
                         });

}  // namespace
}  // namespace lidcam
