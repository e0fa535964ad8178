#include "library/control_socket/camera_service.h"

#include <unistd.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "library/base/command_error.h"
#include "library/camera/bring_up/camera_identity.h"
#include "library/camera/source/camera_lock.h"
#include "library/control_socket/base64.h"
#include "library/control_socket/control_rows.h"
#include "library/settings/host_environment.h"
#include "library/settings/user_settings.h"

namespace lidcam::app {
namespace {

using nlohmann::json;

json ValuesOf(const OpenedCamera& opened, const std::vector<const CameraControl*>& controls) {
  json values = json::array();
  for (const CameraControl* const control : controls) {
    values.push_back({std::string(control->Name), ValueOf(opened.Camera(), *control)});
  }
  return values;
}

json Get(const ServedCamera& camera, const json& request) {
  std::vector<const CameraControl*> controls;
  for (const auto& name : request.value("names", json::array())) {
    controls.push_back(&FindControl(name.get<std::string>()));
  }
  if (controls.empty()) {
    for (const CameraControl& control : AllControls()) controls.push_back(&control);
  }
  json answer;
  camera.Run([&](OpenedCamera& opened) { answer = {{"values", ValuesOf(opened, controls)}}; });
  return answer;
}

void Set(const ServedCamera& camera, OpenedCamera& opened, const ControlAssignment& assignment,
         json& answer) {
  const ControlChange change = ChangeControl(opened, assignment);
  if (camera.Changed) {
    for (const auto& [control, value] : change.Changed) camera.Changed(*control, value);
  }
  if (!change.Trouble.empty()) answer["troubles"].push_back(change.Trouble);
  const std::string note = NoteOfEffect(opened, *assignment.Control);
  if (!note.empty()) answer["notes"].push_back(note);
}

// All are parsed before the first is set, as by lidcam set.
json SetAll(const ServedCamera& camera, const json& request) {
  RefuseControlsOfRecording(camera.Choice);
  const std::vector<ControlAssignment> assignments =
      ParseAssignments(request.at("set").get<std::vector<std::string>>());
  json answer = {{"troubles", json::array()}, {"notes", json::array()}};
  std::vector<NamedSetting> settings;
  std::u16string key;
  camera.Run([&](OpenedCamera& opened) {
    key = DriverKeyOf(opened.Device());
    std::vector<const CameraControl*> controls;
    for (const ControlAssignment& assignment : assignments) {
      Set(camera, opened, assignment, answer);
      controls.push_back(assignment.Control);
    }
    answer["values"] = ValuesOf(opened, controls);
    opened.WithContext([&](const CameraContext& context) {
      for (const CameraControl* const control : controls) {
        const std::vector<NamedSetting> changed = SettingsOf(*control, context);
        settings.insert(settings.end(), changed.begin(), changed.end());
      }
    });
  });
  KeepSettings(SettingsFileFor(SetFilesFor(camera.Choice)), key, settings);
  return answer;
}

json Controls(const ServedCamera& camera) {
  json rows;
  camera.Run([&](OpenedCamera& opened) { rows = ToJson(ReadLines(opened)); });
  return {{"controls", rows}};
}

json Still(const ServedCamera& camera, const json& request) {
  const StillPicture still = camera.Still(request.value("value", std::uint32_t{0}));
  json answer = {{"width", still.Size.Width},
                 {"height", still.Size.Height},
                 {"sizeIndex", still.SizeIndex},
                 {"value", still.Value},
                 {"yuy2", ToBase64(still.Yuy2)}};
  camera.Run([&](OpenedCamera& opened) {
    answer["identity"] = IdentityText(opened.Device());
    answer["sensor"] = SensorName(opened.SensorType());
  });
  return answer;
}

json StatusOf(const ServedCamera& camera, const ServedStatus& status) {
  json answer = {{"camera", camera.Choice.Camera}, {"unit", camera.Unit},
                 {"process", ::getpid()},          {"command", OwnCommand()},
                 {"streams", status.IsStreaming},  {"viewers", status.Viewers}};
  if (status.IsStreaming) {
    answer["size"] = ToString(status.Size);
    answer["frames"] = status.Frames;
    answer["drops"] = status.Drops;
    answer["autoExposure"] = status.IsAutoExposure;
    answer["exposure"] = status.Exposure;
    answer["light"] = status.LightState;
  }
  camera.Run([&](OpenedCamera& opened) {
    answer["identity"] = IdentityText(opened.Device());
    answer["sensor"] = SensorName(opened.SensorType());
  });
  return answer;
}

json ErrorOf(const std::string& text, bool isUsage) {
  return {{"error", text}, {"isUsage", isUsage}};
}

std::string TextOf(const json& answer) {
  return answer.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace

CameraService::CameraService(ServedCamera camera, std::function<ServedStatus()> status)
    : camera_(std::move(camera)),
      status_(std::move(status)),
      server_(camera_.Unit, [this](const std::string& line) { return Answer(line); }) {}

std::string CameraService::Answer(const std::string& line) {
  const json request = json::parse(line, nullptr, false);
  if (!request.is_object() || !request.contains("do") || !request["do"].is_string()) return {};
  const std::string what = request["do"];
  try {
    if (what == "get") return TextOf(Get(camera_, request));
    if (what == "set") return TextOf(SetAll(camera_, request));
    if (what == "controls") return TextOf(Controls(camera_));
    if (what == "still") return TextOf(Still(camera_, request));
    if (what == "status") return TextOf(StatusOf(camera_, status_()));
    return TextOf(
        ErrorOf("request '" + what + "' is unknown: get, set, controls, still or status", true));
  } catch (const UsageError& error) {
    return TextOf(ErrorOf(error.what(), true));
  } catch (const json::exception& error) {
    return TextOf(ErrorOf("request '" + what + "' is incomplete: " + error.what(), true));
  } catch (const std::exception& error) {
    return TextOf(ErrorOf(error.what(), false));
  }
}

}  // namespace lidcam::app
