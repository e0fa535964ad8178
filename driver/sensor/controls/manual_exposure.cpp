#include "driver/sensor/controls/manual_exposure.h"

#include <cstddef>
#include <cstdint>

#include "driver/sensor/identification/sensor_set.h"
#include "driver/sensor/registers/register_access.h"
#include "driver/sensor/registers/register_names.h"
#include "driver/sensor/registers/wide_registers.h"

namespace lidcam {
namespace {

// Exposures are counted in lines; 32-bit products wrap.
constexpr std::int32_t Product(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

constexpr std::uint32_t Bits(std::int32_t value) {
  return static_cast<std::uint32_t>(value);
}

// The divider is 0 until BridgeRegister::Mode was written; the first replay may come before that.
std::int32_t PerClockDivider(const CameraContext& context, std::int32_t value) {
  const std::int32_t divider = context.ClockDivider;
  return divider > 0 ? value / divider : 0;
}

// Whole bands only, and at least one: a fraction would show as moving stripes. With a band of 0
// lines, by which nothing can be divided, negative values become 0.
std::int32_t CutToBands(std::int32_t lines, std::int32_t band) {
  if (lines < band) return band;
  return band != 0 ? lines - lines % band : lines;
}

// Sensors whose exposure is written as a line count of 16 bits, in units of 40 lines.

Status WriteManualLines(CameraContext& context) {
  std::int32_t lines = Product(40, context.Exposure);
  if (context.Flicker != FlickerOff) {
    const std::uint8_t band = context.FlickerBandStep;
    lines = CutToBands(lines, band);
  }
  WriteSensorRegister(context, SensorRegister::VgaExposureLow, Bits(lines) & 0xFF);
  return WriteSensorRegister(context, SensorRegister::VgaExposureHigh, Bits(lines) >> 8);
}

Status WriteShadowFF0D(CameraContext& context, unsigned value) {
  const auto byte = static_cast<std::uint8_t>(value);
  context.ShadowFF0D = byte;
  return WriteBridgeRegister(context, BridgeRegister::AutomaticExposure, byte);
}

Status SetExposureVGA0408(CameraContext& context) {
  constexpr std::uint8_t kUsualBandStep = 0x96;
  const std::uint8_t shadow = context.ShadowFF0D;
  WriteShadowFF0D(context, context.AutoExposure != 0 ? shadow | kAutomaticExposureOnBits
                                                     : shadow & ~kAutomaticExposureBits);
  if (context.FlickerBandStep == 0) context.FlickerBandStep = kUsualBandStep;
  return WriteManualLines(context);
}

// 0x38 keeps the chip's own automatic exposure off in both modes: automatic means the host's.
Status SetExposureVGA0708(CameraContext& context) {
  WriteBridgeRegister(context, BridgeRegister::AutomaticExposure, 0x38);
  return context.AutoExposure != 0 ? 0 : WriteManualLines(context);
}

// Sensors with an exposure control of their own: registers for each mode, then in manual mode a
// line count of 10 bits in two registers.

struct SensorWrite {
  RegisterAddress Address;  // 0 ends a list
  std::uint8_t Value;
};

constexpr std::size_t kMostModeWrites = 3;

struct OwnExposureRow {
  SensorSet Sensors;
  SensorWrite Automatic[kMostModeWrites];
  SensorWrite Manual[kMostModeWrites];
  std::int32_t (*Lines)(const CameraContext& context);
  RegisterAddress LowBitsRegister;
};

std::int32_t LinesOfOVFamily(const CameraContext& context) {
  const std::int32_t lines = Product(10, context.Exposure);
  switch (context.Flicker) {
    case Flicker50Hz:
      return CutToBands(lines, PerClockDivider(context, 187));
    case Flicker60Hz:
      return CutToBands(lines, PerClockDivider(context, 156));
    default:
      return lines;
  }
}

std::int32_t LinesOfVGA7648(const CameraContext& context) {
  const std::int32_t exposure = context.Exposure;
  switch (context.Flicker) {
    case Flicker50Hz:
      return PerClockDivider(context, Product(exposure / 30, 166));
    case Flicker60Hz:
      return PerClockDivider(context, Product(exposure / 30, 139));
    default:
      return Product(10, exposure);
  }
}

constexpr OwnExposureRow kOwnExposure[] = {
    {{SensorTypeOV7660, SensorTypeOV7663},
     {{SensorRegister::OvAutomatics, 0xF7}},
     {{SensorRegister::OvAutomatics, 0xF2}},
     LinesOfOVFamily,
     SensorRegister::OvExposureLow},
    {{SensorTypeOV7670},
     {{SensorRegister::OvAutomatics, 0xE5}, {SensorRegister::OvFlicker3B, 0xC9}},
     {{SensorRegister::OvAutomatics, 0xE0}, {SensorRegister::OvFlicker3B, 0x09}},
     LinesOfOVFamily,
     SensorRegister::OvExposureLow},
    {{SensorTypeVGA7648},
     {{SensorRegister::OvAutomatics, 0xA3},
      {SensorRegister::Vga7648Exposure2A, 0xA7},
      {SensorRegister::Vga7648Exposure2B, 0x7E}},
     {{SensorRegister::OvAutomatics, 0xA0},
      {SensorRegister::Vga7648Exposure2A, 0x97},
      {SensorRegister::Vga7648Exposure2B, 0x88}},
     LinesOfVGA7648,
     SensorRegister::Vga7648ExposureLow},
};

void WriteSensorList(CameraContext& context, const SensorWrite (&list)[kMostModeWrites]) {
  for (const SensorWrite& write : list) {
    if (write.Address == 0) return;
    WriteSensorRegister(context, write.Address, write.Value);
  }
}

void SetOwnExposure(CameraContext& context, const OwnExposureRow& row) {
  if (context.AutoExposure != 0) {
    WriteSensorList(context, row.Automatic);
    return;
  }
  WriteSensorList(context, row.Manual);
  const std::uint32_t lines = Bits(row.Lines(context));
  WriteSensorRegister(context, SensorRegister::OvExposure, (lines >> 2) & 0xFF);
  WriteSensorRegister(context, row.LowBitsRegister, lines & 0x03);
}

// SensorTypeMi1318, with 16-bit registers in pages.

std::int32_t LinesOfMi1318(const CameraContext& context) {
  std::int32_t lines = 0;
  if (context.RawSizeMode == RawMode640x480) lines = Product(159, context.Exposure);
  if (context.RawSizeMode == RawMode1280x1024) lines = Product(80, context.Exposure);
  return context.Flicker == Flicker60Hz ? Product(5, lines) / 6 : lines;
}

// A failed read leaves the bytes of the read before, which are then written back.
void SwitchOwnExposureOfMi1318(CameraContext& context, bool on) {
  SelectSensorPage(context, 1);
  std::uint8_t high = context.WideHigh;
  std::uint8_t low = context.WideLow;
  ReadWideSensorRegister(context, SensorRegister::WideAutomatics, high, low);
  high = static_cast<std::uint8_t>(on ? high | kMi1318AutomaticExposureBit
                                      : high & ~kMi1318AutomaticExposureBit);
  context.WideHigh = high;
  context.WideLow = low;
  WriteWideSensorRegister(context, SensorRegister::WideAutomatics,
                          static_cast<std::uint16_t>((high << 8) | low));
}

Status SetExposureMi1318(CameraContext& context) {
  const bool isAutomatic = context.AutoExposure != 0;
  SwitchOwnExposureOfMi1318(context, isAutomatic);
  if (isAutomatic) return 0;
  // The latch is cleared here, and again with the page.
  WriteBridgeRegister(context, BridgeRegister::LowByteLatch, 0);
  SelectSensorPage(context, 0);
  const std::uint32_t lines = Bits(LinesOfMi1318(context));
  WriteWideSensorRegister(context, SensorRegister::Mi1318Exposure,
                          static_cast<std::uint16_t>(lines & 0xFFFF));
  return 0;
}

}  // namespace

Status ApplyExposure(CameraContext& context) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  switch (context.SensorType) {
    case SensorTypeVGA0408:
      return SetExposureVGA0408(context);
    case SensorTypeVGA0708:
      return SetExposureVGA0708(context);
    case SensorTypeMi1318:
      return SetExposureMi1318(context);
    default:
      break;
  }
  for (const OwnExposureRow& row : kOwnExposure) {
    if (row.Sensors.Contains(context.SensorType)) SetOwnExposure(context, row);
  }
  return 0;
}

}  // namespace lidcam
