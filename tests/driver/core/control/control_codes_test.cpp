// Setting by control code.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "driver/core/control/control_codes.h"
#include "tests/driver/support/record_bytes.h"
#include "tests/driver/support/register_space.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

ControlRecord Request(std::uint32_t code, std::int32_t value, std::uint32_t flags = 0xDEAD,
                      std::uint32_t caps = 0xBEEF) {
  return {.Code = code,
          .Value = value,
          .Value2 = 0x77,
          .Flags = flags,
          .Caps = caps,
          .Words = {1, 2, 3, 4, 5, 6}};
}

class SettableCamera : public RegisterSpace {
 public:
  explicit SettableCamera(SensorType type = SensorTypeOV7660) {
    Context().SensorType = type;
    Context().ClockDivider = 1;
  }

  Status Set(const ControlRecord& request) { return SetControl(Context(), request); }
};

struct StoredSetting {
  std::uint32_t Code;
  std::int32_t (*Field)(const CameraContext& context);
  std::int32_t Value;
  std::vector<std::string> Traffic;  // of the step, on SensorTypeOV7660
};

template <auto field>
std::int32_t Read(const CameraContext& context) {
  return static_cast<std::int32_t>(context.*field + 0);
}

const std::vector<StoredSetting>& StoredSettings() {
  using C = CameraContext;
  static const std::vector<StoredSetting> kSettings = {
      {1, Read<&C::Contrast>, 10, {"write bridge FF26=00", "write bridge FF0F=84"}},
      {2, Read<&C::Saturation>, 120, {"write bridge FF78=7D", "write bridge FF79=7D"}},
      {3, Read<&C::Sharpness>, 3, {"write bridge FF43=43"}},
      {5, Read<&C::ColorEnable>, 0, {"write bridge FF42=40"}},
      {7, Read<&C::BackLight>, 1, {"write bridge FF64=08"}},
      {38, Read<&C::Mirror>, 1, {}},
      {39, Read<&C::Vertical>, 1, {}},
      {40, Read<&C::Flicker>, 2, {"write sensor FF3B=00", "write sensor FF42=08"}},
      {44,
       [](const C& c) { return static_cast<std::int32_t>(std::uint32_t{c.StoredControl44}); },
       -5,
       {}},
      {45,
       [](const C& c) { return static_cast<std::int32_t>(std::uint32_t{c.StoredControl45}); },
       21,
       {}},
      {46,
       [](const C& c) { return static_cast<std::int32_t>(std::uint32_t{c.StoredControl46}); },
       16,
       {}},
      {47,
       Read<&C::Effect>,
       3,
       {"write bridge FF42=60", "write bridge FF0B=30", "write bridge FF0C=A0"}},
  };
  return kSettings;
}

TEST(SetControlTest, StoresFirstAndThenRunsTheStep) {
  for (const StoredSetting& setting : StoredSettings()) {
    SettableCamera camera;
    camera.Context().LED = 4;
    EXPECT_EQ(camera.Set(Request(setting.Code, setting.Value)), 0) << setting.Code;
    EXPECT_EQ(setting.Field(camera.Context()), setting.Value) << setting.Code;
    EXPECT_THAT(camera.Accesses(), ::testing::ElementsAreArray(setting.Traffic)) << setting.Code;
  }
}

TEST(SetControlTest, GammaRunsTheGammaStep) {
  SettableCamera camera;
  EXPECT_EQ(camera.Set(Request(4, 11)), 0);
  EXPECT_EQ(camera.Context().Gamma, 11);
  ASSERT_EQ(camera.Accesses().size(), 45U);
  EXPECT_EQ(camera.Accesses().front(), "write bridge FF31=1C");
}

TEST(SetControlTest, WhatIsStoredStaysWhenTheStepFails) {
  for (const StoredSetting& setting : StoredSettings()) {
    if (setting.Traffic.empty()) continue;
    SettableCamera camera;
    camera.Failure = [](const std::string&) { return -9; };
    EXPECT_EQ(camera.Set(Request(setting.Code, setting.Value)), -9) << setting.Code;
    EXPECT_EQ(setting.Field(camera.Context()), setting.Value) << setting.Code;
  }
}

TEST(SetControlTest, GammaExposureAndTheRawRegisterStayStoredToo) {
  SettableCamera camera(SensorTypeVGA0408);
  CameraContext& context = camera.Context();
  context.AutoExposure = 1;
  camera.Failure = [](const std::string&) { return -9; };
  EXPECT_EQ(camera.Set(Request(4, 13)), -9);
  EXPECT_EQ(context.Gamma, 13);
  EXPECT_EQ(camera.Set(Request(12, 33, 2)), -9);
  EXPECT_EQ(context.AutoExposure, 0U);
  EXPECT_EQ(context.Exposure, 33);
  EXPECT_EQ(camera.Set(Request(12, 34, 1)), -9);
  EXPECT_EQ(context.AutoExposure, 1U);
  EXPECT_EQ(context.Exposure, 34);
  EXPECT_EQ(camera.Set(Request(37, 0x0A0B, 0, 0xFF42)), -9);
  EXPECT_EQ(context.RawRegisterValue, 0x0A0BU);
  EXPECT_EQ(context.RawRegisterAddress, 0xFF42U);
}

