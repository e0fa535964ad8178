#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "driver/sensor/controls/image_controls.h"
#include "tests/driver/sensor/controls/image_controls_golden.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ExposingCamera : public RegisterSpace {
 public:
  explicit ExposingCamera(SensorType type) {
    Context().SensorType = type;
    Context().ClockDivider = 1;
    Context().RawSizeMode = 1;
  }

  std::vector<std::string> Expose(std::int32_t exposure) {
    ForgetTraffic();
    Context().Exposure = exposure;
    EXPECT_EQ(ApplyImageControl(ImageControlExposure, Context()), 0);
    return Accesses();
  }
};

TEST(ExposureOnVGA0708, AnExposureBelowTheBandIsRaisedToItAndOthersAreCutToWholeBands) {
  ExposingCamera camera(SensorTypeVGA0708);
  camera.Context().Flicker = 1;
  camera.Context().FlickerBandStep = 50;
  EXPECT_THAT(camera.Expose(1), ElementsAre("write bridge FF0D=38", "write sensor FF04=32",
                                            "write sensor FF03=00"));  // 40, raised to 50
  EXPECT_THAT(camera.Expose(3), ElementsAre("write bridge FF0D=38", "write sensor FF04=64",
                                            "write sensor FF03=00"));  // 120, cut to 100
}

TEST(ExposureOnVGA0708, AnyFlickerBut0CutsToBands) {
  ExposingCamera camera(SensorTypeVGA0708);
  camera.Context().FlickerBandStep = 50;
  camera.Context().Flicker = 7;
  EXPECT_EQ(camera.Expose(3)[1], "write sensor FF04=64");
  camera.Context().Flicker = 0;
  EXPECT_EQ(camera.Expose(3)[1], "write sensor FF04=78");
}

TEST(ExposureOnVGA0708, ABandOf0LeavesTheExposureAsItIs) {
  ExposingCamera camera(SensorTypeVGA0708);
  camera.Context().Flicker = 1;
  camera.Context().FlickerBandStep = 0;
  EXPECT_THAT(camera.Expose(100),
              ElementsAre("write bridge FF0D=38", "write sensor FF04=A0", "write sensor FF03=0F"));
  EXPECT_EQ(camera.Context().FlickerBandStep, 0);
}

// Below the band of no lines: raised to it. There is nothing to divide by.
TEST(ExposureOnVGA0708, ANegativeExposureBecomesTheBandOf0) {
  ExposingCamera camera(SensorTypeVGA0708);
  camera.Context().Flicker = 1;
  camera.Context().FlickerBandStep = 0;
  EXPECT_THAT(camera.Expose(-3),
              ElementsAre("write bridge FF0D=38", "write sensor FF04=00", "write sensor FF03=00"));
  camera.Context().Flicker = 0;
  EXPECT_THAT(camera.Expose(-3),
              ElementsAre("write bridge FF0D=38", "write sensor FF04=88", "write sensor FF03=FF"));
}

TEST(ExposureOnVGA0708, TheChipsOwnExposureStaysOffInAutomaticToo) {
  ExposingCamera camera(SensorTypeVGA0708);
  for (const std::uint32_t automatic : {1U, 2U, 0x100U}) {
    camera.Context().AutoExposure = automatic;
    EXPECT_THAT(camera.Expose(100), ElementsAre("write bridge FF0D=38"));
    EXPECT_EQ(camera.Context().ShadowFF0D, 0x38);
  }
}

TEST(ExposureOnVGA0408, ABandOf0BecomesTheUsual150) {
  ExposingCamera camera(SensorTypeVGA0408);
  camera.Context().Flicker = 2;
  EXPECT_THAT(camera.Expose(1),
              ElementsAre("write bridge FF0D=00", "write sensor FF04=96", "write sensor FF03=00"));
  EXPECT_EQ(camera.Context().FlickerBandStep, 0x96);
}

TEST(ExposureOnVGA0408, TheUsualBandIsSetWithFlickerOffAndInAutomaticToo) {
  ExposingCamera camera(SensorTypeVGA0408);
  camera.Context().AutoExposure = 1;
  camera.Context().ShadowFF0D = 0x80;
  EXPECT_THAT(camera.Expose(3),
              ElementsAre("write bridge FF0D=83", "write sensor FF04=78", "write sensor FF03=00"));
  EXPECT_EQ(camera.Context().FlickerBandStep, 0x96);
}

