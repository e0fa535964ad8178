#include "driver/sensor/modes/mode_programming.h"

#include "driver/exposure/light_state.h"
#include "driver/sensor/controls/orientation_and_flicker.h"
#include "driver/sensor/controls/power_and_led.h"
#include "driver/sensor/identification/sensor_set.h"
#include "driver/sensor/registers/register_access.h"
#include "driver/sensor/registers/register_names.h"

namespace lidcam {
namespace {

// How wide a USB pipe the smallest picture is made for. Short: a device without the long
// configuration descriptor, by the highest alternate setting that it has.
enum class Pipe : std::uint8_t { ShortUpTo3, ShortUpTo2, Otherwise };

struct SmallPictureRow {
  SensorType Sensor;
  Pipe Case;
  std::uint8_t Mode;          // for BridgeRegister::Mode
  std::uint8_t LineTimeHigh;  // for SensorRegister::VgaLineTimeHigh; 0 writes nothing
};

// The negotiated highest setting is 7 or 3: the rows for 2 are for a device that has no 3.
constexpr SmallPictureRow kSmallPictureRows[] = {
    {SensorTypeVGA0408, Pipe::ShortUpTo3, 9, 1}, {SensorTypeVGA0408, Pipe::ShortUpTo2, 9, 6},
    {SensorTypeVGA0408, Pipe::Otherwise, 8, 0},  {SensorTypeVGA0708, Pipe::ShortUpTo3, 9, 1},
    {SensorTypeVGA0708, Pipe::ShortUpTo2, 9, 6}, {SensorTypeVGA0708, Pipe::Otherwise, 8, 0},
    {SensorTypeK82, Pipe::ShortUpTo2, 10, 0},    {SensorTypeK82, Pipe::Otherwise, 9, 0},
    {SensorTypeOV7660, Pipe::ShortUpTo3, 9, 0},  {SensorTypeOV7660, Pipe::ShortUpTo2, 11, 0},
    {SensorTypeOV7660, Pipe::Otherwise, 8, 0},   {SensorTypeOV7663, Pipe::ShortUpTo3, 9, 0},
    {SensorTypeOV7663, Pipe::ShortUpTo2, 11, 0}, {SensorTypeOV7663, Pipe::Otherwise, 8, 0},
    {SensorTypeOV7670, Pipe::ShortUpTo3, 9, 0},  {SensorTypeOV7670, Pipe::ShortUpTo2, 11, 0},
    {SensorTypeOV7670, Pipe::Otherwise, 8, 0},   {SensorTypeMi1318, Pipe::ShortUpTo3, 9, 0},
    {SensorTypeMi1318, Pipe::Otherwise, 8, 0},   {SensorTypeVGA7648, Pipe::ShortUpTo2, 10, 0},
    {SensorTypeVGA7648, Pipe::Otherwise, 8, 0},
};

constexpr SmallPictureRow kOtherSensorsRow = {SensorTypeReserved3, Pipe::Otherwise, 8, 0};

Pipe PipeOf(const CameraContext& context) {
  const std::uint32_t highest = context.MaxAlternateSetting;
  if (context.LongConfigDescriptor != 0) return Pipe::Otherwise;
  if (highest == 3) return Pipe::ShortUpTo3;
  return highest == 2 ? Pipe::ShortUpTo2 : Pipe::Otherwise;
}

// The row of this exact case, else the sensor's row for all other cases, which stands after it.
const SmallPictureRow& FindSmallPictureRow(const CameraContext& context) {
  const Pipe pipe = PipeOf(context);
  for (const SmallPictureRow& row : kSmallPictureRows) {
    if (row.Sensor != context.SensorType) continue;
    if (row.Case == pipe || row.Case == Pipe::Otherwise) return row;
  }
  return kOtherSensorsRow;
}

std::uint8_t ProgramFullPicture(CameraContext& context) {
  WriteBridgeRegister(context, BridgeRegister::Scale, kFullScale);
  const std::int32_t width = context.CaptureWidth;
  const std::int32_t height = context.CaptureHeight;
  const bool isLarge = (width == 1600 && height == 1200) || (width == 1280 && height == 1024);
  return isLarge ? 1 : 0;
}

void ProgramScaledPicture(CameraContext& context) {
  WriteBridgeRegister(context, BridgeRegister::Scale, kReducedScale);
  WriteBridgeRegister(context, BridgeRegister::Sharpness, 0xC0);
}

std::uint8_t ProgramHalfPicture(CameraContext& context) {
  ProgramScaledPicture(context);
  return kOVFamily.Contains(context.SensorType) ? 0x11 : 0x10;
}

std::uint8_t ProgramSmallPicture(CameraContext& context) {
  ProgramScaledPicture(context);
  const SmallPictureRow& row = FindSmallPictureRow(context);
  if (row.LineTimeHigh != 0)
    WriteSensorRegister(context, SensorRegister::VgaLineTimeHigh, row.LineTimeHigh);
  return row.Mode;
}

// The value for the mode register. A raw size without a mode of its own keeps `current`.
std::uint8_t ProgramRawSize(CameraContext& context, std::uint8_t current) {
  switch (static_cast<std::uint32_t>(context.RawSizeMode)) {
    case RawMode640x480:
      return ProgramFullPicture(context);
    case RawMode320x240:
      return ProgramHalfPicture(context);
    case RawMode160x120:
      return ProgramSmallPicture(context);
    default:
      return current;
  }
}

}  // namespace

Status ProgramStreamMode(CameraContext& context) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  std::uint8_t current = 0;
  ReadBridgeRegister(context, BridgeRegister::Mode, current);
  const std::uint8_t mode = ProgramRawSize(context, current);
  ProgramMirrorFlip(context);
  WriteBridgeRegister(context, BridgeRegister::Mode, mode);
  context.BridgeMode = mode;
  // After the mode register: the flicker band follows from the divider that it sets.
  ProgramFlicker(context);
  ResetLightState(context);
  const Status result = ApplyLightAndLed(context, StreamStart::Yes, LDModeChange::No);
  PowerAndLed(context, PowerBits::Write, SensorPower::Run, LedBit::Leave, LedState::Off,
              RegisterPath::Application);
  WriteSensorRegister(context, SensorRegister::Commit, kCommitMode);
  return result;
}

}  // namespace lidcam
