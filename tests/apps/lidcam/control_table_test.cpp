#include "apps/lidcam/control_table.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "apps/lidcam/command_error.h"
#include "tests/driver/support/register_space.h"

namespace lidcam::app {
namespace {

struct Row {
  const char* Name;
  std::int32_t Minimum;
  std::int32_t Maximum;
  std::int32_t Default;
};

constexpr Row kRows[] = {
    {"Brightness", -100, 100, 20}, {"Contrast", 1, 16, 10},   {"Saturation", 0, 255, 120},
    {"Sharpness", 0, 8, 3},        {"Gamma", 1, 20, 11},      {"ColorEnable", 0, 1, 1},
    {"BackLight", 0, 1, 0},        {"AutoExposure", 0, 1, 1}, {"Exposure", 1, 100, 1},
    {"Mirror", 0, 1, 0},           {"Vertical", 0, 1, 0},     {"Flicker", 0, 2, 1},
    {"Effect", 0, 5, 0},           {"LDMode", 0, 1, 0},       {"LED", 2, 4, 4},
};

TEST(ControlTable, HasEveryControlWithItsRange) {
  ASSERT_EQ(AllControls().size(), std::size(kRows));
  for (std::size_t i = 0; i < std::size(kRows); ++i) {
    const CameraControl& control = AllControls()[i];
    EXPECT_EQ(control.Name, kRows[i].Name);
    EXPECT_EQ(control.Minimum, kRows[i].Minimum) << control.Name;
    EXPECT_EQ(control.Maximum, kRows[i].Maximum) << control.Name;
    EXPECT_EQ(control.Default, kRows[i].Default) << control.Name;
  }
}

// On every sensor the register that a control reports is one that the control writes, and a control
// that reports none writes none that could be told.
TEST(ControlTable, AReportIsARegisterThatTheControlWrites) {
  constexpr std::int32_t kTypes[] = {1, 3, 5, 6, 7, 8, 9, 10, 11};
  for (const std::int32_t type : kTypes) {
    for (const CameraControl& control : AllControls()) {
      test::RegisterSpace camera;
      camera.Context().SensorType = type;
      camera.Context().FormatTag = kFourccYuy2;
      camera.Context().ClockDivider = 1;
      camera.Context().LED = 3;
      control.Set(camera.Context(), control.Minimum);
      control.Set(camera.Context(), control.Maximum);
      const auto report = ReportOf(control.Name, type);
      if (!report) continue;
      char written[24];
      std::snprintf(written, sizeof(written),
                    "write %s %04X=", report->IsSensor ? "sensor" : "bridge",
                    unsigned{report->Address});
      EXPECT_NE(camera.AccessText().find(written), std::string::npos)
          << control.Name << " on sensor " << type << ": " << written;
    }
  }
}

TEST(ControlTable, OrientationIsReportedByTheOneSensorThatHasIt) {
  EXPECT_TRUE(ReportOf("Mirror", SensorTypeVGA0708).has_value());
  EXPECT_FALSE(ReportOf("Mirror", SensorTypeOV7670).has_value());
  EXPECT_FALSE(ReportOf("LDMode", SensorTypeVGA0708).has_value());
}

TEST(ControlTable, WhatIsSetIsReadBack) {
  for (const CameraControl& control : AllControls()) {
    test::RegisterSpace camera;
    camera.Context().SensorType = SensorTypeVGA0708;
    camera.Context().LED = 4;
    for (const std::int32_t value : {control.Maximum, control.Minimum}) {
      EXPECT_EQ(control.Set(camera.Context(), value), 0) << control.Name;
      EXPECT_EQ(control.Get(camera.Context()), value) << control.Name;
    }
  }
}

TEST(ControlTable, BrightnessIsWrittenTwiceSoThatTheNewValueStands) {
  test::RegisterSpace camera;
  FindControl("Brightness").Set(camera.Context(), -2);
  EXPECT_EQ(camera.Bridge[0x77], 0xFE);
}

TEST(ControlTable, AnExposureByHandTurnsTheAutomaticOff) {
  test::RegisterSpace camera;
  FindControl("AutoExposure").Set(camera.Context(), 1);
  FindControl("Exposure").Set(camera.Context(), 30);
  EXPECT_EQ(FindControl("AutoExposure").Get(camera.Context()), 0);
  FindControl("AutoExposure").Set(camera.Context(), 1);
  EXPECT_EQ(FindControl("Exposure").Get(camera.Context()), 30);
}

TEST(ControlTable, LightModeAndLedKeepEachOther) {
  test::RegisterSpace camera;
  FindControl("LED").Set(camera.Context(), 2);
  FindControl("LDMode").Set(camera.Context(), 1);
  EXPECT_EQ(FindControl("LED").Get(camera.Context()), 2);
  EXPECT_EQ(FindControl("LDMode").Get(camera.Context()), 1);
}

TEST(ControlTable, AssignmentsAreNamesInAnyCaseAndValuesInRange) {
  EXPECT_EQ(ParseAssignment("gamma=20").Control->Name, "Gamma");
  EXPECT_EQ(ParseAssignment("Brightness=-100").Value, -100);
  for (const char* const text : {"Gamma", "Gamma=", "Gamma=21", "Gamma=0", "Gamma=x", "Gamma=1 ",
                                 "=1", "Hue=1", "Gamma=99999999999"}) {
    EXPECT_THROW((void)ParseAssignment(text), UsageError) << text;
  }
}

}  // namespace
}  // namespace lidcam::app
