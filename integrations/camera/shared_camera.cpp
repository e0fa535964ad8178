#include "integrations/camera/shared_camera.h"

#include <ctime>
#include <utility>

#include "integrations/camera/library_calls.h"
#include "integrations/camera/notice_picture.h"

namespace lidcam::integrations {
namespace {

constexpr std::int32_t kFrameWait = 100;  // ms; orders are looked at between two waits
constexpr std::chrono::milliseconds kNoticeInterval{200};
constexpr std::chrono::seconds kRetryInterval{1};

constexpr std::string_view kUnplugged = "camera unplugged";
constexpr std::string_view kInUse = "camera in use";
constexpr std::string_view kUnavailable = "camera unavailable";

std::int64_t MonotonicNow() {
  constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kNanosecondsPerSecond + now.tv_nsec;
}

std::string_view NoticeOf(lidcam_status status) {
  switch (status) {
    case LIDCAM_ERROR_NOT_FOUND:
    case LIDCAM_ERROR_UNPLUGGED:
      return kUnplugged;
    case LIDCAM_ERROR_IN_USE:
      return kInUse;
    default:
      return kUnavailable;
  }
}

std::string ShapeText(const StreamShape& shape) {
  return std::to_string(shape.Width) + "x" + std::to_string(shape.Height);
}

}  // namespace

SharedCamera::SharedCamera(Options options, std::vector<CameraControl> controls,
                           PictureReceiver& receiver)
    : options_(std::move(options)), receiver_(receiver), controls_(std::move(controls)) {
  // Without the watch a camera that is back is found by the next try, within a second.
  if (lidcam_watch_cameras(OnCamerasChanged, this, &watch_) < LIDCAM_OK) watch_ = nullptr;
  thread_ = std::thread([this] { Run(); });
}

SharedCamera::~SharedCamera() {
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
    hasNews_ = true;
  }
  changed_.notify_one();
  thread_.join();
  lidcam_watch_end(watch_);
}

void SharedCamera::Show(const StreamShape& shape, const CameraMemory& memory) {
  {
    const std::lock_guard lock(mutex_);
    wanted_ = shape;
    wantedMemory_ = memory;
    hasNews_ = true;
  }
  changed_.notify_one();
}

void SharedCamera::Hide() {
  {
    const std::lock_guard lock(mutex_);
    wanted_.reset();
    wantedMemory_ = {};
    hasNews_ = true;
  }
  changed_.notify_one();
}

void SharedCamera::SetViewers(std::vector<std::string> viewers) {
  {
    const std::lock_guard lock(mutex_);
    viewers_ = std::move(viewers);
    areViewersChanged_ = true;
    hasNews_ = true;
  }
  changed_.notify_one();
}

void SharedCamera::SetControl(const std::string& name, std::int32_t value) {
  {
    const std::lock_guard lock(mutex_);
    asked_[name] = value;
    hasNews_ = true;
  }
  changed_.notify_one();
}

std::vector<CameraControl> SharedCamera::Controls() const {
  const std::lock_guard lock(mutex_);
  return controls_;
}

void SharedCamera::OnEvent(lidcam_camera*, const lidcam_event* event, void* user) {
  auto& self = *static_cast<SharedCamera*>(user);
  {
    const std::lock_guard lock(self.mutex_);
    if (event->kind == LIDCAM_EVENT_REPLUGGED) self.replugged_ = event->address;
    if (event->kind == LIDCAM_EVENT_CONTROL) self.isControlEvent_ = true;
    self.hasNews_ = true;
  }
  self.changed_.notify_one();
}

void SharedCamera::OnCamerasChanged(void* user) {
  auto& self = *static_cast<SharedCamera*>(user);
  {
    const std::lock_guard lock(self.mutex_);
    self.isCameraListChanged_ = true;
    self.hasNews_ = true;
  }
  self.changed_.notify_one();
}

