#include "library/camera/controls/control_lines.h"

#include <cstdio>
#include <optional>

#include "library/camera/bring_up/camera_identity.h"
#include "library/camera/controls/register_reading.h"
#include "testbed/installed_driver.h"

namespace lidcam::app {
namespace {

// The control's value in the hardware, read back now. The driver's own register property reads
// under the current register select, which an application doesn't know.
std::string ReadReport(const OpenedCamera& opened, const CameraControl& control) {
  const auto report = ReportOf(control.Name, opened.SensorType());
  if (!report || testbed::IsDriverOfImage()) return "-";
  std::optional<std::uint8_t> answer;
  const Chip chip = report->IsSensor ? Chip::Sensor : Chip::Bridge;
  opened.WithContext([&](CameraContext& context) {
    answer = ReadRegisterOfStream(context, chip, report->Address);
  });
  if (!answer) return "no answer";
  char text[24];
  std::snprintf(text, sizeof(text), "%s %04X=%02X", report->IsSensor ? "sensor" : "bridge",
                unsigned{report->Address}, unsigned{*answer});
  return text;
}

std::vector<std::int32_t> ValuesOf(const OpenedCamera& opened) {
  std::vector<std::int32_t> values;
  for (const CameraControl& control : AllControls()) {
    values.push_back(ValueOf(opened.Camera(), control));
  }
  return values;
}

// Empty if the camera has the value now: it may accept a setting without changing it.
std::string WhyNotTaken(const OpenedCamera& opened, const ControlAssignment& assignment) {
  const std::int32_t value = ValueOf(opened.Camera(), *assignment.Control);
  if (value == assignment.Value) return {};
  return std::string(assignment.Control->Name) + " stays " + std::to_string(value) +
         ": the camera took " + std::to_string(assignment.Value) + " and kept its own";
}

}  // namespace

std::vector<ControlLine> ReadLines(const OpenedCamera& opened, RegisterReports reports) {
  std::vector<ControlLine> lines;
  for (const CameraControl& control : AllControls()) {
    lines.push_back({&control, RangeOf(opened.Camera(), control), ValueOf(opened.Camera(), control),
                     reports == RegisterReports::Read ? ReadReport(opened, control) : "-",
                     HasEffect(control.Name, opened.SensorType())});
  }
  return lines;
}

ControlChange ChangeControl(const OpenedCamera& opened, const ControlAssignment& assignment) {
  const std::vector<std::int32_t> before = ValuesOf(opened);
  Apply(opened.Camera(), assignment);
  const std::vector<std::int32_t> after = ValuesOf(opened);
  ControlChange change;
  for (std::size_t i = 0; i < after.size(); ++i) {
    if (after[i] != before[i]) change.Changed.emplace_back(&AllControls()[i], after[i]);
  }
  change.Trouble = WhyNotTaken(opened, assignment);
  return change;
}

std::string NoteOfEffect(const OpenedCamera& opened, const CameraControl& control) {
  if (HasEffect(control.Name, opened.SensorType())) return {};
  return std::string(control.Name) + " does nothing on this camera, whose sensor is " +
         std::string(SensorName(opened.SensorType())) + ": the value is kept, and nothing changes";
}

}  // namespace lidcam::app
