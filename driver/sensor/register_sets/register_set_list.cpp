#include "driver/sensor/register_sets/register_set_list.h"

#include "driver/sensor/identification/sensor_set.h"
#include "driver/sensor/registers/register_access.h"
#include "driver/sensor/registers/register_names.h"

namespace lidcam {
namespace {

using RegisterWriter = Status (*)(CameraContext& context, RegisterAddress address,
                                  std::uint32_t value);

struct PathWriters {
  RegisterWriter WriteSensor;
  RegisterWriter WriteBridge;
};

constexpr PathWriters kApplicationPath = {WriteSensorRegister, WriteBridgeRegister};
constexpr PathWriters kFramePath = {DriverWriteSensorRegister, DriverWriteBridgeRegister};

// The low bits of SensorRegister::OvFlicker3B choose the 50 Hz band, which the lists assume.
std::uint8_t FollowMains(const CameraContext& context, std::uint8_t value) {
  if (!kOVFamily.Contains(context.SensorType) || context.Flicker != Flicker60Hz) return value;
  return value & 0xF0;
}

// Mirror and flip live in two bits of a register that the lists also carry.
std::uint8_t KeepOrientation(const CameraContext& context, std::uint8_t value) {
  const std::uint8_t shadow = context.ShadowFF26;
  return static_cast<std::uint8_t>(value | (shadow & kOrientationBits));
}

// 0: the user's sharpness was never written.
std::uint8_t KeepUserSharpness(const CameraContext& context, std::uint8_t value) {
  const std::uint8_t sharpness = context.UserSharpness;
  return sharpness != 0 ? sharpness : value;
}

// One copy serves both saturation registers.
std::uint8_t KeepUserSaturation(const CameraContext& context, std::uint8_t) {
  return context.UserSaturation;
}

enum class Lists : std::uint8_t { Both, Normal };

// An entry whose value is replaced by the user's setting.
struct EntryPatch {
  constexpr EntryPatch(std::uint8_t marker, RegisterAddress address, Lists lists,
                       std::uint8_t (*valueFor)(const CameraContext& context, std::uint8_t value))
      : Marker(marker), Register(RegisterNumberOf(address)), In(lists), ValueFor(valueFor) {}

  std::uint8_t Marker;
  std::uint8_t Register;
  Lists In;
  std::uint8_t (*ValueFor)(const CameraContext& context, std::uint8_t value);
};

constexpr EntryPatch kPatches[] = {
    {kSensorEntryMarker, SensorRegister::OvFlicker3B, Lists::Both, FollowMains},
    {kBridgeEntryMarker, BridgeRegister::Orientation, Lists::Both, KeepOrientation},
    {kBridgeEntryMarker, BridgeRegister::Sharpness, Lists::Normal, KeepUserSharpness},
    {kBridgeEntryMarker, BridgeRegister::Saturation1, Lists::Normal, KeepUserSaturation},
    {kBridgeEntryMarker, BridgeRegister::Saturation2, Lists::Normal, KeepUserSaturation},
};

std::uint8_t PatchedValue(const CameraContext& context, const RegisterSetEntry& entry,
                          RegisterList list) {
  for (const EntryPatch& patch : kPatches) {
    if (patch.Marker != entry.Marker || patch.Register != entry.Register) continue;
    if (list != RegisterList::Normal && patch.In == Lists::Normal) continue;
    return patch.ValueFor(context, entry.Value);
  }
  return entry.Value;
}

// A refused or failed write does not stop the list; an unknown marker leaves `result`.
Status WriteList(CameraContext& context, const RegisterSetTable& table, const PathWriters& writers,
                 RegisterList list) {
  Status result = 0;
  for (std::uint32_t i = 0; i < table.Count; ++i) {
    const RegisterSetEntry& entry = table.Entries[i];
    const RegisterAddress address = RegisterAddressOf(entry.Register);
    const std::uint8_t value = PatchedValue(context, entry, list);
    if (entry.Marker == kSensorEntryMarker) {
      result = writers.WriteSensor(context, address, value);
    } else if (entry.Marker == kBridgeEntryMarker) {
      result = writers.WriteBridge(context, address, value);
    }
  }
  return result;
}

struct TailWrite {
  RegisterWriter Write;
  RegisterAddress Address;
  std::uint8_t LowLight;
  std::uint8_t Normal;
};

// Frame length, gain and commit of SensorTypeVGA0708, in writing order. The frame path writes what
// it needs itself.
constexpr TailWrite kTailVGA0708[] = {
    {WriteSensorRegister, SensorRegister::Vga0708FrameLength, 0x1F, 0x2F},
    {WriteSensorRegister, SensorRegister::Vga0708CoarseGain, 0x03, 0x03},
    {WriteBridgeRegister, 0xFF73, 0x7F, 0x80},
    {WriteSensorRegister, SensorRegister::Commit, kCommitExposure, kCommitExposure},
};

void WriteTail(CameraContext& context, RegisterList list) {
  for (const TailWrite& row : kTailVGA0708) {
    row.Write(context, row.Address, list != RegisterList::Normal ? row.LowLight : row.Normal);
  }
}

}  // namespace

Status ApplyRegisterSet(CameraContext& context, RegisterList list, RegisterPath path) {
  const RegisterSetTable& table =
      list != RegisterList::Normal ? context.LowLightRegisters : context.NormalRegisters;
  // A list that fills the whole table counts as overlong.
  if (table.Present == 0 || table.Count == 0 || table.Count >= kRegisterSetCapacity) return 0;

  const bool isApplication = path != RegisterPath::Frame;
  const PathWriters& writers = isApplication ? kApplicationPath : kFramePath;
  const Status result = WriteList(context, table, writers, list);
  if (context.SensorType == SensorTypeVGA0708 && isApplication) WriteTail(context, list);
  return result;
}

}  // namespace lidcam
