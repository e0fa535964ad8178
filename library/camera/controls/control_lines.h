#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "library/camera/controls/control_table.h"
#include "library/camera/opened_camera.h"

namespace lidcam::app {

/// What there is to know of a control of an open camera.
struct ControlLine {
  const CameraControl* Control;
  ControlRange Range;
  std::int32_t Value;
  std::string
      Reports;  ///< its register as the camera reads it back now: "bridge FF0F=10"; "-" if it was not read
  bool HasEffect;  ///< on this sensor
};

/// Whether a control's register is read back, which takes the registers from the exposure control for that time.
enum class RegisterReports : std::uint8_t { Read, Left };

/// All controls in the order in which they are shown. Throws CommandError.
[[nodiscard]] std::vector<ControlLine> ReadLines(const OpenedCamera& opened,
                                                 RegisterReports reports = RegisterReports::Read);

/// What a set of a control did.
struct ControlChange {
  std::vector<std::pair<const CameraControl*, std::int32_t>>
      Changed{};  ///< controls with other values now
  std::string
      Trouble{};  ///< empty if the camera has the value now: it may accept a setting without changing it
};

/// Sets a control, and compares all of them with before: exposure by hand turns the automatic one off. Throws
/// CommandError.
[[nodiscard]] ControlChange ChangeControl(const OpenedCamera& opened,
                                          const ControlAssignment& assignment);

/// What the user is told of a control without effect on this camera; empty if it has one.
[[nodiscard]] std::string NoteOfEffect(const OpenedCamera& opened, const CameraControl& control);

}  // namespace lidcam::app
