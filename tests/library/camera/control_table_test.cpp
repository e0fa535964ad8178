#include "library/camera/controls/control_table.h"
#include "library/camera/bring_up/virtual_time.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "driver/avstream/properties/property_ids.h"
#include "driver/avstream/properties/property_requests.h"
#include "driver/sensor/controls/image_controls.h"
#include "library/base/command_error.h"
#include "library/camera/opened_camera.h"
#include "library/settings/host_environment.h"
#include "library/settings/trace_observer.h"
#include "platform/host/nt/registry/registry.h"
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
    {"Brightness", -100, 100, 0},
    {"Contrast", 1, 16, 10},
    {"Saturation", 0, 255, 120},
    {"Sharpness", 0, 8, 4},
    {"Gamma", 1, 20, 12},
    {"WhiteBalance", 0, 1, 1},
    {"BacklightCompensation", 0, 1, 0},
    {"ColorEnable", 0, 1, 1},
    {"Exposure", 1, 100, 1},
    {"AutoExposure", 0, 1, 1},
    {"Mirror", 0, 1, 0},
    {"Vertical", 0, 1, 0},
    {"Flicker", 0, 2, 1},
    {"Effect", 0, 5, 0},
    {"LDMode", 0, 1, 0},
    {"LED", 2, 4, 4},
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

// A set as the driver gets it, on a camera record by itself.
void SetOn(CameraContext& context, const CameraControl& control, std::int32_t value) {
  PrivatePropertyBlock block{};
  block.Value = value;
  block.Unused =
      KSPROPERTY_VIDEOPROCAMP_FLAGS_MANUAL;  // where the published levels have their flags
  if (control.Part == ControlPart::Mode) block.Unused = value != 0 ? 1 : 2;
  if (control.Part == ControlPart::Led) block.Led = static_cast<ULONG>(value);
  KSIDENTIFIER request{};
  request.Set = *control.Set;
  request.Id = control.Id;
  ULONG_PTR information = 0;
  EXPECT_NE(SetCameraProperty(context, request, {&block, sizeof(block), &information}),
            STATUS_BUFFER_TOO_SMALL);
}

