// Backlight, colour, effect, and the dispatch of the orientation and flicker steps.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "driver/sensor/controls/image_controls.h"
#include "tests/driver/sensor/controls/image_controls_golden.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class BacklightCamera : public RegisterSpace {
 public:
  explicit BacklightCamera(SensorType type) { Context().SensorType = type; }
};

TEST(BackLightStep, TheBitMeansOnInTheBridgeAndOffInVGA0708) {
  for (const std::int32_t backLight : {0, 1}) {
    BacklightCamera common(SensorTypeOV7660);
    common.Context().BackLight = backLight;
    ApplyImageControl(ImageControlBackLight, common.Context());
    EXPECT_EQ(common.Bridge[0x64], backLight == 1 ? 0x08 : 0x00);
    EXPECT_EQ(common.Context().ShadowFF64, backLight == 1 ? 0x08 : 0x00);

    BacklightCamera reversed(SensorTypeVGA0708);
    reversed.Context().BackLight = backLight;
    ApplyImageControl(ImageControlBackLight, reversed.Context());
    EXPECT_EQ(reversed.Sensor[0x49], backLight == 1 ? 0x00 : 0x08);
  }
}

TEST(BackLightStep, TheShadowFollowsEvenIfTheWriteFails) {
  BacklightCamera camera(SensorTypeVGA7648);
  camera.Context().ShadowFF64 = 0x80;
  camera.Context().BackLight = 1;
  camera.Failure = [](const std::string&) { return -1; };
  EXPECT_EQ(ApplyImageControl(ImageControlBackLight, camera.Context()), -1);
  EXPECT_EQ(camera.Context().ShadowFF64, 0x88);
}

// It has bytes of its own: the exposure step's copies of the same register stay.
TEST(BackLightStep, LeavesTheExposureCopiesOfTheWideRegisterAlone) {
  for (const SensorType type : {SensorTypeK82, SensorTypeMi1318}) {
    BacklightCamera camera(type);
    camera.Context().WideHigh = 0xAA;
    camera.Context().WideLow = 0xBB;
    camera.Sensor[0x06] = 0x12;
    camera.Sensor[0xF1] = 0x34;
    ApplyImageControl(ImageControlBackLight, camera.Context());
    EXPECT_EQ(camera.Context().WideHigh, 0xAA);
    EXPECT_EQ(camera.Context().WideLow, 0xBB);
  }
}

TEST(BackLightStep, FailedReadsCountAs0) {
  BacklightCamera wide(SensorTypeMi1318);
  wide.Sensor[0x06] = 0x12;
  wide.Sensor[0xF1] = 0x34;
  wide.Failure = [](const std::string& access) { return access.starts_with("read") ? -1 : 0; };
  EXPECT_EQ(ApplyImageControl(ImageControlBackLight, wide.Context()), 0);
  EXPECT_THAT(wide.Accesses(), ElementsAre("write bridge FF7F=01", "write sensor FFF0=00",
                                           "read sensor FF06 failed", "read sensor FFF1 failed",
                                           "write bridge FF7F=1C", "write sensor FF06=00"));

  BacklightCamera vga(SensorTypeVGA0708);
  vga.Sensor[0x49] = 0x77;
  vga.Failure = wide.Failure;
  EXPECT_EQ(ApplyImageControl(ImageControlBackLight, vga.Context()), 0);
  EXPECT_THAT(vga.Accesses(), ElementsAre("read sensor FF49 failed", "write sensor FF49=08"));
}

TEST(ColorEnableStep, AnyValueBut1IsMonochromeWhileTheEffectTakesOnly0ForIt) {
  for (const std::int32_t colorEnable : {-1, 0, 1, 2}) {
    BacklightCamera camera(SensorTypeOV7660);
    camera.Context().ColorEnable = colorEnable;
    ApplyImageControl(ImageControlColorEnable, camera.Context());
    EXPECT_EQ(camera.Bridge[0x42], colorEnable == 1 ? 0x00 : 0x40) << colorEnable;
    ApplyImageControl(ImageControlEffect, camera.Context());
    EXPECT_EQ(camera.Bridge[0x42], colorEnable == 0 ? 0x40 : 0x00) << colorEnable;
  }
}

TEST(ColorEnableStep, BuildsOnTheEffectSetBefore) {
  BacklightCamera camera(SensorTypeOV7660);
  camera.Context().ShadowFF42 = 0x93;
  camera.Context().ColorEnable = 1;
  camera.Context().Effect = 2;
  ApplyImageControl(ImageControlEffect, camera.Context());
  EXPECT_EQ(camera.Context().ShadowFF42, 0x08) << "the effect replaces all bits";
  camera.Context().ColorEnable = 0;
  ApplyImageControl(ImageControlColorEnable, camera.Context());
  EXPECT_EQ(camera.Bridge[0x42], 0x48);
  EXPECT_EQ(camera.Context().ShadowFF42, 0x48);
}