void SharedCamera::Run() {
  while (true) {
    std::optional<StreamShape> wanted;
    CameraMemory memory;
    bool isControlEvent = false;
    bool areViewersChanged = false;
    {
      const std::lock_guard lock(mutex_);
      if (isEnding_) break;
      hasNews_ = false;
      wanted = wanted_;
      memory = wantedMemory_;
      for (const auto& [name, value] : asked_) pending_[name] = value;
      asked_.clear();
      isControlEvent = std::exchange(isControlEvent_, false);
      areViewersChanged = std::exchange(areViewersChanged_, false);
      if (std::exchange(isCameraListChanged_, false)) nextTry_ = {};
    }
    ApplyControls();
    if (isControlEvent && ReadControls()) receiver_.ControlsChanged();
    if (areViewersChanged && camera_) PassViewersOn();
    if (!wanted) {
      Rest();
    } else if (EnsureStream(*wanted, memory)) {
      TakeFrame();
    } else {
      ShowNotice(*wanted);
    }
  }
  Close();
}

void SharedCamera::Rest() {
  StopStream();
  told_.clear();
  receiver_.CameraRests();
  std::unique_lock lock(mutex_);
  const auto hasNews = [this] { return hasNews_; };
  if (camera_ && changed_.wait_for(lock, options_.Linger, hasNews)) return;
  lock.unlock();
  Close();
  lock.lock();
  changed_.wait(lock, hasNews);
}

bool SharedCamera::EnsureStream(const StreamShape& shape, const CameraMemory& memory) {
  if (running_ == shape && runningMemory_.Bytes.data() == memory.Bytes.data() &&
      runningMemory_.Buffers == memory.Buffers) {
    return true;
  }
  if (Clock::now() < nextTry_ || !EnsureOpen()) return false;
  StopStream();
  lidcam_stream_options options = LIDCAM_STREAM_OPTIONS_INIT;
  options.width = shape.Width;
  options.height = shape.Height;
  options.frame_interval = shape.FrameInterval;
  options.buffers = memory.Buffers;
  options.memory = memory.Buffers != 0 ? memory.Bytes.data() : nullptr;
  options.memory_size = memory.Bytes.size();
  const lidcam_status status = lidcam_start(camera_.get(), &options);
  if (status == LIDCAM_ERROR_UNPLUGGED) {
    Lose();
    return false;
  }
  if (status < LIDCAM_OK) {
    Fail(NoticeOf(status), lidcam_error_text());
    return false;
  }
  running_ = shape;
  runningMemory_ = memory;
  started_ = Clock::now();
  Tell("camera on, " + ShapeText(shape));
  return true;
}

bool SharedCamera::EnsureOpen() {
  std::string address = options_.Address.Text;
  if (isLost_) {
    const std::lock_guard lock(mutex_);
    if (replugged_.empty()) return false;
    address = std::exchange(replugged_, {});
  } else if (camera_) {
    return true;
  }
  Close();
  return Open(address);
}

bool SharedCamera::Open(const std::string& address) {
  lidcam_camera* camera = nullptr;
  const lidcam_status status = OpenCamera(options_.Address, address, &camera);
  if (status < LIDCAM_OK) {
    Fail(NoticeOf(status), lidcam_error_text());
    return false;
  }
  camera_.reset(camera);
  nextTry_ = {};
  isRecording_ = lidcam_camera_get_info(camera)->kind == LIDCAM_KIND_RECORDING;
  lidcam_set_event_handler(camera, OnEvent, this);
  PassViewersOn();
  // Those that were lost with the camera's plug.
  pending_.merge(unsaved_);
  unsaved_.clear();
  // Between the last close and now another program may have set them.
  if (ReadControls()) receiver_.ControlsChanged();
  ApplyControls();
  return true;
}

void SharedCamera::StopStream() {
  if (!running_) return;
  lidcam_stop(camera_.get());
  running_.reset();
  runningMemory_ = {};
  Tell("camera off");
}

void SharedCamera::Close() {
  StopStream();
  if (!camera_) return;
  if (!isLost_) SaveControls();
  camera_.reset();
  isLost_ = false;
  const std::lock_guard lock(mutex_);
  replugged_.clear();
}