TEST(ExposureOnVGA0408, TheUsualBandIsSetBetweenTheModeAndTheLines) {
  ExposingCamera camera(SensorTypeVGA0408);
  std::vector<int> during;
  camera.OnRequest = [&](const WirePacket&) { during.push_back(camera.Context().FlickerBandStep); };
  camera.Expose(1);
  EXPECT_THAT(during, ElementsAre(0, 0, 0x96, 0x96, 0x96, 0x96));
}

TEST(ExposureOnVGA0408, TheModeBitsOfTheShadowStayWhenTheirWriteFails) {
  ExposingCamera camera(SensorTypeVGA0408);
  camera.Context().ShadowFF0D = 0xFF;
  camera.Failure = [](const std::string& access) {
    return access.starts_with("write bridge FF0D") ? -1 : 0;
  };
  camera.Expose(1);
  EXPECT_EQ(camera.Context().ShadowFF0D, 0xF8);
  camera.Context().AutoExposure = 1;
  camera.Expose(1);
  EXPECT_EQ(camera.Context().ShadowFF0D, 0xFB);
}

TEST(ExposureOnOVSensors, BandsAre187And156LinesByTheClockDivider) {
  struct Row {
    std::int32_t Flicker;
    std::int32_t Divider;
    int Lines;  // of an exposure of 0: one band
  };
  constexpr Row kRows[] = {{1, 1, 187}, {1, 2, 93}, {1, 4, 46}, {1, 8, 23},
                           {2, 1, 156}, {2, 2, 78}, {2, 4, 39}, {2, 8, 19}};
  for (const SensorType type : {SensorTypeOV7660, SensorTypeOV7663, SensorTypeOV7670}) {
    for (const Row& row : kRows) {
      ExposingCamera camera(type);
      camera.Context().Flicker = row.Flicker;
      camera.Context().ClockDivider = row.Divider;
      camera.Expose(0);
      EXPECT_EQ(camera.Sensor[0x10] * 4 + camera.Sensor[0x04], row.Lines);
    }
  }
}

TEST(ExposureOnOVSensors, AnotherFlickerCutsNothing) {
  ExposingCamera camera(SensorTypeOV7660);
  camera.Context().Flicker = 3;
  EXPECT_THAT(camera.Expose(1),
              ElementsAre("write sensor FF13=F2", "write sensor FF10=02", "write sensor FF04=02"));
}

TEST(ExposureOnOVSensors, AClockDividerOf0BandsNothing) {
  for (const std::int32_t flicker : {1, 2}) {
    ExposingCamera camera(SensorTypeOV7670);
    camera.Context().Flicker = flicker;
    camera.Context().ClockDivider = 0;
    EXPECT_THAT(camera.Expose(1), ElementsAre("write sensor FF13=E0", "write sensor FF3B=09",
                                              "write sensor FF10=02", "write sensor FF04=02"));
  }
}

TEST(ExposureOnOVSensors, OnlyTenBitsOfTheLinesAreWritten) {
  ExposingCamera camera(SensorTypeOV7660);
  EXPECT_THAT(camera.Expose(205), ElementsAre("write sensor FF13=F2", "write sensor FF10=00",
                                              "write sensor FF04=02"));  // 2050 is 0x802
  EXPECT_THAT(camera.Expose(-1), ElementsAre("write sensor FF13=F2", "write sensor FF10=FD",
                                             "write sensor FF04=02"));  // -10
}

TEST(ExposureOnVGA7648, StepsOf30AreScaledToTheMainsAndDivided) {
  ExposingCamera camera(SensorTypeVGA7648);
  const auto lines = [&camera](std::int32_t flicker, std::int32_t divider, std::int32_t exposure) {
    camera.Context().Flicker = flicker;
    camera.Context().ClockDivider = divider;
    camera.Expose(exposure);
    return camera.Sensor[0x10] * 4 + camera.Sensor[0x76];
  };
  EXPECT_EQ(lines(1, 1, 29), 0);
  EXPECT_EQ(lines(1, 1, 30), 166);
  EXPECT_EQ(lines(1, 4, 100), 124);  // 498 / 4
  EXPECT_EQ(lines(2, 1, 60), 278);
  EXPECT_EQ(lines(2, 8, 100), 52);  // 417 / 8
  EXPECT_EQ(lines(0, 8, 100), 1000);
  EXPECT_EQ(lines(3, 8, 7), 70);
  EXPECT_EQ(lines(1, 1, -30), 1024 - 166) << "ten bits of the negative line count";
}