bool IsLightOrLed(const CameraControl& control) {
  return control.Part == ControlPart::Light || control.Part == ControlPart::Led;
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
      SetOn(camera.Context(), control, control.Minimum);
      SetOn(camera.Context(), control, control.Maximum);
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

// The requests for a control's lowest and its highest value differ, or those of the next exposure by hand, which some
// controls take part in; else the control has no effect. The white balance is only reported, and the light mode and the LED depend on more.
TEST(ControlTable, AControlHasAnEffectWhereItsValuesReachTheCamera) {
  constexpr std::int32_t kTypes[] = {1, 3, 5, 6, 7, 8, 9, 10, 11};
  for (const std::int32_t type : kTypes) {
    for (const CameraControl& control : AllControls()) {
      if (control.Name == "WhiteBalance" || IsLightOrLed(control)) continue;
      const auto traffic = [&](std::int32_t value) {
        test::RegisterSpace camera;
        camera.Context().SensorType = type;
        camera.Context().FormatTag = kFourccYuy2;
        camera.Context().ClockDivider = 1;
        camera.Context().RawSizeMode = RawMode640x480;
        SetOn(camera.Context(), control, value);
        // The brightness register lags one change behind.
        SetOn(camera.Context(), control, value);
        camera.Context().AutoExposure = 0;
        camera.Context().Exposure = 60;
        ApplyImageControl(ImageControlExposure, camera.Context());
        return camera.AccessText();
      };
      EXPECT_EQ(HasEffect(control.Name, type), traffic(control.Minimum) != traffic(control.Maximum))
          << control.Name << " on sensor " << type;
    }
  }
}

TEST(ControlTable, TheLedHasAnEffectWhereItsBitIsWritten) {
  constexpr std::int32_t kTypes[] = {1, 3, 5, 6, 7, 8, 9, 10, 11};
  for (const std::int32_t type : kTypes) {
    const auto traffic = [type](LedPolicy policy) {
      test::RegisterSpace camera;
      camera.Context().SensorType = type;
      camera.Context().LED = policy;
      ApplyImageControl(ImageControlLed, camera.Context());
      return camera.AccessText();
    };
    EXPECT_EQ(HasEffect("LED", type), traffic(LedPolicyOn) != traffic(LedPolicyOff)) << type;
  }
}

TEST(ControlTable, OrientationIsReportedByTheOneSensorThatHasIt) {
  EXPECT_TRUE(ReportOf("Mirror", SensorTypeVGA0708).has_value());
  EXPECT_FALSE(ReportOf("Mirror", SensorTypeOV7670).has_value());
  EXPECT_FALSE(ReportOf("LDMode", SensorTypeVGA0708).has_value());
}

/// The default camera, opened as an application opens it.
void WithDefaultCamera(const std::function<void(const client::Camera& camera)>& use) {
  static_cast<void>(host::CloseRegistry());
  bus::SimulatedBus bus({});
  RunInVirtualTime(
      [&] { WithOpenedCamera(bus, [&](OpenedCamera& opened) { use(opened.Camera()); }); });
}

TEST(ControlTable, ThePublishedLevelsHaveTheRangesThatTheDriverTells) {
  WithDefaultCamera([](const client::Camera& camera) {
    for (const CameraControl& control : AllControls()) {
      EXPECT_EQ(RangeOf(camera, control),
                (ControlRange{control.Minimum, control.Maximum, 1, control.Default}))
          << control.Name;
    }
  });
}

TEST(ControlTable, WhatIsSetIsReadBack) {
  WithDefaultCamera([](const client::Camera& camera) {
    for (const CameraControl& control : AllControls()) {
      for (const std::int32_t value : {control.Maximum, control.Minimum}) {
        SetValue(camera, control, value);
        if (control.Name == "WhiteBalance") continue;
        EXPECT_EQ(ValueOf(camera, control), value) << control.Name;
      }
    }
  });
}

TEST(ControlTable, TheWhiteBalanceTakesAnyValueAndKeepsItsOwn) {
  WithDefaultCamera([](const client::Camera& camera) {
    const CameraControl& control = FindControl("WhiteBalance");
    const std::int32_t before = ValueOf(camera, control);
    for (const std::int32_t value : {0, 1}) {
      SetValue(camera, control, value);
      EXPECT_EQ(ValueOf(camera, control), before);
    }
  });
}

TEST(ControlTable, BrightnessIsWrittenTwiceSoThatTheNewValueStands) {
  std::string last;
  const TraceObserver observer([&last](std::string_view line) {
    if (line.starts_with("bus  write bridge FF77=")) last = line;
  });
  WithDefaultCamera(
      [](const client::Camera& camera) { SetValue(camera, FindControl("Brightness"), -2); });
  EXPECT_EQ(last, "bus  write bridge FF77=FE");
}

TEST(ControlTable, AnExposureByHandTurnsTheAutomaticOff) {
  WithDefaultCamera([](const client::Camera& camera) {
    const CameraControl& automatic = FindControl("AutoExposure");
    SetValue(camera, automatic, 1);
    SetValue(camera, FindControl("Exposure"), 30);
    EXPECT_EQ(ValueOf(camera, automatic), 0);
    SetValue(camera, automatic, 1);
    EXPECT_EQ(ValueOf(camera, automatic), 1);
    EXPECT_EQ(ValueOf(camera, FindControl("Exposure")), 30);
  });
}

TEST(ControlTable, LightModeAndLedKeepEachOther) {
  WithDefaultCamera([](const client::Camera& camera) {
    SetValue(camera, FindControl("LED"), 2);
    SetValue(camera, FindControl("LDMode"), 1);
    EXPECT_EQ(ValueOf(camera, FindControl("LED")), 2);
    EXPECT_EQ(ValueOf(camera, FindControl("LDMode")), 1);
  });
}

TEST(ControlTable, AnOlderNameNamesTheSameControl) {
  EXPECT_EQ(&FindControl("backlight"), &FindControl("BacklightCompensation"));
  EXPECT_EQ(ParseAssignment("BackLight=1").Control->Name, "BacklightCompensation");
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