TEST(ColorEnableStep, TheShadowFollowsEvenIfTheWriteFails) {
  BacklightCamera camera(SensorTypeOV7660);
  camera.Context().ShadowFF42 = 0x42;
  camera.Context().ColorEnable = 1;
  camera.Failure = [](const std::string&) { return -1; };
  EXPECT_EQ(ApplyImageControl(ImageControlColorEnable, camera.Context()), -1);
  EXPECT_EQ(camera.Context().ShadowFF42, 0x02);
}

TEST(EffectStep, TheShadowFollowsASuccessfulWriteOnly) {
  BacklightCamera camera(SensorTypeOV7660);
  camera.Context().ShadowFF42 = 0x42;
  camera.Context().ColorEnable = 1;
  camera.Context().Effect = 5;
  camera.Failure = [](const std::string&) { return -1; };
  EXPECT_EQ(ApplyImageControl(ImageControlEffect, camera.Context()), -1);
  EXPECT_EQ(camera.Context().ShadowFF42, 0x42);
}

struct EffectRow {
  std::int32_t Effect;
  const char* Effects;
  const char* FirstTint;
  const char* SecondTint;
};

TEST(EffectStep, EveryEffectHasItsBits) {
  constexpr EffectRow kRows[] = {
      {0, "write bridge FF42=00", "write bridge FF0B=00", "write bridge FF0C=00"},
      {1, "write bridge FF42=02", "write bridge FF0B=00", "write bridge FF0C=00"},
      {2, "write bridge FF42=08", "write bridge FF0B=00", "write bridge FF0C=00"},
      {3, "write bridge FF42=20", "write bridge FF0B=30", "write bridge FF0C=A0"},
      {4, "write bridge FF42=04", "write bridge FF0B=00", "write bridge FF0C=00"},
      {5, "write bridge FF42=01", "write bridge FF0B=00", "write bridge FF0C=00"},
      {0x103, "write bridge FF42=20", "write bridge FF0B=30", "write bridge FF0C=A0"},
      {-1, "write bridge FF42=00", "write bridge FF0B=00", "write bridge FF0C=00"},
  };
  for (const EffectRow& row : kRows) {
    BacklightCamera camera(SensorTypeVGA0708);
    camera.Context().ColorEnable = 1;
    camera.Context().Effect = row.Effect;
    EXPECT_EQ(ApplyImageControl(ImageControlEffect, camera.Context()), 0);
    EXPECT_THAT(camera.Accesses(), ElementsAre(row.Effects, row.FirstTint, row.SecondTint))
        << row.Effect;
  }
}

TEST(EffectStep, Effect6IsNoEffect) {
  BacklightCamera camera(SensorTypeOV7670);
  camera.Context().ColorEnable = 1;
  camera.Context().Effect = 6;
  ApplyImageControl(ImageControlEffect, camera.Context());
  EXPECT_THAT(camera.Accesses(),
              ElementsAre("write bridge FF42=00", "write bridge FF0B=00", "write bridge FF0C=00"));
}

TEST(OrientationSteps, GiveTheStatusOfTheLastWriteOnVGA0708) {
  for (const std::uint32_t step : {11U, 12U}) {
    BacklightCamera camera(SensorTypeVGA0708);
    camera.Failure = [](const std::string& access) {
      return access.starts_with("write bridge FF26") ? -7 : 0;
    };
    EXPECT_EQ(ApplyImageControl(step, camera.Context()), -7);
  }
}

TEST(OrientationSteps, WriteNothingOnOtherSensors) {
  for (const NamedSensor& sensor : kSensors) {
    if (sensor.Type == SensorTypeVGA0708) continue;
    BacklightCamera camera(sensor.Type);
    EXPECT_EQ(ApplyImageControl(ImageControlMirror, camera.Context()), 0);
    EXPECT_EQ(ApplyImageControl(ImageControlVertical, camera.Context()), 0);
    EXPECT_THAT(camera.Accesses(), IsEmpty()) << sensor.Name;
  }
}

TEST(FlickerStep, GivesTheStatusOfTheBandWriteOnVGA0408) {
  BacklightCamera camera(SensorTypeVGA0408);
  camera.Failure = [](const std::string& access) {
    return access.starts_with("write bridge FF68") ? -7 : 0;
  };
  EXPECT_EQ(ApplyImageControl(ImageControlFlicker, camera.Context()), -7);
}

}  // namespace
}  // namespace lidcam::test
