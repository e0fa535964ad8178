// Power and LED bits of bridge register 0xFF09.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "driver/sensor/controls/power_and_led.h"
#include "tests/driver/sensor/image_controls_golden.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class PoweredCamera : public RegisterSpace {
 public:
  explicit PoweredCamera(SensorType type, std::uint8_t powerAndLed = 0x55) {
    Context().SensorType = type;
    Bridge[0x09] = powerAndLed;
  }
};

TEST(PowerBits, RunningClearsBit0AndRestingSetsIt) {
  PoweredCamera camera(SensorTypeOV7660, 0x51);
  SetPowerBits(camera.Context(), 1);
  SetPowerBits(camera.Context(), 0);
  EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 -> 51", "write bridge FF09=52",
                                             "read bridge FF09 -> 52", "write bridge FF09=53"));
}

TEST(PowerBits, OnlyTheLowByteOfRunCounts) {
  PoweredCamera camera(SensorTypeOV7660, 0x00);
  SetPowerBits(camera.Context(), 0x100);
  EXPECT_EQ(camera.Bridge[0x09], 0x03);
  SetPowerBits(camera.Context(), 0x180);
  EXPECT_EQ(camera.Bridge[0x09], 0x02);
}

TEST(PowerBits, AFailedReadEndsWithoutAWrite) {
  PoweredCamera camera(SensorTypeOV7660);
  camera.Failure = [](const std::string& access) { return access.starts_with("read") ? -1 : 0; };
  SetPowerBits(camera.Context(), 1);
  EXPECT_EQ(SetLedBitByPath(camera.Context(), 1, 1), -1);
  EXPECT_EQ(SetLedBitByPath(camera.Context(), 1, 0), -1);
  EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 failed", "read bridge FF09 failed",
                                             "read bridge FF09 failed"));
}

TEST(PowerBits, OnVGA0708TheRegisterIsReadAndNeverWritten) {
  PoweredCamera camera(SensorTypeVGA0708);
  CameraContext& context = camera.Context();
  SetPowerBits(context, 1);
  SetLedBitByPath(context, 1, 1);
  SetLedBitByPath(context, 0, 0);
  SetCameraPower(context, 1);
  EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 -> 55", "read bridge FF09 -> 55",
                                             "read bridge FF09 -> 55", "read bridge FF09 -> 55",
                                             "read bridge FF09 -> 55"));
}

TEST(LedBit, IsSetAndClearedOnBothPaths) {
  for (const std::uint32_t path : {0U, 1U, 0x100U}) {
    PoweredCamera camera(SensorTypeOV7660, 0xA5);
    EXPECT_EQ(SetLedBitByPath(camera.Context(), 0x100, path), 0);
    EXPECT_EQ(SetLedBitByPath(camera.Context(), 0, path), 0);
    EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 -> A5", "write bridge FF09=B5",
                                               "read bridge FF09 -> B5", "write bridge FF09=A5"));
  }
}

TEST(LedBit, EachPathHoldsItsOwnFlag) {
  PoweredCamera camera(SensorTypeOV7660);
  CameraContext& context = camera.Context();
  for (const std::uint32_t path : {0U, 1U}) {
    camera.OnRequest = [&context, path](const WirePacket&) {
      EXPECT_EQ(context.AppRegisterBusy, path);
      EXPECT_EQ(context.DriverRegisterBusy, 1 - path);
    };
    SetLedBitByPath(context, 1, path);
  }
}

TEST(LedBit, TheFramePathIsRefusedWhileTheApplicationHoldsTheBus) {
  PoweredCamera camera(SensorTypeOV7660);
  camera.Context().AppRegisterBusy = 1;
  EXPECT_EQ(SetLedBitByPath(camera.Context(), 1, 0), 1);
  EXPECT_THAT(camera.Accesses(), IsEmpty());
}

TEST(PowerAndLedTogether, EachRunsOnlyIfAskedFor) {
  PoweredCamera camera(SensorTypeOV7660, 0x00);
  PowerAndLed(camera.Context(), 0, 1, 0, 1, 1);
  EXPECT_THAT(camera.Accesses(), IsEmpty());
  PowerAndLed(camera.Context(), 0x100, 0, 0, 1, 1);
  EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 -> 00", "write bridge FF09=03"));
  camera.ForgetTraffic();
  PowerAndLed(camera.Context(), 0, 1, 0x100, 1, 0);
  EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 -> 03", "write bridge FF09=13"));
  camera.ForgetTraffic();
  PowerAndLed(camera.Context(), 1, 1, 1, 0, 1);
  EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 -> 13", "write bridge FF09=12",
                                             "read bridge FF09 -> 12", "write bridge FF09=02"));
}

// The power bits have one path only.
TEST(PowerAndLedTogether, ThePowerBitsTakeTheApplicationPathAlsoWhenTheLedTakesTheOther) {
  PoweredCamera camera(SensorTypeOV7660);
  CameraContext& context = camera.Context();
  std::vector<std::uint32_t> appBusy;
  camera.OnRequest = [&](const WirePacket&) { appBusy.push_back(context.AppRegisterBusy); };
  PowerAndLed(context, 1, 1, 1, 1, 0);
  EXPECT_THAT(appBusy, ElementsAre(1, 1, 1, 1, 0, 0, 0, 0));
}

TEST(CameraPower, UpLeavesTheLedAloneAndDownSwitchesItOff) {
  PoweredCamera camera(SensorTypeOV7660, 0x11);
  SetCameraPower(camera.Context(), 0);
  EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 -> 11", "write bridge FF09=12"));
  camera.ForgetTraffic();
  SetCameraPower(camera.Context(), 0x100);
  EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 -> 12", "write bridge FF09=13",
                                             "read bridge FF09 -> 13", "write bridge FF09=03"));
}

}  // namespace
}  // namespace lidcam::test
