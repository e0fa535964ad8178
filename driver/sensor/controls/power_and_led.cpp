#include "driver/sensor/controls/power_and_led.h"

#include "driver/sensor/register_sets/register_set_list.h"
#include "driver/sensor/registers/register_access.h"
#include "driver/sensor/registers/register_names.h"

namespace lidcam {
namespace {

// One read and one write, both by the same path.
Status ChangePowerAndLed(CameraContext& context, std::uint32_t clear, std::uint32_t set,
                         RegisterPath path) {
  const bool isApplication = path != RegisterPath::Frame;
  const auto read = isApplication ? ReadBridgeRegister : DriverReadBridgeRegister;
  const auto write = isApplication ? WriteBridgeRegister : DriverWriteBridgeRegister;
  std::uint8_t value = 0;
  const Status status = read(context, BridgeRegister::PowerAndLed, value);
  if (status != 0 || context.SensorType == SensorTypeVGA0708) return status;
  return write(context, BridgeRegister::PowerAndLed, (value & ~clear) | set);
}

enum class List : std::uint8_t { None, Normal, LowLight };
enum class Led : std::uint8_t { Leave, On, Off, FollowLight };

struct LightAndLedRow {
  List Registers;
  bool RestartsLight;  // the light state machine restarts
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

const Situation& SituationOf(StreamStart streamStart, LDModeChange ldModeChange) {
  if (streamStart != StreamStart::No) return kStreamStart;
  return ldModeChange != LDModeChange::No ? kLDModeChanged : kLedChanged;
}

Led LedOf(const LightAndLedRow& row, std::int32_t policy) {
  if (policy == LedPolicyOn) return row.AtPolicyOn;
  return policy == LedPolicyOff ? row.AtPolicyOff : row.Otherwise;
}

void SwitchLed(CameraContext& context, Led led) {
  if (led == Led::FollowLight) {
    led = context.LightState == LightStateNormal ? Led::Off : Led::On;
  }
  if (led == Led::Leave) return;
  SetLedBitByPath(context, led == Led::On ? LedState::On : LedState::Off,
                  RegisterPath::Application);
}

}  // namespace

// Only the low byte counts.
void SetPowerBits(CameraContext& context, SensorPower power) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  const bool runs = (static_cast<std::uint32_t>(power) & 0xFF) != 0;
  ChangePowerAndLed(context, kStandbyBit, runs ? kPowerBit : kPowerBit | kStandbyBit,
                    RegisterPath::Application);
}

Status SetLedBitByPath(CameraContext& context, LedState led, RegisterPath path) {
  return ChangePowerAndLed(context, kLedBit, led != LedState::Off ? kLedBit : 0, path);
}

void PowerAndLed(CameraContext& context, PowerBits powerBits, SensorPower power, LedBit ledBit,
                 LedState led, RegisterPath path) {
  if (powerBits != PowerBits::Leave) SetPowerBits(context, power);
  if (ledBit != LedBit::Leave) SetLedBitByPath(context, led, path);
}

void SetCameraPower(CameraContext& context, CameraPower power) {
  if (power == CameraPower::Up) {
    PowerAndLed(context, PowerBits::Write, SensorPower::Run, LedBit::Leave, LedState::Off,
                RegisterPath::Frame);
  } else {
    PowerAndLed(context, PowerBits::Write, SensorPower::Rest, LedBit::Write, LedState::Off,
                RegisterPath::Application);
  }
}

Status ApplyLightAndLed(CameraContext& context, StreamStart streamStart,
                        LDModeChange ldModeChange) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  const Situation& situation = SituationOf(streamStart, ldModeChange);
  const LightAndLedRow& row = context.LDMode == 1 ? situation.HeldLowLight : situation.Free;
  if (row.Registers != List::None) {
    const bool isLowLight = row.Registers == List::LowLight;
    ApplyRegisterSet(context, isLowLight ? RegisterList::LowLight : RegisterList::Normal,
                     RegisterPath::Application);
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
