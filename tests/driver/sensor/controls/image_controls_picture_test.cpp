// Brightness, contrast, saturation and sharpness, and the steps that do nothing.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <utility>
#include <vector>

#include "driver/core/control/control_codes.h"
#include "driver/sensor/controls/image_controls.h"
#include "tests/driver/sensor/controls/image_controls_golden.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

class PictureCamera : public RegisterSpace {
 public:
  explicit PictureCamera(SensorType type) { Context().SensorType = type; }
};

TEST(ImageControlSteps, UnusedAndUnknownStepsDoNothing) {
  for (const NamedSensor& sensor : kSensors) {
    PictureCamera camera(sensor.Type);
    for (const std::uint32_t step : {0U, 3U, 7U, 17U, 18U, 20U, 21U, 0x101U, 0xFFFFFFFFU}) {
      EXPECT_EQ(ApplyImageControl(step, camera.Context()), 0);
    }
    EXPECT_THAT(camera.Accesses(), IsEmpty());
  }
}

TEST(ImageControlSteps, AnUnknownSensorIsTreatedLikeTheOthers) {
  PictureCamera camera(SensorTypeVGA0408);
  CameraContext& context = camera.Context();
  for (const std::int32_t type : {0, 2, 4, 12, 31, 32, 33, 105, -1, -31}) {
    camera.ForgetTraffic();
    context.SensorType = type;
    context.Contrast = 10;
    context.Saturation = 120;
    EXPECT_EQ(ApplyImageControl(ImageControlContrast, context), 0);
    EXPECT_EQ(ApplyImageControl(ImageControlSaturation, context), 0);
    EXPECT_EQ(ApplyImageControl(ImageControlExposure, context), 0);
    EXPECT_THAT(camera.Accesses(), ElementsAre("write bridge FF26=00", "write bridge FF0F=84",
                                               "write bridge FF78=78", "write bridge FF79=78"))
        << type;
  }
}

TEST(BrightnessStep, WritesTwosComplement) {
  PictureCamera camera(SensorTypeOV7660);
  camera.Context().Brightness = -1;
  ApplyImageControl(ImageControlBrightness, camera.Context());
  camera.Context().Brightness = 0x1234;
  ApplyImageControl(ImageControlBrightness, camera.Context());
  EXPECT_THAT(camera.Accesses(), ElementsAre("write bridge FF77=FF", "write bridge FF77=34"));
}

// The control code runs the step ahead of storing: the register is one change behind.
TEST(BrightnessStep, ANewBrightnessReachesTheRegisterWithTheSecondRequest) {
  PictureCamera camera(SensorTypeOV7660);
  camera.Context().Brightness = 20;
  const ControlRecord request{
      .Code = 0, .Value = 50, .Value2 = 0, .Flags = 0, .Caps = 0, .Words = {}};
  EXPECT_EQ(SetControl(camera.Context(), request), 0);
  EXPECT_EQ(camera.Bridge[0x77], 20);
  EXPECT_EQ(SetControl(camera.Context(), request), 0);
  EXPECT_EQ(camera.Bridge[0x77], 50);
}

TEST(ContrastStep, LargestContrastGivesC0OnTheCommonSensors) {
  for (const SensorType type :
       {SensorTypeVGA0408, SensorTypeReserved3, SensorTypeVGA7648, SensorTypeOV7660,
        SensorTypeOV7663, SensorTypeVGA0708, SensorTypeOV7670}) {
    PictureCamera camera(type);
    camera.Context().Contrast = 16;
    ApplyImageControl(ImageControlContrast, camera.Context());
    EXPECT_EQ(camera.Bridge[0x0F], 0xC0) << type;
  }
}

TEST(ContrastStep, K82WritesTwoRegistersAndMi1318Three) {
  PictureCamera wide(SensorTypeK82);
  wide.Context().Contrast = 7;
  ApplyImageControl(ImageControlContrast, wide.Context());
  EXPECT_THAT(wide.Accesses(),
              ElementsAre("write bridge FF26=00", "write bridge FF13=AC", "write bridge FF14=DC"));
  PictureCamera megapixel(SensorTypeMi1318);
  megapixel.Context().Contrast = 7;
  ApplyImageControl(ImageControlContrast, megapixel.Context());
  EXPECT_THAT(megapixel.Accesses(), ElementsAre("write bridge FF26=00", "write bridge FF0F=80",
                                                "write bridge FF13=8E", "write bridge FF14=CE"));
}

