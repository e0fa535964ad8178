#include "viewer/camera/viewed_camera.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "library/base/command_error.h"
#include "library/camera/plugged_camera.h"
#include "library/camera_list.h"

namespace lidcam::viewer {
namespace {

constexpr std::chrono::seconds kRetryInterval{1};
constexpr std::chrono::seconds kLongestWait{1};
constexpr std::size_t kBuffers = 8;

double MonotonicNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

std::shared_ptr<const Picture> PictureOf(const app::LentFrame& frame) {
  constexpr double kSecondsPerUnit = 1e-7;
  constexpr double kMillisecondsPerNanosecond = 1e-6;
  const app::FrameFacts& facts = frame.Facts();
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(frame.Bytes().data());
  const double monotonic =
      static_cast<double>(facts.MonotonicNanoseconds) * kMillisecondsPerNanosecond;
  return std::make_shared<const Picture>(
      Picture{.Yuy2 = {bytes, bytes + frame.Bytes().size()},
              .Size = facts.Size,
              .Number = facts.Position.PictureNumber,
              .Drops = facts.Position.DropCount,
              .Seconds = static_cast<double>(facts.Position.PresentationTime) * kSecondsPerUnit,
              .Monotonic = monotonic == 0 ? MonotonicNow() : monotonic,
              .Exposure = facts.Loop.Exposure,
              .CoarseGain = facts.Loop.CoarseGain,
              .FineGain = facts.Loop.FineGain,
              .Light = facts.Loop.State});
}

std::string KindOf(const std::string& address) {
  if (app::IsPluggedIn(address)) return "plugged-in";
  return app::CaptureFileOf(address) ? "recording" : "simulated";
}

std::vector<ControlState> ControlsOf(app::CameraSession& session) {
  std::vector<ControlState> controls;
  session.Use([&](app::OpenedCamera& opened) {
    for (const app::ControlLine& line : app::ReadLines(opened)) {
      controls.push_back({.Line = line, .Saved = line.Value});
    }
  });
  return controls;
}

void ReadFacts(app::CameraSession& session, CameraState& state) {
  const app::SessionFacts& facts = session.Facts();
  state.Unit = facts.Unit;
  state.Description = api::DescriptionOf(session.Name(), facts.Vendor, facts.Product);
  state.Sensor = facts.Sensor;
  state.Sizes.clear();
  for (const app::SessionFormat& format : facts.Formats) state.Sizes.push_back(format.Size);
  state.Controls = ControlsOf(session);
}

}  // namespace

CameraState StateOf(const std::string& address) {
  return {.Address = address, .Description = address, .Kind = KindOf(address)};
}

CameraState DescribeCamera(const app::SessionOptions& options) {
  app::CameraSession session(options);
  CameraState state = StateOf(options.Choice.Camera);
  ReadFacts(session, state);
  return state;
}

ViewedCamera::ViewedCamera(Options options, CameraState state, Executor executor,
                           CameraListener& listener)
    : options_(std::move(options)),
      isRecording_(app::CaptureFileOf(options_.Session.Choice.Camera).has_value()),
      executor_(std::move(executor)),
      listener_(listener),
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
    tasks_.push_back({.Run = std::move(work), .Tell = std::move(done)});
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
    if (EnsureOpen()) {
      task.Run(*session_);
    } else {
      error = state_.Error;
    }
  } catch (const std::exception& failure) {
    error = failure.what();
  }
  unusedSince_ = Clock::now();
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
    StopStream();
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
    Enter(CameraPhase::Off);
  }
  if (session_ && now >= unusedSince_ + options_.Linger) Close();
}

void ViewedCamera::EnsureStream(app::PictureSize size) {
  if (running_ == size || !EnsureOpen()) return;
  StopStream();
  app::SessionStream stream{.Size = size, .Buffers = kBuffers};
  if (!isRecording_) {
    stream.Handler = [this](std::unique_ptr<app::LentFrame> frame) { TakeFrame(std::move(frame)); };
  }
  try {
    session_->Start(std::move(stream));
  } catch (const std::exception& error) {
    Fail(error);
    return;
  }
  running_ = size;
  started_ = Clock::now();
  state_.Size = size;
  Enter(CameraPhase::On);
}

bool ViewedCamera::EnsureOpen() {
  std::string address = state_.Address;
  {
    const std::lock_guard lock(mutex_);
    if (isGone_ && replugged_.empty()) return false;
    if (session_ && !isGone_) return true;
    if (isGone_) address = replugged_;
  }
  if (Clock::now() < nextTry_) return false;
  Close();
  Enter(CameraPhase::Opening);
  app::SessionOptions options = options_.Session;
  options.Choice.Camera = address;
  try {
    session_ = std::make_unique<app::CameraSession>(options);
    session_->SetEventHandler([this](const app::SessionEvent& event) { OnEvent(event); });
    ReadFacts(*session_, state_);
  } catch (const std::exception& error) {
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

// A recording goes on as its frames are taken, each at its own time.
void ViewedCamera::PlayRecording() {
  std::unique_ptr<app::LentFrame> frame;
  try {
    if (session_->Next(std::chrono::milliseconds(100), frame) == app::NextResult::End) {
      StopStream();
      return;
    }
  } catch (const std::exception& error) {
    StopStream();
    Fail(error);
    return;
  }
  if (!frame) return;
  const std::chrono::nanoseconds due{100 * frame->Facts().Position.PresentationTime};
  {
    std::unique_lock lock(mutex_);
    changed_.wait_until(lock, started_ + due, [this] { return hasNews_; });
  }
  TakeFrame(std::move(frame));
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

// The newest picture takes the place of one that the pages' thread has not fetched yet.
void ViewedCamera::TakeFrame(std::unique_ptr<app::LentFrame> frame) {
  bool isFirst = false;
  {
    const std::lock_guard lock(mutex_);
    isFirst = newest_ == nullptr;
    newest_.swap(frame);
  }
  if (isFirst) executor_([this] { PassPictureOn(); });
}

void ViewedCamera::PassPictureOn() {
  std::unique_ptr<app::LentFrame> frame;
  {
    const std::lock_guard lock(mutex_);
    frame.swap(newest_);
  }
  if (frame) listener_.PictureCame(options_.Number, PictureOf(*frame));
}

void ViewedCamera::Enter(CameraPhase phase, const std::string& error) {
  state_.Phase = phase;
  state_.Error = error;
  executor_([this, state = state_] { listener_.CameraChanged(options_.Number, state); });
}

}  // namespace lidcam::viewer
