#include "driver/avstream/properties/control_translation.h"

#include <cstdint>
#include <span>

#include "driver/avstream/properties/property_ids.h"

namespace lidcam {
namespace {

constexpr std::uint32_t kRefused = 0xFFFFFFFF;

struct PropertyCode {
  ULONG Id;
  std::uint32_t SetCode;
  std::uint32_t GetCode;
  ULONG SetBytes;
  ULONG GetBytes;
};

constexpr PropertyCode Level(ULONG id, std::uint32_t code) {
  return {id, code, code, sizeof(KSPROPERTY_VIDEOPROCAMP_S), sizeof(KSPROPERTY_VIDEOPROCAMP_S)};
}

constexpr PropertyCode Own(ULONG id, std::uint32_t setCode, std::uint32_t getCode) {
  return {id, setCode, getCode, sizeof(PrivatePropertyBlock), sizeof(PrivatePropertyBlock)};
}

constexpr PropertyCode Own(ULONG id, std::uint32_t code) {
  return Own(id, code, code);
}

// The hue of this camera can't be changed.
constexpr PropertyCode kVideoProcAmpCodes[] = {
    Level(KSPROPERTY_VIDEOPROCAMP_BRIGHTNESS, 0),
    Level(KSPROPERTY_VIDEOPROCAMP_CONTRAST, 1),
    Level(KSPROPERTY_VIDEOPROCAMP_SATURATION, 2),
    Level(KSPROPERTY_VIDEOPROCAMP_SHARPNESS, 3),
    Level(KSPROPERTY_VIDEOPROCAMP_GAMMA, 4),
    Level(KSPROPERTY_VIDEOPROCAMP_COLORENABLE, 5),
    Level(KSPROPERTY_VIDEOPROCAMP_WHITEBALANCE, 6),
    Level(KSPROPERTY_VIDEOPROCAMP_BACKLIGHT_COMPENSATION, 7),
};

// The exposure alone has an item in the filter's tables and a control behind its code.
constexpr PropertyCode kCameraControlCodes[] = {
    Level(KSPROPERTY_CAMERACONTROL_PAN, 10),  Level(KSPROPERTY_CAMERACONTROL_TILT, 10),
    Level(KSPROPERTY_CAMERACONTROL_ZOOM, 11), Level(KSPROPERTY_CAMERACONTROL_EXPOSURE, 12),
    Level(KSPROPERTY_CAMERACONTROL_IRIS, 16), Level(KSPROPERTY_CAMERACONTROL_FOCUS, 17),
};

// The list of frame rates is no control's: it depends on the request alone.
constexpr PropertyCode kVideoControlCodes[] = {
    {KSPROPERTY_VIDEOCONTROL_CAPS, kRefused, 24, 0, sizeof(KSPROPERTY_VIDEOCONTROL_CAPS_S)},
    {KSPROPERTY_VIDEOCONTROL_ACTUAL_FRAME_RATE, kRefused, 25, 0,
     sizeof(KSPROPERTY_VIDEOCONTROL_ACTUAL_FRAME_RATE_S)},
    {KSPROPERTY_VIDEOCONTROL_MODE, 23, 23, sizeof(KSPROPERTY_VIDEOCONTROL_MODE_S),
     sizeof(KSPROPERTY_VIDEOCONTROL_MODE_S)},
};

constexpr PropertyCode kPrivateCodes[] = {
    Own(PrivatePropertyUnused, kNoControlCode, kRefused),
    Own(PrivatePropertyEffect, 47),
    Own(PrivatePropertyFlicker, 40),
    Own(PrivatePropertyMirror, 38),
    Own(PrivatePropertyVertical, 39),
    {PrivatePropertyRegister, 37, 37, sizeof(PrivatePropertyBlock), kRegisterReadBytes},
    Own(PrivatePropertyClearOnRead, kNoControlCode, 42),
    Own(PrivatePropertyLight, 41),
    Own(PrivatePropertyStill, kControlStill),
    Own(PrivatePropertyStored44, 44),
    Own(PrivatePropertyStored45, 45),
    Own(PrivatePropertyStored46, 46),
};

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

// What is relative now counts as what can be relative.
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

struct PropertyTranslation {
  const GUID* Set;
  std::span<const PropertyCode> Codes;
  void (*Take)(ULONG id, const void* data, ControlRecord& record);
  void (*Give)(ULONG id, const ControlRecord& record, void* data);
};

constexpr PropertyTranslation kTranslations[] = {
    {&kVideoProcAmpSet, kVideoProcAmpCodes, TakeLevel, GiveLevel},
    {&kCameraControlSet, kCameraControlCodes, TakeCameraControl, GiveCameraControl},
    {&kVideoControlSet, kVideoControlCodes, TakeTriggerMode, GiveVideoControl},
    {&PROPSETID_CAMERA_PRIVATE, kPrivateCodes, TakePrivate, GivePrivate},
};

const PropertyTranslation* FindTranslation(const GUID& set) {
  for (const PropertyTranslation& translation : kTranslations) {
    if (IsSameGuid(*translation.Set, set)) return &translation;
  }
  return nullptr;
}

const PropertyCode* FindCode(const PropertyTranslation& translation, ULONG id) {
  for (const PropertyCode& code : translation.Codes) {
    if (code.Id == id) return &code;
  }
  return nullptr;
}

}  // namespace

ULONG PropertyBlockBytes(const KSIDENTIFIER& request, PropertyDirection direction) {
  const PropertyTranslation* const translation = FindTranslation(request.Set);
  if (translation == nullptr) return 0;
  const PropertyCode* const code = FindCode(*translation, request.Id);
  if (code == nullptr) return 0;
  const bool isSet = direction == PropertyDirection::Set;
  if ((isSet ? code->SetCode : code->GetCode) == kRefused) return 0;
  return isSet ? code->SetBytes : code->GetBytes;
}

NTSTATUS TranslateSet(const KSIDENTIFIER& request, const void* data, ControlRecord& record) {
  const PropertyTranslation* const translation = FindTranslation(request.Set);
  if (translation == nullptr) {
    // A foreign set's value is the block's address, as far as it fits.
    record.Code = request.Id;
    record.Value = static_cast<std::int32_t>(
        static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(data)));
    return STATUS_SUCCESS;
  }
  const PropertyCode* const code = FindCode(*translation, request.Id);
  if (code == nullptr || code->SetCode == kRefused) return STATUS_NOT_SUPPORTED;
  record.Code = code->SetCode;
  translation->Take(request.Id, data, record);
  return STATUS_SUCCESS;
}

NTSTATUS TranslateGet(const KSIDENTIFIER& request, const void* data, ControlRecord& record) {
  const PropertyTranslation* const translation = FindTranslation(request.Set);
  if (translation == nullptr) {
    record.Code = request.Id;
    return STATUS_SUCCESS;
  }
  const PropertyCode* const code = FindCode(*translation, request.Id);
  if (code == nullptr || code->GetCode == kRefused) return STATUS_NOT_SUPPORTED;
  record.Code = code->GetCode;
  if (code->GetBytes == kRegisterReadBytes) {
    record.Value = static_cast<const LONG*>(data)[kRegisterReadOffset / sizeof(LONG)];
  }
  return STATUS_SUCCESS;
}

void TranslateReply(const KSIDENTIFIER& request, const ControlRecord& record, void* data) {
  const PropertyTranslation* const translation = FindTranslation(request.Set);
  if (translation == nullptr) return;
  const PropertyCode* const code = FindCode(*translation, request.Id);
  if (code == nullptr || code->GetCode == kRefused) return;
  translation->Give(request.Id, record, data);
}

}  // namespace lidcam