TEST(ContrastStep, ClearsBit0OfTheOrientationRegisterAndKeepsTheRest) {
  PictureCamera camera(SensorTypeOV7660);
  camera.Context().ShadowFF26 = 0xFF;
  ApplyImageControl(ImageControlContrast, camera.Context());
  EXPECT_EQ(camera.Accesses().front(), "write bridge FF26=FE");
  EXPECT_EQ(camera.Context().ShadowFF26, 0xFE);
}

TEST(ContrastStep, TheClearedShadowStaysWhenItsWriteFails) {
  PictureCamera camera(SensorTypeOV7660);
  camera.Context().ShadowFF26 = 0x31;
  camera.Failure = [](const std::string&) { return -1; };
  EXPECT_EQ(ApplyImageControl(ImageControlContrast, camera.Context()), -1);
  EXPECT_EQ(camera.Context().ShadowFF26, 0x30);
}

TEST(ContrastStep, AProductBeyond32BitsWraps) {
  PictureCamera camera(SensorTypeOV7660);
  camera.Context().Contrast = std::numeric_limits<std::int32_t>::max();
  ApplyImageControl(ImageControlContrast, camera.Context());
  EXPECT_EQ(camera.Bridge[0x0F], 0x16);  // 10 * 0x7FFFFFFF + 0x20
}

struct SaturationRow {
  SensorType Type;
  std::int32_t Setting;
  int Register;
};

void PrintTo(const SaturationRow& row, std::ostream* out) {
  *out << "sensor " << row.Type << " saturation " << row.Setting;
}

class SaturationStep : public ::testing::TestWithParam<SaturationRow> {};

TEST_P(SaturationStep, WritesAndKeepsTheValueTwice) {
  PictureCamera camera(GetParam().Type);
  camera.Context().Saturation = GetParam().Setting;
  EXPECT_EQ(ApplyImageControl(ImageControlSaturation, camera.Context()), 0);
  EXPECT_EQ(camera.Accesses().size(), 2U);
  EXPECT_EQ(camera.Bridge[0x78], GetParam().Register);
  EXPECT_EQ(camera.Bridge[0x79], GetParam().Register);
  EXPECT_EQ(camera.Context().UserSaturation, GetParam().Register);
  EXPECT_EQ(camera.Context().UserSaturation2, GetParam().Register);
}

INSTANTIATE_TEST_SUITE_P(
    EveryFormula, SaturationStep,
    ::testing::Values(
        SaturationRow{SensorTypeOV7660, 120, 125}, SaturationRow{SensorTypeOV7660, 250, 255},
        SaturationRow{SensorTypeOV7660, 251, 255}, SaturationRow{SensorTypeOV7663, 120, 125},
        SaturationRow{SensorTypeOV7670, 120, 125}, SaturationRow{SensorTypeK82, 28, 0},
        SaturationRow{SensorTypeK82, 29, 35}, SaturationRow{SensorTypeK82, 120, 140},
        SaturationRow{SensorTypeK82, 231, 245}, SaturationRow{SensorTypeK82, 232, 255},
        SaturationRow{SensorTypeMi1318, 28, 0}, SaturationRow{SensorTypeMi1318, 120, 140},
        SaturationRow{SensorTypeVGA0708, 4, 0}, SaturationRow{SensorTypeVGA0708, 120, 192},
        SaturationRow{SensorTypeVGA0708, 159, 248}, SaturationRow{SensorTypeVGA0708, 160, 255},
        SaturationRow{SensorTypeVGA0708, 255, 255}, SaturationRow{SensorTypeVGA7648, 120, 184},
        SaturationRow{SensorTypeVGA7648, 191, 255}, SaturationRow{SensorTypeVGA7648, 192, 255},
        SaturationRow{SensorTypeVGA0408, 120, 120}, SaturationRow{SensorTypeReserved3, 120, 120}));

