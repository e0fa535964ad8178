#include "driver/sensor/modes/mode_programming.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/driver/support/register_space.h"

namespace lidcam::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::Not;
using Lines = std::vector<std::string>;

constexpr std::int32_t kAllSensors[] = {1, 3, 5, 6, 7, 8, 9, 10, 11};
constexpr std::uint32_t kYuy2 = 0x32595559;

std::string Hex(unsigned value) {
  std::array<char, 4> text{};
  std::snprintf(text.data(), text.size(), "%02X", value & 0xFF);
  return text.data();
}

void Append(Lines& lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
}

// --- Every sensor, raw size, highest setting and configuration ---

struct Programmed {
  std::uint8_t Mode;
  std::uint8_t Sensor13 = 0;  // 0: not written
};

// For raw size 4; `shortMaximum` is 3 or 2 on a short configuration and 0 in all other cases.
Programmed SmallPicture(std::int32_t sensor, int shortMaximum) {
  switch (sensor * 10 + shortMaximum) {
    case 13:
    case 93:
      return {9, 1};
    case 12:
    case 92:
      return {9, 6};
    case 10:
    case 90:
      return {8};
    case 62:
      return {10};
    case 63:
    case 60:
      return {9};
    case 73:
    case 83:
    case 113:
      return {9};
    case 72:
    case 82:
    case 112:
      return {11};
    case 70:
    case 80:
    case 110:
      return {8};
    case 103:
      return {9};
    case 102:
    case 100:
      return {8};
    case 52:
      return {10};
    case 53:
    case 50:
      return {8};
    default:
      return {8};
  }
}

// Content of the mode register before, so that a raw size without a mode of its own shows.
constexpr std::uint8_t kModeBefore = 0x36;

Programmed ExpectedMode(std::int32_t sensor, std::uint32_t rawSize, int shortMaximum) {
  if (rawSize == 1) return {0};
  if (rawSize == 2) {
    const bool isOv = sensor == 7 || sensor == 8 || sensor == 11;
    return {static_cast<std::uint8_t>(isOv ? 0x11 : 0x10)};
  }
  if (rawSize == 4) return SmallPicture(sensor, shortMaximum);
  return {kModeBefore};
}

Lines ExpectedSizeWrites(std::uint32_t rawSize, const Programmed& programmed) {
  Lines lines;
  if (rawSize == 1) lines = {"write bridge FF5D=00"};
  if (rawSize == 2 || rawSize == 4) lines = {"write bridge FF5D=80", "write bridge FF43=C0"};
  if (programmed.Sensor13 != 0) lines.push_back("write sensor FF13=" + Hex(programmed.Sensor13));
  return lines;
}

// With Flicker 0, AutoExposure 0 and the band at 0x5A. The Vga7648 band follows the mode written.
Lines ExpectedFlicker(std::int32_t sensor, const Programmed& programmed) {
  constexpr std::array<std::uint8_t, 4> kBands7648 = {131, 65, 32, 16};
  switch (sensor) {
    case 1:
      return {"write bridge FF70=9C", "read sensor FF13 -> " + Hex(programmed.Sensor13),
              "read sensor FF14 -> 00", "write bridge FF68=5A"};
    case 9:
      return {"write sensor FF1A=10", "write bridge FF0D=3B", "write bridge FF61=88",
              "write bridge FF62=58", "write bridge FF70=9C", "write sensor FF60=02",
              "write sensor FF5D=80"};
    case 5:
      return {"write bridge FF68=" + Hex(kBands7648[programmed.Mode & 3U])};
    case 6:
      return {"write bridge FF7F=01", "write sensor FF01=00", "write bridge FF7F=80",
              "write sensor FF37=01"};
    case 7:
    case 8:
      return {"write sensor FF3B=06"};
    case 10:
      return {"write bridge FF7F=02", "write sensor FFF0=00", "write bridge FF7F=01",
              "write sensor FF5B=00"};
    case 11:
      return {"write sensor FF3B=CB"};
    default:
      return {};
  }
}

class StreamModeTable : public ::testing::TestWithParam<
                            std::tuple<std::int32_t, std::uint32_t, std::uint32_t, std::uint32_t>> {
};

INSTANTIATE_TEST_SUITE_P(EverySetting, StreamModeTable,
                         ::testing::Combine(::testing::ValuesIn(kAllSensors),
                                            ::testing::Values(0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U),
                                            ::testing::Values(2U, 3U, 7U),
                                            ::testing::Values(0U, 1U)));

