#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "driver/core/record/camera_context.h"
#include "driver/core/record/setting_field.h"
#include "library/settings/user_settings.h"
#include "platform/host/client/camera.h"

namespace lidcam::app {

/// Which part of a property's value a control is.
enum class ControlPart : std::uint8_t {
  Value,
  Twice,  ///< the value, which takes effect with the next set
  Mode,   ///< 1: automatic, 0: by hand
  Light,  ///< the value of a property that has an LED beside it
  Led,
};

/// A picture control as users name it: a property of the camera's filter.
struct CameraControl {
  std::string_view Name;
  std::string_view OlderName;  ///< accepted too; empty if there is none
  const GUID* Set;
  ULONG Id;
  ControlPart Part;
  SettingField Field;  ///< holds the value
  // The range that a command accepts. The driver reports the range of its published levels; for its
  // own controls it reports one range for all, which is useless.
  std::int32_t Minimum;
  std::int32_t Maximum;
  std::int32_t Default;
  std::string_view Meaning;
  bool IsMenu = false;  ///< each value means something of its own

  /// Whether the driver reports range and default of this control.
  [[nodiscard]] bool IsTold() const;
};

/// A control's range as the driver reports it, otherwise from the table.
struct ControlRange {
  std::int32_t Minimum;
  std::int32_t Maximum;
  std::uint32_t Step;
  std::int32_t Default;

  friend bool operator==(const ControlRange&, const ControlRange&) = default;
};

// Each throws CommandError if the camera refuses.

[[nodiscard]] ControlRange RangeOf(const client::Camera& camera, const CameraControl& control);
[[nodiscard]] std::int32_t ValueOf(const client::Camera& camera, const CameraControl& control);
void SetValue(const client::Camera& camera, const CameraControl& control, std::int32_t value);

/// The register that holds a control's value: a bridge register, or an 8-bit sensor register.
struct ControlReport {
  bool IsSensor;
  RegisterAddress Address;
};

/// The register that a control of this name changes on this sensor; nothing if it changes none, or
/// none that can be read by itself.
[[nodiscard]] std::optional<ControlReport> ReportOf(std::string_view name, std::int32_t sensorType);

/// Whether a control of this name has an effect on this sensor. The camera keeps the value in any
/// case.
[[nodiscard]] bool HasEffect(std::string_view name, std::int32_t sensorType);

/// The settings that a set of a control changes, with their present values: what persists.
[[nodiscard]] std::vector<NamedSetting> SettingsOf(const CameraControl& control,
                                                   const CameraContext& context);

/// All controls, in the order in which they are shown.
[[nodiscard]] std::span<const CameraControl> AllControls();

/// Finds a control by its name or its older one, without regard to case. Throws UsageError, listing the names.
[[nodiscard]] const CameraControl& FindControl(const std::string& name);

/// Reads "NAME=VALUE". Throws UsageError for a form, a name or a value out of range.
struct ControlAssignment {
  const CameraControl* Control;
  std::int32_t Value;
};
[[nodiscard]] ControlAssignment ParseAssignment(const std::string& text);
[[nodiscard]] std::vector<ControlAssignment> ParseAssignments(
    const std::vector<std::string>& texts);

/// As SetValue().
void Apply(const client::Camera& camera, const ControlAssignment& assignment);

}  // namespace lidcam::app
