#pragma once

#include <span>

#include "driver/avstream/properties/property_ids.h"
#include "driver/core/record/control_table.h"
#include "platform/kernel.h"

namespace lidcam {

/// The code of a direction that no control handles.
inline constexpr ControlCode kRefusedCode{0xFFFFFFFF};

/// Control codes and block sizes of a property.
struct PropertyCode {
  ULONG Id;
  ControlCode SetCode;
  ControlCode GetCode;
  ULONG SetBytes;  ///< of value block that a set reads
  ULONG GetBytes;  ///< of value block that a get reads or writes
};

constexpr PropertyCode LevelCode(ULONG id, ControlCode code) {
  return {id, code, code, sizeof(KSPROPERTY_VIDEOPROCAMP_S), sizeof(KSPROPERTY_VIDEOPROCAMP_S)};
}

constexpr PropertyCode OwnCode(ULONG id, ControlCode setCode, ControlCode getCode) {
  return {id, setCode, getCode, sizeof(PrivatePropertyBlock), sizeof(PrivatePropertyBlock)};
}

constexpr PropertyCode OwnCode(ULONG id, ControlCode code) {
  return OwnCode(id, code, code);
}

// The hue of this camera can't be changed.
inline constexpr PropertyCode kVideoProcAmpCodes[] = {
    LevelCode(KSPROPERTY_VIDEOPROCAMP_BRIGHTNESS, ControlCode::Brightness),
    LevelCode(KSPROPERTY_VIDEOPROCAMP_CONTRAST, ControlCode::Contrast),
    LevelCode(KSPROPERTY_VIDEOPROCAMP_SATURATION, ControlCode::Saturation),
    LevelCode(KSPROPERTY_VIDEOPROCAMP_SHARPNESS, ControlCode::Sharpness),
    LevelCode(KSPROPERTY_VIDEOPROCAMP_GAMMA, ControlCode::Gamma),
    LevelCode(KSPROPERTY_VIDEOPROCAMP_COLORENABLE, ControlCode::ColorEnable),
    LevelCode(KSPROPERTY_VIDEOPROCAMP_WHITEBALANCE, ControlCode::WhiteBalanceMode),
    LevelCode(KSPROPERTY_VIDEOPROCAMP_BACKLIGHT_COMPENSATION, ControlCode::BackLight),
};

// Of these only the exposure has an item in the filter's tables and a control for its code.
inline constexpr PropertyCode kCameraControlCodes[] = {
    LevelCode(KSPROPERTY_CAMERACONTROL_PAN, ControlCode::PanOrTilt),
    LevelCode(KSPROPERTY_CAMERACONTROL_TILT, ControlCode::PanOrTilt),
    LevelCode(KSPROPERTY_CAMERACONTROL_ZOOM, ControlCode::Zoom),
    LevelCode(KSPROPERTY_CAMERACONTROL_EXPOSURE, ControlCode::Exposure),
    LevelCode(KSPROPERTY_CAMERACONTROL_IRIS, ControlCode::Iris),
    LevelCode(KSPROPERTY_CAMERACONTROL_FOCUS, ControlCode::Focus),
};

// The list of frame rates has no control: it depends on the request alone.
inline constexpr PropertyCode kVideoControlCodes[] = {
    {KSPROPERTY_VIDEOCONTROL_CAPS, kRefusedCode, ControlCode::TriggerCapabilities, 0,
     sizeof(KSPROPERTY_VIDEOCONTROL_CAPS_S)},
    {KSPROPERTY_VIDEOCONTROL_ACTUAL_FRAME_RATE, kRefusedCode, ControlCode::FrameInterval, 0,
     sizeof(KSPROPERTY_VIDEOCONTROL_ACTUAL_FRAME_RATE_S)},
    {KSPROPERTY_VIDEOCONTROL_MODE, ControlCode::Trigger, ControlCode::Trigger,
     sizeof(KSPROPERTY_VIDEOCONTROL_MODE_S), sizeof(KSPROPERTY_VIDEOCONTROL_MODE_S)},
};

// A register read needs a longer block than the others, see kRegisterReadOffset.
inline constexpr PropertyCode kPrivateCodes[] = {
    OwnCode(PrivatePropertyUnused, ControlCode::None, kRefusedCode),
    OwnCode(PrivatePropertyEffect, ControlCode::Effect),
    OwnCode(PrivatePropertyFlicker, ControlCode::Flicker),
    OwnCode(PrivatePropertyMirror, ControlCode::Mirror),
    OwnCode(PrivatePropertyVertical, ControlCode::Vertical),
    {PrivatePropertyRegister, ControlCode::RawRegister, ControlCode::RawRegister,
     sizeof(PrivatePropertyBlock), kRegisterReadBytes},
    OwnCode(PrivatePropertyClearOnRead, ControlCode::None, ControlCode::ClearOnRead),
    OwnCode(PrivatePropertyLight, ControlCode::LightAndLed),
    OwnCode(PrivatePropertyStill, ControlCode::Still),
    OwnCode(PrivatePropertyStored44, ControlCode::Stored44),
    OwnCode(PrivatePropertyStored45, ControlCode::Stored45),
    OwnCode(PrivatePropertyStored46, ControlCode::Stored46),
};

/// A property set of the camera.
struct PropertyCodes {
  const GUID* Set;
  std::span<const PropertyCode> Codes;
};

inline constexpr PropertyCodes kPropertyCodes[] = {
    {&kVideoProcAmpSet, kVideoProcAmpCodes},
    {&kCameraControlSet, kCameraControlCodes},
    {&kVideoControlSet, kVideoControlCodes},
    {&PROPSETID_CAMERA_PRIVATE, kPrivateCodes},
};

/// The set and id by which a client names a property.
struct PropertyName {
  const GUID* Set;
  ULONG Id;
};

/// The property of a control; a null set if there is none.
/// @par Any thread, and at compile time
constexpr PropertyName PropertyOf(ControlCode control) {
  for (const PropertyCodes& set : kPropertyCodes) {
    for (const PropertyCode& property : set.Codes) {
      if (property.GetCode == control) return {set.Set, property.Id};
    }
  }
  return {nullptr, 0};
}

}  // namespace lidcam