void SharedCamera::TakeFrame() {
  const lidcam_frame* frame = nullptr;
  const lidcam_status status = lidcam_next_frame(camera_.get(), kFrameWait, &frame);
  switch (status) {
    case LIDCAM_TIMEOUT:
      return receiver_.LacksPictures();
    case LIDCAM_OK:
      return PassOn(LentPicture(frame));
    case LIDCAM_ERROR_UNPLUGGED:
      return Lose();
    case LIDCAM_END:
      StopStream();
      if (isRecording_) return;
      return Fail(kUnavailable, "camera '" + options_.Address.Text + "' sends no more pictures");
    default:
      const std::string reason = lidcam_error_text();
      StopStream();
      return Fail(kUnavailable, reason);
  }
}

void SharedCamera::PassOn(LentPicture frame) {
  notice_.clear();
  if (isRecording_) AwaitRecordedTime(frame->stream_time);
  Picture picture{.Data = {frame->data, frame->size},
                  .Stride = frame->stride,
                  .Time = isRecording_ ? MonotonicNow() : frame->monotonic_ns,
                  .Number = frame->picture_number,
                  .Lent = std::move(frame)};
  receiver_.TakePicture(*running_, picture);
}

void SharedCamera::AwaitRecordedTime(std::int64_t streamTime) {
  constexpr std::int64_t kNanosecondsPerUnit = 100;
  std::unique_lock lock(mutex_);
  changed_.wait_until(lock, started_ + std::chrono::nanoseconds(kNanosecondsPerUnit * streamTime),
                      [this] { return hasNews_; });
}

void SharedCamera::ShowNotice(const StreamShape& shape) {
  const std::vector<std::uint8_t> notice = DrawNotice(shape.Width, shape.Height, notice_);
  Picture picture{.Data = notice, .Stride = 2 * shape.Width, .Time = MonotonicNow()};
  receiver_.TakePicture(shape, picture);
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, kNoticeInterval, [this] { return hasNews_; });
}

void SharedCamera::PassViewersOn() {
  std::vector<std::string> viewers;
  {
    const std::lock_guard lock(mutex_);
    viewers = viewers_;
  }
  std::vector<const char*> texts;
  for (const std::string& viewer : viewers) texts.push_back(viewer.c_str());
  texts.push_back(nullptr);
  lidcam_set_viewers(camera_.get(), texts.data());
}

void SharedCamera::ApplyControls() {
  // Values for a camera that is away wait until it is back.
  if (pending_.empty() || isLost_) return;
  if (!camera_) {
    if (Clock::now() >= nextTry_) EnsureOpen();
    return;
  }
  while (!pending_.empty()) {
    const auto& [name, value] = *pending_.begin();
    const lidcam_status status = lidcam_control_set(camera_.get(), name.c_str(), value);
    if (status == LIDCAM_ERROR_UNPLUGGED) return;
    if (status >= LIDCAM_OK) {
      unsaved_[name] = value;
    } else {
      Tell(lidcam_error_text());
    }
    pending_.erase(pending_.begin());
  }
  if (ReadControls()) receiver_.ControlsChanged();
}

void SharedCamera::SaveControls() {
  for (const auto& [name, value] : unsaved_) {
    if (lidcam_control_save(camera_.get(), name.c_str()) < LIDCAM_OK) Tell(lidcam_error_text());
  }
  unsaved_.clear();
}

bool SharedCamera::ReadControls() {
  if (!camera_) return false;
  std::vector<CameraControl> controls = ReadCameraControls(camera_.get());
  if (controls.empty()) return false;
  const std::lock_guard lock(mutex_);
  controls_ = std::move(controls);
  return true;
}

void SharedCamera::Fail(std::string_view notice, const std::string& reason) {
  notice_ = notice;
  nextTry_ = Clock::now() + kRetryInterval;
  if (told_ != reason) Tell(reason);
  told_ = reason;
}

void SharedCamera::Lose() {
  StopStream();
  isLost_ = true;
  notice_ = kUnplugged;
  Tell("camera '" + options_.Address.Text + "' is unplugged; waiting for it");
}

void SharedCamera::Tell(const std::string& line) {
  options_.Tell(line);
}

}  // namespace lidcam::integrations
