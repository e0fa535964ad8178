#include "library/camera/controls/control_table.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>

#include "driver/avstream/properties/property_codes.h"
#include "driver/avstream/properties/property_ids.h"
#include "driver/avstream/properties/property_sets.h"
#include "driver/core/record/control_table.h"
#include "driver/core/settings/settings_store.h"
#include "library/base/command_error.h"
#include "platform/host/nt/system/status_words.h"

namespace lidcam::app {
namespace {

constexpr CameraControl Named(ControlCode code, std::int32_t minimum, std::int32_t maximum,
                              std::int32_t initial, std::string_view meaning) {
  const PropertyName property = PropertyOf(code);
  return {.Name = FindControl(code)->Name,
          .OlderName = {},
          .Set = property.Set,
          .Id = property.Id,
          .Part = ControlPart::Value,
          .Field = FindControl(code)->Field,
          .Minimum = minimum,
          .Maximum = maximum,
          .Default = initial,
          .Meaning = meaning,
          .IsMenu = false};
}

// A published level, whose range the driver reports.
constexpr CameraControl Level(ControlCode code, const PropertyRange& range,
                              std::string_view meaning) {
  return Named(code, range.Minimum(), range.Maximum(), range.Default(), meaning);
}

// A control of the camera's own.
constexpr CameraControl Own(ControlCode code, std::int32_t minimum, std::int32_t maximum,
                            std::string_view meaning) {
  return Named(code, minimum, maximum, DefaultOfSetting(FindControl(code)->Field), meaning);
}

constexpr CameraControl WithPart(CameraControl control, ControlPart part) {
  control.Part = part;
  return control;
}

// The other members of a control's property value.
constexpr CameraControl Beside(ControlCode code, ControlPart part, std::string_view name,
                               SettingField field, std::int32_t minimum, std::int32_t maximum,
                               std::string_view meaning) {
  CameraControl control = Named(code, minimum, maximum, DefaultOfSetting(field), meaning);
  control.Name = name;
  control.Part = part;
  control.Field = field;
  return control;
}

constexpr CameraControl AsMenu(CameraControl control) {
  control.IsMenu = true;
  return control;
}

constexpr CameraControl WithOlderName(CameraControl control, std::string_view name) {
  control.OlderName = name;
  return control;
}

// The published levels first, then the camera's own. The core's brightness step writes the previous
// value: a second set with the same value makes it take effect.
constexpr std::array kShown = {
    WithPart(Level(ControlCode::Brightness, kBrightnessRange, "added to the luminance"),
             ControlPart::Twice),
    Level(ControlCode::Contrast, kContrastRange, "10 is neutral"),
    Level(ControlCode::Saturation, kSaturationRange, "strength of the colours"),
    Level(ControlCode::Sharpness, kSharpnessRange, "edge enhancement"),
    Level(ControlCode::Gamma, kGammaRange, "lower brightens the shadows"),
    Level(ControlCode::WhiteBalanceMode, kWhiteBalanceRange,
          "reported only: the camera accepts any value and keeps its own"),
    WithOlderName(Level(ControlCode::BackLight, kBacklightRange, "1: light comes from behind"),
                  "BackLight"),
    Level(ControlCode::ColorEnable, kColorEnableRange, "0: monochrome"),
    Level(ControlCode::Exposure, kExposureRange, "by hand: turns AutoExposure off"),
    Beside(ControlCode::Exposure, ControlPart::Mode, "AutoExposure", &CameraContext::AutoExposure,
           0, 1, "1: chip or host exposes by itself"),
    Own(ControlCode::Mirror, 0, 1, "1: left and right exchanged"),
    Own(ControlCode::Vertical, 0, 1, "1: upside down"),
    AsMenu(Own(ControlCode::Flicker, 0, 2, "mains light: 0 none, 1 50 Hz, 2 60 Hz")),
    AsMenu(Own(ControlCode::Effect, 0, 5, "picture effect, 0 none")),
    WithPart(Own(ControlCode::LightAndLed, 0, 1, "1: holds the low-light registers"),
             ControlPart::Light),
    AsMenu(Beside(ControlCode::LightAndLed, ControlPart::Led, "LED", &CameraContext::LED, 2, 4,
                  "2 on, 3 off, 4 follows the light")),
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
    {"BacklightCompensation", kVga0708, {true, 0xFF49}},
    {"BacklightCompensation", kAll & ~kWidePair, {false, 0xFF64}},
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

struct EffectRow {
  std::string_view Name;
  std::uint32_t On;
};

// Controls that some sensors are not programmed for, or always in the same way. On VGA7648 the flicker setting is
// part of an exposure by hand only; on VGA0708 the LED's bit is read and never written.
constexpr EffectRow kEffects[] = {
    {"Mirror", kVga0708},
    {"Vertical", kVga0708},
    {"Exposure", kAll & ~Sensors(SensorTypeK82, SensorTypeReserved3)},
    {"AutoExposure", kAll & ~Sensors(SensorTypeK82, SensorTypeReserved3)},
    {"Flicker", kAll & ~Sensors(SensorTypeReserved3)},
    {"LED", kAll & ~kVga0708},
};

bool IsSameName(std::string_view a, std::string_view b) {
  return std::ranges::equal(
      a, b, [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

std::string NameList() {
  std::string list;
  for (const CameraControl& control : kShown) {
    if (!list.empty()) list += ", ";
    list += control.Name;
  }
  return list;
}

[[noreturn]] void Refuse(const CameraControl& control, const char* what, NTSTATUS status) {
  throw CommandError(std::string(control.Name) + " could not be " + what + ": " +
                     host::StatusText(status));
}

PrivatePropertyBlock ReadLight(const client::Camera& camera, const CameraControl& control) {
  PrivatePropertyBlock block{};
  const NTSTATUS status = camera.Properties().GetBlock(*control.Set, control.Id, block);
  if (!NT_SUCCESS(status)) Refuse(control, "read", status);
  return block;
}

// Light mode and LED share a property that takes one change at a time.
void WriteLight(const client::Camera& camera, const CameraControl& control, std::int32_t value) {
  PrivatePropertyBlock block = ReadLight(camera, control);
  if (control.Part == ControlPart::Led) {
    block.Led = static_cast<ULONG>(value);
  } else {
    block.Value = value;
  }
  const NTSTATUS status = camera.Properties().SetBlock(*control.Set, control.Id, block);
  if (!NT_SUCCESS(status)) Refuse(control, "set", status);
}

client::Level LevelFor(const client::Camera& camera, const CameraControl& control,
                       std::int32_t value) {
  constexpr ULONG kAuto = KSPROPERTY_VIDEOPROCAMP_FLAGS_AUTO;
  constexpr ULONG kManual = KSPROPERTY_VIDEOPROCAMP_FLAGS_MANUAL;
  if (control.Part != ControlPart::Mode) return {.Value = value, .Flags = kManual};
  client::Level level = camera.GetLevel(*control.Set, control.Id);
  level.Flags = value != 0 ? kAuto : kManual;
  return level;
}

bool IsLight(const CameraControl& control) {
  return control.Part == ControlPart::Light || control.Part == ControlPart::Led;
}

}  // namespace

bool CameraControl::IsTold() const {
  return Set != &PROPSETID_CAMERA_PRIVATE && Part != ControlPart::Mode;
}

ControlRange RangeOf(const client::Camera& camera, const CameraControl& control) {
  ControlRange range{control.Minimum, control.Maximum, 1, control.Default};
  if (!control.IsTold()) return range;
  const client::PropertySupport support = camera.Properties().Support(*control.Set, control.Id);
  if (support.Values) {
    range.Minimum = support.Values->Minimum;
    range.Maximum = support.Values->Maximum;
    range.Step = support.Values->Step;
  }
  if (support.Default) range.Default = *support.Default;
  return range;
}

std::int32_t ValueOf(const client::Camera& camera, const CameraControl& control) {
  if (control.Part == ControlPart::Led) {
    return static_cast<std::int32_t>(ReadLight(camera, control).Led);
  }
  try {
    const client::Level level = camera.GetLevel(*control.Set, control.Id);
    if (control.Part != ControlPart::Mode) return level.Value;
    return level.Flags == KSPROPERTY_VIDEOPROCAMP_FLAGS_AUTO ? 1 : 0;
  } catch (const client::ClientError& error) {
    Refuse(control, "read", error.Status());
  }
}

void SetValue(const client::Camera& camera, const CameraControl& control, std::int32_t value) {
  if (IsLight(control)) {
    WriteLight(camera, control, value);
    return;
  }
  try {
    const client::Level level = LevelFor(camera, control, value);
    camera.SetLevel(*control.Set, control.Id, level);
    if (control.Part == ControlPart::Twice) camera.SetLevel(*control.Set, control.Id, level);
  } catch (const client::ClientError& error) {
    Refuse(control, "set", error.Status());
  }
}

// Exposure by hand turns the automatic one off.
std::vector<NamedSetting> SettingsOf(const CameraControl& control, const CameraContext& context) {
  const SettingField exposure = &CameraContext::Exposure;
  const SettingField autoExposure = &CameraContext::AutoExposure;
  std::vector<NamedSetting> settings;
  for (const LoadedSetting& setting : kLoadedSettings) {
    const bool isChanged = setting.Field == control.Field ||
                           (control.Field == exposure && setting.Field == autoExposure);
    if (isChanged) settings.push_back({setting.Name, setting.Field.Load(context)});
  }
  return settings;
}

std::span<const CameraControl> AllControls() {
  return kShown;
}

std::optional<ControlReport> ReportOf(std::string_view name, std::int32_t sensorType) {
  for (const ReportRow& row : kReports) {
    if (row.Name == name && (row.On & (1U << sensorType)) != 0) return row.Report;
  }
  return std::nullopt;
}

bool HasEffect(std::string_view name, std::int32_t sensorType) {
  for (const EffectRow& row : kEffects) {
    if (row.Name == name) return (row.On & (1U << sensorType)) != 0;
  }
  return true;
}

const CameraControl& FindControl(const std::string& name) {
  for (const CameraControl& control : kShown) {
    if (IsSameName(control.Name, name)) return control;
    if (!control.OlderName.empty() && IsSameName(control.OlderName, name)) return control;
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

void Apply(const client::Camera& camera, const ControlAssignment& assignment) {
  SetValue(camera, *assignment.Control, assignment.Value);
}

}  // namespace lidcam::app
