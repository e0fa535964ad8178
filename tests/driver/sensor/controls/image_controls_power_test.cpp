// Power and LED bits of bridge register 0xFF09.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "driver/sensor/controls/power_and_led.h"
#include "tests/driver/sensor/controls/image_controls_golden.h"

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
  SetPowerBits(camera.Context(), SensorPower::Run);
  SetPowerBits(camera.Context(), SensorPower::Rest);
  EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 -> 51", "write bridge FF09=52",
                                             "read bridge FF09 -> 52", "write bridge FF09=53"));
}

TEST(PowerBits, OnlyTheLowByteOfRunCounts) {
  PoweredCamera camera(SensorTypeOV7660, 0x00);
  SetPowerBits(camera.Context(), SensorPower{0x100});
  EXPECT_EQ(camera.Bridge[0x09], 0x03);
  SetPowerBits(camera.Context(), SensorPower{0x180});
  EXPECT_EQ(camera.Bridge[0x09], 0x02);
}

TEST(PowerBits, AFailedReadEndsWithoutAWrite) {
  PoweredCamera camera(SensorTypeOV7660);
  camera.Failure = [](const std::string& access) { return access.starts_with("read") ? -1 : 0; };
  SetPowerBits(camera.Context(), SensorPower::Run);
  EXPECT_EQ(SetLedBitByPath(camera.Context(), LedState::On, RegisterPath::Application), -1);
  EXPECT_EQ(SetLedBitByPath(camera.Context(), LedState::On, RegisterPath::Frame), -1);
  EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 failed", "read bridge FF09 failed",
                                             "read bridge FF09 failed"));
}

TEST(PowerBits, OnVGA0708TheRegisterIsReadAndNeverWritten) {
  PoweredCamera camera(SensorTypeVGA0708);
  CameraContext& context = camera.Context();
  SetPowerBits(context, SensorPower::Run);
  SetLedBitByPath(context, LedState::On, RegisterPath::Application);
  SetLedBitByPath(context, LedState::Off, RegisterPath::Frame);
  SetCameraPower(context, CameraPower::Down);
  EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 -> 55", "read bridge FF09 -> 55",
                                             "read bridge FF09 -> 55", "read bridge FF09 -> 55",
                                             "read bridge FF09 -> 55"));
}

TEST(LedBit, IsSetAndClearedOnBothPaths) {
  for (const RegisterPath path : {RegisterPath::Frame, RegisterPath::Application}) {
    PoweredCamera camera(SensorTypeOV7660, 0xA5);
    EXPECT_EQ(SetLedBitByPath(camera.Context(), LedState{0x100}, path), 0);
    EXPECT_EQ(SetLedBitByPath(camera.Context(), LedState::Off, path), 0);
    EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 -> A5", "write bridge FF09=B5",
                                               "read bridge FF09 -> B5", "write bridge FF09=A5"));
  }
}

TEST(LedBit, EachPathHoldsItsOwnFlag) {
  PoweredCamera camera(SensorTypeOV7660);
  CameraContext& context = camera.Context();
  for (const RegisterPath path : {RegisterPath::Frame, RegisterPath::Application}) {
    camera.OnRequest = [&context, path](const WirePacket&) {
      EXPECT_EQ(context.AppRegisterBusy, path == RegisterPath::Application ? 1U : 0U);
      EXPECT_EQ(context.DriverRegisterBusy, path == RegisterPath::Frame ? 1U : 0U);
    };
    SetLedBitByPath(context, LedState::On, path);
  }
}

TEST(LedBit, TheFramePathIsRefusedWhileTheApplicationHoldsTheBus) {
  PoweredCamera camera(SensorTypeOV7660);
  camera.Context().AppRegisterBusy = 1;
  EXPECT_EQ(SetLedBitByPath(camera.Context(), LedState::On, RegisterPath::Frame), 1);
  EXPECT_THAT(camera.Accesses(), IsEmpty());
}

TEST(PowerAndLedTogether, EachRunsOnlyIfAskedFor) {
  PoweredCamera camera(SensorTypeOV7660, 0x00);
  PowerAndLed(camera.Context(), PowerBits::Leave, SensorPower::Run, LedBit::Leave, LedState::On,
              RegisterPath::Application);
  EXPECT_THAT(camera.Accesses(), IsEmpty());
  PowerAndLed(camera.Context(), PowerBits{0x100}, SensorPower::Rest, LedBit::Leave, LedState::On,
              RegisterPath::Application);
  EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 -> 00", "write bridge FF09=03"));
  camera.ForgetTraffic();
  PowerAndLed(camera.Context(), PowerBits::Leave, SensorPower::Run, LedBit{0x100}, LedState::On,
              RegisterPath::Frame);
  EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 -> 03", "write bridge FF09=13"));
  camera.ForgetTraffic();
  PowerAndLed(camera.Context(), PowerBits::Write, SensorPower::Run, LedBit::Write, LedState::Off,
              RegisterPath::Application);
  EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 -> 13", "write bridge FF09=12",
                                             "read bridge FF09 -> 12", "write bridge FF09=02"));
}

// The power bits have one path only.
TEST(PowerAndLedTogether, ThePowerBitsTakeTheApplicationPathAlsoWhenTheLedTakesTheOther) {
  PoweredCamera camera(SensorTypeOV7660);
  CameraContext& context = camera.Context();
  std::vector<std::uint32_t> appBusy;
  camera.OnRequest = [&](const WirePacket&) { appBusy.push_back(context.AppRegisterBusy); };
  PowerAndLed(context, PowerBits::Write, SensorPower::Run, LedBit::Write, LedState::On,
              RegisterPath::Frame);
  EXPECT_THAT(appBusy, ElementsAre(1, 1, 1, 1, 0, 0, 0, 0));
}

TEST(CameraPower, UpLeavesTheLedAloneAndDownSwitchesItOff) {
  PoweredCamera camera(SensorTypeOV7660, 0x11);
  SetCameraPower(camera.Context(), CameraPower::Up);
  EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 -> 11", "write bridge FF09=12"));
  camera.ForgetTraffic();
  SetCameraPower(camera.Context(), CameraPower{0x100});
  EXPECT_THAT(camera.Accesses(), ElementsAre("read bridge FF09 -> 12", "write bridge FF09=13",
                                             "read bridge FF09 -> 13", "write bridge FF09=03"));
}

}  // namespace
}  // namespace lidcam::test
