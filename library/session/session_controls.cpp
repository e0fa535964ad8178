#include <array>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "library/base/command_error.h"
#include "library/camera/still_request.h"
#include "library/session/camera_session.h"
#include "library/session/environment_turn.h"
#include "library/settings/host_environment.h"
#include "library/settings/user_settings.h"
#include "library/still/still_file.h"

namespace lidcam::app {
namespace {

// In which the exposure settles.
constexpr std::uint64_t kSettleFrames = 30;

// Of a camera that sends: its slowest setting takes under a second a frame.
constexpr double kLongestStill = 10;

std::vector<std::int32_t> ValuesOf(const OpenedCamera& opened) {
  std::vector<std::int32_t> values;
  for (const CameraControl& control : AllControls()) {
    values.push_back(ValueOf(opened.Camera(), control));
  }
  return values;
}

}  // namespace

const SessionControl& CameraSession::ControlOf(const std::string& name) const {
  const CameraControl& control = FindControl(name);
  for (const SessionControl& mine : facts_.Controls) {
    if (mine.Control == &control) return mine;
  }
  throw UsageError("control '" + name + "' is none of camera '" + Name() + "'");
}

std::int32_t CameraSession::GetControl(const std::string& name) {
  const CameraControl& control = FindControl(name);
  std::int32_t value = 0;
  WithCamera([&](OpenedCamera& opened) { value = ValueOf(opened.Camera(), control); });
  return value;
}

void CameraSession::SetControl(const std::string& name, std::int32_t value) {
  RefuseControlsOfRecording(options_.Choice);
  const ControlAssignment assignment = ParseAssignment(name + "=" + std::to_string(value));
  WithCamera([&](OpenedCamera& opened) { Change(opened, *assignment.Control, value); });
}

void CameraSession::ResetControl(const std::string& name) {
  const SessionControl& control = ControlOf(name);
  RefuseControlsOfRecording(options_.Choice);
  WithCamera(
      [&](OpenedCamera& opened) { Change(opened, *control.Control, control.Range.Default); });
}

// A set may change other controls, too: exposure by hand turns the automatic one off.
void CameraSession::Change(OpenedCamera& opened, const CameraControl& control, std::int32_t value) {
  const std::vector<std::int32_t> before = ValuesOf(opened);
  SetValue(opened.Camera(), control, value);
  const std::vector<std::int32_t> after = ValuesOf(opened);
  for (std::size_t i = 0; i < after.size(); ++i) {
    if (after[i] == before[i]) continue;
    const std::string_view name = AllControls()[i].Name;
    Tell({.Kind = SessionEventKind::Control,
          .Camera = Name(),
          .Control = name,
          .Value = after[i],
          .Text = std::string(name) + "=" + std::to_string(after[i])});
  }
  const std::int32_t now = ValueOf(opened.Camera(), control);
  if (now == value) return;
  throw UsageError(std::string(control.Name) + " stays " + std::to_string(now) +
                   ": the camera took " + std::to_string(value) + " and kept its own");
}

void CameraSession::SaveControl(const std::string& name) {
  const CameraControl& control = FindControl(name);
  RefuseControlsOfRecording(options_.Choice);
  std::vector<NamedSetting> settings;
  WithCamera([&](OpenedCamera& opened) {
    opened.WithContext(
        [&](const CameraContext& context) { settings = SettingsOf(control, context); });
  });
  KeepSettings(SettingsFileFor(SetFilesFor(options_.Choice)), identityKey_, settings);
}

StillPicture CameraSession::TakeStill() {
  RefuseOwnThread("a still can't be taken");
  StillPicture still;
  WithCamera([&](OpenedCamera& opened) { still = TakeStillOn(opened); });
  return still;
}

StillPicture CameraSession::TakeStillOn(OpenedCamera& opened) {
  constexpr std::uint32_t kValue = 0;
  const EnvironmentTurn turn;
  UseSystemRoot(SetFilesFor(options_.Choice));
  const StillLock lock(HomeFolder());
  ClearStillFile();
  const StillReport report;
  const auto take = [&](CameraStream& stream) {
    AskForStill(opened, kValue);
    const double end = stream.Seconds() + kLongestStill;
    while (!report.Status()) AdvanceForStill(stream, end);
  };
  if (current_ != nullptr) {
    take(*current_);
  } else {
    StreamSetup setup = SetupOf({});
    setup.Frames = {};
    WithStreamOf(opened, setup, [&](CameraStream& stream) {
      while (stream.Counts().Delivered() < kSettleFrames) AdvanceForStill(stream, kLongestStill);
      take(stream);
    });
  }
  report.RequireWritten();
  return ReadStillFile(kValue);
}

// The still is of a frame that is delivered, which takes a buffer.
void CameraSession::AdvanceForStill(CameraStream& stream, double end) {
  std::unique_ptr<LentFrame> oldest;
  if (!stream.HasBuffers()) {
    const std::lock_guard lock(signal_->Mutex);
    if (!ready_.empty()) {
      oldest = std::move(ready_.front());
      ready_.pop_front();
    }
  }
  oldest.reset();
  if (ledger_ != nullptr) ledger_->ReturnBuffers();
  if (!stream.HasBuffers()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  if (stream.Seconds() > end) {
    throw CommandError("camera '" + Name() + "' gave no frame for the still");
  }
  if (!stream.Advance()) {
    throw CommandError("camera '" + Name() + "' ended before the still");
  }
}

}  // namespace lidcam::app
