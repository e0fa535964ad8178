#include "apps/lidcam/control_table.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>

#include "apps/lidcam/command_error.h"
#include "driver/core/control_codes.h"
#include "driver/core/settings_store.h"

namespace lidcam::app {
namespace {

// Control codes of the core.
constexpr std::uint32_t kCodeBrightness = 0;
constexpr std::uint32_t kCodeContrast = 1;
constexpr std::uint32_t kCodeSaturation = 2;
constexpr std::uint32_t kCodeSharpness = 3;
constexpr std::uint32_t kCodeGamma = 4;
constexpr std::uint32_t kCodeColorEnable = 5;
constexpr std::uint32_t kCodeBackLight = 7;
constexpr std::uint32_t kCodeExposure = 12;
constexpr std::uint32_t kCodeMirror = 38;
constexpr std::uint32_t kCodeVertical = 39;
constexpr std::uint32_t kCodeFlicker = 40;
constexpr std::uint32_t kCodeLight = 41;
constexpr std::uint32_t kCodeEffect = 47;

ControlRecord Ask(CameraContext& context, std::uint32_t code) {
  ControlRecord record{};
  record.Code = code;
  GetControl(context, record);
  return record;
}

template <std::uint32_t Code>
std::int32_t GetValue(CameraContext& context) {
  return Ask(context, Code).Value;
}

template <std::uint32_t Code>
Status SetValue(CameraContext& context, std::int32_t value) {
  ControlRecord record{};
  record.Code = Code;
  record.Value = value;
  return SetControl(context, record);
}

// The core's brightness step writes the value of the change before: the same value once more brings
// it in.
Status SetBrightness(CameraContext& context, std::int32_t value) {
  const Status status = SetValue<kCodeBrightness>(context, value);
  return status != 0 ? status : SetValue<kCodeBrightness>(context, value);
}

Status SetExposureMode(CameraContext& context, std::int32_t exposure, std::uint32_t mode) {
  ControlRecord record{};
  record.Code = kCodeExposure;
  record.Value = exposure;
  record.Flags = mode;
  return SetControl(context, record);
}

// A value given by hand turns the automatic control off.
Status SetExposure(CameraContext& context, std::int32_t value) {
  return SetExposureMode(context, value, kControlFlagManual);
}

std::int32_t GetAutoExposure(CameraContext& context) {
  return Ask(context, kCodeExposure).Flags == kControlFlagAuto ? 1 : 0;
}

Status SetAutoExposure(CameraContext& context, std::int32_t value) {
  return SetExposureMode(context, GetValue<kCodeExposure>(context),
                         value != 0 ? kControlFlagAuto : kControlFlagManual);
}

std::int32_t GetLed(CameraContext& context) {
  return static_cast<std::int32_t>(Ask(context, kCodeLight).Caps);
}

// Light mode and LED share a code that takes one change at a time.
Status SetLight(CameraContext& context, std::int32_t mode, std::int32_t led) {
  ControlRecord record{};
  record.Code = kCodeLight;
  record.Value = mode;
  record.Caps = static_cast<std::uint32_t>(led);
  return SetControl(context, record);
}

Status SetLightMode(CameraContext& context, std::int32_t value) {
  return SetLight(context, value, GetLed(context));
}

Status SetLed(CameraContext& context, std::int32_t value) {
  return SetLight(context, GetValue<kCodeLight>(context), value);
}

constexpr std::array kControls = {
    CameraControl{"Brightness", -100, 100, DefaultOfSetting(&CameraContext::Brightness),
                  "added to the luminance", GetValue<kCodeBrightness>, SetBrightness},
    CameraControl{"Contrast", 1, 16, DefaultOfSetting(&CameraContext::Contrast), "10 is neutral",
                  GetValue<kCodeContrast>, SetValue<kCodeContrast>},
    CameraControl{"Saturation", 0, 255, DefaultOfSetting(&CameraContext::Saturation),
                  "strength of the colours", GetValue<kCodeSaturation>, SetValue<kCodeSaturation>},
    CameraControl{"Sharpness", 0, 8, DefaultOfSetting(&CameraContext::Sharpness),
                  "edge enhancement", GetValue<kCodeSharpness>, SetValue<kCodeSharpness>},
    CameraControl{"Gamma", 1, 20, DefaultOfSetting(&CameraContext::Gamma),
                  "lower brightens the shadows", GetValue<kCodeGamma>, SetValue<kCodeGamma>},
    CameraControl{"ColorEnable", 0, 1, DefaultOfSetting(&CameraContext::ColorEnable),
                  "0: monochrome", GetValue<kCodeColorEnable>, SetValue<kCodeColorEnable>},
    CameraControl{"BackLight", 0, 1, DefaultOfSetting(&CameraContext::BackLight),
                  "1: light comes from behind", GetValue<kCodeBackLight>, SetValue<kCodeBackLight>},
    CameraControl{"AutoExposure", 0, 1, DefaultOfSetting(&CameraContext::AutoExposure),
                  "1: chip or host exposes by itself", GetAutoExposure, SetAutoExposure},
    CameraControl{"Exposure", 1, 100, DefaultOfSetting(&CameraContext::Exposure),
                  "by hand: turns AutoExposure off", GetValue<kCodeExposure>, SetExposure},
    CameraControl{"Mirror", 0, 1, DefaultOfSetting(&CameraContext::Mirror),
                  "1: left and right exchanged", GetValue<kCodeMirror>, SetValue<kCodeMirror>},
    CameraControl{"Vertical", 0, 1, DefaultOfSetting(&CameraContext::Vertical), "1: upside down",
                  GetValue<kCodeVertical>, SetValue<kCodeVertical>},
    CameraControl{"Flicker", 0, 2, DefaultOfSetting(&CameraContext::Flicker),
                  "mains light: 0 none, 1 50 Hz, 2 60 Hz", GetValue<kCodeFlicker>,
                  SetValue<kCodeFlicker>},
    CameraControl{"Effect", 0, 5, DefaultOfSetting(&CameraContext::Effect),
                  "picture effect, 0 none", GetValue<kCodeEffect>, SetValue<kCodeEffect>},
    CameraControl{"LDMode", 0, 1, DefaultOfSetting(&CameraContext::LDMode),
                  "1: holds the low-light registers", GetValue<kCodeLight>, SetLightMode},
    CameraControl{"LED", 2, 4, DefaultOfSetting(&CameraContext::LED),
                  "2 on, 3 off, 4 follows the light", GetLed, SetLed},
};

// Sensors as bits, so that a row holds for several.
constexpr std::uint32_t Sensors(auto... types) {
  return (0U | ... | (1U << types));
}

constexpr std::uint32_t kVgaPair = Sensors(SensorTypeVGA0408, SensorTypeVGA0708);
constexpr std::uint32_t kWidePair = Sensors(SensorTypeK82, SensorTypeMi1318);
constexpr std::uint32_t kOvFamily = Sensors(SensorTypeOV7660, SensorTypeOV7663, SensorTypeOV7670);
constexpr std::uint32_t kVga0708 = Sensors(SensorTypeVGA0708);
constexpr std::uint32_t kVga7648 = Sensors(SensorTypeVGA7648);
constexpr std::uint32_t kAll = ~0U;

struct ReportRow {
  std::string_view Name;
  std::uint32_t On;
  ControlReport Report;
};

// The first row that fits. The 16-bit sensors' own registers lie in pages and are left out.
constexpr ReportRow kReports[] = {
    {"Brightness", kAll, {false, 0xFF77}},
    {"Contrast", kWidePair, {false, 0xFF13}},
    {"Contrast", kAll, {false, 0xFF0F}},
    {"Saturation", kAll, {false, 0xFF78}},
    {"Sharpness", kAll, {false, 0xFF43}},
    {"Gamma", kAll, {false, 0xFF38}},
    {"ColorEnable", kAll, {false, 0xFF42}},
    {"BackLight", kVga0708, {true, 0xFF49}},
    {"BackLight", kAll & ~kWidePair, {false, 0xFF64}},
    {"AutoExposure", kVgaPair, {false, 0xFF0D}},
    {"AutoExposure", kOvFamily | kVga7648, {true, 0xFF13}},
    {"Exposure", kVgaPair, {true, 0xFF04}},
    {"Exposure", kOvFamily | kVga7648, {true, 0xFF10}},
    {"Mirror", kVga0708, {true, 0xFF0C}},
    {"Vertical", kVga0708, {true, 0xFF0C}},
    {"Flicker", kVgaPair, {false, 0xFF70}},
    {"Flicker", kOvFamily, {true, 0xFF3B}},
    {"Effect", kAll, {false, 0xFF42}},
    {"LED", kAll & ~kVga0708, {false, 0xFF09}},
};

bool IsSameName(std::string_view a, std::string_view b) {
  return std::ranges::equal(
      a, b, [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

std::string NameList() {
  std::string list;
  for (const CameraControl& control : kControls) {
    if (!list.empty()) list += ", ";
    list += control.Name;
  }
  return list;
}

}  // namespace

std::span<const CameraControl> AllControls() {
  return kControls;
}

std::optional<ControlReport> ReportOf(std::string_view name, std::int32_t sensorType) {
  for (const ReportRow& row : kReports) {
    if (row.Name == name && (row.On & (1U << sensorType)) != 0) return row.Report;
  }
  return std::nullopt;
}

const CameraControl& FindControl(const std::string& name) {
  for (const CameraControl& control : kControls) {
    if (IsSameName(control.Name, name)) return control;
  }
  throw UsageError("control '" + name + "' is unknown: there are " + NameList());
}

ControlAssignment ParseAssignment(const std::string& text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos) {
    throw UsageError("'" + text + "' is not NAME=VALUE, such as Contrast=12");
  }
  const CameraControl& control = FindControl(text.substr(0, equals));
  const std::string digits = text.substr(equals + 1);
  std::int32_t value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  const bool isNumber = error == std::errc{} && end == digits.data() + digits.size();
  if (!isNumber || value < control.Minimum || value > control.Maximum) {
    throw UsageError(std::string(control.Name) + " '" + digits + "' is not a number from " +
                     std::to_string(control.Minimum) + " to " + std::to_string(control.Maximum));
  }
  return {&control, value};
}

std::vector<ControlAssignment> ParseAssignments(const std::vector<std::string>& texts) {
  std::vector<ControlAssignment> assignments;
  for (const std::string& text : texts) assignments.push_back(ParseAssignment(text));
  return assignments;
}

void Apply(CameraContext& context, const ControlAssignment& assignment) {
  const Status status = assignment.Control->Set(context, assignment.Value);
  if (status == 0) return;
  throw CommandError(std::string(assignment.Control->Name) + " could not be set: status " +
                     std::to_string(status));
}

}  // namespace lidcam::app
