// ApplyLightAndLed and the two steps over it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "driver/sensor/controls/image_controls.h"
#include "driver/sensor/controls/power_and_led.h"
#include "tests/driver/sensor/controls/image_controls_golden.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

enum class Expected { Nothing, On, Off };
enum class List { None, Normal, LowLight };

struct Row {
  std::uint32_t StreamStart;
  std::uint32_t LDModeChanged;
  std::int32_t LDMode;
  std::int32_t Led;
  std::uint32_t Light;
  List Registers;
  bool Restart;
  Expected LedBit;
};

constexpr Row kRows[] = {
    // A stream starts.
    {1, 0, 0, 2, 2, List::Normal, false, Expected::On},
    {1, 0, 0, 3, 2, List::Normal, false, Expected::Off},
    {1, 0, 0, 4, 2, List::Normal, false, Expected::Nothing},
    {1, 0, 0, 0, 0, List::Normal, false, Expected::Nothing},
    {1, 0, 1, 2, 2, List::LowLight, false, Expected::On},
    {1, 0, 1, 3, 2, List::LowLight, false, Expected::Off},
    {1, 0, 1, 4, 2, List::LowLight, false, Expected::On},
    {1, 0, 2, 4, 1, List::Normal, false, Expected::Nothing},
    {1, 1, 0, 4, 1, List::Normal, false, Expected::Nothing},
    {0x100, 0, 1, 5, 0, List::LowLight, false, Expected::On},
    // LDMode became 1.
    {0, 1, 1, 2, 0, List::LowLight, false, Expected::On},
    {0, 1, 1, 3, 0, List::LowLight, false, Expected::Nothing},
    {0, 1, 1, 4, 0, List::LowLight, false, Expected::On},
    {0, 1, 1, 1, 0, List::LowLight, false, Expected::On},
    // LDMode became something else.
    {0, 1, 0, 2, 1, List::Normal, true, Expected::Nothing},
    {0, 1, 0, 3, 1, List::Normal, true, Expected::Off},
    {0, 1, 0, 4, 1, List::Normal, true, Expected::Off},
    {0, 1, 2, 5, 1, List::Normal, true, Expected::Off},
    // LED changed.
    {0, 0, 0, 2, 0, List::None, false, Expected::On},
    {0, 0, 1, 2, 0, List::None, false, Expected::On},
    {0, 0, 0, 3, 1, List::None, false, Expected::Off},
    {0, 0, 1, 3, 1, List::None, false, Expected::Off},
    {0, 0, 1, 4, 0, List::None, false, Expected::On},
    {0, 0, 0, 4, 0, List::None, false, Expected::Off},
    {0, 0, 0, 4, 1, List::None, false, Expected::On},
    {0, 0, 0, 4, 2, List::None, false, Expected::On},
    {0, 0, 0, 4, 3, List::None, false, Expected::On},
    {0, 0, 2, 1, 0, List::None, false, Expected::Off},
    {0, 0, 2, 5, 7, List::None, false, Expected::On},
};

void PrintTo(const Row& row, std::ostream* out) {
  *out << "stream start " << row.StreamStart << ", LDMode changed " << row.LDModeChanged
       << ", LDMode " << row.LDMode << ", LED " << row.Led << ", light state " << row.Light;
}

class LightAndLedCamera : public RegisterSpace {
 public:
  explicit LightAndLedCamera(SensorType type) {
    CameraContext& context = Context();
    context.SensorType = type;
    context.NormalRegisters.Present = 1;
    context.NormalRegisters.Count = 1;
    context.NormalRegisters.Entries[0] = {0x11, 0x50, 0x01};
    context.LowLightRegisters.Present = 1;
    context.LowLightRegisters.Count = 1;
    context.LowLightRegisters.Entries[0] = {0x11, 0x50, 0x02};
    context.LightTransitionCount = 5;
    context.LightBrightCount = 6;
    Bridge[0x09] = 0xA5;
  }
};

class LightAndLed : public ::testing::TestWithParam<Row> {};

TEST_P(LightAndLed, AppliesTheListAndTheLedBitOfItsSituation) {
  const Row& row = GetParam();
  LightAndLedCamera camera(SensorTypeOV7660);
  CameraContext& context = camera.Context();
  context.LDMode = row.LDMode;
  context.LED = row.Led;
  context.LightState = row.Light;
  std::vector<std::string> expected;
  if (row.Registers == List::Normal) expected.emplace_back("write bridge FF50=01");
  if (row.Registers == List::LowLight) expected.emplace_back("write bridge FF50=02");
  if (row.LedBit != Expected::Nothing) {
    expected.emplace_back("read bridge FF09 -> A5");
    expected.emplace_back(row.LedBit == Expected::On ? "write bridge FF09=B5"
                                                     : "write bridge FF09=A5");
  }
  EXPECT_EQ(
      ApplyLightAndLed(context, StreamStart{row.StreamStart}, LDModeChange{row.LDModeChanged}), 0);
  EXPECT_THAT(camera.Accesses(), ElementsAreArray(expected));
  EXPECT_EQ(context.LightState, row.Restart ? 2U : row.Light);
  EXPECT_EQ(context.LightTransitionCount, row.Restart ? 0 : 5);
  EXPECT_EQ(context.LightBrightCount, row.Restart ? 0 : 6);
}

