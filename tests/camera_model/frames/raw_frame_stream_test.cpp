#include "camera_model/frames/raw_frame_stream.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/camera_model/frames/stream_bench.h"

namespace lidcam::camera_model {
namespace {

struct TotalRow {
  SensorModel Model;
  std::uint8_t Reducer;
  std::uint8_t Mode;
  std::size_t Total;
};

class RawTotals : public testing::TestWithParam<TotalRow> {};

TEST_P(RawTotals, PacketsSumToTheTotalAndTheHeaderIsTrue) {
  const TotalRow& row = GetParam();
  StreamBench bench{row.Model};
  bench.camera.WriteBridge(0x5D, row.Reducer);
  bench.camera.WriteBridge(0x0A, row.Mode);
  for (int count = 0; count < 2; ++count) {
    const auto frame = bench.Frame();
    ASSERT_EQ(frame.size(), row.Total);
    EXPECT_EQ(frame[0], 0xFF);
    EXPECT_EQ(frame[1], 0xD8);
    EXPECT_EQ(frame[16], 3);
    // For some sizes one line less is sent than the sensor takes.
    EXPECT_NEAR(frame[23], MeanLuminance(frame), 1);
    for (std::size_t i = 0; i + 1 < bench.packets.size(); ++i) ASSERT_EQ(bench.packets[i], 3072U);
    EXPECT_EQ(bench.packets.back(), row.Total - (bench.packets.size() - 1) * 3072);
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, RawTotals,
                         testing::Values(TotalRow{SensorModel::VGA0408, 0x00, 0x00, 614466},
                                         TotalRow{SensorModel::VGA0408, 0x80, 0x10, 153666},
                                         TotalRow{SensorModel::VGA0408, 0x80, 0x18, 76866},
                                         TotalRow{SensorModel::VGA0408, 0x80, 0x08, 38466},
                                         TotalRow{SensorModel::VGA0408, 0x80, 0x0C, 19266},
                                         TotalRow{SensorModel::VGA0708, 0x00, 0x00, 614466},
                                         TotalRow{SensorModel::VGA0708, 0x80, 0x10, 153666},
                                         TotalRow{SensorModel::VGA0708, 0x80, 0x18, 76866},
                                         TotalRow{SensorModel::VGA0708, 0x80, 0x09, 38466},
                                         TotalRow{SensorModel::VGA0708, 0x80, 0x0C, 19266},
                                         TotalRow{SensorModel::OV7660, 0x00, 0x00, 614466},
                                         TotalRow{SensorModel::OV7660, 0x80, 0x11, 153666},
                                         TotalRow{SensorModel::OV7660, 0x80, 0x18, 75750},
                                         TotalRow{SensorModel::OV7660, 0x80, 0x08, 38466},
                                         TotalRow{SensorModel::OV7660, 0x80, 0x0C, 19266},
                                         TotalRow{SensorModel::OV7663, 0x00, 0x00, 614466},
                                         TotalRow{SensorModel::OV7663, 0x80, 0x18, 75750},
                                         TotalRow{SensorModel::OV7670, 0x00, 0x00, 614466},
                                         TotalRow{SensorModel::OV7670, 0x80, 0x18, 75750},
                                         TotalRow{SensorModel::K82, 0x00, 0x00, 614458},
                                         TotalRow{SensorModel::K82, 0x80, 0x10, 153666},
                                         TotalRow{SensorModel::K82, 0x80, 0x18, 76226},
                                         TotalRow{SensorModel::K82, 0x80, 0x09, 38462},
                                         TotalRow{SensorModel::K82, 0x80, 0x0C, 19106},
                                         TotalRow{SensorModel::Mi1318, 0x00, 0x00, 655426},
                                         TotalRow{SensorModel::Mi1318, 0x80, 0x10, 163906},
                                         TotalRow{SensorModel::Mi1318, 0x80, 0x08, 41022},
                                         TotalRow{SensorModel::Mi1318, 0x00, 0x04, 2621506},
                                         TotalRow{SensorModel::VGA7648, 0x00, 0x00, 609346},
                                         TotalRow{SensorModel::VGA7648, 0x80, 0x10, 152386},
                                         TotalRow{SensorModel::VGA7648, 0x80, 0x08, 38146}));

TEST(RawFrameStream, RunsAtThirtyFramesASecond) {
  StreamBench bench;
  bench.Frame();
  const std::uint64_t begin = bench.headAt;
  for (int count = 0; count < 30; ++count) bench.Frame();
  EXPECT_NEAR(static_cast<double>(bench.headAt - begin), 8000, 1);
}

TEST(RawFrameStream, DividerHalvesTheRate) {
  StreamBench bench{SensorModel::OV7670};
  bench.camera.WriteBridge(0x5D, 0x80);
  bench.camera.WriteBridge(0x0A, 0x11);
  bench.Frame();
  const std::uint64_t begin = bench.headAt;
  for (int count = 0; count < 15; ++count) bench.Frame();
  EXPECT_NEAR(static_cast<double>(bench.headAt - begin), 8000, 1);
}

TEST(RawFrameStream, NarrowPipeSlowsTheFramesAndKeepsThemWhole) {
  StreamBench bench;
  bench.limit = 128;
  bench.camera.WriteBridge(0x5D, 0x80);
  bench.camera.WriteBridge(0x0A, 0x10);
  bench.Frame();
  const std::uint64_t begin = bench.headAt;
  EXPECT_EQ(bench.Frame().size(), 153666U);
  EXPECT_EQ(bench.packets.size(), 1201U);
  EXPECT_EQ(bench.headAt - begin, 1202U);
}

TEST(RawFrameStream, BlankingIsEmptyAndAFrameStartsAtAPacketHead) {
  StreamBench bench;
  bench.Frame();
  const std::uint64_t begin = bench.headAt;
  EXPECT_EQ(bench.packets.size(), 201U);
  bench.Frame();
  EXPECT_EQ(bench.packets.size(), 201U);
  EXPECT_EQ(bench.packets.back(), 66U);
  EXPECT_GE(bench.headAt - begin, 266U);
}

TEST(RawFrameStream, SameSeedSameBytesOtherSeedOtherBytes) {
  StreamBench first{SensorModel::VGA0708, 5};
  StreamBench second{SensorModel::VGA0708, 5};
  StreamBench third{SensorModel::VGA0708, 6};
  for (StreamBench* bench : {&first, &second, &third}) {
    bench->stream.SetLight({.Level = 0.02, .MainsRate = 100});
  }
  for (int count = 0; count < 3; ++count) {
    const auto frame = first.Frame();
    EXPECT_TRUE(frame == second.Frame());
    EXPECT_FALSE(frame == third.Frame());
  }
}

TEST(RawFrameStream, TheSceneMoves) {
  StreamBench bench;
  const auto first = bench.Frame();
  const auto second = bench.Frame();
  EXPECT_FALSE(std::equal(first.begin() + 64, first.end(), second.begin() + 64));
}

TEST(RawFrameStream, StatisticsFollowTheExposureRegisters) {
  StreamBench bench;
  bench.camera.WriteBridge(0x0D, 0x38);
  const auto right = bench.Frame();
  EXPECT_EQ(right[16], 3);
  bench.camera.WriteSensor(0x03, 0x00);
  bench.camera.WriteSensor(0x04, 0xAE);
  bench.camera.CommitExposure();
  (void)bench.Frame();
  (void)bench.Frame();
  const auto dark = bench.Frame();
  EXPECT_EQ(dark[16], 1);
  EXPECT_LT(dark[23], right[23] - 15);
  bench.camera.WriteSensor(0x03, 0x04);
  bench.camera.WriteSensor(0x04, 0x14);
  bench.camera.CommitExposure();
  (void)bench.Frame();
  (void)bench.Frame();
  const auto bright = bench.Frame();
  EXPECT_EQ(bright[16], 6);
  EXPECT_GT(bright[23], right[23] + 15);
  for (const auto& frame : {right, dark, bright}) EXPECT_EQ(frame[23], MeanLuminance(frame));
}

TEST(RawFrameStream, ChipsOwnExposureKeepsTheLumaInOtherLight) {
  StreamBench bench;
  const int usual = bench.Frame()[23];
  bench.stream.SetLight({.Level = 0.4});
  (void)bench.Frame();
  EXPECT_NEAR(bench.Frame()[23], usual, 2);
  bench.stream.SetLight({.Level = 2.5});
  (void)bench.Frame();
  EXPECT_NEAR(bench.Frame()[23], usual, 2);
}

TEST(RawFrameStream, UsualRoomIsNearAHostsTargetLuminance) {
  StreamBench bench;
  constexpr int kGamma[] = {36, 48, 63, 75, 84, 99, 111, 121, 131, 147, 160, 172, 194, 212, 228};
  for (const int bank : {0x31, 0x81, 0x91}) {
    for (int knot = 0; knot < 15; ++knot) {
      bench.camera.WriteBridge(static_cast<std::uint8_t>(bank + knot),
                               static_cast<std::uint8_t>(kGamma[knot]));
    }
  }
  bench.camera.WriteBridge(0x77, 20);
  bench.camera.WriteBridge(0x0F, 0x84);
  bench.camera.WriteBridge(0x78, 0xC0);
  bench.camera.WriteBridge(0x79, 0xC0);
  bench.camera.WriteBridge(0x43, 0x43);
  bench.camera.WriteBridge(0x0D, 0x38);
  EXPECT_NEAR(bench.Frame()[23], 88, 12);
}

TEST(RawFrameStream, ControlsOfThePictureLeaveTheStatisticAlone) {
  struct Control {
    int Register;
    int Value;
  };
  StreamBench bench;
  const int luminance = bench.Frame()[23];
  for (const Control& control :
       {Control{0x77, 127}, Control{0x77, 0x81}, Control{0x0F, 0xFF}, Control{0x0F, 0x00},
        Control{0x13, 0x40}, Control{0x14, 0xFF}, Control{0x78, 0xFF}, Control{0x43, 0x7F},
        Control{0x42, 0x02}, Control{0x42, 0x04}}) {
    bench.camera.WriteBridge(static_cast<std::uint8_t>(control.Register),
                             static_cast<std::uint8_t>(control.Value));
    (void)bench.Frame();
    EXPECT_NEAR(bench.Frame()[23], luminance, 1) << control.Register << "=" << control.Value;
  }
}

TEST(RawFrameStream, MainsLightBandsThePictureUnlessTheExposureFits) {
  const auto spread = [](StreamBench& bench) {
    bench.camera.CommitExposure();
    for (int count = 0; count < 3; ++count) (void)bench.Frame();
    const auto frame = bench.Frame();
    int least = 255;
    int most = 0;
    for (std::size_t line = 10; line < 240; ++line) {  // within the colour bars
      const int luma = frame[64 + line * 1280 + 40];
      least = std::min(least, luma);
      most = std::max(most, luma);
    }
    return most - least;
  };
  StreamBench bench;
  bench.camera.WriteBridge(0x0D, 0x38);
  bench.stream.SetLight({.Level = 1.0, .MainsRate = 100});
  bench.camera.WriteSensor(0x03, 0x00);
  bench.camera.WriteSensor(0x04, 87);  // half of a half cycle
  EXPECT_GT(spread(bench), 10);
  bench.camera.WriteSensor(0x04, 174);  // one half cycle, except for a fraction of a line
  EXPECT_LE(spread(bench), 2);
}

TEST(RawFrameStream, StandbyStopsTheFramesAndRunningBringsThemBack) {
  StreamBench bench;
  (void)bench.Frame();
  bench.camera.WriteBridge(0x09, 0x03);
  int nonEmpty = 0;
  for (int count = 0; count < 2000; ++count) nonEmpty += bench.Next().Bytes.empty() ? 0 : 1;
  EXPECT_LE(nonEmpty, 201);
  bench.camera.WriteBridge(0x09, 0x02);
  (void)bench.Frame();
  EXPECT_EQ(bench.Frame().size(), 614466U);
}

TEST(RawFrameStream, MicroframesLeftOutHaveGoneByWithTheirBytes) {
  StreamBench bench;
  (void)bench.Frame();
  bench.now += 10;
  EXPECT_EQ(bench.Frame().size(), 614466U - 10 * 3072);
  bench.now += 8000;
  const auto torn = bench.Frame();
  EXPECT_LT(torn.size(), 614466U);
  EXPECT_EQ(bench.Frame().size(), 614466U);
}

TEST(RawFrameStream, ANewSizeComesWithAWholeFrame) {
  StreamBench bench;
  (void)bench.Frame();
  bench.camera.WriteBridge(0x5D, 0x80);
  bench.camera.WriteBridge(0x0A, 0x10);
  EXPECT_EQ(bench.Frame().size(), 614466U);
  EXPECT_EQ(bench.Frame().size(), 153666U);
}

TEST(RawFrameStream, NoPacketButTheFirstLooksLikeAMarker) {
  for (const std::uint32_t limit : {128U, 512U, 1023U, 3072U}) {
    StreamBench bench;
    bench.limit = limit;
    bench.camera.WriteBridge(0x5D, 0x80);
    bench.camera.WriteBridge(0x0A, 0x08);
    bench.camera.WriteBridge(0x77, 100);
    EXPECT_EQ(bench.Frame().size(), 38466U);
    EXPECT_EQ(bench.Frame().size(), 38466U);
  }
}

}  // namespace
}  // namespace lidcam::camera_model
