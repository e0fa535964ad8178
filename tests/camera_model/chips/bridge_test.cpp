#include "camera_model/chips/bridge.h"

#include <gtest/gtest.h>

#include "tests/camera_model/camera_bench.h"

namespace lidcam::camera_model {
namespace {

using Setup = std::array<std::uint8_t, 8>;

TEST(Bridge, WritesAndReadsItsOwnRegistersUnderSelectZeroAndOne) {
  CameraBench bench{SensorModel::VGA0708};
  EXPECT_EQ(bench.Send({0x40, 0xA0, 0x00, 0x00, 0xFF, 0xFF, 0x00, 0x00}), 0U);
  EXPECT_EQ(bench.Send({0x40, 0xA0, 0x5A, 0x00, 0x77, 0xFF, 0x00, 0x00}), 0U);
  EXPECT_EQ(bench.Send({0x40, 0xA0, 0x01, 0x00, 0xFF, 0xFF, 0x00, 0x00}), 0U);
  std::array<std::uint8_t, 1> data{};
  EXPECT_EQ(bench.Send({0xC0, 0xA1, 0x01, 0x00, 0x77, 0xFF, 0x01, 0x00}, data), 1U);
  EXPECT_EQ(data[0], 0x5A);
}

TEST(Bridge, SelectDecidesWhichChipTheSameRequestReaches) {
  CameraBench bench{SensorModel::VGA0708};
  bench.WriteBridge(0x55, 0x11);
  bench.WriteSensor(0x55, 0x22);
  EXPECT_EQ(bench.ReadBridge(0x55), 0x11);
  EXPECT_EQ(bench.ReadSensor(0x55), 0x22);
}

TEST(Bridge, RawAccessWorksUnderWhateverSelectIsInForce) {
  CameraBench bench{SensorModel::VGA0708};
  bench.Select(3);
  bench.Send({0x40, 0xA0, 0x33, 0x00, 0x55, 0xFF, 0x00, 0x00});
  bench.Select(1);
  bench.Send({0x40, 0xA0, 0x44, 0x00, 0x55, 0xFF, 0x00, 0x00});
  EXPECT_EQ(bench.ReadSensor(0x55), 0x33);
  EXPECT_EQ(bench.ReadBridge(0x55), 0x44);
}

TEST(Bridge, KeepsTheLowByteOfARawWrite) {
  CameraBench bench{SensorModel::VGA0708};
  bench.Select(0);
  bench.Send({0x40, 0xA0, 0x34, 0x12, 0x55, 0xFF, 0x00, 0x00});
  EXPECT_EQ(bench.ReadBridge(0x55), 0x34);
}

TEST(Bridge, UnknownSelectReachesNothing) {
  CameraBench bench{SensorModel::VGA0708};
  bench.WriteBridge(0x55, 0x11);
  bench.Select(4);
  bench.Send({0x40, 0xA0, 0x99, 0x00, 0x55, 0xFF, 0x00, 0x00});
  std::array<std::uint8_t, 1> data{};
  EXPECT_EQ(bench.Send({0xC0, 0xA1, 0x01, 0x00, 0x55, 0xFF, 0x01, 0x00}, data), 1U);
  EXPECT_EQ(data[0], 0xFF);
  EXPECT_EQ(bench.ReadBridge(0x55), 0x11);
}

class Refusal : public testing::TestWithParam<Setup> {};

TEST_P(Refusal, Stalls) {
  CameraBench bench{SensorModel::VGA0708};
  std::array<std::uint8_t, 8> data{};
  EXPECT_FALSE(bench.Send(GetParam(), data).has_value());
}

INSTANTIATE_TEST_SUITE_P(
    Requests, Refusal,
    testing::Values(Setup{0x40, 0xA0, 0x00, 0x00, 0x77, 0xFF, 0x01, 0x00},    // write with data
                    Setup{0xC0, 0xA1, 0x01, 0x00, 0x77, 0xFF, 0x02, 0x00},    // read of two bytes
                    Setup{0xC0, 0xA1, 0x01, 0x00, 0x77, 0xFF, 0x00, 0x00},    // read of none
                    Setup{0xC0, 0xA0, 0x00, 0x00, 0x77, 0xFF, 0x00, 0x00},    // write inward
                    Setup{0x40, 0xA1, 0x01, 0x00, 0x77, 0xFF, 0x01, 0x00},    // read outward
                    Setup{0x40, 0xA2, 0x00, 0x00, 0x77, 0xFF, 0x00, 0x00},    // unknown request
                    Setup{0x41, 0xA0, 0x00, 0x00, 0x77, 0xFF, 0x00, 0x00},    // to the interface
                    Setup{0x40, 0xA0, 0x00, 0x00, 0x77, 0xFE, 0x00, 0x00},    // below 0xFF00
                    Setup{0xC0, 0xA1, 0x01, 0x00, 0x77, 0x00, 0x01, 0x00},    // below 0xFF00
                    Setup{0xC0, 0xA1, 0x01, 0x00, 0xFF, 0xFF, 0x01, 0x00}));  // select is not read

struct PowerUpRow {
  std::uint8_t Register;
  std::uint8_t Value;
};

TEST(Bridge, PowersUpNeutral) {
  CameraBench bench{SensorModel::VGA0708};
  constexpr PowerUpRow kRows[] = {{0x09, 0x02}, {0x0A, 0x00}, {0x0B, 0x00}, {0x0C, 0x00},
                                  {0x0D, 0x3B}, {0x0F, 0x80}, {0x13, 0xA0}, {0x14, 0xD0},
                                  {0x26, 0x20}, {0x2B, 0x42}, {0x42, 0x00}, {0x43, 0x40},
                                  {0x5D, 0x00}, {0x64, 0x00}, {0x68, 0x96}, {0x77, 0x00},
                                  {0x78, 0xA0}, {0x79, 0xA0}, {0x7E, 0x01}, {0x7F, 0x00}};
  for (const PowerUpRow& row : kRows) {
    EXPECT_EQ(bench.ReadBridge(row.Register), row.Value) << "register " << int{row.Register};
  }
  constexpr std::uint8_t kGamma[] = {28,  39,  53,  64,  73,  88,  100, 111,
                                     120, 137, 151, 164, 187, 207, 224};
  for (std::uint8_t knot = 0; knot < 15; ++knot) {
    EXPECT_EQ(bench.ReadBridge(static_cast<std::uint8_t>(0x31 + knot)), kGamma[knot]);
    EXPECT_EQ(bench.ReadBridge(static_cast<std::uint8_t>(0x81 + knot)), kGamma[knot]);
    EXPECT_EQ(bench.ReadBridge(static_cast<std::uint8_t>(0x91 + knot)), kGamma[knot]);
  }
}

TEST(Bridge, PowerUpForgetsEverything) {
  CameraBench bench{SensorModel::VGA0708};
  bench.WriteBridge(0x77, 20);
  bench.WriteSensor(0x03, 0x0F);
  bench.bridge.PowerUp();
  EXPECT_EQ(bench.ReadBridge(0x77), 0);
  EXPECT_EQ(bench.ReadSensor(0x03), 0x02);
}

TEST(Bridge, SensorAtAnotherAddressReadsAsIdleBusAndLosesWrites) {
  CameraBench bench{SensorModel::OV7670};
  bench.WriteBridge(0x2B, 0xBA);
  EXPECT_EQ(bench.ReadSensor(0x0A), 0xFF);
  bench.WriteSensor(0x55, 0x12);
  bench.WriteBridge(0x2B, 0x42);
  EXPECT_EQ(bench.ReadSensor(0x0A), 0x76);
  EXPECT_EQ(bench.ReadSensor(0x55), 0x00);
  bench.WriteBridge(0x7E, 2);
  EXPECT_EQ(bench.ReadSensor(0x0A), 0xFF);
}

TEST(Bridge, SensorWithTurnedPowerPinAnswersOnlyTheSecondAttempt) {
  CameraBench bench{SensorModel::OV7670, {}, {.SensorNeedsPowerBit2Clear = true}};
  bench.WriteBridge(0x09, 0x06);
  EXPECT_EQ(bench.ReadSensor(0x0A), 0xFF);
  bench.WriteBridge(0x09, 0x02);
  EXPECT_EQ(bench.ReadSensor(0x0A), 0x76);
}

TEST(Bridge, Register09CarriesStandbyAndLed) {
  CameraBench bench{SensorModel::OV7670};
  EXPECT_TRUE(bench.bridge.IsSensorRunning());
  EXPECT_FALSE(bench.bridge.IsLedOn());
  bench.WriteBridge(0x09, 0x12);
  EXPECT_TRUE(bench.bridge.IsSensorRunning());
  EXPECT_TRUE(bench.bridge.IsLedOn());
  bench.WriteBridge(0x09, 0x03);
  EXPECT_FALSE(bench.bridge.IsSensorRunning());
  EXPECT_FALSE(bench.bridge.IsLedOn());
}

TEST(Bridge, Register0ADividesTheClock) {
  CameraBench bench{SensorModel::OV7670};
  for (const auto& [value, divisor] :
       {std::pair{0x00, 1U}, {0x11, 2U}, {0x0A, 4U}, {0x0B, 8U}, {0x10, 1U}}) {
    bench.WriteBridge(0x0A, static_cast<std::uint8_t>(value));
    EXPECT_EQ(bench.bridge.ClockDivisor(), divisor);
  }
}

}  // namespace
}  // namespace lidcam::camera_model
