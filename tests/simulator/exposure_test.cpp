#include "simulator/exposure.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/simulator/camera_bench.h"

namespace lidcam::simulator {
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
  SensorExposure exposure;
  exposure.Seconds = 0.02;
  for (int line = 0; line < 100; ++line) {
    EXPECT_NEAR(MainsFactor(light, exposure, line * 0.0003), 1.0, 1e-9);
  }
  exposure.Seconds = 0.005;
  double least = 9;
  double most = 0;
  for (int line = 0; line < 100; ++line) {
    const double factor = MainsFactor(light, exposure, line * 0.0003);
    least = std::min(least, factor);
    most = std::max(most, factor);
  }
  EXPECT_LT(least, 0.85);
  EXPECT_GT(most, 1.15);
  EXPECT_EQ(MainsFactor({}, exposure, 0.001), 1.0);
}

}  // namespace
}  // namespace lidcam::simulator
