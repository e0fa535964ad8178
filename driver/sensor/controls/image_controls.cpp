#include "driver/sensor/controls/image_controls.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "driver/sensor/controls/gamma_table.h"
#include "driver/sensor/controls/manual_exposure.h"
#include "driver/sensor/controls/orientation_and_flicker.h"
#include "driver/sensor/controls/power_and_led.h"
#include "driver/sensor/identification/sensor_set.h"
#include "driver/sensor/registers/register_access.h"
#include "driver/sensor/registers/register_names.h"
#include "driver/sensor/registers/wide_registers.h"

namespace lidcam {
namespace {

using ShadowField = Shared<std::uint8_t> CameraContext::*;

// A setting as the bits that go into a register's formula; formulas wrap and are cut by the write.
std::uint32_t BitsOf(std::int32_t setting) {
  return static_cast<std::uint32_t>(setting);
}

// The shadow changes before the write, so that the next write also repairs a failed one.
Status WriteShadowBits(CameraContext& context, ShadowField shadow, RegisterAddress address,
                       std::uint32_t bits, bool set) {
  const std::uint8_t before = context.*shadow;
  const auto value = static_cast<std::uint8_t>(set ? before | bits : before & ~bits);
  context.*shadow = value;
  return WriteBridgeRegister(context, address, value);
}

Status ApplyBrightness(CameraContext& context) {
  return WriteBridgeRegister(context, BridgeRegister::Brightness, BitsOf(context.Brightness));
}

struct ContrastWrite {
  RegisterAddress Address;  // 0 ends a row
  std::uint32_t Factor;     // the value is Factor * Contrast + Offset
  std::uint32_t Offset;
};

struct ContrastRow {
  SensorSet Sensors;
  ContrastWrite Writes[3];
};

constexpr ContrastRow kContrast[] = {
    {{SensorTypeK82},
     {{BridgeRegister::Contrast13, 2, 0x9E}, {BridgeRegister::Contrast14, 2, 0xCE}}},
    {{SensorTypeMi1318},
     {{BridgeRegister::Contrast, 0, 0x80},
      {BridgeRegister::Contrast13, 2, 0x80},
      {BridgeRegister::Contrast14, 2, 0xC0}}},
    {{}, {{BridgeRegister::Contrast, 10, 0x20}}},
};

Status ApplyContrast(CameraContext& context) {
  Status status = WriteShadowBits(context, &CameraContext::ShadowFF26, BridgeRegister::Orientation,
                                  kContrastBit, false);
  const std::uint32_t contrast = BitsOf(context.Contrast);
  for (const ContrastWrite& write : RowFor(context.SensorType, kContrast).Writes) {
    if (write.Address == 0) break;
    status = WriteBridgeRegister(context, write.Address, write.Factor * contrast + write.Offset);
  }
  return status;
}

constexpr std::uint32_t kNoLimit = 0xFFFFFFFF;

struct SaturationRow {
  SensorSet Sensors;
  std::uint32_t Divisor;  // the value is Saturation / Divisor, cut, * Factor + Offset
  std::uint32_t Factor;
  std::uint32_t Offset;
  std::uint32_t Limit;
};

constexpr SaturationRow kSaturation[] = {
    {kOVFamily, 1, 1, 5, 255},
    {{SensorTypeK82, SensorTypeMi1318}, 29, 35, 0, 255},
    {{SensorTypeVGA0708}, 5, 8, 0, 255},
    {{SensorTypeVGA7648}, 1, 1, 0x40, 255},
    {{}, 1, 1, 0, kNoLimit},
};

Status ApplySaturation(CameraContext& context) {
  const SaturationRow& row = RowFor(context.SensorType, kSaturation);
  const std::uint32_t setting = BitsOf(context.Saturation) & 0xFFFF;
  const std::uint32_t value = std::min(setting / row.Divisor * row.Factor + row.Offset, row.Limit);
  const auto byte = static_cast<std::uint8_t>(value & 0xFF);
  WriteBridgeRegister(context, BridgeRegister::Saturation1, byte);
  context.UserSaturation = byte;
  const Status status = WriteBridgeRegister(context, BridgeRegister::Saturation2, byte);
  context.UserSaturation2 = byte;
  return status;
}

Status ApplySharpness(CameraContext& context) {
  const std::uint32_t value = (BitsOf(context.Sharpness) & 0xFFFF) + 0x40;
  context.UserSharpness = static_cast<std::uint8_t>(value & 0xFF);
  return WriteBridgeRegister(context, BridgeRegister::Sharpness, value);
}

// Gamma 2 is the first row. SensorTypeVGA0708 is tuned one row brighter from 3 on.
std::int32_t GammaRowOf(const CameraContext& context) {
  constexpr std::int32_t kLowest = 1;                // the row ahead of the table
  constexpr std::int32_t kHighest = kGammaRows + 2;  // the last row on every sensor
  const std::int32_t gamma = std::clamp<std::int32_t>(context.Gamma, kLowest, kHighest);
  return context.SensorType == SensorTypeVGA0708 && gamma >= 3 ? gamma - 3 : gamma - 2;
}

Status ApplyGamma(CameraContext& context) {
  constexpr RegisterAddress kFirstKnots[] = {BridgeRegister::GammaSet1, BridgeRegister::GammaSet2,
                                             BridgeRegister::GammaSet3};  // one set a colour
  const GammaRow& row = GammaRowAt(GammaRowOf(context));
  Status status = 0;
  for (const RegisterAddress first : kFirstKnots) {
    for (std::size_t knot = 0; knot < kGammaKnots; ++knot) {
      status = WriteBridgeRegister(context, static_cast<RegisterAddress>(first + knot),
                                   row.Levels[knot]);
    }
  }
  return status;
}

// On the 16-bit sensors and on SensorTypeVGA0708 the bit means that the compensation is off.

Status ApplyBackLightWide(CameraContext& context) {
  const std::uint32_t always = context.SensorType == SensorTypeK82 ? 0x04 : 0x14;
  const bool isOn = context.BackLight == 1;
  std::uint8_t high = 0;
  std::uint8_t low = 0;
  SelectSensorPage(context, 1);
  ReadWideSensorRegister(context, SensorRegister::WideAutomatics, high, low);
  const std::uint32_t value = (isOn ? low & ~kBackLightBit : low | kBackLightBit) | always;
  return WriteWideSensorRegister(context, SensorRegister::WideAutomatics,
                                 static_cast<std::uint16_t>((std::uint32_t{high} << 8) | value));
}

Status ApplyBackLightVGA0708(CameraContext& context) {
  std::uint8_t value = 0;
  ReadSensorRegister(context, SensorRegister::Vga0708BackLight, value);
  const std::uint32_t changed =
      context.BackLight == 1 ? value & ~kBackLightBit : value | kBackLightBit;
  return WriteSensorRegister(context, SensorRegister::Vga0708BackLight, changed);
}

Status ApplyBackLight(CameraContext& context) {
  switch (context.SensorType) {
    case SensorTypeK82:
    case SensorTypeMi1318:
      return ApplyBackLightWide(context);
    case SensorTypeVGA0708:
      return ApplyBackLightVGA0708(context);
    default:
      return WriteShadowBits(context, &CameraContext::ShadowFF64, BridgeRegister::BackLight,
                             kBackLightBit, context.BackLight == 1);
  }
}

// Monochrome for any setting but 1, in contrast with the effect below.
Status ApplyColorEnable(CameraContext& context) {
  return WriteShadowBits(context, &CameraContext::ShadowFF42, BridgeRegister::Effect,
                         kMonochromeBit, context.ColorEnable != 1);
}

// Replaces the whole register. The shadow follows the write, and the next ColorEnable builds on it.
Status ApplyEffect(CameraContext& context) {
  constexpr std::uint8_t kEffectBits[] = {0x00, 0x02, 0x08, 0x20, 0x04, 0x01};
  constexpr std::uint32_t kTintedEffect = 3;
  std::uint32_t effect = BitsOf(context.Effect) & 0xFF;
  if (effect >= std::size(kEffectBits)) effect = 0;
  std::uint32_t value = kEffectBits[effect];
  if (context.ColorEnable == 0) value |= kMonochromeBit;
  WriteBridgeRegister(context, BridgeRegister::Effect, value);
  const bool isTinted = effect == kTintedEffect;
  WriteBridgeRegister(context, BridgeRegister::EffectTint1, isTinted ? 0x30 : 0);
  return WriteBridgeRegister(context, BridgeRegister::EffectTint2, isTinted ? 0xA0 : 0);
}

// The LED is switched off once more, whatever the light and LED table set.
Status ApplyLDMode(CameraContext& context) {
  ApplyLightAndLed(context, StreamStart::No, LDModeChange::Yes);
  if (context.LED == LedPolicyOn || context.LDMode == 1) return 0;
  return SetLedBitByPath(context, LedState::Off, RegisterPath::Application);
}

Status ApplyRawRegister(CameraContext& context) {
  const std::uint32_t address = context.RawRegisterAddress;
  const std::uint32_t value = context.RawRegisterValue;
  return RawWriteRegister(context, static_cast<std::uint16_t>(address & 0xFFFF),
                          static_cast<std::uint16_t>(value & 0xFFFF));
}

Status ApplyLed(CameraContext& context) {
  return ApplyLightAndLed(context, StreamStart::No, LDModeChange::No);
}

struct StepRow {
  ImageControlStep Step;
  Status (*Apply)(CameraContext& context);
  SensorSet SilentSensors;  // on these the step's result is 0, whatever its accesses gave
};

constexpr StepRow kSteps[] = {
    {ImageControlBrightness, ApplyBrightness, {}},
    {ImageControlContrast, ApplyContrast, {SensorTypeMi1318}},
    {ImageControlSaturation, ApplySaturation, {}},
    {ImageControlSharpness, ApplySharpness, {}},
    {ImageControlGamma, ApplyGamma, {}},
    {ImageControlBackLight, ApplyBackLight, {SensorTypeK82, SensorTypeMi1318, SensorTypeVGA0708}},
    {ImageControlColorEnable, ApplyColorEnable, {}},
    {ImageControlExposure, ApplyExposure, {}},
    {ImageControlMirror, ProgramMirrorFlip, {}},
    {ImageControlVertical, ProgramMirrorFlip, {}},
    {ImageControlFlicker, ProgramFlicker, {}},
    {ImageControlEffect, ApplyEffect, {}},
    {ImageControlLDMode, ApplyLDMode, {}},
    {ImageControlRawRegister, ApplyRawRegister, {}},
    {ImageControlLed, ApplyLed, {}},
};

}  // namespace

Status ApplyImageControl(std::uint32_t step, CameraContext& context) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  for (const StepRow& row : kSteps) {
    if (row.Step != step) continue;
    const Status status = row.Apply(context);
    return row.SilentSensors.Contains(context.SensorType) ? 0 : status;
  }
  return 0;
}

}  // namespace lidcam
