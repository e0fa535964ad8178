#include <utility>

#include "viewer/camera/viewed_camera.h"

namespace lidcam::viewer {
namespace {

constexpr double kSecondsPerUnit = 1e-7;

}  // namespace

void ViewedCamera::Seek(double seconds) {
  {
    const std::lock_guard lock(mutex_);
    seek_ = seconds;
    hasNews_ = true;
  }
  changed_.notify_all();
}

void ViewedCamera::Play(bool isPlaying) {
  {
    const std::lock_guard lock(mutex_);
    isPlaying_ = isPlaying;
    hasNews_ = true;
  }
  changed_.notify_all();
}

void ViewedCamera::Step() {
  {
    const std::lock_guard lock(mutex_);
    isPlaying_ = false;
    isStepping_ = true;
    hasNews_ = true;
  }
  changed_.notify_all();
}

// A recording goes on as its frames are taken, and only forwards: backwards it is opened again.
void ViewedCamera::Rewind() {
  StopStream();
  Close();
  position_ = 0;
  begin_.reset();
}

// Each frame at its own time, one at a time, or up to the place that is looked for.
void ViewedCamera::PlayRecording() {
  bool isPlaying = false;
  bool isStepping = false;
  std::optional<double> seek;
  {
    const std::lock_guard lock(mutex_);
    seek = seek_;
    isPlaying = isPlaying_;
    isStepping = isStepping_;
  }
  if (isPlaying != state_.IsPlaying) {
    state_.IsPlaying = isPlaying;
    Enter(state_.Phase);
  }
  if (!isPlaying && !isStepping && !seek) {
    begin_.reset();
    Await(true);
    return;
  }
  if (seek && *seek < position_) {
    Rewind();
    return;
  }
  std::unique_ptr<app::LentFrame> frame;
  try {
    if (session_->Next(std::chrono::milliseconds(100), frame) == app::NextResult::End) {
      const std::lock_guard lock(mutex_);
      seek_.reset();
    }
  } catch (const std::exception& error) {
    StopStream();
    Fail(error);
    return;
  }
  if (!frame) {
    Rewind();
    return;
  }
  position_ = static_cast<double>(frame->Facts().Position.PresentationTime) * kSecondsPerUnit;
  if (seek && position_ < *seek) return;
  const auto offset =
      std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(position_));
  std::unique_lock lock(mutex_);
  if (seek) {
    if (seek_ == seek) seek_.reset();
    begin_.reset();
  }
  isStepping_ = false;
  if (!begin_) begin_ = Clock::now() - offset;
  if (isPlaying && !seek) {
    changed_.wait_until(lock, *begin_ + offset, [this] { return hasNews_; });
  }
  lock.unlock();
  TakeFrame(std::move(frame));
}

}  // namespace lidcam::viewer