INSTANTIATE_TEST_SUITE_P(
    BeyondTheRange, SaturationStep,
    ::testing::Values(SaturationRow{SensorTypeVGA0408, 0x1FF, 0xFF},  // cut, no limit
                      SaturationRow{SensorTypeVGA0408, 0x1234, 0x34},
                      SaturationRow{SensorTypeOV7660, 0x10003, 8},  // low 16 bits only
                      SaturationRow{SensorTypeOV7660, -1, 255},     // 65535 + 5, limited
                      SaturationRow{SensorTypeK82, -1, 255}));

TEST(SaturationStepFailure, TheUserValueIsKeptEvenIfTheWritesFail) {
  PictureCamera camera(SensorTypeOV7660);
  camera.Context().Saturation = 10;
  camera.Failure = [](const std::string&) { return -1; };
  EXPECT_EQ(ApplyImageControl(ImageControlSaturation, camera.Context()), -1);
  EXPECT_EQ(camera.Context().UserSaturation, 15);
  EXPECT_EQ(camera.Context().UserSaturation2, 15);
}

// Unlike the sharpness, whose value is kept ahead of its write.
TEST(SaturationStepOrder, EachUserValueIsKeptBehindItsWrite) {
  PictureCamera camera(SensorTypeOV7660);
  CameraContext& context = camera.Context();
  context.Saturation = 10;
  std::vector<std::pair<int, int>> during;
  camera.OnRequest = [&](const WirePacket&) {
    during.emplace_back(context.UserSaturation, context.UserSaturation2);
  };
  EXPECT_EQ(ApplyImageControl(ImageControlSaturation, context), 0);
  EXPECT_THAT(during,
              ElementsAre(std::pair(0, 0), std::pair(0, 0), std::pair(15, 0), std::pair(15, 0)));
}

TEST(SharpnessStep, KeepsTheLowByteAsTheUsersValue) {
  PictureCamera camera(SensorTypeVGA0708);
  camera.Context().Sharpness = 3;
  EXPECT_EQ(ApplyImageControl(ImageControlSharpness, camera.Context()), 0);
  EXPECT_EQ(camera.Context().UserSharpness, 0x43);
  camera.Context().Sharpness = 0x100C5;
  EXPECT_EQ(ApplyImageControl(ImageControlSharpness, camera.Context()), 0);
  EXPECT_EQ(camera.Context().UserSharpness, 0x05);
  EXPECT_THAT(camera.Accesses(), ElementsAre("write bridge FF43=43", "write bridge FF43=05"));
}

TEST(SharpnessStep, TheUsersValueIsKeptAheadOfTheWrite) {
  PictureCamera camera(SensorTypeVGA0708);
  camera.Context().Sharpness = 8;
  camera.Failure = [&camera](const std::string& access) {
    if (access.starts_with("write")) {
      EXPECT_EQ(camera.Context().UserSharpness, 0x48);
    }
    return -1;
  };
  EXPECT_EQ(ApplyImageControl(ImageControlSharpness, camera.Context()), -1);
  EXPECT_EQ(camera.Context().UserSharpness, 0x48);
}

TEST(RawRegisterStep, SendsBothLowHalvesUnderTheSelectInForceWithoutTheBusyFlags) {
  PictureCamera camera(SensorTypeOV7660);
  CameraContext& context = camera.Context();
  context.RawRegisterAddress = 0xABCD1234;
  context.RawRegisterValue = 0x5678FEDC;
  context.DriverRegisterBusy = 1;  // would stop a write of the application path for good
  camera.OnRequest = [&context](const WirePacket&) { EXPECT_EQ(context.AppRegisterBusy, 0U); };
  EXPECT_EQ(ApplyImageControl(ImageControlRawRegister, context), 0);
  EXPECT_THAT(camera.Packets(),
              ElementsAre(WirePacket{0x40, 0xA0, 0xDC, 0xFE, 0x34, 0x12, 0x00, 0x00}));
}

}  // namespace
}  // namespace lidcam::test
