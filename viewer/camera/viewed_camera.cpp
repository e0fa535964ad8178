#include "viewer/camera/viewed_camera.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "library/base/command_error.h"
#include "library/camera/source/plugged_camera.h"
#include "library/camera_list.h"

namespace lidcam::viewer {
namespace {

constexpr std::chrono::seconds kRetryInterval{1};
constexpr std::chrono::seconds kLongestWait{1};
constexpr std::chrono::seconds kLongestSilence{5};
constexpr std::size_t kBuffers = 8;
constexpr std::string_view kSteeredSensor = "VGA0708";  // the exposure of others is their chip's

}  // namespace

ViewedCamera::ViewedCamera(Options options, CameraState state, Executor executor,
                           CameraListener& listener)
    : options_(std::move(options)),
      isRecording_(app::CaptureFileOf(options_.Session.Choice.Camera).has_value()),
      executor_(std::move(executor)),
      listener_(listener),
      panel_(isRecording_ || app::IsPluggedIn(options_.Session.Choice.Camera)
                 ? std::string()
                 : options_.Session.Choice.Camera),
      state_(std::move(state)) {
  thread_ = std::thread([this] { Run(); });
}

ViewedCamera::~ViewedCamera() {
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
    hasNews_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void ViewedCamera::Show(bool isWanted) {
  {
    const std::lock_guard lock(mutex_);
    isWanted_ = isWanted;
    hasNews_ = true;
  }
  changed_.notify_all();
}

void ViewedCamera::SetSize(app::PictureSize size) {
  {
    const std::lock_guard lock(mutex_);
    size_ = size;
    hasNews_ = true;
  }
  changed_.notify_all();
}

void ViewedCamera::SetViewers(std::vector<std::string> viewers) {
  {
    const std::lock_guard lock(mutex_);
    viewers_ = std::move(viewers);
    areViewersChanged_ = true;
    hasNews_ = true;
  }
  changed_.notify_all();
}

void ViewedCamera::Do(Work work, Done done) {
  {
    const std::lock_guard lock(mutex_);
    tasks_.push_back({.Run = std::move(work), .Aside = {}, .Tell = std::move(done)});
    hasNews_ = true;
  }
  changed_.notify_all();
}

void ViewedCamera::DoAside(std::function<void()> work, Done done) {
  {
    const std::lock_guard lock(mutex_);
    tasks_.push_back({.Run = {}, .Aside = std::move(work), .Tell = std::move(done)});
    hasNews_ = true;
  }
  changed_.notify_all();
}

void ViewedCamera::Run() {
  while (true) {
    bool isWanted = false;
    app::PictureSize size;
    {
      const std::lock_guard lock(mutex_);
      if (isEnding_) break;
      hasNews_ = false;
      isWanted = isWanted_;
      size = size_;
    }
    HandleEvents();
    RunTasks();
    SaveControls(false);
    Settle(isWanted, size);
    NoticeSilence();
    if (running_ && isRecording_) {
      PlayRecording();
    } else {
      Await(isWanted);
    }
  }
  RunTasks();
  Close();
}

void ViewedCamera::RunTasks() {
  std::deque<Task> tasks;
  {
    const std::lock_guard lock(mutex_);
    tasks.swap(tasks_);
  }
  for (const Task& task : tasks) RunTask(task);
}

void ViewedCamera::RunTask(const Task& task) {
  std::string error;
  try {
    if (task.Aside) {
      task.Aside();
    } else if (EnsureOpen()) {
      unusedSince_ = Clock::now();
      task.Run(*session_);
    } else {
      error = state_.Error;
    }
  } catch (const std::exception& failure) {
    error = failure.what();
  }
  if (task.Tell) executor_([tell = task.Tell, error] { tell(error); });
}

// What the camera's own thread has noted.
void ViewedCamera::HandleEvents() {
  bool isGone = false;
  bool areControlsChanged = false;
  std::string streamError;
  std::optional<std::vector<std::string>> viewers;
  {
    const std::lock_guard lock(mutex_);
    isGone = isGone_;
    areControlsChanged = std::exchange(areControlsChanged_, false);
    streamError = std::exchange(streamError_, {});
    if (session_ && std::exchange(areViewersChanged_, false)) viewers = viewers_;
  }
  if (viewers) session_->SetViewers(std::move(*viewers));
  if (isGone && state_.Phase != CameraPhase::Unplugged) {
    StopStream();
    Enter(CameraPhase::Unplugged, "camera '" + state_.Address + "' is unplugged");
  }
  if (!isGone && areControlsChanged && session_) ReadControls();
  if (!isGone && !streamError.empty()) {
    Close();
    nextTry_ = Clock::now() + kRetryInterval;
    Enter(CameraPhase::Failed, streamError);
  }
}

void ViewedCamera::Settle(bool isWanted, app::PictureSize size) {
  const auto now = Clock::now();
  if (isWanted) {
    unusedSince_ = now;
    if (now >= nextTry_) EnsureStream(size);
    return;
  }
  if (running_) {
    StopStream();
    unusedSince_ = now;
    Enter(CameraPhase::Off);
  }
  if (session_ && now >= unusedSince_ + options_.Linger) Close();
}

void ViewedCamera::EnsureStream(app::PictureSize size) {
  if (running_ == size || !EnsureOpen()) return;
  StopStream();
  app::SessionStream stream{
      .Size = size, .Buffers = kBuffers, .Watching = app::DeliveryWatching::EachDelivery};
  if (!isRecording_) {
    stream.Handler = [this](std::unique_ptr<app::LentFrame> frame) { TakeFrame(std::move(frame)); };
  }
  try {
    session_->Start(std::move(stream));
  } catch (const std::exception& error) {
    Close();
    Fail(error);
    return;
  }
  running_ = size;
  begin_.reset();
  {
    const std::lock_guard lock(mutex_);
    lastFrame_ = Clock::now();
  }
  state_.Size = size;
  Enter(CameraPhase::On);
}

// The driver may try to recover for ever, of an endpoint that stays halted: the camera is opened anew.
void ViewedCamera::NoticeSilence() {
  if (!running_ || isRecording_) return;
  {
    const std::lock_guard lock(mutex_);
    if (Clock::now() < lastFrame_ + kLongestSilence) return;
  }
  Close();
  nextTry_ = Clock::now() + kRetryInterval;
  Enter(CameraPhase::Failed, "camera '" + state_.Address + "' has sent no whole frame for 5 s");
}

bool ViewedCamera::EnsureOpen() {
  std::string address = state_.Address;
  {
    const std::lock_guard lock(mutex_);
    if (isHeldAway_ || (isGone_ && replugged_.empty())) return false;
    if (session_ && !isGone_) return true;
    if (isGone_) address = replugged_;
  }
  if (Clock::now() < nextTry_) return false;
  Close();
  Enter(CameraPhase::Opening);
  app::SessionOptions options = options_.Session;
  options.Choice.Camera = address;
  options.Open = [this](const app::CameraChoice& choice) { return OpenBus(choice); };
  try {
    trace_.emplace(options_.IsOnly, [this](std::string_view line) { telemetry_.NoteLine(line); });
    session_ = std::make_unique<app::CameraSession>(options);
    session_->Use([this](app::OpenedCamera& opened) {
      opened.WithContext([this](const CameraContext& context) { trace_->BelongTo(context); });
    });
    session_->SetEventHandler([this](const app::SessionEvent& event) { OnEvent(event); });
    ReadFacts(*session_, state_);
    hasLoop_ = state_.Sensor == kSteeredSensor;
  } catch (const std::exception& error) {
    session_.reset();
    trace_.reset();
    Fail(error);
    return false;
  }
  {
    const std::lock_guard lock(mutex_);
    areViewersChanged_ = false;
    session_->SetViewers(viewers_);
  }
  unusedSince_ = Clock::now();
  Enter(CameraPhase::Off);
  return true;
}

void ViewedCamera::Fail(const std::exception& error) {
  nextTry_ = Clock::now() + kRetryInterval;
  Enter(CameraPhase::Failed, error.what());
}

void ViewedCamera::StopStream() {
  if (!running_) return;
  running_.reset();
  session_->Stop();
  const std::lock_guard lock(mutex_);
  newest_.reset();
}

void ViewedCamera::Close() {
  if (!session_) return;
  StopStream();
  SaveControls(true);
  session_.reset();
  trace_.reset();
  const std::lock_guard lock(mutex_);
  isGone_ = false;
  replugged_.clear();
  streamError_.clear();
  newest_.reset();
}

void ViewedCamera::Await(bool isWanted) {
  auto until = Clock::now() + kLongestWait;
  for (const auto& [name, due] : unsaved_) until = std::min(until, due);
  if (session_ && !isWanted) until = std::min(until, unusedSince_ + options_.Linger);
  std::unique_lock lock(mutex_);
  changed_.wait_until(lock, until, [this] { return hasNews_; });
}

// On the camera's thread, which must not wait for this object's own.
void ViewedCamera::OnEvent(const app::SessionEvent& event) {
  {
    const std::lock_guard lock(mutex_);
    switch (event.Kind) {
      case app::SessionEventKind::Unplugged:
        isGone_ = true;
        break;
      case app::SessionEventKind::Replugged:
        replugged_ = event.Camera;
        break;
      case app::SessionEventKind::Control:
        areControlsChanged_ = true;
        break;
      case app::SessionEventKind::StreamFailed:
        streamError_ = event.Text;
        break;
      case app::SessionEventKind::Light:
        return;
    }
    hasNews_ = true;
  }
  changed_.notify_all();
}

void ViewedCamera::Enter(CameraPhase phase, const std::string& error) {
  if (state_.Simulation) state_.Simulation = panel_.Now();
  state_.Phase = phase;
  state_.Error = error;
  executor_([this, state = state_] { listener_.CameraChanged(options_.Number, state); });
}

}  // namespace lidcam::viewer
