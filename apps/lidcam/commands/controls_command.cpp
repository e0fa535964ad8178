#include <cstdio>
#include <functional>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/options/common_options.h"
#include "apps/lidcam/output/utf8_text.h"
#include "driver/sensor/registers/register_access.h"
#include "library/base/command_error.h"
#include "library/camera/controls/control_table.h"
#include "library/camera/core_camera.h"
#include "library/camera/opened_camera.h"

namespace lidcam::app {
namespace {

struct ControlsCommand {
  CommonOptions Common;
  std::vector<std::string> Names;  ///< names, or NAME=VALUE for set
};

void WithCamera(const ControlsCommand& command,
                const std::function<void(OpenedCamera& opened)>& use) {
  OpenHostEnvironment(command.Common.Output, SetFilesFor(command.Common.Camera));
  WithOpenedCameraOf(command.Common.Camera, use);
}

// The control's value in the hardware, read back now. The driver's own register property reads
// under the current register select, which an application doesn't know.
std::string ReadReport(const OpenedCamera& opened, const CameraControl& control) {
  const auto report = ReportOf(control.Name, opened.SensorType());
  if (!report) return "-";
  std::optional<std::uint8_t> answer;
  opened.WithContext([&](CameraContext& context) {
    std::uint8_t value = 0;
    const Status status = report->IsSensor ? ReadSensorRegister(context, report->Address, value)
                                           : ReadBridgeRegister(context, report->Address, value);
    if (status == 0) answer = value;
  });
  if (!answer) return "no answer";
  char text[24];
  std::snprintf(text, sizeof(text), "%s %04X=%02X", report->IsSensor ? "sensor" : "bridge",
                unsigned{report->Address}, unsigned{*answer});
  return text;
}

struct ControlLine {
  const CameraControl* Control;
  ControlRange Range;
  std::int32_t Value;
  std::string Reports;
  bool HasEffect;  ///< on this sensor
};

std::vector<ControlLine> ReadLines(const OpenedCamera& opened) {
  std::vector<ControlLine> lines;
  for (const CameraControl& control : AllControls()) {
    lines.push_back({&control, RangeOf(opened.Camera(), control), ValueOf(opened.Camera(), control),
                     ReadReport(opened, control), HasEffect(control.Name, opened.SensorType())});
  }
  return lines;
}

nlohmann::json ToJson(const ControlLine& line) {
  return {{"name", std::string(line.Control->Name)},
          {"minimum", line.Range.Minimum},
          {"maximum", line.Range.Maximum},
          {"step", line.Range.Step},
          {"default", line.Range.Default},
          {"value", line.Value},
          {"reports", line.Reports},
          {"hasEffect", line.HasEffect},
          {"meaning", std::string(line.Control->Meaning)}};
}

std::string MeaningOf(const ControlLine& line) {
  return (line.HasEffect ? "" : "nothing on this sensor; elsewhere ") +
         std::string(line.Control->Meaning);
}

void PrintTable(const std::vector<ControlLine>& lines) {
  std::printf("%-21s %5s %5s %5s %8s %6s  %-15s  %s\n", "name", "min", "max", "step", "default",
              "value", "camera reports", "meaning");
  for (const ControlLine& line : lines) {
    std::printf("%-21s %5d %5d %5u %8d %6d  %-15s  %s\n", std::string(line.Control->Name).c_str(),
                line.Range.Minimum, line.Range.Maximum, line.Range.Step, line.Range.Default,
                line.Value, line.Reports.c_str(), MeaningOf(line).c_str());
  }
}

void RunControls(const ControlsCommand& command) {
  std::vector<ControlLine> lines;
  WithCamera(command, [&](OpenedCamera& opened) { lines = ReadLines(opened); });
  if (!command.Common.IsJson) {
    PrintTable(lines);
    return;
  }
  nlohmann::json rows = nlohmann::json::array();
  for (const ControlLine& line : lines) rows.push_back(ToJson(line));
  std::cout << JsonText(rows) << std::endl;
}

using ControlValues = std::vector<std::pair<const CameraControl*, std::int32_t>>;

void PrintValues(const ControlValues& controls, bool isJson) {
  nlohmann::json values;
  for (const auto& [control, value] : controls) {
    values[std::string(control->Name)] = value;
    if (!isJson) std::printf("%s=%d\n", std::string(control->Name).c_str(), value);
  }
  if (isJson) std::cout << JsonText(values) << std::endl;
}

void RunGet(const ControlsCommand& command) {
  std::vector<const CameraControl*> controls;
  for (const std::string& name : command.Names) controls.push_back(&FindControl(name));
  if (controls.empty()) {
    for (const CameraControl& control : AllControls()) controls.push_back(&control);
  }
  ControlValues values;
  WithCamera(command, [&](OpenedCamera& opened) {
    for (const CameraControl* const control : controls) {
      values.emplace_back(control, ValueOf(opened.Camera(), *control));
    }
  });
  PrintValues(values, command.Common.IsJson);
}

// Empty if the camera has the value now: it may accept a setting without changing it.
std::string WhyNotTaken(const OpenedCamera& opened, const ControlAssignment& assignment) {
  const std::int32_t value = ValueOf(opened.Camera(), *assignment.Control);
  if (value == assignment.Value) return {};
  return std::string(assignment.Control->Name) + " stays " + std::to_string(value) +
         ": the camera took " + std::to_string(assignment.Value) + " and kept its own";
}

void TellWithoutEffect(const OpenedCamera& opened, const CameraControl& control) {
  if (HasEffect(control.Name, opened.SensorType())) return;
  std::fprintf(stderr,
               "lidcam: %s does nothing on this camera, whose sensor is %s: the value is kept, and "
               "nothing changes\n",
               std::string(control.Name).c_str(),
               std::string(SensorName(opened.SensorType())).c_str());
}

void RunSet(const ControlsCommand& command) {
  const CameraChoice& camera = command.Common.Camera;
  RefuseControlsOfRecording(camera);
  // All are parsed before the first is set: an error in one leaves all unchanged.
  const std::vector<ControlAssignment> assignments = ParseAssignments(command.Names);
  const CameraLock lock(camera, command.Common.Patience());
  const RunSettings settings = OpenHostEnvironment(command.Common.Output, SetFilesFor(camera));
  ControlValues values;
  std::vector<std::string> troubles;
  WithOpenedCameraOf(camera, [&](OpenedCamera& opened) {
    for (const ControlAssignment& assignment : assignments) {
      Apply(opened.Camera(), assignment);
      const std::string reason = WhyNotTaken(opened, assignment);
      if (!reason.empty()) troubles.push_back(reason);
      if (!command.Common.Output.IsQuiet) TellWithoutEffect(opened, *assignment.Control);
    }
    for (const ControlAssignment& assignment : assignments) {
      values.emplace_back(assignment.Control, ValueOf(opened.Camera(), *assignment.Control));
    }
  });
  settings.Store();
  PrintValues(values, command.Common.IsJson);
  FailForTroubles(troubles);
}

CLI::App* AddCommand(CLI::App& app, const std::shared_ptr<ControlsCommand>& command,
                     const std::string& name, const std::string& description) {
  CLI::App* const sub = app.add_subcommand(name, description);
  AddCameraOptions(*sub, command->Common);
  AddOutputOptions(*sub, command->Common);
  return sub;
}

}  // namespace

void AddControlsCommand(CLI::App& app) {
  const auto command = std::make_shared<ControlsCommand>();
  CLI::App* const sub =
      AddCommand(app, command, "controls", "picture controls: range, default, value, register");
  sub->footer(
      "Range and default of the published controls are those that the driver reports\n"
      "applications. A camera without stored settings starts with values of its own, a few\n"
      "of which differ. For its private controls, Mirror to LED, the driver reports one range\n"
      "for all, 0 to 500: what is shown here is what each takes.\n"
      "Example:\n"
      "  lidcam controls --camera sim:1af0:6010");
  sub->callback([command] {
    ChooseCamera(command->Common);
    RunControls(*command);
  });
}

void AddGetCommand(CLI::App& app) {
  const auto command = std::make_shared<ControlsCommand>();
  CLI::App* const sub = AddCommand(app, command, "get", "values of picture controls");
  sub->add_option("names", command->Names, "controls; all if none is named")->type_name("NAME");
  sub->footer(
      "Example:\n"
      "  lidcam get Brightness Contrast");
  sub->callback([command] {
    ChooseCamera(command->Common);
    RunGet(*command);
  });
}

void AddSetCommand(CLI::App& app) {
  const auto command = std::make_shared<ControlsCommand>();
  CLI::App* const sub = AddCommand(app, command, "set", "change picture controls; they persist");
  sub->add_option("assignments", command->Names, "NAME=VALUE")->type_name("NAME=VALUE")->required();
  AddWaitOption(*sub, command->Common);
  sub->footer(
      "Names and ranges are those of lidcam controls. What the camera holds is printed. The\n"
      "exit status is 1 if a value was not taken or could not be stored.\n"
      "Example:\n"
      "  lidcam set Contrast=12 Mirror=1");
  sub->callback([command] {
    ChooseCamera(command->Common);
    RunSet(*command);
  });
}

}  // namespace lidcam::app