INSTANTIATE_TEST_SUITE_P(EverySituation, LightAndLed, ::testing::ValuesIn(kRows));

TEST(LightAndLedSwitch, FailuresStayInsideAndStopTheLedBit) {
  LightAndLedCamera camera(SensorTypeOV7660);
  camera.Context().LED = 2;
  camera.Failure = [](const std::string&) { return -1; };
  EXPECT_EQ(ApplyLightAndLed(camera.Context(), StreamStart::Yes, LDModeChange::No), 0);
  EXPECT_THAT(camera.Accesses(),
              ElementsAre("write bridge FF50=01 failed", "read bridge FF09 failed"));
}

TEST(LightAndLedSwitch, TheRegisterIsReadAndNeverWrittenOnVGA0708) {
  LightAndLedCamera camera(SensorTypeVGA0708);
  camera.Context().LED = 2;
  EXPECT_EQ(ApplyLightAndLed(camera.Context(), StreamStart::No, LDModeChange::No), 0);
  EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 -> A5"));
}

// The light state is reset before the LED's state is computed.
TEST(LightAndLedSwitch, LeavingLDModeRestartsTheLightStateAheadOfTheLed) {
  LightAndLedCamera camera(SensorTypeOV7660);
  CameraContext& context = camera.Context();
  context.LED = 4;
  context.LightState = 1;
  camera.OnRequest = [&context](const WirePacket& packet) {
    const bool isLedRead = packet[0] == 0xC0;
    const bool isListWrite = packet[1] == 0xA0 && packet[4] == 0x50;
    if (isLedRead) {
      EXPECT_EQ(context.LightState, 2U);
    }
    if (isListWrite) {
      EXPECT_EQ(context.LightState, 1U);
    }
  };
  ApplyLightAndLed(context, StreamStart::No, LDModeChange::Yes);
}

TEST(LDModeStep, SwitchesTheLedOffOnceMoreOnLeaving) {
  LightAndLedCamera camera(SensorTypeOV7660);
  camera.Context().LED = 4;
  EXPECT_EQ(ApplyImageControl(ImageControlLDMode, camera.Context()), 0);
  EXPECT_THAT(camera.Accesses(),
              ElementsAre("write bridge FF50=01", "read bridge FF09 -> A5", "write bridge FF09=A5",
                          "read bridge FF09 -> A5", "write bridge FF09=A5"));
}

TEST(LDModeStep, GivesTheStatusOfItsOwnReadWrite) {
  LightAndLedCamera camera(SensorTypeOV7660);
  camera.Context().LED = 4;
  int reads = 0;
  camera.Failure = [&reads](const std::string& access) {
    return access.starts_with("read bridge FF09") && ++reads == 2 ? -7 : 0;
  };
  EXPECT_EQ(ApplyImageControl(ImageControlLDMode, camera.Context()), -7);
  EXPECT_EQ(camera.Accesses().back(), "read bridge FF09 failed") << "no write after a failed read";

  int writes = 0;
  camera.Failure = [&writes](const std::string& access) {
    return access.starts_with("write bridge FF09") && ++writes == 2 ? -8 : 0;
  };
  EXPECT_EQ(ApplyImageControl(ImageControlLDMode, camera.Context()), -8);
}

TEST(LDModeStep, Is0WhereNoAccessOfItsOwnFollows) {
  LightAndLedCamera camera(SensorTypeOV7660);
  camera.Failure = [](const std::string&) { return -1; };
  camera.Context().LED = 2;
  EXPECT_EQ(ApplyImageControl(ImageControlLDMode, camera.Context()), 0);
  camera.Context().LED = 4;
  camera.Context().LDMode = 1;
  EXPECT_EQ(ApplyImageControl(ImageControlLDMode, camera.Context()), 0);
}

TEST(LDModeStep, IsTheStatusOfTheReadOnVGA0708) {
  LightAndLedCamera camera(SensorTypeVGA0708);
  camera.Context().LED = 4;
  camera.Failure = [](const std::string& access) { return access.starts_with("read") ? -7 : 0; };
  EXPECT_EQ(ApplyImageControl(ImageControlLDMode, camera.Context()), -7);
}

TEST(LedStep, Is0WhateverItsAccessesGive) {
  LightAndLedCamera camera(SensorTypeOV7660);
  camera.Failure = [](const std::string&) { return -1; };
  camera.Context().LED = 2;
  EXPECT_EQ(ApplyImageControl(ImageControlLed, camera.Context()), 0);
  EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 failed"));
}

}  // namespace
}  // namespace lidcam::test