TEST_P(StreamModeTable, ProgramsSizeOrientationModeFlickerLightAndPowerInThisOrder) {
  const auto [sensor, rawSize, maximum, longConfig] = GetParam();
  RegisterSpace space;
  CameraContext& camera = space.Context();
  camera.SensorType = sensor;
  camera.RawSizeMode = rawSize;
  camera.MaxAlternateSetting = maximum;
  camera.LongConfigDescriptor = longConfig;
  camera.CaptureWidth = 640;
  camera.CaptureHeight = 480;
  camera.FormatTag = kYuy2;
  camera.FlickerBandStep = 0x5A;
  camera.LED = 4;
  camera.LightState = 0;
  camera.LightBrightCount = 5;
  camera.LightTransitionCount = 6;
  space.Bridge[0x0A] = kModeBefore;
  space.Bridge[0x09] = 0x11;

  EXPECT_EQ(ProgramStreamMode(camera), 0);

  const int shortMaximum = longConfig == 0 && maximum != 7 ? static_cast<int>(maximum) : 0;
  const Programmed programmed = ExpectedMode(sensor, rawSize, shortMaximum);
  Lines expected = {"read bridge FF0A -> 36"};
  Append(expected, ExpectedSizeWrites(rawSize, programmed));
  if (sensor == 9) Append(expected, {"write sensor FF0C=60", "write bridge FF26=20"});
  expected.push_back("write bridge FF0A=" + Hex(programmed.Mode));
  Append(expected, ExpectedFlicker(sensor, programmed));
  expected.emplace_back("read bridge FF09 -> 11");
  if (sensor != 9) expected.emplace_back("write bridge FF09=12");
  expected.emplace_back("write sensor FF2F=85");
  EXPECT_THAT(space.Accesses(), ElementsAreArray(expected));

  EXPECT_EQ(camera.BridgeMode, programmed.Mode);
  EXPECT_EQ(camera.ClockDivider, 1 << (programmed.Mode & 3));
  EXPECT_EQ(camera.LightState, 2U);
  EXPECT_EQ(camera.LightBrightCount, 0);
  EXPECT_EQ(camera.LightTransitionCount, 0);
}

// --- Single behaviours ---

class ModeProgramming : public ::testing::Test {
 protected:
  ModeProgramming() {
    camera_.SensorType = 3;
    camera_.RawSizeMode = 1;
    camera_.LED = 4;
  }

  std::string ModeWritten() const {
    for (const std::string& access : space_.Accesses()) {
      if (access.starts_with("write bridge FF0A=")) return access.substr(18);
    }
    return "none";
  }

  RegisterSpace space_;
  CameraContext& camera_ = space_.Context();
};

TEST_F(ModeProgramming, FullPictureHasModeOneForTheTwoLargeSizesOnly) {
  constexpr struct {
    std::int32_t Width;
    std::int32_t Height;
    const char* Mode;
  } kCases[] = {
      {1600, 1200, "01"}, {1280, 1024, "01"}, {1600, 1024, "00"}, {1280, 1200, "00"},
      {640, 480, "00"},   {1024, 1280, "00"}, {0, 0, "00"},
  };
  for (const auto& row : kCases) {
    space_.ForgetTraffic();
    camera_.CaptureWidth = row.Width;
    camera_.CaptureHeight = row.Height;
    EXPECT_EQ(ProgramStreamMode(camera_), 0);
    EXPECT_EQ(ModeWritten(), row.Mode) << row.Width << "x" << row.Height;
  }
}

TEST_F(ModeProgramming, RawSize6WritesTheModeRegistersPreviousValueBack) {
  camera_.SensorType = 10;
  camera_.RawSizeMode = 6;
  camera_.CaptureWidth = 1280;
  camera_.CaptureHeight = 1024;
  space_.Bridge[0x0A] = 0x12;
  EXPECT_EQ(ProgramStreamMode(camera_), 0);
  EXPECT_EQ(ModeWritten(), "12");
  EXPECT_EQ(camera_.BridgeMode, 0x12);
  EXPECT_EQ(camera_.ClockDivider, 4);
}

TEST_F(ModeProgramming, FailedFirstReadCountsAsModeZero) {
  camera_.RawSizeMode = 6;
  camera_.BridgeMode = 0x77;
  space_.Bridge[0x0A] = 0x12;
  space_.Failure = [](const std::string& access) { return access == "read bridge FF0A" ? -1 : 0; };
  EXPECT_EQ(ProgramStreamMode(camera_), 0);
  EXPECT_EQ(ModeWritten(), "00");
  EXPECT_EQ(camera_.BridgeMode, 0);
}

TEST_F(ModeProgramming, FlickerBandFollowsFromTheDividerOfTheNewMode) {
  camera_.SensorType = 9;
  camera_.RawSizeMode = 4;
  camera_.MaxAlternateSetting = 3;
  camera_.ClockDivider = 1;
  camera_.Flicker = 1;
  EXPECT_EQ(ProgramStreamMode(camera_), 0);
  EXPECT_EQ(ModeWritten(), "09");
  EXPECT_EQ(camera_.ClockDivider, 2);
  EXPECT_EQ(camera_.FlickerBandStep, 67);  // 256 + 860 clocks at divider 2
}

