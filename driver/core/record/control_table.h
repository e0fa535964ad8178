#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"
#include "driver/core/record/setting_field.h"

namespace lidcam {

/// Codes by which the camera's controls are set and read. A request may have any other number: an
/// unknown code.
enum class ControlCode : std::uint32_t {
  Brightness = 0,
  Contrast = 1,
  Saturation = 2,
  Sharpness = 3,
  Gamma = 4,
  ColorEnable = 5,
  WhiteBalanceMode = 6,
  BackLight = 7,
  WhiteBalance = 8,
  FlickerReading = 9,
  PanOrTilt = 10,  ///< no control
  Zoom = 11,       ///< no control
  Exposure = 12,
  Iris = 16,   ///< no control
  Focus = 17,  ///< no control
  Trigger = 23,
  TriggerCapabilities = 24,
  FrameInterval = 25,
  StillSizes = 28,
  Unanswered = 30,
  Stored33 = 33,
  RawRegister = 37,
  Mirror = 38,
  Vertical = 39,
  Flicker = 40,
  LightAndLed = 41,
  ClearOnRead = 42,
  Still = 43,  ///< a set requests a still; its value is stored in the picture
  Stored44 = 44,
  Stored45 = 45,
  Stored46 = 46,
  Effect = 47,
  None = 48,  ///< above all codes, so that a set of it is refused
};

/// The codes around the still sizes use the words of a record in their own way.
inline constexpr std::uint32_t kFirstListCode = 27;
inline constexpr std::uint32_t kLastListCode = 30;

/// Steps of ApplyImageControl(). 3, 7, 17 and 18 are not used.
enum ImageControlStep : std::uint32_t {
  ImageControlNoStep = 0,
  ImageControlBrightness = 1,
  ImageControlContrast = 2,
  ImageControlSaturation = 4,
  ImageControlSharpness = 5,
  ImageControlGamma = 6,
  ImageControlBackLight = 8,
  ImageControlColorEnable = 9,
  ImageControlExposure = 10,
  ImageControlMirror = 11,
  ImageControlVertical = 12,
  ImageControlFlicker = 13,
  ImageControlEffect = 14,
  ImageControlLDMode = 15,
  ImageControlRawRegister = 16,
  ImageControlLed = 19,
};

/// A control of the camera.
struct Control {
  ControlCode Code;
  SettingField Field;     ///< what a set stores and a get returns; empty if neither does
  ImageControlStep Step;  ///< writes the value to the hardware
  const char* Name;       ///< on the command line; empty for controls not offered there
};

/// Every code that can be set or read.
inline constexpr Control kControls[] = {
    {ControlCode::Brightness, &CameraContext::Brightness, ImageControlBrightness, "Brightness"},
    {ControlCode::Contrast, &CameraContext::Contrast, ImageControlContrast, "Contrast"},
    {ControlCode::Saturation, &CameraContext::Saturation, ImageControlSaturation, "Saturation"},
    {ControlCode::Sharpness, &CameraContext::Sharpness, ImageControlSharpness, "Sharpness"},
    {ControlCode::Gamma, &CameraContext::Gamma, ImageControlGamma, "Gamma"},
    {ControlCode::ColorEnable, &CameraContext::ColorEnable, ImageControlColorEnable, "ColorEnable"},
    {ControlCode::WhiteBalanceMode, &CameraContext::WhiteBalanceAuto, ImageControlNoStep,
     "WhiteBalance"},
    {ControlCode::BackLight, &CameraContext::BackLight, ImageControlBackLight,
     "BacklightCompensation"},
    {ControlCode::WhiteBalance, &CameraContext::WhiteBalance, ImageControlNoStep, ""},
    {ControlCode::FlickerReading, &CameraContext::Flicker, ImageControlNoStep, ""},
    {ControlCode::Exposure, &CameraContext::Exposure, ImageControlExposure, "Exposure"},
    {ControlCode::Trigger, {}, ImageControlNoStep, ""},
    {ControlCode::TriggerCapabilities, {}, ImageControlNoStep, ""},
    {ControlCode::FrameInterval, {}, ImageControlNoStep, ""},
    {ControlCode::StillSizes, {}, ImageControlNoStep, ""},
    {ControlCode::Unanswered, {}, ImageControlNoStep, ""},
    {ControlCode::Stored33, &CameraContext::StoredControl33, ImageControlNoStep, ""},
    {ControlCode::RawRegister, &CameraContext::RawRegisterValue, ImageControlRawRegister, ""},
    {ControlCode::Mirror, &CameraContext::Mirror, ImageControlMirror, "Mirror"},
    {ControlCode::Vertical, &CameraContext::Vertical, ImageControlVertical, "Vertical"},
    {ControlCode::Flicker, &CameraContext::Flicker, ImageControlFlicker, "Flicker"},
    {ControlCode::LightAndLed, &CameraContext::LDMode, ImageControlLDMode, "LDMode"},
    {ControlCode::ClearOnRead, &CameraContext::ClearOnReadValue, ImageControlNoStep, ""},
    {ControlCode::Still, &CameraContext::StillRequestValue, ImageControlNoStep, ""},
    {ControlCode::Stored44, &CameraContext::StoredControl44, ImageControlNoStep, ""},
    {ControlCode::Stored45, &CameraContext::StoredControl45, ImageControlNoStep, ""},
    {ControlCode::Stored46, &CameraContext::StoredControl46, ImageControlNoStep, ""},
    {ControlCode::Effect, &CameraContext::Effect, ImageControlEffect, "Effect"},
};

/// The control of a code; null for an unknown code.
/// @par Any thread, and at compile time
constexpr const Control* FindControl(ControlCode code) {
  for (const Control& control : kControls) {
    if (control.Code == code) return &control;
  }
  return nullptr;
}

}  // namespace lidcam