TEST(ExposureOnVGA7648, AClockDividerOf0CountsAsNoLines) {
  ExposingCamera camera(SensorTypeVGA7648);
  camera.Context().Flicker = 1;
  camera.Context().ClockDivider = 0;
  EXPECT_THAT(camera.Expose(100),
              ElementsAre("write sensor FF13=A0", "write sensor FF2A=97", "write sensor FF2B=88",
                          "write sensor FF10=00", "write sensor FF76=00"));
}

TEST(ExposureOnMi1318, KeepsTheWideRegisterItReadWithItsBitChanged) {
  ExposingCamera camera(SensorTypeMi1318);
  camera.Sensor[0x06] = 0x8F;
  camera.Sensor[0xF1] = 0x21;
  camera.Context().AutoExposure = 1;
  camera.Expose(1);
  EXPECT_EQ(camera.Context().WideHigh, 0xCF);
  EXPECT_EQ(camera.Context().WideLow, 0x21);
  camera.Context().AutoExposure = 0;
  camera.Expose(1);
  EXPECT_EQ(camera.Context().WideHigh, 0x8F);
}

TEST(ExposureOnMi1318, KeepsTheWideRegisterAheadOfItsWrite) {
  ExposingCamera camera(SensorTypeMi1318);
  camera.Sensor[0x06] = 0x8F;
  camera.Sensor[0xF1] = 0x21;
  camera.Context().AutoExposure = 1;
  std::vector<unsigned> kept;
  camera.Failure = [&](const std::string& access) {
    if (access == "write bridge FF7F=21") {
      kept = {camera.Context().WideHigh, camera.Context().WideLow};
    }
    return 0;
  };
  camera.Expose(1);
  EXPECT_THAT(kept, ElementsAre(0xCFU, 0x21U));
}

TEST(ExposureOnMi1318, AFailedReadWorksOnWhatTheReadBeforeGave) {
  ExposingCamera camera(SensorTypeMi1318);
  camera.Context().AutoExposure = 1;
  camera.Context().WideHigh = 0x12;
  camera.Context().WideLow = 0x34;
  camera.Failure = [](const std::string& access) { return access.starts_with("read") ? -1 : 0; };
  EXPECT_THAT(camera.Expose(1), ElementsAre("write bridge FF7F=01", "write sensor FFF0=00",
                                            "read sensor FF06 failed", "read sensor FFF1 failed",
                                            "write bridge FF7F=34", "write sensor FF06=52"));
}

TEST(ExposureOnMi1318, SizesWithoutAFormulaWriteNoLines) {
  for (const std::uint32_t size : {0U, 2U, 3U, 4U, 5U, 7U}) {
    ExposingCamera camera(SensorTypeMi1318);
    camera.Context().RawSizeMode = size;
    const auto traffic = camera.Expose(100);
    ASSERT_EQ(traffic.size(), 11U);
    EXPECT_EQ(traffic[9], "write bridge FF7F=00");
    EXPECT_EQ(traffic[10], "write sensor FF09=00");
  }
}

TEST(ExposureOnMi1318, SixtyHertzTakesFiveSixths) {
  ExposingCamera camera(SensorTypeMi1318);
  camera.Context().RawSizeMode = 6;
  camera.Context().Flicker = 2;
  camera.Expose(7);  // 560 * 5 / 6 = 466
  EXPECT_EQ(camera.Bridge[0x7F], 0xD2);
  EXPECT_EQ(camera.Sensor[0x09], 0x01);
}

TEST(ExposureElsewhere, K82AndReserved3HaveNoExposure) {
  for (const SensorType type : {SensorTypeK82, SensorTypeReserved3}) {
    ExposingCamera camera(type);
    EXPECT_THAT(camera.Expose(100), IsEmpty());
    camera.Context().AutoExposure = 1;
    EXPECT_THAT(camera.Expose(100), IsEmpty());
  }
}

TEST(ExposureElsewhere, ExtremeExposuresWrapAndFaultNowhere) {
  for (const NamedSensor& sensor : kSensors) {
    for (const std::int32_t exposure :
         {std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()}) {
      for (const std::int32_t flicker : {0, 1, 2}) {
        ExposingCamera camera(sensor.Type);
        camera.Context().Flicker = flicker;
        camera.Context().FlickerBandStep = 1;
        camera.Expose(exposure);
      }
    }
  }
  ExposingCamera camera(SensorTypeVGA0708);
  EXPECT_EQ(camera.Expose(std::numeric_limits<std::int32_t>::max())[1], "write sensor FF04=D8");
}

}  // namespace
}  // namespace lidcam::test
