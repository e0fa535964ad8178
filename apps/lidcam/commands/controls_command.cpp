#include <algorithm>
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
#include "apps/lidcam/options/running_camera.h"
#include "apps/lidcam/output/utf8_text.h"
#include "library/base/command_error.h"
#include "library/base/notices.h"
#include "library/camera/controls/control_lines.h"
#include "library/camera/controls/control_table.h"
#include "library/camera/opened_camera.h"
#include "library/control_socket/control_rows.h"

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

std::string TextOf(const nlohmann::json& row, const char* member) {
  return row.at(member).get<std::string>();
}

std::string MeaningOf(const nlohmann::json& row) {
  return (row.at("hasEffect").get<bool>() ? "" : "nothing on this sensor; elsewhere ") +
         TextOf(row, "meaning");
}

void PrintTable(const nlohmann::json& rows) {
  std::printf("%-21s %5s %5s %5s %8s %6s  %-15s  %s\n", "name", "min", "max", "step", "default",
              "value", "camera reports", "meaning");
  for (const nlohmann::json& row : rows) {
    std::printf("%-21s %5d %5d %5u %8d %6d  %-15s  %s\n", TextOf(row, "name").c_str(),
                row.at("minimum").get<int>(), row.at("maximum").get<int>(),
                row.at("step").get<unsigned>(), row.at("default").get<int>(),
                row.at("value").get<int>(), TextOf(row, "reports").c_str(), MeaningOf(row).c_str());
  }
}