class OrientationCamera : public SettableCamera {
 public:
  OrientationCamera() : SettableCamera(SensorTypeVGA0708) {
    Context().FormatTag = kFourccYuy2;
    Context().ShadowSensor0C = 0x2B;
    Context().ShadowFF26 = 0x6D;
  }
};

TEST(SetControlTest, MirrorProgramsTheOrientation) {
  OrientationCamera camera;
  EXPECT_EQ(camera.Set(Request(38, 1)), 0);
  EXPECT_EQ(camera.Context().Mirror, 1);
  EXPECT_THAT(camera.Accesses(), ElementsAre("write sensor FF0C=4B", "write bridge FF26=5D"));
}

TEST(SetControlTest, VerticalFlipProgramsTheOrientation) {
  OrientationCamera camera;
  camera.Context().ShadowSensor0C = 0x4B;
  EXPECT_EQ(camera.Set(Request(39, 1)), 0);
  EXPECT_EQ(camera.Context().Vertical, 1);
  EXPECT_THAT(camera.Accesses(), ElementsAre("write sensor FF0C=2B", "write bridge FF26=7D"));
}

TEST(SetControlTest, MirrorAndVerticalFlipStayStoredWhenTheirStepFails) {
  OrientationCamera camera;
  camera.Failure = [](const std::string&) { return -9; };
  EXPECT_EQ(camera.Set(Request(38, 1)), -9);
  EXPECT_EQ(camera.Set(Request(39, 2)), -9);
  EXPECT_EQ(camera.Context().Mirror, 1);
  EXPECT_EQ(camera.Context().Vertical, 2);
}

TEST(SetControlTest, TheHardwaresBrightnessLagsOneChangeBehind) {
  SettableCamera camera;
  camera.Context().Brightness = 20;
  EXPECT_EQ(camera.Set(Request(0, 40)), 0);
  EXPECT_EQ(camera.Context().Brightness, 40);
  EXPECT_EQ(camera.Bridge[0x77], 20);
  EXPECT_EQ(camera.Set(Request(0, 60)), 0);
  EXPECT_EQ(camera.Context().Brightness, 60);
  EXPECT_EQ(camera.Bridge[0x77], 40);
}

TEST(SetControlTest, AFailedBrightnessStepLeavesBrightnessUnchanged) {
  SettableCamera camera;
  camera.Context().Brightness = 20;
  camera.Failure = [](const std::string&) { return -9; };
  EXPECT_EQ(camera.Set(Request(0, 40)), -9);
  EXPECT_EQ(camera.Context().Brightness, 20);
}

TEST(SetControlTest, OnlyExactly1IsAutomaticExposure) {
  for (const std::uint32_t flags : {0U, 2U, 3U, 0x11U, 0x101U}) {
    SettableCamera camera;
    camera.Context().AutoExposure = 1;
    EXPECT_EQ(camera.Set(Request(12, 33, flags)), 0);
    EXPECT_EQ(camera.Context().AutoExposure, 0U) << flags;
    EXPECT_EQ(camera.Context().Exposure, 33);
    EXPECT_EQ(camera.Accesses().front(), "write sensor FF13=F2");
  }
  SettableCamera camera;
  EXPECT_EQ(camera.Set(Request(12, 33, 1)), 0);
  EXPECT_EQ(camera.Context().AutoExposure, 1U);
  EXPECT_EQ(camera.Context().Exposure, 33);
  EXPECT_THAT(camera.Accesses(), ElementsAre("write sensor FF13=F7"));
}

TEST(SetControlTest, WhiteBalanceModeIsAcceptedAndIgnored) {
  SettableCamera camera;
  FillRecord(camera.Context(), 0x5A);
  const std::vector<std::uint8_t> before = BytesOf(camera.Context());
  EXPECT_EQ(camera.Set(Request(6, 1)), 0);
  EXPECT_TRUE(BytesOf(camera.Context()) == before);
  EXPECT_THAT(camera.Accesses(), IsEmpty());
}

TEST(SetControlTest, WhiteBalanceAndTheReadFormOfFlickerCanNotBeSet) {
  SettableCamera camera;
  EXPECT_EQ(camera.Set(Request(8, 1)), -1);
  EXPECT_EQ(camera.Context().WhiteBalance, 0);
  EXPECT_EQ(camera.Set(Request(9, 2)), -1);
  EXPECT_EQ(camera.Context().Flicker, 0);
  EXPECT_THAT(camera.Accesses(), IsEmpty());
}

