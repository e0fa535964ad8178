#include "apps/lidcam/stream/stream_run.h"

#include <gtest/gtest.h>

#include <optional>

namespace lidcam::app {
namespace {

TEST(DifferenceOfARecording, ThereIsNoneWhereAReplayDeliversAsManyFrames) {
  EXPECT_EQ(DifferenceText(30, 30, std::nullopt), "");
  EXPECT_EQ(DifferenceText(30, 30, 30), "");
}

TEST(DifferenceOfARecording, FramesThatWereLateAreInTheRecording) {
  EXPECT_EQ(DifferenceText(28, 30, std::nullopt),
            "a replay delivers 30 frames: this machine was too busy to deliver more than 28 of "
            "them in time");
}

TEST(DifferenceOfARecording, ACompleteStreamLacksNothingWhereTheRecordingWentOn) {
  EXPECT_EQ(DifferenceText(1, 2, 1),
            "a replay delivers 2 frames, and not 1: this machine was too busy to end the recording "
            "in time");
}

}  // namespace
}  // namespace lidcam::app
