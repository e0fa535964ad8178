#include "library/frames/lost_frames.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace lidcam::app {
namespace {

constexpr std::uint32_t kNormal = 0;
constexpr std::uint32_t kLowLight = 1;

TEST(LostFrames, NoneAreLostWhereEachThatWasSentIsTaken) {
  LostFrames lost;
  for (std::uint32_t frame = 3; frame < 100; ++frame) {
    EXPECT_EQ(lost.Take({.FrameStarts = frame, .MissingTimes = 5}), 0);
  }
}

TEST(LostFrames, TimesWithoutAFrameInTheDarkAreNoLosses) {
  LostFrames lost;
  for (std::uint32_t frame = 3; frame < 100; ++frame) {
    EXPECT_EQ(lost.Take({.FrameStarts = frame, .MissingTimes = 5 * std::int64_t{frame}}), 0);
  }
}

TEST(LostFrames, FramesThatFoundNoBufferAreCounted) {
  LostFrames lost;
  EXPECT_EQ(lost.Take({.FrameStarts = 3, .MissingTimes = 2}), 0);
  EXPECT_EQ(lost.Take({.FrameStarts = 4, .MissingTimes = 2}), 0);
  EXPECT_EQ(lost.Take({.FrameStarts = 14, .MissingTimes = 11}), 8);
  EXPECT_EQ(lost.Take({.FrameStarts = 15, .MissingTimes = 11}), 9);
  EXPECT_EQ(lost.Take({.FrameStarts = 16, .MissingTimes = 11}), 9);
}

TEST(LostFrames, AFrameThatIsTakenLateIsNotLost) {
  LostFrames lost;
  EXPECT_EQ(lost.Take({.FrameStarts = 3, .MissingTimes = 0}), 0);
  EXPECT_EQ(lost.Take({.FrameStarts = 5, .MissingTimes = 1}), 0);
  EXPECT_EQ(lost.Take({.FrameStarts = 5, .MissingTimes = 1}), 0);
  EXPECT_EQ(lost.Take({.FrameStarts = 7, .MissingTimes = 1}), 0);
}

TEST(LostFrames, FramesThatWaitTogetherForAStalledApplicationAreNotLost) {
  LostFrames lost;
  EXPECT_EQ(lost.Take({.FrameStarts = 3, .MissingTimes = 0}), 0);
  for (int frame = 0; frame < 5; ++frame) {
    EXPECT_EQ(lost.Take({.FrameStarts = 8, .MissingTimes = 0}), 0);
  }
}

TEST(LostFrames, AFirstFrameThatIsTakenLateHidesNoLoss) {
  LostFrames lost;
  EXPECT_EQ(lost.Take({.FrameStarts = 7, .MissingTimes = 0}), 0);
  EXPECT_EQ(lost.Take({.FrameStarts = 7, .MissingTimes = 0}), 0);
  EXPECT_EQ(lost.Take({.FrameStarts = 7, .MissingTimes = 0}), 0);
  EXPECT_EQ(lost.Take({.FrameStarts = 13, .MissingTimes = 5}), 4);
  EXPECT_EQ(lost.Take({.FrameStarts = 14, .MissingTimes = 5}), 5);
}

TEST(LostFrames, TwoThatTheDriverLeavesOutAtAChangeOfLightAreNotLost) {
  LostFrames lost;
  EXPECT_EQ(lost.Take({.FrameStarts = 3, .MissingTimes = 0, .LightState = kNormal}), 0);
  EXPECT_EQ(lost.Take({.FrameStarts = 6, .MissingTimes = 12, .LightState = kLowLight}), 0);
  EXPECT_EQ(lost.Take({.FrameStarts = 7, .MissingTimes = 17, .LightState = kLowLight}), 0);
  EXPECT_EQ(lost.Take({.FrameStarts = 12, .MissingTimes = 42, .LightState = kNormal}), 1);
  EXPECT_EQ(lost.Take({.FrameStarts = 13, .MissingTimes = 42, .LightState = kNormal}), 2);
}

TEST(LostFrames, TheDriversCountMayWrapAround) {
  constexpr std::uint32_t kMost = std::numeric_limits<std::uint32_t>::max();
  LostFrames lost;
  EXPECT_EQ(lost.Take({.FrameStarts = kMost, .MissingTimes = 0}), 0);
  EXPECT_EQ(lost.Take({.FrameStarts = 0, .MissingTimes = 0}), 0);
  EXPECT_EQ(lost.Take({.FrameStarts = 5, .MissingTimes = 4}), 3);
}

}  // namespace
}  // namespace lidcam::app
