#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "driver/core/camera_context.h"

namespace lidcam::app {

/// A picture control as users name it.
struct CameraControl {
  std::string_view Name;
  std::int32_t Minimum;
  std::int32_t Maximum;
  std::int32_t Default;  ///< without stored settings
  std::string_view Meaning;
  std::int32_t (*Get)(CameraContext& context);
  Status (*Set)(CameraContext& context, std::int32_t value);
};

/// Where a control's value shows in the hardware: a bridge register, or an 8-bit sensor register.
struct ControlReport {
  bool IsSensor;
  RegisterAddress Address;
};

/// The register that a control of this name moves on this sensor; nothing where it moves none, or
/// none that can be read by itself.
[[nodiscard]] std::optional<ControlReport> ReportOf(std::string_view name, std::int32_t sensorType);

/// All controls, in the order in which they are shown. The step of each is 1.
[[nodiscard]] std::span<const CameraControl> AllControls();

/// Finds a control by its name, without regard to case. Throws UsageError, listing the names.
[[nodiscard]] const CameraControl& FindControl(const std::string& name);

/// Reads "NAME=VALUE". Throws UsageError for a form, a name or a value out of range.
struct ControlAssignment {
  const CameraControl* Control;
  std::int32_t Value;
};
[[nodiscard]] ControlAssignment ParseAssignment(const std::string& text);
[[nodiscard]] std::vector<ControlAssignment> ParseAssignments(
    const std::vector<std::string>& texts);

/// Sets the control. Throws CommandError if the camera refuses.
void Apply(CameraContext& context, const ControlAssignment& assignment);

}  // namespace lidcam::app