void RunControls(const ControlsCommand& command) {
  nlohmann::json rows;
  RunWhereOpen(
      command.Common,
      [&](ControlClient& client) {
        rows = client.Ask({{"do", "controls"}}).at("controls");
      },
      [&] {
        WithCamera(command, [&](OpenedCamera& opened) { rows = ToJson(ReadLines(opened)); });
      });
  if (!command.Common.IsJson) {
    PrintTable(rows);
    return;
  }
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

ControlValues ReadValues(const nlohmann::json& values) {
  ControlValues controls;
  for (const nlohmann::json& pair : values) {
    controls.emplace_back(&FindControl(pair.at(0).get<std::string>()),
                          pair.at(1).get<std::int32_t>());
  }
  return controls;
}

/// The controls of these names; all controls if no name is given.
std::vector<const CameraControl*> ControlsNamed(const std::vector<std::string>& names) {
  std::vector<const CameraControl*> controls;
  controls.reserve(names.size());
  for (const std::string& name : names) controls.push_back(&FindControl(name));
  if (controls.empty()) {
    for (const CameraControl& control : AllControls()) controls.push_back(&control);
  }
  return controls;
}

void RunGet(const ControlsCommand& command) {
  const std::vector<const CameraControl*> controls = ControlsNamed(command.Names);
  ControlValues values;
  RunWhereOpen(
      command.Common,
      [&](ControlClient& client) {
        values = ReadValues(client.Ask({{"do", "get"}, {"names", command.Names}}).at("values"));
      },
      [&] {
        WithCamera(command, [&](OpenedCamera& opened) {
          for (const CameraControl* const control : controls) {
            values.emplace_back(control, ValueOf(opened.Camera(), *control));
          }
        });
      });
  PrintValues(values, command.Common.IsJson);
}

/// What a set did, wherever the camera is open.
struct SetOutcome {
  ControlValues Values;
  std::vector<std::string> Troubles;
  std::vector<std::string> Notes;
};

SetOutcome SetHere(const ControlsCommand& command,
                   const std::vector<ControlAssignment>& assignments) {
  const CameraChoice& camera = command.Common.Camera;
  const CameraLock lock(camera, command.Common.Patience());
  const RunSettings settings = OpenHostEnvironment(command.Common.Output, SetFilesFor(camera));
  SetOutcome outcome;
  WithOpenedCameraOf(camera, [&](OpenedCamera& opened) {
    for (const ControlAssignment& assignment : assignments) {
      const ControlChange change = ChangeControl(opened, assignment);
      if (!change.Trouble.empty()) outcome.Troubles.push_back(change.Trouble);
      const std::string note = NoteOfEffect(opened, *assignment.Control);
      if (!note.empty()) outcome.Notes.push_back(note);
    }
    for (const ControlAssignment& assignment : assignments) {
      outcome.Values.emplace_back(assignment.Control,
                                  ValueOf(opened.Camera(), *assignment.Control));
    }
  });
  settings.Store();
  return outcome;
}

SetOutcome SetThere(const ControlsCommand& command, ControlClient& client) {
  const nlohmann::json answer = client.Ask({{"do", "set"}, {"set", command.Names}});
  return {.Values = ReadValues(answer.at("values")),
          .Troubles = answer.at("troubles").get<std::vector<std::string>>(),
          .Notes = answer.at("notes").get<std::vector<std::string>>()};
}

void RunSet(const ControlsCommand& command) {
  RefuseControlsOfRecording(command.Common.Camera);
  // All are parsed before the first is set: an error in one leaves all unchanged.
  const std::vector<ControlAssignment> assignments = ParseAssignments(command.Names);
  SetOutcome outcome;
  RunWhereOpen(
      command.Common, [&](ControlClient& client) { outcome = SetThere(command, client); },
      [&] { outcome = SetHere(command, assignments); });
  if (!command.Common.Output.IsQuiet) {
    for (const std::string& note : outcome.Notes) TellUser(note);
  }
  PrintValues(outcome.Values, command.Common.IsJson);
  FailForTroubles(outcome.Troubles);
}

// A control that isn't named may keep a value of the camera's own.
SetOutcome ResetHere(const ControlsCommand& command) {
  const CameraChoice& camera = command.Common.Camera;
  const std::vector<const CameraControl*> controls = ControlsNamed(command.Names);
  const CameraLock lock(camera, command.Common.Patience());
  const RunSettings settings = OpenHostEnvironment(command.Common.Output, SetFilesFor(camera));
  SetOutcome outcome;
  WithOpenedCameraOf(camera, [&](OpenedCamera& opened) {
    for (const CameraControl* const control : controls) {
      const ControlChange change =
          ChangeControl(opened, {control, RangeOf(opened.Camera(), *control).Default});
      if (!change.Trouble.empty()) outcome.Troubles.push_back(change.Trouble);
    }
    for (const CameraControl* const control : controls) {
      outcome.Values.emplace_back(control, ValueOf(opened.Camera(), *control));
    }
  });
  settings.Store();
  return outcome;
}

SetOutcome ResetThere(const ControlsCommand& command, ControlClient& client) {
  const std::vector<const CameraControl*> controls = ControlsNamed(command.Names);
  ControlsCommand defaults = command;
  defaults.Names.clear();
  for (const nlohmann::json& row : client.Ask({{"do", "controls"}}).at("controls")) {
    const CameraControl& control = FindControl(TextOf(row, "name"));
    if (std::ranges::find(controls, &control) == controls.end()) continue;
    defaults.Names.push_back(TextOf(row, "name") + "=" +
                             std::to_string(row.at("default").get<int>()));
  }
  return SetThere(defaults, client);
}

void RunReset(const ControlsCommand& command) {
  RefuseControlsOfRecording(command.Common.Camera);
  SetOutcome outcome;
  RunWhereOpen(
      command.Common, [&](ControlClient& client) { outcome = ResetThere(command, client); },
      [&] { outcome = ResetHere(command); });
  PrintValues(outcome.Values, command.Common.IsJson);
  if (!command.Names.empty()) FailForTroubles(outcome.Troubles);
}

CLI::App* AddCommand(CLI::App& app, const std::shared_ptr<ControlsCommand>& command,
                     const std::string& name, const std::string& description) {
  CLI::App* const sub = app.add_subcommand(name, description);
  AddCameraOptions(*sub, command->Common);
  AddDriverOption(*sub);
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

void AddResetCommand(CLI::App& app) {
  const auto command = std::make_shared<ControlsCommand>();
  CLI::App* const sub = AddCommand(app, command, "reset",
                                   "put picture controls back to their defaults; they persist");
  sub->add_option("names", command->Names, "controls; all if none is named")->type_name("NAME");
  AddWaitOption(*sub, command->Common);
  sub->footer(
      "What the camera holds then is printed. The exit status is 1 if a named control did not "
      "take\n"
      "its default, or if one could not be stored.\n"
      "Examples:\n"
      "  lidcam reset\n"
      "  lidcam reset Brightness Contrast");
  sub->callback([command] {
    ChooseCamera(command->Common);
    RunReset(*command);
  });
}

}  // namespace lidcam::app
