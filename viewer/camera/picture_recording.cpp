#include "viewer/camera/picture_recording.h"

#include <exception>
#include <utility>

namespace lidcam::viewer {

PictureRecording::PictureRecording(MakePictureWriter make, std::string path)
    : make_(std::move(make)), path_(std::move(path)), thread_([this] { Run(); }) {}

PictureRecording::~PictureRecording() {
  static_cast<void>(Finish());
}

void PictureRecording::Take(std::shared_ptr<const Picture> picture) {
  {
    const std::lock_guard lock(mutex_);
    if (isEnding_ || !result_.Error.empty()) return;
    if (waiting_.size() == kMostWaiting) {
      ++result_.Lost;
      return;
    }
    waiting_.push_back(std::move(picture));
  }
  changed_.notify_all();
}

PictureRecording::Result PictureRecording::Finish() {
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
  }
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
  return result_;
}

bool PictureRecording::HasFailed() {
  const std::lock_guard lock(mutex_);
  return !result_.Error.empty();
}

void PictureRecording::Run() {
  std::string error;
  try {
    std::unique_lock lock(mutex_);
    while (true) {
      changed_.wait(lock, [this] { return isEnding_ || !waiting_.empty(); });
      if (waiting_.empty()) break;
      const std::shared_ptr<const Picture> picture = std::move(waiting_.front());
      waiting_.pop_front();
      lock.unlock();
      Write(*picture);
      lock.lock();
    }
  } catch (const std::exception& failure) {
    error = failure.what();
  }
  // The frames that were written stay, also after one that was not.
  try {
    if (writer_) writer_->Finish();
  } catch (const std::exception& failure) {
    if (error.empty()) error = failure.what();
  }
  const std::lock_guard lock(mutex_);
  if (error.empty() && result_.Frames == 0) error = "the camera has sent no picture";
  result_.Error = error;
  waiting_.clear();
}

void PictureRecording::Write(const Picture& picture) {
  constexpr double kFramePeriod = 1.0 / 30;
  if (!writer_) {
    size_ = picture.Size;
    writer_ = make_(path_, size_);
    offset_ = -picture.Seconds;
  } else if (picture.Size != size_) {
    const std::lock_guard lock(mutex_);
    ++result_.Lost;
    return;
  } else if (picture.Seconds <= last_) {
    // A new stream, such as that of a camera that was plugged in again.
    offset_ += last_ + kFramePeriod - picture.Seconds;
  }
  last_ = picture.Seconds;
  const std::chrono::duration<double> time(picture.Seconds + offset_);
  writer_->Write(picture, std::chrono::duration_cast<std::chrono::microseconds>(time));
  const std::lock_guard lock(mutex_);
  ++result_.Frames;
}

}  // namespace lidcam::viewer
