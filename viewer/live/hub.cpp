#include "viewer/live/hub.h"

#include <algorithm>
#include <utility>

#include "viewer/live/messages.h"

namespace lidcam::viewer {

using nlohmann::json;

Hub::Hub(Options options, const Executor& executor)
    : version_(std::move(options.Version)),
      snapshotToken_(std::move(options.SnapshotToken)),
      recordings_(std::move(options.Forms), std::move(options.MakeWriter)) {
  for (HubCamera& camera : options.Cameras) cameras_.push_back({.State = camera.State});
  for (std::size_t i = 0; i < cameras_.size(); ++i) {
    ViewedCamera::Options view{.Number = i,
                               .Session = std::move(options.Cameras[i].Session),
                               .IsOnly = cameras_.size() == 1};
    cameras_[i].View =
        std::make_unique<ViewedCamera>(std::move(view), cameras_[i].State, executor, *this);
  }
}

void Hub::Add(Watcher& watcher) {
  watchers_.insert(&watcher);
  Reconsider();
  TellViewers();
}

void Hub::Remove(Watcher& watcher) {
  if (watchers_.erase(&watcher) == 0) return;
  Reconsider();
  TellViewers();
}

void Hub::Reconsider() {
  for (std::size_t i = 0; i < cameras_.size(); ++i) {
    const bool isWanted =
        std::ranges::any_of(watchers_, [i](const Watcher* watcher) { return watcher->Wants(i); });
    if (isWanted == cameras_[i].IsWanted) continue;
    cameras_[i].IsWanted = isWanted;
    cameras_[i].View->Show(isWanted);
  }
  for (std::size_t i = 0; i < cameras_.size(); ++i) {
    cameras_[i].View->Telemetry().KeepLines(std::ranges::any_of(
        watchers_, [i](const Watcher* watcher) { return watcher->WantsTrace(i); }));
  }
}

std::vector<std::string> Hub::Hello() const {
  json cameras = json::array();
  for (std::size_t i = 0; i < cameras_.size(); ++i) cameras.push_back(ToJson(i, cameras_[i].State));
  std::vector<std::string> messages{TextOf({{"hello",
                                             {{"version", version_},
                                              {"forms", recordings_.Forms()},
                                              {"snapshotToken", snapshotToken_},
                                              {"cameras", std::move(cameras)}}}})};
  for (std::size_t i = 0; i < cameras_.size(); ++i) {
    const auto values = cameras_[i].View->Telemetry().AllRegisters();
    if (values.empty()) continue;
    messages.push_back(TextOf({{"registers", ToJson(i, values, cameras_[i].State.Sensor)}}));
  }
  return messages;
}

void Hub::CameraChanged(std::size_t camera, const CameraState& state) {
  cameras_[camera].State = state;
  TellAll(TextOf({{"camera", ToJson(camera, state)}}));
}

void Hub::ControlsChanged(std::size_t camera, const std::vector<ControlState>& controls) {
  cameras_[camera].State.Controls = controls;
  TellAll(TextOf({{"controls", {{"camera", camera}, {"rows", ToJson(controls)}}}}));
}

void Hub::PictureCame(std::size_t camera, std::shared_ptr<const Picture> picture) {
  const auto shared = std::make_shared<SharedPicture>(std::move(picture), encoder_);
  if (cameras_[camera].State.Length) {
    cameras_[camera].Position = shared->Raw().Seconds;
    cameras_[camera].Last = shared;
  }
  // One that takes its last picture leaves.
  const std::vector<Watcher*> watchers(watchers_.begin(), watchers_.end());
  for (Watcher* const watcher : watchers) {
    if (watchers_.contains(watcher) && watcher->Wants(camera)) watcher->Offer(camera, shared);
  }
}

void Hub::TellAll(const std::string& message) const {
  for (Watcher* const watcher : watchers_) watcher->Tell(message);
}

void Hub::TellViewers() {
  const auto pages =
      std::ranges::count_if(watchers_, [](const Watcher* watcher) { return watcher->IsPage(); });
  TellAll(TextOf({{"viewers", pages}}));
  std::vector<std::string> viewers;
  if (!watchers_.empty()) {
    viewers.push_back("lidcam view: " + std::to_string(watchers_.size()) +
                      (watchers_.size() == 1 ? " viewer" : " viewers"));
  }
  for (const Entry& camera : cameras_) camera.View->SetViewers(viewers);
}

}  // namespace lidcam::viewer
