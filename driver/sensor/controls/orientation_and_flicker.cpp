#include "driver/sensor/controls/orientation_and_flicker.h"

#include <cstddef>

#include "driver/core/base/camera_trace.h"
#include "driver/sensor/registers/register_access.h"
#include "driver/sensor/registers/register_names.h"
#include "driver/sensor/registers/wide_registers.h"

namespace lidcam {
namespace {

// Changes of BridgeRegister::Orientation: the bits kept, by format, and the bits set. Formats other
// than YUY2 also lose bits 0, 1 and 3 in all but the flipped row.
struct OrientationRow {
  bool Mirror;
  bool Vertical;
  std::uint8_t KeepYuy2;
  std::uint8_t KeepOther;
  std::uint8_t Set;
};

constexpr OrientationRow kOrientationRows[] = {
    {false, false, 0xEF, 0xE4, 0x20},
    {false, true, 0xFF, 0xFF, 0x30},
    {true, true, 0xCF, 0xC4, 0x00},
    {true, false, 0xDF, 0xD4, 0x10},
};

constexpr std::uint8_t WithBit(std::uint8_t value, std::uint8_t bit, bool isSet) {
  return static_cast<std::uint8_t>(isSet ? value | bit : value & ~bit);
}

// YUY2 and RGB24 run through the frame path in opposite line order, hence the opposite senses.
std::uint8_t SensorOrientation(const CameraContext& context, std::uint8_t old) {
  const std::uint32_t format = context.FormatTag;
  const bool isFlipped = context.Vertical != 0;
  std::uint8_t value = old;
  if (format == kFourccYuy2) value = WithBit(value, kSensorUprightBit, !isFlipped);
  if (format == kFormatTagRgb24) value = WithBit(value, kSensorUprightBit, isFlipped);
  return WithBit(value, kSensorUnmirroredBit, context.Mirror == 0);
}

std::uint8_t BridgeOrientation(const CameraContext& context, std::uint8_t old) {
  const bool isMirrored = context.Mirror != 0;
  const bool isFlipped = context.Vertical != 0;
  for (const OrientationRow& row : kOrientationRows) {
    if (row.Mirror != isMirrored || row.Vertical != isFlipped) continue;
    const std::uint8_t keep = context.FormatTag == kFourccYuy2 ? row.KeepYuy2 : row.KeepOther;
    return static_cast<std::uint8_t>((old & keep) | row.Set);
  }
  return old;
}

enum class Op : std::uint8_t {
  Sensor,              // sensor register = Value
  Bridge,              // bridge register = Value
  Wide,                // 16-bit sensor register = Value
  MeasureBand,         // reads the line time and computes the band from it
  FixedBand,           // computes the band from Value lines at divider 1
  BridgeBand,          // bridge register = the band
  BridgeAutoExposure,  // bridge register gets Value on top of ShadowFF64, with AutoExposure only
};

enum class Outcome : std::uint8_t { Ignored, Returned };

struct FlickerStep {
  Op Operation;
  RegisterAddress Address;
  std::uint16_t Value;
  Outcome Result = Outcome::Ignored;
};

// The mains light that a row is for.
enum class Light : std::uint8_t { Off, Hz50, Hz60, NotOff, Any };

struct FlickerRow {
  SensorType Sensor;
  Light When;
  const FlickerStep* Steps;
  std::size_t Count;