TEST_F(ModeProgramming, BridgeModeIsKeptAlsoWhenItsWriteFails) {
  camera_.RawSizeMode = 2;
  camera_.ClockDivider = 8;
  space_.Failure = [](const std::string& access) {
    return access == "write bridge FF0A=10" ? -1 : 0;
  };
  EXPECT_EQ(ProgramStreamMode(camera_), 0);
  EXPECT_EQ(camera_.BridgeMode, 0x10);
  EXPECT_EQ(camera_.ClockDivider, 8);
}

// A resume in between writes the mode of the stream before, which the bridge still has.
TEST_F(ModeProgramming, BridgeModeIsKeptBehindItsWrite) {
  camera_.RawSizeMode = 2;
  camera_.BridgeMode = 0x77;
  int during = 0;
  space_.OnRequest = [&](const WirePacket& packet) {
    const bool isModeWrite = packet[1] == 0xA0 && packet[4] == 0x0A;
    if (isModeWrite) during = camera_.BridgeMode;
  };
  EXPECT_EQ(ProgramStreamMode(camera_), 0);
  EXPECT_EQ(during, 0x77);
  EXPECT_EQ(camera_.BridgeMode, 0x10);
}

TEST_F(ModeProgramming, DeadBusDoesNotFailTheStreamMode) {
  space_.Failure = [](const std::string&) { return -1; };
  for (const std::int32_t sensor : kAllSensors) {
    camera_.SensorType = sensor;
    space_.ForgetTraffic();
    EXPECT_EQ(ProgramStreamMode(camera_), 0) << sensor;
    EXPECT_EQ(space_.Accesses().back(), "write sensor FF2F=85 failed");
  }
}

TEST_F(ModeProgramming, ListAndLedOfTheStreamStartComeBetweenFlickerAndPower) {
  camera_.LDMode = 1;  // the low-light list and the LED
  camera_.LowLightRegisters.Present = 1;
  camera_.LowLightRegisters.Count = 1;
  camera_.LowLightRegisters.Entries[0] = {0x33, 0x44, 0x55};
  space_.Bridge[0x09] = 0x01;
  EXPECT_EQ(ProgramStreamMode(camera_), 0);
  EXPECT_THAT(
      space_.Accesses(),
      ElementsAre("read bridge FF0A -> 00", "write bridge FF5D=00", "write bridge FF0A=00",
                  "write sensor FF44=55", "read bridge FF09 -> 01", "write bridge FF09=11",
                  "read bridge FF09 -> 11", "write bridge FF09=12", "write sensor FF2F=85"));
}

// Frames that arrive meanwhile count light with the limits of the previous stream until the
// flicker's registers are written, and with the new ones from the list and the LED on.
TEST_F(ModeProgramming, LightLimitsAreResetBetweenTheFlickerAndTheList) {
  camera_.SensorType = 7;
  camera_.LightLimitCeiling = 1;
  camera_.LDMode = 1;
  camera_.LowLightRegisters.Present = 1;
  camera_.LowLightRegisters.Count = 1;
  camera_.LowLightRegisters.Entries[0] = {0x33, 0x44, 0x55};
  std::vector<std::uint32_t> ceilings;  // during each access
  space_.OnRequest = [&](const WirePacket&) {
    ceilings.resize(space_.Accesses().size() + 1);
    ceilings.back() = camera_.LightLimitCeiling;
  };
  EXPECT_EQ(ProgramStreamMode(camera_), 0);
  const auto during = [&](const std::string& access) {
    const auto& accesses = space_.Accesses();
    const auto place = std::find(accesses.begin(), accesses.end(), access) - accesses.begin();
    return ceilings.at(static_cast<std::size_t>(place));
  };
  EXPECT_EQ(during("write sensor FF3B=06"), 1U);
  EXPECT_EQ(during("write sensor FF44=55"), 100U);
}

TEST_F(ModeProgramming, Vga0708NeverWritesThePowerRegister) {
  camera_.SensorType = 9;
  EXPECT_EQ(ProgramStreamMode(camera_), 0);
  EXPECT_THAT(space_.Accesses(), Contains("read bridge FF09 -> 00"));
  EXPECT_THAT(space_.Accesses(), Not(Contains(::testing::StartsWith("write bridge FF09"))));
}

TEST_F(ModeProgramming, LightLimitsAreResetByTheStreamStart) {
  camera_.SensorType = 9;
  camera_.LongConfigDescriptor = 1;
  EXPECT_EQ(ProgramStreamMode(camera_), 0);
  EXPECT_EQ(camera_.LightLimitCeiling, 60U);
  EXPECT_EQ(camera_.LightLimitHigh, 30U);
  EXPECT_EQ(camera_.LightLimitLow, 7U);
}

}  // namespace
}  // namespace lidcam::test
