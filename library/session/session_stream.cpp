#include <ctime>
#include <string>
#include <utility>

#include "base/time_units.h"
#include "library/base/command_error.h"
#include "library/camera/source/recorded_size.h"
#include "library/session/camera_session.h"
#include "testbed/worlds.h"

namespace lidcam::app {
namespace {

constexpr std::int64_t kNanosecondsPerUnit = 100;

// The time of one transfer.
constexpr std::chrono::milliseconds kPause{4};

std::int64_t MonotonicNow() {
  constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kNanosecondsPerSecond + now.tv_nsec;
}

}  // namespace

void CameraSession::Start(SessionStream stream) {
  RefuseOwnThread("a stream can't be started");
  std::deque<std::unique_ptr<LentFrame>> old;  // given back without the mutex
  std::unique_lock lock(signal_->Mutex);
  if (phase_ == Phase::Gone) {
    throw CommandError("camera '" + Name() + "' was unplugged", Failure::Unplugged);
  }
  if (stream_ == StreamPhase::Starting || stream_ == StreamPhase::Running) {
    throw SessionStateError("camera '" + Name() + "' streams already: stop it first");
  }
  old.swap(ready_);
  request_ = std::move(stream);
  startError_ = nullptr;
  streamError_ = nullptr;
  stream_ = StreamPhase::Starting;
  signal_->Changed.notify_all();
  signal_->Changed.wait(lock, [this] { return stream_ != StreamPhase::Starting; });
  if (startError_ != nullptr) std::rethrow_exception(startError_);
}

void CameraSession::Stop() {
  RefuseOwnThread("a stream can't be stopped");
  std::deque<std::unique_ptr<LentFrame>> old;
  std::unique_lock lock(signal_->Mutex);
  if (stream_ == StreamPhase::Never) return;
  isStopRequested_ = true;
  signal_->Changed.notify_all();
  signal_->Changed.wait(
      lock, [this] { return stream_ != StreamPhase::Starting && stream_ != StreamPhase::Running; });
  isStopRequested_ = false;
  stream_ = StreamPhase::Idle;
  old.swap(ready_);
  signal_->Changed.notify_all();
}

NextResult CameraSession::Next(std::optional<std::chrono::milliseconds> timeout,
                               std::unique_ptr<LentFrame>& frame) {
  RefuseOwnThread("a frame can't be waited for");
  std::unique_lock lock(signal_->Mutex);
  if (stream_ == StreamPhase::Never && phase_ == Phase::Open) {
    throw SessionStateError("camera '" + Name() + "' has no stream: start one first");
  }
  if (request_.Handler) {
    throw SessionStateError("the frames of camera '" + Name() + "' go to its handler");
  }
  const auto isOver = [this] {
    return !ready_.empty() || phase_ == Phase::Gone ||
           (stream_ != StreamPhase::Starting && stream_ != StreamPhase::Running);
  };
  if (!timeout) {
    signal_->Changed.wait(lock, isOver);
  } else if (!signal_->Changed.wait_for(lock, *timeout, isOver)) {
    return NextResult::Timeout;
  }
  if (!ready_.empty()) {
    frame = std::move(ready_.front());
    ready_.pop_front();
    signal_->Changed.notify_all();
    return NextResult::Frame;
  }
  if (phase_ == Phase::Gone) {
    throw CommandError("camera '" + Name() + "' was unplugged", Failure::Unplugged);
  }
  if (streamError_ != nullptr) std::rethrow_exception(streamError_);
  return NextResult::End;
}

StreamSetup CameraSession::SetupOf(const SessionStream& stream) {
  return {.Size = FitToCamera({.Delivered = stream.Size}, options_.Choice),
          .Frames = [this](const StreamFrame& frame) { Take(frame); },
          .FrameInterval = stream.FrameInterval,
          .Buffers = stream.Buffers,
          .Memory = stream.Memory,
          .Watching = stream.Watching};
}

// A recording's camera is gone at its end.
void CameraSession::RequireMore(const OpenedCamera& opened) const {
  if (opened.End() == testbed::BusEnd::None || opened.IsUnplugged()) return;
  throw CommandError("camera '" + Name() +
                     "': the recording is over; open it again to play it again");
}

void CameraSession::RunStream(OpenedCamera& opened) {
  light_.reset();
  std::exception_ptr error;
  try {
    RequireMore(opened);
    WithStreamOf(opened, SetupOf(request_), [this](CameraStream& stream) { RunPump(stream); });
  } catch (const std::exception&) {
    error = std::current_exception();
  }
  EndStream(opened, error);
}

void CameraSession::RunPump(CameraStream& stream) {
  ledger_ = std::make_shared<FrameLedger>([signal = signal_] { signal->Notify(); });
  clockOffset_ = isRealTime_ ? MonotonicNow() - stream.Time() * kNanosecondsPerUnit : 0;
  current_ = &stream;
  {
    const std::lock_guard lock(signal_->Mutex);
    stream_ = StreamPhase::Running;
    status_.IsStreaming = true;
    status_.Size = request_.Size;
    status_.Frames = 0;
    status_.Drops = 0;
  }
  signal_->Changed.notify_all();
  testbed::RunThenEnd([&] { Pump(stream); },
                      [&] {
                        current_ = nullptr;
                        ledger_->DetachAll();
                        ledger_->ReturnBuffers();
                      });
}

void CameraSession::Pump(CameraStream& stream) {
  while (true) {
    tasks_.RunPending();
    ledger_->ReturnBuffers();
    {
      std::unique_lock lock(signal_->Mutex);
      if (isClosing_ || isStopRequested_) return;
      if (!MayAdvance(stream)) {
        signal_->Changed.wait_for(lock, kPause);
        continue;
      }
    }
    if (!stream.Advance()) return;
  }
}

// A recording's time goes on only while its frames are taken.
bool CameraSession::MayAdvance(CameraStream& stream) const {
  if (stream.Opened().End() != testbed::BusEnd::None) return true;
  return stream.HasBuffers() && (isRealTime_ || ready_.empty());
}

void CameraSession::Take(const StreamFrame& frame) {
  const FrameFacts facts{
      .Size = request_.Size,
      .Position = frame.Position,
      .LostCount = frame.LostCount,
      .MonotonicNanoseconds =
          isRealTime_ ? frame.Position.PresentationTime * kNanosecondsPerUnit + clockOffset_ : 0,
      .Duration = frame.Buffer.Duration(),
      .IsGood = frame.Report.IsGood,
      .IsAutoExposure = frame.Report.IsAutoExposure,
      .Loop = frame.Report.Loop,
  };
  TellLight(facts.Loop.State);
  NoteStatus(facts);
  auto lent = std::make_unique<LentFrame>(ledger_, std::move(frame.Buffer), facts);
  if (request_.Handler) {
    request_.Handler(std::move(lent));
    return;
  }
  {
    const std::lock_guard lock(signal_->Mutex);
    ready_.push_back(std::move(lent));
  }
  signal_->Changed.notify_all();
}

void CameraSession::NoteStatus(const FrameFacts& facts) {
  const std::lock_guard lock(signal_->Mutex);
  ++status_.Frames;
  status_.Size = facts.Size;
  status_.Drops = facts.LostCount;
  status_.IsAutoExposure = facts.IsAutoExposure;
  status_.Exposure = facts.Loop.Exposure;
  status_.LightState = LightStateName(facts.Loop.State);
}

void CameraSession::TellLight(std::uint32_t state) {
  if (light_ == state) return;
  light_ = state;
  Tell({.Kind = SessionEventKind::Light,
        .Camera = Name(),
        .Value = static_cast<std::int32_t>(state),
        .Text = "light state " + std::string(LightStateName(state))});
}

void CameraSession::EndStream(OpenedCamera& opened, const std::exception_ptr& error) {
  const bool isGone = opened.IsUnplugged();
  bool isFailed = false;
  {
    const std::lock_guard lock(signal_->Mutex);
    if (isGone && !isClosing_) phase_ = Phase::Gone;
    if (stream_ == StreamPhase::Starting) {
      startError_ = error;
    } else if (error != nullptr && !isGone) {
      streamError_ = error;
      isFailed = true;
    }
    stream_ = StreamPhase::Ended;
    status_.IsStreaming = false;
  }
  signal_->Changed.notify_all();
  if (!isFailed) return;
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& failure) {
    Tell({.Kind = SessionEventKind::StreamFailed, .Camera = Name(), .Text = failure.what()});
  }
}

}  // namespace lidcam::app