  template <std::size_t N>
  constexpr FlickerRow(SensorType sensor, Light when, const FlickerStep (&steps)[N])
      : Sensor(sensor), When(when), Steps(steps), Count(N) {}
};

constexpr FlickerStep kVga0408Off[] = {
    {Op::Bridge, BridgeRegister::Flicker70, 0x9C},
    {Op::MeasureBand, 0, 0},
    {Op::BridgeBand, BridgeRegister::FlickerBand, 0, Outcome::Returned},
    {Op::BridgeAutoExposure, BridgeRegister::BackLight, kFlickerWithAutoExposureBit},
};
constexpr FlickerStep kVga0408Lit[] = {
    {Op::Bridge, BridgeRegister::Flicker70, 0x1C},
    {Op::MeasureBand, 0, 0},
    {Op::BridgeBand, BridgeRegister::FlickerBand, 0, Outcome::Returned},
    {Op::BridgeAutoExposure, BridgeRegister::BackLight, kFlickerWithAutoExposureBit},
};

// BridgeRegister::AutomaticExposure switches the chip's own one: with a light that flickers it is off, and the
// host steers the exposure in whole bands.
constexpr FlickerStep kVga0708Off[] = {
    {Op::Sensor, SensorRegister::Vga0708Flicker1A, 0x10},
    {Op::Bridge, BridgeRegister::AutomaticExposure, 0x3B},
    {Op::Bridge, BridgeRegister::Flicker61, 0x88},
    {Op::Bridge, BridgeRegister::Flicker62, 0x58},
    {Op::Bridge, BridgeRegister::Flicker70, 0x9C},
    {Op::Sensor, SensorRegister::Vga0708CoarseGain, 0x02},
    {Op::Sensor, SensorRegister::Vga0708FineGain, 0x80},
};
constexpr FlickerStep kVga0708Lit[] = {
    {Op::Sensor, SensorRegister::Vga0708Flicker1A, 0x10},
    {Op::Bridge, BridgeRegister::AutomaticExposure, 0x38},
    {Op::Bridge, BridgeRegister::Flicker61, 0x88},
    {Op::Bridge, BridgeRegister::Flicker62, 0x78},
    {Op::Bridge, BridgeRegister::Flicker70, 0x1C},
    {Op::MeasureBand, 0, 0},
};

constexpr FlickerStep kVga7648Any[] = {
    {Op::FixedBand, 0, 131},
    {Op::BridgeBand, BridgeRegister::FlickerBand, 0},
    {Op::BridgeAutoExposure, BridgeRegister::BackLight, kFlickerWithAutoExposureBit},
};

constexpr FlickerStep kOv7660Off[] = {
    {Op::Sensor, SensorRegister::OvFlicker3B, 0x06, Outcome::Returned}};
constexpr FlickerStep kOv7660Hz50[] = {
    {Op::Sensor, SensorRegister::OvFlicker3B, 0x08},
    {Op::Sensor, SensorRegister::OvFlicker42, 0x09, Outcome::Returned},
};
constexpr FlickerStep kOv7660Hz60[] = {
    {Op::Sensor, SensorRegister::OvFlicker3B, 0x00},
    {Op::Sensor, SensorRegister::OvFlicker42, 0x08, Outcome::Returned},
};

constexpr FlickerStep kOv7670Off[] = {{Op::Sensor, SensorRegister::OvFlicker3B, 0xCB}};
constexpr FlickerStep kOv7670Hz50[] = {{Op::Sensor, SensorRegister::OvFlicker3B, 0xC9}};
constexpr FlickerStep kOv7670Hz60[] = {{Op::Sensor, SensorRegister::OvFlicker3B, 0xC1}};

// The registers lie in pages, which a write of the page register selects.
constexpr FlickerStep kMi1318OffOrHz50[] = {
    {Op::Wide, SensorRegister::Mi1318Page, 2},
    {Op::Wide, SensorRegister::WideFlicker5B, 1},
};
constexpr FlickerStep kMi1318Hz60[] = {
    {Op::Wide, SensorRegister::Mi1318Page, 2},
    {Op::Wide, SensorRegister::WideFlicker5B, 3},
};

constexpr FlickerStep kK82Off[] = {
    {Op::Wide, SensorRegister::K82Page, 1},
    {Op::Wide, SensorRegister::K82Flicker37, 0x0180},
};
constexpr FlickerStep kK82Hz50[] = {
    {Op::Wide, SensorRegister::K82Page, 1},
    {Op::Wide, SensorRegister::K82Flicker37, 0x0181},
    {Op::Wide, SensorRegister::K82Page, 1},
    {Op::Wide, SensorRegister::WideFlicker5B, 1},
};
constexpr FlickerStep kK82Hz60[] = {
    {Op::Wide, SensorRegister::K82Page, 1},
    {Op::Wide, SensorRegister::K82Flicker37, 0x0181},
    {Op::Wide, SensorRegister::K82Page, 1},
    {Op::Wide, SensorRegister::WideFlicker5B, 3},
};

// A sensor and light without a row has nothing to program.
constexpr FlickerRow kFlickerRows[] = {
    {SensorTypeVGA0408, Light::Off, kVga0408Off},
    {SensorTypeVGA0408, Light::NotOff, kVga0408Lit},
    {SensorTypeVGA0708, Light::Off, kVga0708Off},
    {SensorTypeVGA0708, Light::NotOff, kVga0708Lit},
    {SensorTypeVGA7648, Light::Any, kVga7648Any},
    {SensorTypeOV7660, Light::Off, kOv7660Off},
    {SensorTypeOV7660, Light::Hz50, kOv7660Hz50},
    {SensorTypeOV7660, Light::Hz60, kOv7660Hz60},
    {SensorTypeOV7663, Light::Off, kOv7660Off},
    {SensorTypeOV7663, Light::Hz50, kOv7660Hz50},
    {SensorTypeOV7663, Light::Hz60, kOv7660Hz60},
    {SensorTypeOV7670, Light::Off, kOv7670Off},
    {SensorTypeOV7670, Light::Hz50, kOv7670Hz50},
    {SensorTypeOV7670, Light::Hz60, kOv7670Hz60},
    {SensorTypeMi1318, Light::Off, kMi1318OffOrHz50},
    {SensorTypeMi1318, Light::Hz50, kMi1318OffOrHz50},
    {SensorTypeMi1318, Light::Hz60, kMi1318Hz60},
    {SensorTypeK82, Light::Off, kK82Off},
    {SensorTypeK82, Light::Hz50, kK82Hz50},
    {SensorTypeK82, Light::Hz60, kK82Hz60},
};

bool Matches(Light light, std::int32_t flicker) {
  switch (light) {
    case Light::Off:
      return flicker == FlickerOff;
    case Light::Hz50:
      return flicker == Flicker50Hz;
    case Light::Hz60:
      return flicker == Flicker60Hz;
    case Light::NotOff:
      return flicker != FlickerOff;
    case Light::Any:
      return true;
  }
  return false;
}

const FlickerRow* FindFlickerRow(std::int32_t sensor, std::int32_t flicker) {
  for (const FlickerRow& row : kFlickerRows) {
    if (row.Sensor == sensor && Matches(row.When, flicker)) return &row;
  }
  return nullptr;
}

constexpr std::int32_t Quotient(std::int32_t dividend, std::int32_t divisor) {
  return divisor == 0 ? 0 : dividend / divisor;
}

// The line time in pixel clocks. A failed read counts as 0: 860 is the shortest line there is.
std::int32_t ReadLineTime(CameraContext& context) {
  std::uint8_t high = 0;
  std::uint8_t low = 0;
  ReadSensorRegister(context, SensorRegister::VgaLineTimeHigh, high);
  ReadSensorRegister(context, SensorRegister::VgaLineTimeLow, low);
  return (high & 0x0F) * 256 + low + 860;
}

// 120 to 100 is the ratio of the flicker rates of 60 Hz and 50 Hz light.
constexpr std::int32_t kClocksPerFlicker50 = 150000;
constexpr std::int32_t kClocksPerFlicker60 = 125000;

void MeasureBand(CameraContext& context) {
  const std::int32_t line = ReadLineTime(context);
  const std::int32_t flicker = context.Flicker;
  if (flicker != Flicker50Hz && flicker != Flicker60Hz) return;
  const std::int32_t divider = context.ClockDivider;
  const auto clocks = static_cast<std::int32_t>(static_cast<std::uint32_t>(divider) *
                                                static_cast<std::uint32_t>(line));
  const std::int32_t band =
      Quotient(flicker == Flicker50Hz ? kClocksPerFlicker50 : kClocksPerFlicker60, clocks);
  context.FlickerBandStep = static_cast<std::uint8_t>(band);
  TraceCamera(&context, "flicker band=%d line=%d divider=%d", band & 0xFF, line, divider);
}

Status Perform(CameraContext& context, const FlickerStep& step) {
  switch (step.Operation) {
    case Op::Sensor:
      return WriteSensorRegister(context, step.Address, step.Value);
    case Op::Bridge:
      return WriteBridgeRegister(context, step.Address, step.Value);
    case Op::Wide:
      return WriteWideSensorRegister(context, step.Address, step.Value);
    case Op::MeasureBand:
      MeasureBand(context);
      return 0;
    case Op::FixedBand:
      context.FlickerBandStep =
          static_cast<std::uint8_t>(Quotient(step.Value, context.ClockDivider));
      return 0;
    case Op::BridgeBand:
      return WriteBridgeRegister(context, step.Address, context.FlickerBandStep);
    case Op::BridgeAutoExposure: {
      if (context.AutoExposure == 0) return 0;
      const std::uint8_t shadow = context.ShadowFF64;
      return WriteBridgeRegister(context, step.Address, std::uint32_t{shadow} | step.Value);
    }
  }
  return 0;
}

}  // namespace

Status ProgramMirrorFlip(CameraContext& context) {
  if (context.SensorType != SensorTypeVGA0708) return 0;
  context.ShadowSensor0C = SensorOrientation(context, context.ShadowSensor0C);
  WriteSensorRegister(context, SensorRegister::VgaOrientation, context.ShadowSensor0C);
  context.ShadowFF26 = BridgeOrientation(context, context.ShadowFF26);
  return WriteBridgeRegister(context, BridgeRegister::Orientation, context.ShadowFF26);
}

Status ProgramFlicker(CameraContext& context) {
  if (context.ClockDivider == 0) context.ClockDivider = 1;
  const FlickerRow* const row = FindFlickerRow(context.SensorType, context.Flicker);
  if (row == nullptr) return 0;
  Status result = 0;
  for (std::size_t i = 0; i < row->Count; ++i) {
    const Status status = Perform(context, row->Steps[i]);
    if (row->Steps[i].Result == Outcome::Returned) result = status;
  }
  return result;
}

}  // namespace lidcam
