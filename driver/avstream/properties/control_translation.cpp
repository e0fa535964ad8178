#include "driver/avstream/properties/control_translation.h"

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "driver/avstream/properties/property_ids.h"

namespace lidcam {
namespace {

// Automatic and manual have the same bits on both sides.
constexpr std::uint32_t kModeFlags = kControlFlagAuto | kControlFlagManual;

struct FlagPair {
  std::uint32_t Property;
  std::uint32_t Record;
};

constexpr FlagPair kRelative = {0x10, 8};

// The core counts its trigger bits at 0x10 and 0x20: a trigger never shows in a reply.
constexpr FlagPair kTriggerFlags[] = {{4, 0x40}, {8, 0x80}};

std::uint32_t TriggerFlagsOfProperty(std::uint32_t record) {
  std::uint32_t flags = 0;
  for (const FlagPair& pair : kTriggerFlags) {
    if ((record & pair.Record) != 0) flags |= pair.Property;
  }
  return flags;
}

std::uint32_t TriggerFlagsOfRecord(std::uint32_t property) {
  std::uint32_t flags = 0;
  for (const FlagPair& pair : kTriggerFlags) {
    if ((property & pair.Property) != 0) flags |= pair.Record;
  }
  return flags;
}

void TakeLevel(ULONG, const void* data, ControlRecord& record) {
  const auto& block = *static_cast<const KSPROPERTY_VIDEOPROCAMP_S*>(data);
  record.Value = block.Value;
  record.Flags = block.Flags & kModeFlags;
}

void GiveLevel(ULONG, const ControlRecord& record, void* data) {
  auto& block = *static_cast<KSPROPERTY_VIDEOPROCAMP_S*>(data);
  block.Value = record.Value;
  block.Flags = record.Flags & kModeFlags;
  block.Capabilities = record.Caps & kModeFlags;
}

void TakeCameraControl(ULONG, const void* data, ControlRecord& record) {
  const auto& block = *static_cast<const KSPROPERTY_CAMERACONTROL_S*>(data);
  record.Value = block.Value;
  record.Flags = (block.Flags & kModeFlags) |
                 ((block.Flags & kRelative.Property) != 0 ? kRelative.Record : 0U);
}

// The capabilities report relative values exactly while the value is relative.
void GiveCameraControl(ULONG, const ControlRecord& record, void* data) {
  auto& block = *static_cast<KSPROPERTY_CAMERACONTROL_S*>(data);
  const std::uint32_t relative = (record.Flags & kRelative.Record) != 0 ? kRelative.Property : 0U;
  block.Value = record.Value;
  block.Flags = (record.Flags & kModeFlags) | relative;
  block.Capabilities = (record.Caps & kModeFlags) | relative;
}

void TakeTriggerMode(ULONG, const void* data, ControlRecord& record) {
  const auto& block = *static_cast<const KSPROPERTY_VIDEOCONTROL_MODE_S*>(data);
  record.Flags = TriggerFlagsOfRecord(static_cast<std::uint32_t>(block.Mode));
}

void GiveVideoControl(ULONG id, const ControlRecord& record, void* data) {
  if (id == KSPROPERTY_VIDEOCONTROL_CAPS) {
    static_cast<KSPROPERTY_VIDEOCONTROL_CAPS_S*>(data)->VideoControlCaps =
        TriggerFlagsOfProperty(record.Caps);
  } else if (id == KSPROPERTY_VIDEOCONTROL_MODE) {
    static_cast<KSPROPERTY_VIDEOCONTROL_MODE_S*>(data)->Mode =
        static_cast<LONG>(TriggerFlagsOfProperty(record.Flags));
  } else {
    auto& block = *static_cast<KSPROPERTY_VIDEOCONTROL_ACTUAL_FRAME_RATE_S*>(data);
    block.CurrentActualFrameRate = static_cast<std::uint32_t>(record.Value);
    block.CurrentMaxAvailableFrameRate = static_cast<std::uint32_t>(record.Value2);
  }
}

void TakePrivate(ULONG id, const void* data, ControlRecord& record) {
  const auto& block = *static_cast<const PrivatePropertyBlock*>(data);
  record.Value = block.Value;
  if (id == PrivatePropertyRegister) record.Caps = block.Register;
  if (id == PrivatePropertyLight) record.Caps = block.Led;
}

void GivePrivate(ULONG id, const ControlRecord& record, void* data) {
  auto& block = *static_cast<PrivatePropertyBlock*>(data);
  block.Value = record.Value;
  if (id == PrivatePropertyLight) block.Led = record.Caps;
}

using TakeOperation = void (*)(ULONG id, const void* data, ControlRecord& record);
using GiveOperation = void (*)(ULONG id, const ControlRecord& record, void* data);

}  // namespace

struct PropertyTranslation {
  TakeOperation Take;
  GiveOperation Give;
};

namespace {

// In the order of kPropertyCodes.
constexpr PropertyTranslation kTranslations[] = {
    {TakeLevel, GiveLevel},
    {TakeCameraControl, GiveCameraControl},
    {TakeTriggerMode, GiveVideoControl},
    {TakePrivate, GivePrivate},
};
static_assert(std::size(kTranslations) == std::size(kPropertyCodes));

const PropertyCode* FindCode(const PropertyCodes& set, ULONG id) {
  for (const PropertyCode& code : set.Codes) {
    if (code.Id == id) return &code;
  }
  return nullptr;
}

std::uint32_t NumberOf(ControlCode code) {
  return static_cast<std::uint32_t>(code);
}

}  // namespace

CameraProperty FindCameraProperty(const KSIDENTIFIER& request) {
  for (std::size_t set = 0; set < std::size(kPropertyCodes); ++set) {
    if (IsSameGuid(*kPropertyCodes[set].Set, request.Set)) {
      return {request.Id, &kTranslations[set], FindCode(kPropertyCodes[set], request.Id)};
    }
  }
  return {request.Id, nullptr, nullptr};
}

ULONG PropertyBlockBytes(const CameraProperty& property, PropertyDirection direction) {
  const bool isSet = direction == PropertyDirection::Set;
  if ((isSet ? property.SetCode() : property.GetCode()) == kRefusedCode) return 0;
  return isSet ? property.Code->SetBytes : property.Code->GetBytes;
}

NTSTATUS TranslateSet(const CameraProperty& property, const void* data, ControlRecord& record) {
  if (property.Translation == nullptr) {
    // For an unknown set the value is the block's address, cut to 32 bits.
    record.Code = property.Id;
    record.Value = static_cast<std::int32_t>(
        static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(data)));
    return STATUS_SUCCESS;
  }
  if (property.SetCode() == kRefusedCode) return STATUS_NOT_SUPPORTED;
  record.Code = NumberOf(property.SetCode());
  property.Translation->Take(property.Id, data, record);
  return STATUS_SUCCESS;
}

NTSTATUS TranslateGet(const CameraProperty& property, const void* data, ControlRecord& record) {
  if (property.Translation == nullptr) {
    record.Code = property.Id;
    return STATUS_SUCCESS;
  }
  if (property.GetCode() == kRefusedCode) return STATUS_NOT_SUPPORTED;
  record.Code = NumberOf(property.GetCode());
  if (property.GetCode() == ControlCode::RawRegister) {
    record.Value = static_cast<const LONG*>(data)[kRegisterReadOffset / sizeof(LONG)];
  }
  return STATUS_SUCCESS;
}

void TranslateReply(const CameraProperty& property, const ControlRecord& record, void* data) {
  if (property.GetCode() == kRefusedCode) return;
  property.Translation->Give(property.Id, record, data);
}

}  // namespace lidcam
