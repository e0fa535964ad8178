#include "library/frames/lost_frames.h"

#include <algorithm>

namespace lidcam::app {
namespace {

constexpr std::int64_t kSettlingFrames = 2;

}  // namespace

std::int64_t LostFrames::Take(const TakenFrameFacts& facts) {
  if (!hasFirst_) {
    hasFirst_ = true;
    starts_ = facts.FrameStarts;
    light_ = facts.LightState;
    timesAtFirst_ = facts.MissingTimes;
    return lost_;
  }
  begun_ += facts.FrameStarts - starts_;
  starts_ = facts.FrameStarts;
  ++taken_;
  const std::int64_t behind = begun_ - taken_;
  const std::int64_t before = left_ + usual_;
  if (facts.LightState != light_) {
    usual_ += std::clamp<std::int64_t>(behind - before, 0, kSettlingFrames);
  }
  light_ = facts.LightState;
  // The first one may have been taken late.
  usual_ = std::min(usual_, behind);
  const std::int64_t left = behind - usual_;
  // A single frame may be taken after the next one has begun. Nothing is lost unless a frame's time has passed.
  const std::int64_t sure = std::max(left - 1, std::min(left, left_));
  lost_ = std::max(lost_, std::min(sure, facts.MissingTimes - timesAtFirst_));
  left_ = left;
  return lost_;
}

}  // namespace lidcam::app
