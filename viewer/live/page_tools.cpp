#include <algorithm>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "library/base/command_error.h"
#include "viewer/live/messages.h"
#include "viewer/live/page.h"

namespace lidcam::viewer {
namespace {

constexpr std::size_t kMostRecordings = 4;

RegisterChip ChipOf(const std::string& name) {
  if (name == "bridge") return RegisterChip::Bridge;
  if (name == "sensor") return RegisterChip::Sensor;
  throw std::runtime_error("there is no chip '" + name + "': bridge or sensor");
}

// The numbers of registers go over the bus as 0xFF00 and more; the last one is the select register.
std::uint16_t RegisterIn(const nlohmann::json& message) {
  constexpr unsigned kFirst = 0xFF00;
  constexpr unsigned kLast = 0xFFFE;
  const auto address = message.at("address").get<unsigned>();
  if (address < kFirst || address > kLast) {
    throw std::runtime_error("register " + std::to_string(address) + " is not from 65280 to 65534");
  }
  return static_cast<std::uint16_t>(address);
}

std::optional<std::uint8_t> ValueIn(const nlohmann::json& message) {
  constexpr unsigned kMost = 0xFF;
  if (!message.contains("value")) return std::nullopt;
  const auto value = message["value"].get<unsigned>();
  if (value > kMost) throw std::runtime_error("value " + std::to_string(value) + " is above 255");
  return static_cast<std::uint8_t>(value);
}

}  // namespace

void Page::Record(const Json& message) {
  const std::size_t camera = CameraOf(message);
  if (films_.size() >= kMostRecordings) {
    throw std::runtime_error("this page records already: stop that first");
  }
  const Recordings::Started started =
      hub_.Films().Start(message.value("form", std::string("mkv")), hub_.StateOf(camera).Unit);
  films_[started.Id] = {.Camera = camera, .Recording = started.Recording};
  hub_.Camera(camera).AddRecording(started.Recording);
  hub_.BeginRecording(camera);
  hub_.Reconsider();
  Answer(message, {{"recording", started.Id}});
}

void Page::Stop(const Json& message) {
  const auto id = message.at("recording").get<std::uint64_t>();
  if (!films_.contains(id))
    throw std::runtime_error("this page has no recording " + std::to_string(id));
  Json head = Json::object();
  if (message.contains("id")) head["id"] = message["id"];
  EndRecording(id, [page = weak_from_this(), head](const Json& answer) {
    if (const auto self = page.lock()) self->Answer(head, answer);
  });
}

// A full disk is told at once, and not when the page stops the recording an hour later.
void Page::CheckRecordings() {
  std::vector<std::uint64_t> failed;
  for (const auto& [id, film] : films_) {
    if (film.Recording->HasFailed()) failed.push_back(id);
  }
  for (const std::uint64_t id : failed) {
    const Json head = {{"camera", films_.at(id).Camera}, {"recording", id}};
    EndRecording(id, [page = weak_from_this(), head](Json ended) {
      ended.update(head);
      if (const auto self = page.lock()) self->Tell(TextOf({{"recordingEnded", std::move(ended)}}));
    });
  }
}

// The file is completed on the camera's thread, which may take a second. One that nobody waits for is not kept.
void Page::EndRecording(std::uint64_t id, const std::function<void(const Json& answer)>& tell) {
  const Film film = films_.at(id);
  films_.erase(id);
  Hub& hub = hub_;
  hub.Camera(film.Camera).RemoveRecording(film.Recording);
  hub.EndRecording(film.Camera);
  hub.Reconsider();
  hub.Camera(film.Camera)
      .DoAside([recording = film.Recording] { static_cast<void>(recording->Finish()); },
               [&hub, id, tell, recording = film.Recording](const std::string&) {
                 const PictureRecording::Result result = recording->Finish();
                 if (!tell || result.Frames == 0) {
                   hub.Films().Discard(id);
                 } else {
                   hub.Films().Publish(id);
                 }
                 if (!tell) return;
                 Json answer = {{"frames", result.Frames}, {"lost", result.Lost}};
                 if (result.Frames != 0) answer["href"] = "/recordings/" + std::to_string(id);
                 if (!result.Error.empty()) {
                   answer[result.Frames == 0 ? "error" : "failure"] = result.Error;
                 }
                 tell(answer);
               });
}

void Page::Register(const Json& message) {
  Json head = Json::object();
  if (message.contains("id")) head["id"] = message["id"];
  const ViewedCamera::Done done = AnswerLater(message);
  CameraIn(message).AccessRegister(
      ChipOf(message.at("chip").get<std::string>()), RegisterIn(message), ValueIn(message),
      [page = weak_from_this(), head](std::uint8_t value) {
        if (const auto self = page.lock()) self->Answer(head, {{"value", value}});
      },
      [done](const std::string& error) {
        if (!error.empty()) done(error);
      });
}

void Page::Trace(const Json& message) {
  const std::size_t camera = CameraOf(message);
  if (message.at("on").get<bool>()) {
    traced_.insert(camera);
  } else {
    traced_.erase(camera);
  }
  hub_.Reconsider();
  Answer(message, Json::object());
}

void Page::Simulate(const Json& message) {
  ViewedCamera& camera = CameraIn(message);
  const ViewedCamera::Done done = AnswerLater(message);
  if (!hub_.StateOf(CameraOf(message)).Simulation) {
    throw std::runtime_error("only a simulated camera can be changed so");
  }
  if (message.contains("light")) {
    camera.Simulate([lux = message["light"].get<double>()](auto& panel) { panel.SetLight(lux); },
                    done);
  } else if (message.contains("mains")) {
    camera.Simulate(
        [rate = message["mains"].get<unsigned>()](auto& panel) { panel.SetMains(rate); }, done);
  } else if (message.contains("noise")) {
    camera.Simulate(
        [factor = message["noise"].get<double>()](auto& panel) { panel.SetNoise(factor); }, done);
  } else if (message.contains("scene") && message["scene"].is_null()) {
    camera.Simulate([](auto& panel) { panel.SetScene({}); }, done);
  } else if (message.value("unplug", false)) {
    camera.Unplug(done);
  } else if (message.value("plug", false)) {
    camera.Plug(done);
  } else if (message.contains("faults")) {
    camera.BeginFaults(message["faults"].get<std::string>(), done);
  } else {
    throw std::runtime_error("there is nothing in the request that can be simulated");
  }
}

void Page::Seek(const Json& message) {
  const auto length = hub_.StateOf(CameraOf(message)).Length;
  if (!length) throw std::runtime_error("only a recording has a time line");
  CameraIn(message).Seek(std::clamp(message.at("seconds").get<double>(), 0.0, *length));
  Answer(message, Json::object());
}

void Page::Play(const Json& message) {
  CameraIn(message).Play(message.at("on").get<bool>());
  Answer(message, Json::object());
}

void Page::Step(const Json& message) {
  CameraIn(message).Step();
  Answer(message, Json::object());
}

}  // namespace lidcam::viewer
