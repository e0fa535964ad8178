#include <utility>

#include "viewer/camera/viewed_camera.h"

namespace lidcam::viewer {
namespace {

// The driver's variables are those of the camera that it steered last, which may be another one of the process.
app::FrameRow LoopRowOf(const app::FrameFacts& facts, bool hasLoop) {
  if (hasLoop) return facts.Loop;
  return {.Luma = facts.Loop.Luma, .State = facts.Loop.State};
}

std::shared_ptr<const Picture> PictureOf(const app::LentFrame& frame, const app::FrameRow& loop,
                                         std::int64_t number) {
  constexpr double kSecondsOfUnit = 1e-7;
  constexpr double kMillisecondsPerNanosecond = 1e-6;
  const app::FrameFacts& facts = frame.Facts();
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(frame.Bytes().data());
  constexpr double kMillisecondsPerSecond = 1e3;
  double monotonic = static_cast<double>(facts.MonotonicNanoseconds) * kMillisecondsPerNanosecond;
  if (monotonic == 0) monotonic = MonotonicSeconds() * kMillisecondsPerSecond;
  return std::make_shared<const Picture>(
      Picture{.Yuy2 = {bytes, bytes + frame.Bytes().size()},
              .Size = facts.Size,
              .Number = number,
              .Drops = facts.LostCount,
              .IsWhole = facts.IsGood,
              .Seconds = static_cast<double>(facts.Position.PresentationTime) * kSecondsOfUnit,
              .Monotonic = monotonic,
              .Exposure = loop.Exposure,
              .CoarseGain = loop.CoarseGain,
              .FineGain = loop.FineGain,
              .Light = loop.State});
}

LoopStep LoopOf(const app::FrameRow& loop, double monotonic) {
  constexpr double kSecondsPerMillisecond = 1e-3;
  return {.Time = monotonic * kSecondsPerMillisecond,
          .Luminance = loop.Luma,
          .Exposure = loop.Exposure,
          .Lines = loop.Lines,
          .CoarseGain = loop.CoarseGain,
          .FineGain = loop.FineGain,
          .Light = loop.State,
          .HasWritten = loop.Events.Steps != 0};
}

}  // namespace

// The newest picture takes the place of one that the pages' thread has not fetched yet.
void ViewedCamera::TakeFrame(std::unique_ptr<app::LentFrame> frame) {
  const app::FrameRow loop = LoopRowOf(frame->Facts(), hasLoop_);
  const std::shared_ptr<const Picture> picture = PictureOf(*frame, loop, ++pictures_);
  telemetry_.NoteLoop(LoopOf(loop, picture->Monotonic));
  frame.reset();  // its buffer goes back to the driver
  bool isFirst = false;
  {
    const std::lock_guard lock(mutex_);
    for (const auto& recording : recordings_) recording->Take(picture);
    isFirst = newest_ == nullptr;
    newest_ = picture;
    lastFrame_ = Clock::now();
  }
  if (isFirst) executor_([this] { PassPictureOn(); });
}

void ViewedCamera::PassPictureOn() {
  std::shared_ptr<const Picture> picture;
  {
    const std::lock_guard lock(mutex_);
    picture.swap(newest_);
  }
  if (picture) listener_.PictureCame(options_.Number, std::move(picture));
}

}  // namespace lidcam::viewer
