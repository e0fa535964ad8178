#include "integrations/gstreamer/camera/streaming_camera.h"

#include <algorithm>

#include "integrations/gstreamer/camera/frame_buffers.h"

namespace lidcam::gstreamer {
namespace {

using Clock = std::chrono::steady_clock;

/// A camera that was plugged in can be opened when the system has set its permissions.
constexpr std::chrono::milliseconds kRetryInterval{250};

Clock::time_point LimitFromNow(std::int64_t nanoseconds) {
  return nanoseconds < 0 ? Clock::time_point::max()
                         : Clock::now() + std::chrono::nanoseconds(nanoseconds);
}

}  // namespace

lidcam_status StreamingCamera::Open(const char* address, const char* faults) {
  return OpenAt(address, faults);
}

lidcam_status StreamingCamera::OpenAt(const char* address, const char* faults) {
  lidcam_open_options options = LIDCAM_OPEN_OPTIONS_INIT;
  options.faults = faults;
  lidcam_camera* camera = nullptr;
  const lidcam_status status = lidcam_open(address, &options, &camera);
  if (status < 0) return status;
  {
    const std::scoped_lock lock(events_);
    isBack_ = false;
    address_ = lidcam_camera_get_info(camera)->address;
  }
  {
    const std::unique_lock lock(handle_);
    camera_ = camera;
  }
  ApplyControls();
  ApplyViewers();
  return lidcam_set_event_handler(
      camera,
      [](lidcam_camera*, const lidcam_event* event, void* session) {
        static_cast<StreamingCamera*>(session)->TakeEvent(*event);
      },
      this);
}

void StreamingCamera::Close() {
  lidcam_camera* camera = With([](lidcam_camera* open) {
    // A handler that runs may use the camera, so nothing may be locked exclusively yet.
    if (open != nullptr) lidcam_set_event_handler(open, nullptr, nullptr);
    return open;
  });
  {
    const std::unique_lock lock(handle_);
    camera_ = nullptr;
  }
  {
    const std::scoped_lock lock(stream_);
    running_.reset();
  }
  lidcam_close(camera);
}

lidcam_status StreamingCamera::StartStream(const StreamFormat& format) {
  const std::scoped_lock lock(stream_);
  if (IsInterrupted()) return LIDCAM_END;
  if (running_ == format) return LIDCAM_OK;
  return With([&](lidcam_camera* camera) {
    lidcam_stop(camera);
    running_.reset();
    lidcam_stream_options options = LIDCAM_STREAM_OPTIONS_INIT;
    options.width = format.Width;
    options.height = format.Height;
    options.frame_interval = format.Interval;
    options.buffers = FrameBuffers::kCameraBuffers;
    const lidcam_status status = lidcam_start(camera, &options);
    if (status < 0) return status;
    running_ = format;
    isNew_ = true;
    return LIDCAM_OK;
  });
}

void StreamingCamera::StopStream() {
  const std::scoped_lock lock(stream_);
  running_.reset();
  With([](lidcam_camera* camera) {
    if (camera != nullptr) lidcam_stop(camera);
  });
}

lidcam_status StreamingCamera::Next(const StreamFormat& format, const lidcam_frame** frame,
                                    bool* isNew) {
  if (const lidcam_status started = StartStream(format); started != LIDCAM_OK) return started;
  const lidcam_status status =
      With([&](lidcam_camera* camera) { return lidcam_next_frame(camera, -1, frame); });
  if (status == LIDCAM_OK) {
    *isNew = std::exchange(isNew_, false);
  } else if (status < 0) {
    const std::scoped_lock lock(stream_);
    running_.reset();
  }
  return status;
}

lidcam_status StreamingCamera::WaitForReturn(std::int64_t limit) {
  const Clock::time_point until = LimitFromNow(limit);
  if (!WaitForPlug(until)) return IsInterrupted() ? LIDCAM_END : LIDCAM_TIMEOUT;
  std::string address;
  {
    const std::scoped_lock lock(events_);
    address = address_;
  }
  Close();
  while (OpenAt(address.c_str(), nullptr) < 0) {
    if (!Pause(until)) return IsInterrupted() ? LIDCAM_END : LIDCAM_TIMEOUT;
  }
  return LIDCAM_OK;
}

/// @return whether the camera is plugged in again, before the time is over and without an interrupt
bool StreamingCamera::WaitForPlug(Clock::time_point until) {
  std::unique_lock lock(events_);
  const auto isOver = [this] { return isBack_ || isInterrupted_; };
  if (until == Clock::time_point::max()) {
    happened_.wait(lock, isOver);
  } else {
    happened_.wait_until(lock, until, isOver);
  }
  return isBack_ && !isInterrupted_;
}

/// @return whether another attempt may follow
bool StreamingCamera::Pause(Clock::time_point until) {
  std::unique_lock lock(events_);
  happened_.wait_for(lock, kRetryInterval, [this] { return isInterrupted_; });
  return !isInterrupted_ && Clock::now() < until;
}

void StreamingCamera::Interrupt() {
  {
    const std::scoped_lock lock(events_);
    isInterrupted_ = true;
  }
  happened_.notify_all();
  StopStream();
}

void StreamingCamera::Resume() {
  const std::scoped_lock lock(events_);
  isInterrupted_ = false;
}

bool StreamingCamera::IsInterrupted() const {
  const std::scoped_lock lock(events_);
  return isInterrupted_;
}

void StreamingCamera::SetViewers(std::vector<std::string> viewers) {
  {
    const std::scoped_lock lock(wanted_);
    viewers_ = std::move(viewers);
  }
  ApplyViewers();
}

void StreamingCamera::ApplyViewers() {
  // One change at a time, so that the last one holds.
  const std::scoped_lock lock(wanted_);
  std::vector<const char*> texts;
  for (const std::string& viewer : viewers_) texts.push_back(viewer.c_str());
  texts.push_back(nullptr);
  With([&](lidcam_camera* camera) {
    if (camera != nullptr) lidcam_set_viewers(camera, texts.data());
  });
}

lidcam_status StreamingCamera::SetControl(const char* name, std::int32_t value) {
  {
    const std::scoped_lock lock(wanted_);
    std::erase_if(controls_, [&](const auto& control) { return control.first == name; });
    controls_.emplace_back(name, value);
  }
  return With([&](lidcam_camera* camera) {
    return camera == nullptr ? LIDCAM_OK : lidcam_control_set(camera, name, value);
  });
}

std::optional<std::int32_t> StreamingCamera::Control(const char* name) const {
  std::int32_t value = 0;
  const bool isRead = With([&](lidcam_camera* camera) {
    return camera != nullptr && lidcam_control_get(camera, name, &value) == LIDCAM_OK;
  });
  if (isRead) return value;
  const std::scoped_lock lock(wanted_);
  const auto found =
      std::ranges::find(controls_, name, &std::pair<std::string, std::int32_t>::first);
  if (found == controls_.end()) return std::nullopt;
  return found->second;
}

void StreamingCamera::ApplyControls() {
  std::vector<std::pair<std::string, std::int32_t>> controls;
  {
    const std::scoped_lock lock(wanted_);
    controls = controls_;
  }
  With([&](lidcam_camera* camera) {
    for (const auto& [name, value] : controls) lidcam_control_set(camera, name.c_str(), value);
  });
}

void StreamingCamera::TakeEvent(const lidcam_event& event) {
  if (event.kind == LIDCAM_EVENT_CONTROL) return changed_(event.control, user_);
  if (event.kind != LIDCAM_EVENT_REPLUGGED) return;
  {
    const std::scoped_lock lock(events_);
    isBack_ = true;
    address_ = event.address;
  }
  happened_.notify_all();
}

}  // namespace lidcam::gstreamer
