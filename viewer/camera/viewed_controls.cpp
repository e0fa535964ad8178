#include <utility>

#include "library/base/command_error.h"
#include "viewer/camera/viewed_camera.h"

namespace lidcam::viewer {
namespace {

// A slider that moves gives many values: the last is saved.
constexpr std::chrono::milliseconds kSaveDelay{500};

}  // namespace

void ViewedCamera::SetControl(const std::string& name, std::int32_t value, Done done) {
  Do(
      [this, name, value](app::CameraSession& session) {
        session.SetControl(name, value);
        unsaved_[std::string(app::FindControl(name).Name)] = Clock::now() + kSaveDelay;
      },
      std::move(done));
}

void ViewedCamera::ResetControls(const std::string& name, Done done) {
  Do([this, name](app::CameraSession& session) { Reset(session, name); }, std::move(done));
}

// One that is refused doesn't keep the others from their defaults.
void ViewedCamera::Reset(app::CameraSession& session, const std::string& name) {
  const app::CameraControl* const only = name.empty() ? nullptr : &app::FindControl(name);
  std::string trouble;
  for (const app::SessionControl& control : session.Facts().Controls) {
    if (only != nullptr && only != control.Control) continue;
    const std::string own(control.Control->Name);
    try {
      session.ResetControl(own);
      unsaved_[own] = Clock::now() + kSaveDelay;
    } catch (const app::UsageError& error) {
      trouble = error.what();
    }
  }
  if (!trouble.empty()) throw app::UsageError(trouble);
}

void ViewedCamera::SaveControls(bool areAll) {
  const auto now = Clock::now();
  bool isChanged = false;
  for (auto entry = unsaved_.begin(); entry != unsaved_.end();) {
    if (!areAll && now < entry->second) {
      ++entry;
      continue;
    }
    Save(entry->first);
    isChanged = true;
    entry = unsaved_.erase(entry);
  }
  if (isChanged) TellControls();
}

void ViewedCamera::Save(const std::string& name) {
  if (!session_) return;
  try {
    session_->SaveControl(name);
  } catch (const std::exception& error) {
    // Also of a camera that is gone: the page shows that the value is not saved.
    state_.Error = error.what();
    return;
  }
  for (ControlState& control : state_.Controls) {
    if (control.Line.Control == &app::FindControl(name)) control.Saved = control.Line.Value;
  }
}

// Values that another process has set are saved by it.
void ViewedCamera::ReadControls() {
  std::vector<app::ControlLine> lines;
  try {
    session_->Use([&](app::OpenedCamera& opened) {
      lines = app::ReadLines(opened, app::RegisterReports::Left);
    });
  } catch (const app::CommandError&) {
    return;  // the camera is gone, which is an event of its own
  }
  std::vector<ControlState> controls;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    controls.push_back({.Line = lines[i], .Saved = lines[i].Value});
  }
  for (ControlState& control : controls) {
    for (const ControlState& before : state_.Controls) {
      const bool isOwn = unsaved_.contains(std::string(control.Line.Control->Name));
      if (before.Line.Control == control.Line.Control && isOwn) control.Saved = before.Saved;
    }
  }
  state_.Controls = std::move(controls);
  TellControls();
}

void ViewedCamera::TellControls() {
  executor_(
      [this, controls = state_.Controls] { listener_.ControlsChanged(options_.Number, controls); });
}

}  // namespace lidcam::viewer
