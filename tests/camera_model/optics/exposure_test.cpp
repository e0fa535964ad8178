#include "camera_model/optics/exposure.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/camera_model/camera_bench.h"

namespace lidcam::camera_model {
namespace {

double Relative(const CameraBench& bench, double light = 1.0) {
  return ReadExposure(bench.bridge, {.Level = light}).Relative;
}

TEST(Exposure, PowerUpIsRightForTheUsualRoomOnEverySensor) {
  for (const SensorModel model : kAllSensorModels) {
    CameraBench bench{model};
    const SensorExposure exposure = ReadExposure(bench.bridge, {});
    EXPECT_NEAR(exposure.Relative, 1.0, 0.02) << NameOf(model);
    EXPECT_EQ(exposure.Level, 3) << NameOf(model);
    EXPECT_TRUE(exposure.IsAutomatic) << NameOf(model);
    EXPECT_NEAR(FrameSeconds(bench.bridge, exposure), 1.0 / 30, 1e-9) << NameOf(model);
  }
}

void SetManual(CameraBench& bench) {
  switch (bench.sensor.Model()) {
    case SensorModel::VGA0408:
    case SensorModel::VGA0708:
      bench.WriteBridge(0x0D, 0x38);
      break;
    case SensorModel::OV7660:
    case SensorModel::OV7663:
      bench.WriteSensor(0x13, 0xF2);
      break;
    case SensorModel::OV7670:
      bench.WriteSensor(0x13, 0xE0);
      break;
    case SensorModel::VGA7648:
      bench.WriteSensor(0x13, 0xA0);
      break;
    case SensorModel::Mi1318:
      bench.OpenWideBus();
      bench.WriteWide(0xF0, 1);
      bench.WriteWide(0x06, bench.ReadWide(0x06) & 0xBFFF);
      bench.WriteWide(0xF0, 0);
      break;
    default:
      break;
  }
}

class SteerableSensor : public testing::TestWithParam<SensorModel> {};

TEST_P(SteerableSensor, ManualExposureStartsWhereAutomaticOneStood) {
  CameraBench bench{GetParam()};
  SetManual(bench);
  EXPECT_FALSE(ReadExposure(bench.bridge, {}).IsAutomatic);
  EXPECT_NEAR(Relative(bench), 1.0, 0.02);
}

TEST_P(SteerableSensor, ManualExposureFollowsLightAndAutomaticHoldsAgainstIt) {
  CameraBench bench{GetParam()};
  EXPECT_NEAR(Relative(bench, 0.5), 1.0, 0.02);
  EXPECT_NEAR(Relative(bench, 2.0), 1.0, 0.02);
  EXPECT_EQ(ReadExposure(bench.bridge, {.Level = 0.5}).Level, 6);
  EXPECT_EQ(ReadExposure(bench.bridge, {.Level = 3.0}).Level, 1);
  SetManual(bench);
  EXPECT_NEAR(Relative(bench, 0.5), 0.5, 0.02);
  EXPECT_NEAR(Relative(bench, 2.0), 2.0, 0.04);
}

TEST_P(SteerableSensor, MoreLinesGiveMoreLight) {
  CameraBench bench{GetParam()};
  SetManual(bench);
  const auto writeLines = [&bench](std::uint16_t lines) {
    const auto high = static_cast<std::uint8_t>(lines >> 8);
    const auto low = static_cast<std::uint8_t>(lines & 0xFF);
    switch (bench.sensor.Model()) {
      case SensorModel::VGA0408:
      case SensorModel::VGA0708:
        bench.WriteSensor(0x04, low);
        bench.WriteSensor(0x03, high);
        bench.CommitExposure();
        break;
      case SensorModel::Mi1318:
        bench.WriteWide(0x09, lines);
        break;
      default:
        bench.WriteSensor(0x10, static_cast<std::uint8_t>(lines >> 2));
        bench.WriteSensor(bench.sensor.Model() == SensorModel::VGA7648 ? 0x76 : 0x04,
                          static_cast<std::uint8_t>(lines & 3));
        break;
    }
  };
  writeLines(200);
  const double less = Relative(bench);
  writeLines(400);
  EXPECT_NEAR(Relative(bench), 2 * less, 0.001);
  writeLines(403);
  EXPECT_NEAR(Relative(bench), 2.015 * less, 0.001);
}

INSTANTIATE_TEST_SUITE_P(Models, SteerableSensor,
                         testing::Values(SensorModel::VGA0408, SensorModel::VGA0708,
                                         SensorModel::OV7660, SensorModel::OV7663,
                                         SensorModel::OV7670, SensorModel::VGA7648,
                                         SensorModel::Mi1318),
                         [](const auto& row) { return std::string(NameOf(row.param)); });

TEST(Exposure, GainsOfVga0708RiseInSmallStepsThroughTheStages) {
  CameraBench bench{SensorModel::VGA0708};
  SetManual(bench);
  double last = 0;
  for (const auto& [coarse, fine] :
       {std::pair{1, 128}, {1, 142}, {2, 128}, {2, 164}, {3, 128}, {3, 192}}) {
    bench.WriteSensor(0x60, static_cast<std::uint8_t>(coarse));
    bench.WriteSensor(0x5D, static_cast<std::uint8_t>(fine));
    bench.CommitExposure();
    EXPECT_GT(Relative(bench), last);
    EXPECT_LT(last == 0 ? 1.0 : Relative(bench) / last, 1.55);
    last = Relative(bench);
  }
}

TEST(Exposure, OnlyBothLowBitsOf0DSwitchTheChipsExposureOn) {
  CameraBench bench{SensorModel::VGA0708};
  for (const auto& [value, isAutomatic] :
       {std::pair{0x3B, true}, {0x38, false}, {0x39, false}, {0x3A, false}, {0x03, true}}) {
    bench.WriteBridge(0x0D, static_cast<std::uint8_t>(value));
    EXPECT_EQ(ReadExposure(bench.bridge, {}).IsAutomatic, isAutomatic);
  }
}

TEST(Exposure, TheChipsReachEndsInTheDark) {
  CameraBench bench{SensorModel::OV7670};
  const SensorExposure dark = ReadExposure(bench.bridge, {.Level = 0.01});
  EXPECT_EQ(dark.Level, 20);
  EXPECT_NEAR(dark.Relative, 0.1, 0.01);
  EXPECT_NEAR(FrameSeconds(bench.bridge, dark), 0.2, 1e-9);
}

TEST(Exposure, BacklightBitsRaiseTheExposureWithTheirOwnSense) {
  CameraBench vga{SensorModel::VGA0708};
  vga.WriteSensor(0x49, 0x00);
  EXPECT_NEAR(Relative(vga), 1.4, 0.03);
  CameraBench ov{SensorModel::OV7660};
  ov.WriteBridge(0x64, 0x08);
  EXPECT_NEAR(Relative(ov), 1.4, 0.03);
  for (const SensorModel model : {SensorModel::K82, SensorModel::Mi1318}) {
    CameraBench wide{model};
    wide.OpenWideBus();
    wide.WriteWide(model == SensorModel::K82 ? 0x01 : 0xF0, 1);
    wide.WriteWide(0x06, wide.ReadWide(0x06) & 0xFFF7);
    EXPECT_NEAR(Relative(wide), 1.4, 0.03);
  }
}

TEST(Exposure, DividerAndLineLengthSlowTheFrame) {
  CameraBench bench{SensorModel::VGA0708};
  const auto seconds = [&bench] {
    SensorExposure shortExposure;
    shortExposure.Seconds = 0.001;
    return FrameSeconds(bench.bridge, shortExposure);
  };
  bench.WriteBridge(0x0A, 0x01);
  EXPECT_NEAR(seconds(), 2.0 / 30, 1e-9);
  bench.WriteBridge(0x0A, 0x03);
  EXPECT_NEAR(seconds(), 8.0 / 30, 1e-9);
  bench.WriteBridge(0x0A, 0x00);
  bench.WriteSensor(0x13, 0x01);
  EXPECT_NEAR(seconds(), (860.0 + 256) / 860 / 30, 1e-9);
}

TEST(Exposure, WholeHalfCyclesOfMainsLightShowNoBands) {
  const SceneLight light{.Level = 1.0, .MainsRate = 100};
  for (int line = 0; line < 100; ++line) {
    EXPECT_NEAR(MeanLight(light, line * 0.0003, 0.02), 1.0, 1e-9);
  }
  double least = 9;
  double most = 0;
  for (int line = 0; line < 100; ++line) {
    const double factor = MeanLight(light, line * 0.0003, 0.005);
    least = std::min(least, factor);
    most = std::max(most, factor);
  }
  EXPECT_LT(least, 0.85);
  EXPECT_GT(most, 1.15);
  EXPECT_NEAR(MeanLight({}, 0.001, 0.005), 1.0, 1e-12);
}

TEST(Exposure, AStepOfTheLightCountsForTheRestOfTheLinesTime) {
  const SceneLight light{.Schedule = {{0, 300}, {4, 30}, {4.01, 0}}};
  EXPECT_NEAR(MeanLight(light, 3.98, 0.02), 1.0, 1e-9);
  EXPECT_NEAR(MeanLight(light, 3.99, 0.02), (1.0 + 0.1) / 2, 1e-9);
  EXPECT_NEAR(MeanLight(light, 3.99, 0.04), (1.0 + 0.1) / 4, 1e-9);
  EXPECT_NEAR(MeanLight(light, 4.0, 0.01), 0.1, 1e-9);
  EXPECT_NEAR(MeanLight(light, 4.02, 0.01), 0.0, 1e-9);
  EXPECT_NEAR(MeanLight(light, -0.03, 0.02), 1.0, 1e-9);
  const SceneLight twice{.Level = 2, .Schedule = {{0, 150}}};
  EXPECT_NEAR(MeanLight(twice, 1, 0.02), 1.0, 1e-9);
}

TEST(Exposure, SteadyIsLightWithoutMainsAndWithoutAStep) {
  const SceneLight light{.Schedule = {{0, 300}, {4, 30}}};
  EXPECT_TRUE(IsSteady(light, 3.9, 4.0));
  EXPECT_FALSE(IsSteady(light, 3.9, 4.001));
  EXPECT_TRUE(IsSteady(light, 4.0, 5.0));
  EXPECT_TRUE(IsSteady(light, -0.03, -0.01));
  EXPECT_FALSE(IsSteady({.MainsRate = 100}, 0, 0.001));
}

struct FrameLengthRow {
  std::uint8_t Register;
  unsigned ExtraLines;
};

TEST(Exposure, LessInTheFrameLengthRegisterIsALongerFrame) {
  // Sixteen lines of 860 clocks at 15 MHz for each step below 0x2F.
  constexpr FrameLengthRow kRows[] = {{0xFF, 0},   {0x30, 0},   {0x2F, 0},  {0x2E, 16},
                                      {0x25, 160}, {0x1F, 256}, {0x00, 752}};
  for (const FrameLengthRow& row : kRows) {
    CameraBench bench{SensorModel::VGA0708};
    bench.WriteSensor(0x09, row.Register);
    EXPECT_NEAR(FrameSeconds(bench.bridge, ReadExposure(bench.bridge, {})), 1.0 / 30, 1e-9);
    bench.CommitExposure();
    const SensorExposure exposure = ReadExposure(bench.bridge, {});
    EXPECT_EQ(exposure.ExtraLines, row.ExtraLines);
    EXPECT_NEAR(FrameSeconds(bench.bridge, exposure), 1.0 / 30 + row.ExtraLines * 860 / 15e6, 1e-9)
        << int{row.Register};
  }
  CameraBench other{SensorModel::VGA0408};
  other.WriteSensor(0x09, 0x1F);
  other.CommitExposure();
  EXPECT_NEAR(FrameSeconds(other.bridge, ReadExposure(other.bridge, {})), 1.0 / 30, 1e-9);
}

TEST(Exposure, FrameLengthCountsLinesOfTheDividedClock) {
  CameraBench bench{SensorModel::VGA0708};
  bench.WriteSensor(0x09, 0x1F);
  bench.CommitExposure();
  bench.WriteBridge(0x0A, 0x01);
  EXPECT_NEAR(FrameSeconds(bench.bridge, ReadExposure(bench.bridge, {})),
              2 * (1.0 / 30 + 256 * 860 / 15e6), 1e-9);
}

TEST(Exposure, EachTakeoverOfTheCoarseGainIsOneSmallStep) {
  CameraBench bench{SensorModel::VGA0708};
  const auto gain = [&bench](std::uint8_t coarse, std::uint8_t fine) {
    bench.WriteBridge(0x0D, 0x38);
    bench.WriteSensor(0x60, coarse);
    bench.WriteSensor(0x5D, fine);
    bench.CommitExposure();
    return ReadExposure(bench.bridge, {}).Gain;
  };
  EXPECT_NEAR(gain(1, 156), 1.0, 1e-9);
  EXPECT_NEAR(gain(1, 128), 128.0 / 156, 1e-9);
  EXPECT_NEAR(gain(2, 128) / gain(1, 142), 1.046, 0.001);
  EXPECT_NEAR(gain(3, 128) / gain(2, 164), 1.029, 0.001);
}

TEST(Exposure, NoiseAndDarkLightGrowWithTheGain) {
  SensorExposure exposure;
  const PixelNoise usual = NoiseOf(exposure);
  exposure.Gain = 2;
  const PixelNoise amplified = NoiseOf(exposure);
  EXPECT_NEAR(amplified.ReadVariance, 4 * usual.ReadVariance, 1e-15);
  EXPECT_NEAR(amplified.DarkLight, 2 * usual.DarkLight, 1e-15);
  // The same picture, from half the light.
  EXPECT_NEAR(amplified.Variance(0.5) - amplified.ReadVariance,
              2 * (usual.Variance(0.5) - usual.ReadVariance), 1e-15);
  exposure.Gain = 1;
  exposure.Seconds *= 5;
  EXPECT_NEAR(NoiseOf(exposure).DarkLight, 5 * usual.DarkLight, 1e-15);
  EXPECT_EQ(NoiseOf(exposure).ReadVariance, usual.ReadVariance);
}

}  // namespace
}  // namespace lidcam::camera_model
