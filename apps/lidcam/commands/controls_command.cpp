#include <cstdio>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/commands/common_options.h"
#include "apps/lidcam/control_table.h"
#include "apps/lidcam/core_camera.h"
#include "driver/sensor/register_access.h"

namespace lidcam::app {
namespace {

struct ControlsCommand {
  CommonOptions Common;
  std::vector<std::string> Names;  ///< names, or NAME=VALUE for set
};

std::unique_ptr<bus::UsbBus> OpenBus(const ControlsCommand& command) {
  OpenHostEnvironment(command.Common.Output, SetFilesFor(command.Common.Camera));
  CameraChoice choice = command.Common.Camera;
  choice.IsFast = true;
  return OpenCamera(choice);
}

// What the hardware holds of a control, read back now.
std::string ReadReport(CoreCamera& camera, const CameraControl& control) {
  CameraContext& context = camera.Context();
  const auto report = ReportOf(control.Name, context.SensorType);
  if (!report) return "-";
  std::uint8_t value = 0;
  const Status status = report->IsSensor ? ReadSensorRegister(context, report->Address, value)
                                         : ReadBridgeRegister(context, report->Address, value);
  if (status != 0) return "no answer";
  char text[24];
  std::snprintf(text, sizeof(text), "%s %04X=%02X", report->IsSensor ? "sensor" : "bridge",
                unsigned{report->Address}, unsigned{value});
  return text;
}

nlohmann::json ToJson(CoreCamera& camera, const CameraControl& control) {
  return {{"name", std::string(control.Name)},
          {"minimum", control.Minimum},
          {"maximum", control.Maximum},
          {"step", 1},
          {"default", control.Default},
          {"value", control.Get(camera.Context())},
          {"reports", ReadReport(camera, control)},
          {"meaning", std::string(control.Meaning)}};
}

void PrintTable(CoreCamera& camera) {
  std::printf("%-13s %5s %5s %5s %8s %6s  %-15s  %s\n", "name", "min", "max", "step", "default",
              "value", "camera reports", "meaning");
  for (const CameraControl& control : AllControls()) {
    std::printf("%-13s %5d %5d %5d %8d %6d  %-15s  %s\n", std::string(control.Name).c_str(),
                control.Minimum, control.Maximum, 1, control.Default, control.Get(camera.Context()),
                ReadReport(camera, control).c_str(), std::string(control.Meaning).c_str());
  }
}

void RunControls(const ControlsCommand& command) {
  const std::unique_ptr<bus::UsbBus> bus = OpenBus(command);
  CoreCamera camera(*bus);
  if (!command.Common.IsJson) {
    PrintTable(camera);
    return;
  }
  nlohmann::json rows = nlohmann::json::array();
  for (const CameraControl& control : AllControls()) rows.push_back(ToJson(camera, control));
  std::cout << rows.dump(2) << std::endl;
}

void PrintValues(CoreCamera& camera, const std::vector<const CameraControl*>& controls,
                 bool isJson) {
  nlohmann::json values;
  for (const CameraControl* const control : controls) {
    const std::int32_t value = control->Get(camera.Context());
    values[std::string(control->Name)] = value;
    if (!isJson) std::printf("%s=%d\n", std::string(control->Name).c_str(), value);
  }
  if (isJson) std::cout << values.dump(2) << std::endl;
}

void RunGet(const ControlsCommand& command) {
  std::vector<const CameraControl*> controls;
  for (const std::string& name : command.Names) controls.push_back(&FindControl(name));
  if (controls.empty()) {
    for (const CameraControl& control : AllControls()) controls.push_back(&control);
  }
  const std::unique_ptr<bus::UsbBus> bus = OpenBus(command);
  CoreCamera camera(*bus);
  PrintValues(camera, controls, command.Common.IsJson);
}

void RunSet(const ControlsCommand& command) {
  // All are read before the first is set: a mistake in one changes nothing.
  const std::vector<ControlAssignment> assignments = ParseAssignments(command.Names);
  const std::unique_ptr<bus::UsbBus> bus = OpenBus(command);
  CoreCamera camera(*bus);
  std::vector<const CameraControl*> controls;
  for (const ControlAssignment& assignment : assignments) {
    Apply(camera.Context(), assignment);
    controls.push_back(assignment.Control);
  }
  PrintValues(camera, controls, command.Common.IsJson);
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
      "Example:\n"
      "  lidcam controls --camera sim:1af0:6010");
  sub->callback([command] { RunControls(*command); });
}

void AddGetCommand(CLI::App& app) {
  const auto command = std::make_shared<ControlsCommand>();
  CLI::App* const sub = AddCommand(app, command, "get", "values of picture controls");
  sub->add_option("names", command->Names, "controls; all if none is named")->type_name("NAME");
  sub->footer(
      "Example:\n"
      "  lidcam get Brightness Contrast");
  sub->callback([command] { RunGet(*command); });
}

void AddSetCommand(CLI::App& app) {
  const auto command = std::make_shared<ControlsCommand>();
  CLI::App* const sub = AddCommand(app, command, "set", "change picture controls; they persist");
  sub->add_option("assignments", command->Names, "NAME=VALUE")->type_name("NAME=VALUE")->required();
  sub->footer(
      "Example:\n"
      "  lidcam set Contrast=12 Mirror=1");
  sub->callback([command] { RunSet(*command); });
}

}  // namespace lidcam::app
