#include "driver/sensor/controls/power_and_led.h"

#include "driver/sensor/register_sets/register_set_list.h"
#include "driver/sensor/registers/register_access.h"

namespace lidcam {
namespace {

constexpr RegisterAddress kPowerAndLedRegister = 0xFF09;
constexpr std::uint32_t kStandbyBit = 0x01;
constexpr std::uint32_t kPowerBit = 0x02;
constexpr std::uint32_t kLedBit = 0x10;

// One read and one write, both by the same path.
Status ChangePowerAndLed(CameraContext& context, std::uint32_t clear, std::uint32_t set,
                         bool applicationPath) {
  const auto read = applicationPath ? ReadBridgeRegister : DriverReadBridgeRegister;
  const auto write = applicationPath ? WriteBridgeRegister : DriverWriteBridgeRegister;
  std::uint8_t value = 0;
  const Status status = read(context, kPowerAndLedRegister, value);
  if (status != 0 || context.SensorType == SensorTypeVGA0708) return status;
  return write(context, kPowerAndLedRegister, (value & ~clear) | set);
}

enum class List : std::uint8_t { None, Normal, LowLight };
enum class Led : std::uint8_t { Leave, On, Off, FollowLight };

struct LightAndLedRow {
  List Registers;
  bool RestartsLight;  // the light state machine begins anew
  Led AtPolicyOn;
  Led AtPolicyOff;
  Led Otherwise;
};

struct Situation {
  LightAndLedRow Free;          // the light state chooses the register list
  LightAndLedRow HeldLowLight;  // LDMode 1 holds the low-light list
};

constexpr Situation kStreamStart = {
    .Free = {List::Normal, false, Led::On, Led::Off, Led::Leave},
    .HeldLowLight = {List::LowLight, false, Led::On, Led::Off, Led::On},
};
constexpr Situation kLDModeChanged = {
    .Free = {List::Normal, true, Led::Leave, Led::Off, Led::Off},
    .HeldLowLight = {List::LowLight, false, Led::On, Led::Leave, Led::On},
};
constexpr Situation kLedChanged = {
    .Free = {List::None, false, Led::On, Led::Off, Led::FollowLight},
    .HeldLowLight = {List::None, false, Led::On, Led::Off, Led::On},
};

const Situation& SituationOf(std::uint32_t streamStart, std::uint32_t ldModeChanged) {
  if (streamStart != 0) return kStreamStart;
  return ldModeChanged != 0 ? kLDModeChanged : kLedChanged;
}

Led LedOf(const LightAndLedRow& row, std::int32_t policy) {
  if (policy == LedPolicyOn) return row.AtPolicyOn;
  return policy == LedPolicyOff ? row.AtPolicyOff : row.Otherwise;
}

void SwitchLed(CameraContext& context, Led led) {
  if (led == Led::FollowLight) {
    led = context.LightState == LightStateNormal ? Led::Off : Led::On;
  }
  if (led != Led::Leave) SetLedBitByPath(context, led == Led::On ? 1 : 0, 1);
}

}  // namespace

void SetPowerBits(CameraContext& context, std::uint32_t run) {
  const bool runs = (run & 0xFF) != 0;
  ChangePowerAndLed(context, kStandbyBit, runs ? kPowerBit : kPowerBit | kStandbyBit, true);
}

Status SetLedBitByPath(CameraContext& context, std::uint32_t on, std::uint32_t applicationPath) {
  return ChangePowerAndLed(context, kLedBit, on != 0 ? kLedBit : 0, applicationPath != 0);
}

void PowerAndLed(CameraContext& context, std::uint32_t doPower, std::uint32_t run,
                 std::uint32_t doLed, std::uint32_t on, std::uint32_t applicationPath) {
  if (doPower != 0) SetPowerBits(context, run);
  if (doLed != 0) SetLedBitByPath(context, on, applicationPath);
}

void SetCameraPower(CameraContext& context, std::uint32_t stop) {
  if (stop == 0) {
    PowerAndLed(context, 1, 1, 0, 0, 0);
  } else {
    PowerAndLed(context, 1, 0, 1, 0, 1);
  }
}

Status ApplyLightAndLed(CameraContext& context, std::uint32_t streamStart,
                        std::uint32_t ldModeChanged) {
  const Situation& situation = SituationOf(streamStart, ldModeChanged);
  const LightAndLedRow& row = context.LDMode == 1 ? situation.HeldLowLight : situation.Free;
  if (row.Registers != List::None) {
    ApplyRegisterSet(context, row.Registers == List::LowLight ? 1 : 0, 1);
  }
  if (row.RestartsLight) {
    context.LightState = LightStateInitial;
    context.LightTransitionCount = 0;
    context.LightBrightCount = 0;
  }
  SwitchLed(context, LedOf(row, context.LED));
  return 0;
}

}  // namespace lidcam
