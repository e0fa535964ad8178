#include <gtest/gtest.h>

#include <string>

#include "tests/camera_model/frames/stream_bench.h"

namespace lidcam::camera_model {
namespace {

constexpr int kLevel = 16;
constexpr int kLuma = 23;
// Noise may move the mean of a uniform wall across a rounding limit.
constexpr int kGrain = 1;
constexpr double kMicroframesOfLine = 860 / 15e6 * 8000;

/// VGA0708 in front of a grey wall, with its exposure controlled by the host.
class SteeredCamera : public StreamBench {
 public:
  explicit SteeredCamera(SensorModel model = SensorModel::VGA0708)
      : StreamBench{model, 1, std::make_shared<GreyWall>(std::uint8_t{110})} {
    camera.WriteBridge(0x0D, 0x38);
  }
};

struct RegisterRow {
  const char* Name;
  std::uint8_t Register;
  std::uint8_t Value;
  int Level;  ///< header level with the value
};

class LatchedRegister : public testing::TestWithParam<RegisterRow> {};

// The power-up value is 0x020A lines; a gain does not change the level.
INSTANTIATE_TEST_SUITE_P(Registers, LatchedRegister,
                         testing::Values(RegisterRow{"LinesHigh", 0x03, 0x04, 6},
                                         RegisterRow{"LinesLow", 0x04, 0xFF, 4},
                                         RegisterRow{"CoarseGain", 0x60, 0x03, 3},
                                         RegisterRow{"FineGain", 0x5D, 0xF0, 3}),
                         [](const auto& row) { return std::string(row.param.Name); });

TEST_P(LatchedRegister, WrittenWithoutACommitChangesNothingForTenFrames) {
  SteeredCamera bench;
  const int luma = bench.WholeFrame()[kLuma];
  bench.camera.WriteSensor(GetParam().Register, GetParam().Value);
  EXPECT_EQ(bench.camera.ReadSensor(GetParam().Register), GetParam().Value);
  for (int count = 0; count < 10; ++count) {
    const auto frame = bench.WholeFrame();
    EXPECT_EQ(frame[kLevel], 3);
    EXPECT_NEAR(frame[kLuma], luma, kGrain);
  }
}

TEST_P(LatchedRegister, CommittedShowsOneFrameAfterTheFrameThatStartsThen) {
  SteeredCamera bench;
  const int luma = bench.WholeFrame()[kLuma];
  bench.camera.WriteSensor(GetParam().Register, GetParam().Value);
  bench.camera.CommitExposure();
  const auto exposedBefore = bench.WholeFrame();
  EXPECT_EQ(exposedBefore[kLevel], 3);
  EXPECT_NEAR(exposedBefore[kLuma], luma, kGrain);
  const auto shown = bench.WholeFrame();
  EXPECT_EQ(shown[kLevel], GetParam().Level);
  EXPECT_GT(shown[kLuma], luma + 5);
  EXPECT_EQ(shown[kLuma], MeanLuminance(shown));
  const auto after = bench.WholeFrame();
  EXPECT_EQ(after[kLevel], shown[kLevel]);
  EXPECT_NEAR(after[kLuma], shown[kLuma], kGrain);
}

TEST_P(LatchedRegister, CommittedWhileAFrameIsSentSparesThatFrameAndTheNext) {
  SteeredCamera bench;
  const int luma = bench.WholeFrame()[kLuma];
  std::vector<std::uint8_t> head;
  while (head.size() < 30720) {
    const auto bytes = bench.Next().Bytes;
    head.insert(head.end(), bytes.begin(), bytes.end());
  }
  bench.camera.WriteSensor(GetParam().Register, GetParam().Value);
  bench.camera.CommitExposure();
  std::vector<std::uint8_t> rest;
  while (true) {
    const auto bytes = bench.Next().Bytes;
    rest.insert(rest.end(), bytes.begin(), bytes.end());
    if (bytes.size() < bench.limit) break;
  }
  ASSERT_EQ(head.size() + rest.size(), 614466U);
  head.insert(head.end(), rest.begin(), rest.end());
  EXPECT_NEAR(head[kLuma], luma, kGrain);
  EXPECT_EQ(MeanLuminance(head), head[kLuma]);
  EXPECT_NEAR(bench.WholeFrame()[kLuma], luma, kGrain);
  EXPECT_GT(bench.WholeFrame()[kLuma], luma + 5);
}

TEST(ExposureLatch, OnlyTheValue83Commits) {
  for (const int value : {0x00, 0x03, 0x80, 0x82, 0x85, 0xFF}) {
    SteeredCamera bench;
    bench.WriteLines(1044);
    bench.camera.WriteSensor(0x2F, static_cast<std::uint8_t>(value));
    EXPECT_EQ(bench.camera.ReadSensor(0x2F), value);
    for (int count = 0; count < 4; ++count) EXPECT_EQ(bench.WholeFrame()[kLevel], 3) << value;
  }
}

TEST(ExposureLatch, WritesAfterTheCommitWaitForTheNextOne) {
  SteeredCamera bench;
  (void)bench.WholeFrame();
  bench.WriteLines(1044);
  bench.camera.CommitExposure();
  bench.WriteLines(174);
  (void)bench.WholeFrame();
  for (int count = 0; count < 4; ++count) EXPECT_EQ(bench.WholeFrame()[kLevel], 6);
  bench.camera.CommitExposure();
  EXPECT_EQ(bench.WholeFrame()[kLevel], 6);
  EXPECT_EQ(bench.WholeFrame()[kLevel], 1);
}

TEST(ExposureLatch, TwoCommitsBeforeOneFrameStartLeaveTheLater) {
  SteeredCamera bench;
  (void)bench.WholeFrame();
  bench.WriteLines(1044);
  bench.camera.CommitExposure();
  bench.WriteLines(174);
  bench.camera.CommitExposure();
  EXPECT_EQ(bench.WholeFrame()[kLevel], 3);
  EXPECT_EQ(bench.WholeFrame()[kLevel], 1);
}

TEST(ExposureLatch, CommitsInNeighbouringFramesShowInNeighbouringFrames) {
  SteeredCamera bench;
  (void)bench.WholeFrame();
  std::vector<int> levels;
  for (const unsigned lines : {174U, 348U, 696U, 1044U, 1044U}) {
    bench.WriteLines(lines);
    bench.camera.CommitExposure();
    levels.push_back(bench.WholeFrame()[kLevel]);
  }
  EXPECT_EQ(levels, (std::vector<int>{3, 1, 2, 4, 6}));
}

TEST(ExposureLatch, TheFrameInWhichALongExposureIsCollectedIsTheLongOne) {
  SteeredCamera bench;
  std::vector<double> starts;
  const auto next = [&] {
    const auto frame = bench.WholeFrame();
    starts.push_back(static_cast<double>(bench.headAt));
    return int{frame[kLevel]};
  };
  EXPECT_EQ(next(), 3);
  bench.WriteLines(3480);
  bench.camera.CommitExposure();
  EXPECT_EQ(next(), 3);
  EXPECT_EQ(next(), 20);
  bench.WriteLines(522);
  bench.camera.CommitExposure();
  EXPECT_EQ(next(), 20);
  EXPECT_EQ(next(), 3);
  const double usual = 8000.0 / 30;
  const double stretched = 3480 * kMicroframesOfLine;
  EXPECT_NEAR(starts[1] - starts[0], usual, 1);
  EXPECT_NEAR(starts[2] - starts[1], stretched, 1);
  EXPECT_NEAR(starts[3] - starts[2], stretched, 1);
  EXPECT_NEAR(starts[4] - starts[3], usual, 1);
}

TEST(ExposureLatch, FrameLengthHoldsFromTheStartAtWhichItIsLatched) {
  SteeredCamera bench;
  std::vector<double> starts;
  const auto next = [&] {
    (void)bench.WholeFrame();
    starts.push_back(static_cast<double>(bench.headAt));
  };
  next();
  bench.camera.WriteSensor(0x09, 0x1F);
  next();
  next();
  bench.camera.CommitExposure();
  next();
  next();
  next();
  const double usual = 8000.0 / 30;
  const double longer = usual + 256 * kMicroframesOfLine;
  EXPECT_NEAR(starts[1] - starts[0], usual, 1);
  EXPECT_NEAR(starts[2] - starts[1], usual, 1);
  EXPECT_NEAR(starts[3] - starts[2], usual, 1);
  EXPECT_NEAR(starts[4] - starts[3], longer, 1);
  EXPECT_NEAR(starts[5] - starts[4], longer, 1);
}

TEST(ExposureLatch, WhatWasCommittedWithoutAStreamIsInForceFromItsFirstFrame) {
  SteeredCamera bench;
  bench.WriteLines(1044);
  bench.camera.CommitExposure();
  bench.stream.Restart(bench.now);
  EXPECT_EQ(bench.WholeFrame()[kLevel], 6);
}

TEST(ExposureLatch, PowerPutsThePowerUpValuesInForceAtOnce) {
  SteeredCamera bench;
  bench.WriteLines(1044);
  bench.camera.CommitExposure();
  for (int count = 0; count < 3; ++count) (void)bench.WholeFrame();
  bench.camera.bridge.PowerUp();
  bench.camera.WriteBridge(0x0D, 0x38);
  EXPECT_EQ(bench.WholeFrame()[kLevel], 3);
}

TEST(ExposureLatch, FramesThatWereNotReadHaveLatchedToo) {
  SteeredCamera bench;
  (void)bench.WholeFrame();
  bench.WriteLines(1044);
  bench.camera.CommitExposure();
  bench.now += 2 * 8000 / 30;  // one frame start, and half of the next frame
  EXPECT_EQ(bench.WholeFrame()[kLevel], 6);
  bench.WriteLines(174);
  bench.camera.CommitExposure();
  bench.now += 8000;
  EXPECT_EQ(bench.WholeFrame()[kLevel], 1);
}

TEST(ExposureLatch, TheChipsOwnExposureAsksNoCommit) {
  StreamBench bench{SensorModel::VGA0708, 1, std::make_shared<GreyWall>(std::uint8_t{110})};
  EXPECT_EQ(bench.WholeFrame()[kLevel], 3);
  bench.stream.SetLight({.Level = 0.5});
  EXPECT_EQ(bench.WholeFrame()[kLevel], 6);
}

class SensorWithoutBanks : public testing::TestWithParam<SensorModel> {};

INSTANTIATE_TEST_SUITE_P(Models, SensorWithoutBanks,
                         testing::Values(SensorModel::VGA0408, SensorModel::OV7670,
                                         SensorModel::VGA7648),
                         [](const auto& row) { return std::string(NameOf(row.param)); });

TEST_P(SensorWithoutBanks, ShowsWhatIsWrittenInTheNextFrame) {
  SteeredCamera bench{GetParam()};
  bench.camera.WriteSensor(0x13, GetParam() == SensorModel::VGA0408 ? 0x00 : 0xA0);
  EXPECT_EQ(bench.WholeFrame()[kLevel], 3);
  if (GetParam() == SensorModel::VGA0408) {
    bench.WriteLines(1044);
  } else {
    bench.camera.WriteSensor(0x10, 0xFF);
  }
  const int expected = GetParam() == SensorModel::OV7670 ? 5 : 6;
  EXPECT_EQ(bench.WholeFrame()[kLevel], expected);
}

}  // namespace
}  // namespace lidcam::camera_model
