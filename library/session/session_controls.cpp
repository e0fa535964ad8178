#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "library/base/command_error.h"
#include "library/camera/controls/control_lines.h"
#include "library/camera/streaming/running_still.h"
#include "library/camera/streaming/silence_watch.h"
#include "library/session/camera_session.h"
#include "library/settings/host_environment.h"
#include "library/settings/user_settings.h"

namespace lidcam::app {
namespace {

// In which the exposure settles.
constexpr std::uint64_t kSettleFrames = 30;

}  // namespace

const SessionControl& CameraSession::ControlOf(const std::string& name) const {
  const CameraControl& control = FindControl(name);
  for (const SessionControl& mine : facts_.Controls) {
    if (mine.Control == &control) return mine;
  }
  throw UsageError("camera '" + Name() + "' has no control '" + name + "'");
}

std::int32_t CameraSession::GetControl(const std::string& name) {
  const CameraControl& control = FindControl(name);
  std::int32_t value = 0;
  Use([&](OpenedCamera& opened) { value = ValueOf(opened.Camera(), control); });
  return value;
}

void CameraSession::SetControl(const std::string& name, std::int32_t value) {
  RefuseControlsOfRecording(options_.Choice);
  const ControlAssignment assignment = ParseAssignment(name + "=" + std::to_string(value));
  Use([&](OpenedCamera& opened) { Change(opened, *assignment.Control, value); });
}

void CameraSession::ResetControl(const std::string& name) {
  const SessionControl& control = ControlOf(name);
  RefuseControlsOfRecording(options_.Choice);
  Use([&](OpenedCamera& opened) { Change(opened, *control.Control, control.Range.Default); });
}

void CameraSession::Change(OpenedCamera& opened, const CameraControl& control, std::int32_t value) {
  const ControlChange change = ChangeControl(opened, {&control, value});
  for (const auto& [changed, now] : change.Changed) TellChange(*changed, now);
  if (!change.Trouble.empty()) throw UsageError(change.Trouble);
}

void CameraSession::TellChange(const CameraControl& control, std::int32_t value) {
  Tell({.Kind = SessionEventKind::Control,
        .Camera = Name(),
        .Control = control.Name,
        .Value = value,
        .Text = std::string(control.Name) + "=" + std::to_string(value)});
}

void CameraSession::SaveControl(const std::string& name) {
  const CameraControl& control = FindControl(name);
  RefuseControlsOfRecording(options_.Choice);
  std::vector<NamedSetting> settings;
  Use([&](OpenedCamera& opened) {
    opened.WithContext(
        [&](const CameraContext& context) { settings = SettingsOf(control, context); });
  });
  KeepSettings(SettingsFileFor(SetFilesFor(options_.Choice)), identityKey_, settings);
}

StillPicture CameraSession::TakeStill(std::uint32_t value) {
  RefuseOwnThread("a still can't be taken");
  StillPicture still;
  Use([&](OpenedCamera& opened) { still = TakeStillOn(opened, value); });
  return still;
}

StillPicture CameraSession::TakeStillOn(OpenedCamera& opened, std::uint32_t value) {
  const SetFiles sets = SetFilesFor(options_.Choice);
  if (current_ != nullptr) {
    return TakeStillOf(*current_, sets, value, [this] { MakeRoom(*current_); });
  }
  StillPicture still;
  StreamSetup setup = SetupOf({});
  setup.Frames = {};
  WithStreamOf(opened, setup, [&](CameraStream& stream) {
    SilenceWatch silence;
    while (stream.Counts().Delivered() < kSettleFrames && stream.Advance()) {
      silence.Check(stream.Counts(), stream.Seconds());
    }
    still = TakeStillOf(stream, sets, value);
  });
  return still;
}

// A still is of a frame that is delivered, which takes a buffer.
void CameraSession::MakeRoom(CameraStream& stream) {
  std::unique_ptr<LentFrame> oldest;
  if (!stream.HasBuffers()) {
    const std::lock_guard lock(signal_->Mutex);
    if (!ready_.empty()) {
      oldest = std::move(ready_.front());
      ready_.pop_front();
    }
  }
  oldest.reset();
  ledger_->ReturnBuffers();
  if (!stream.HasBuffers()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

// On the camera's thread, ahead of its first task.
void CameraSession::Offer() {
  service_ = std::make_unique<CameraService>(
      ServedCamera{
          .Choice = options_.Choice,
          .Unit = facts_.Unit,
          .Run = [this](const std::function<void(OpenedCamera&)>& use) { Use(use); },
          .Still = [this](std::uint32_t value) { return TakeStill(value); },
          .Changed = [this](const CameraControl& control,
                            std::int32_t value) { TellChange(control, value); },
      },
      [this] {
        const std::lock_guard lock(signal_->Mutex);
        return status_;
      });
}

void CameraSession::SetViewers(std::vector<std::string> viewers) {
  const std::lock_guard lock(signal_->Mutex);
  status_.Viewers = std::move(viewers);
}

}  // namespace lidcam::app