TEST(SetControlTest, TriggerGoesBackToItsBase) {
  SettableCamera camera;
  CameraContext& context = camera.Context();
  context.TriggerBase = 7;
  context.TriggerFlagA = 1;
  context.TriggerFlagB = 2;
  EXPECT_EQ(camera.Set(Request(23, 99)), 0);
  EXPECT_EQ(context.TriggerCopyA, 7U);
  EXPECT_EQ(context.TriggerCopyB, 7U);
  EXPECT_EQ(context.TriggerFlagA, 0U);
  EXPECT_EQ(context.TriggerFlagB, 0U);
}

TEST(SetControlTest, RawRegisterTakesTheAddressFromCaps) {
  SettableCamera camera;
  EXPECT_EQ(camera.Set(Request(37, 0x12345678, 0, 0xABCDFF42)), 0);
  EXPECT_EQ(camera.Context().RawRegisterValue, 0x12345678U);
  EXPECT_EQ(camera.Context().RawRegisterAddress, 0xABCDFF42U);
  EXPECT_THAT(camera.Accesses(), ElementsAre("write raw FF42=5678"));
}

TEST(SetControlTest, UnchangedLDModeAndLedTouchNothing) {
  SettableCamera camera;
  camera.Context().LDMode = 1;
  camera.Context().LED = 4;
  camera.Context().LightSwitchKind = 9;
  EXPECT_EQ(camera.Set(Request(41, 1, 0, 4)), 0);
  EXPECT_EQ(camera.Context().LightSwitchKind, 9);
  EXPECT_THAT(camera.Accesses(), IsEmpty());
}

TEST(SetControlTest, ARequestChangingLDModeAndLedChangesLDModeOnly) {
  SettableCamera camera;
  camera.Context().LED = 4;
  camera.Bridge[0x09] = 0xA5;
  EXPECT_EQ(camera.Set(Request(41, 1, 0, 2)), 0);
  EXPECT_EQ(camera.Context().LDMode, 1);
  EXPECT_EQ(camera.Context().LED, 4);
  EXPECT_EQ(camera.Context().LightSwitchKind, 1);
  EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 -> A5", "write bridge FF09=B5"));
}

TEST(SetControlTest, AChangedLedRunsTheLedStep) {
  SettableCamera camera;
  camera.Context().LED = 4;
  camera.Context().LightSwitchKind = 9;
  camera.Bridge[0x09] = 0xB5;
  EXPECT_EQ(camera.Set(Request(41, 0, 0, 3)), 0);
  EXPECT_EQ(camera.Context().LED, 3);
  EXPECT_EQ(camera.Context().LightSwitchKind, 0);
  EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 -> B5", "write bridge FF09=A5"));
}

TEST(SetControlTest, LDModeStaysChangedWhenItsStepFails) {
  SettableCamera camera;
  camera.Context().LED = 4;
  camera.Context().LDMode = 1;
  camera.Failure = [](const std::string&) { return -9; };
  EXPECT_EQ(camera.Set(Request(41, 0, 0, 4)), -9);
  EXPECT_EQ(camera.Context().LDMode, 0);
}

TEST(SetControlTest, AStillRequestArmsTheStillAndRunsNoStep) {
  SettableCamera camera;
  EXPECT_EQ(camera.Set(Request(43, 6)), 0);
  EXPECT_EQ(camera.Context().StillRequestValue, 6U);
  EXPECT_EQ(camera.Context().StillRequested, 1U);
  EXPECT_EQ(camera.Context().Streaming, 0);
  EXPECT_THAT(camera.Accesses(), IsEmpty());
}

// The frame path takes the still as soon as it is armed, and stores the value in the picture.
TEST(SetControlTest, AnArmedStillHasItsValue) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    SettableCamera camera;
    const CameraContext& context = camera.Context();
    host::Simulate({.Seed = seed, .HasPreemptionPoints = true}, [&] {
      host::TestThread framePath([&] {
        while (context.StillRequested == 0) YieldProcessor();
        EXPECT_EQ(context.StillRequestValue, 6U) << seed;
      });
      camera.Set(Request(43, 6));
      framePath.Join();
    });
  }
}

TEST(SetControlTest, CodesWithoutASetDirectionAreUnknownAndTouchNothing) {
  const std::set<std::uint32_t> settable = {0,  1,  2,  3,  4,  5,  6,  7,  12, 23,
                                            37, 38, 39, 40, 41, 43, 44, 45, 46, 47};
  for (std::uint32_t code = 0; code < 300; ++code) {
    if (settable.contains(code)) continue;
    SettableCamera camera;
    FillRecord(camera.Context(), 0x5A);
    const std::vector<std::uint8_t> before = BytesOf(camera.Context());
    EXPECT_EQ(camera.Set(Request(code, 1)), -1) << code;
    EXPECT_TRUE(BytesOf(camera.Context()) == before) << code;
    EXPECT_THAT(camera.Packets(), IsEmpty()) << code;
  }
  for (const std::uint32_t code : settable) {
    SettableCamera camera;
    EXPECT_EQ(camera.Set(Request(code, 1)), 0) << code;
  }
  SettableCamera camera;
  EXPECT_EQ(camera.Set(Request(0xFFFFFFFF, 1)), -1);
}

}  // namespace
}  // namespace lidcam::test
