// The headers of frames, with a clock and without, and after lost frames.

#include <gtest/gtest.h>

#include <vector>

#include "tests/compliance/support/compliance_world.h"
#include "tests/compliance/support/frame_rules.h"

namespace lidcam::compliance {
namespace {

using client::Camera;
using client::Stream;

class FrameHeaders : public EveryCamera {};
LIDCAM_ON_EVERY_CAMERA(FrameHeaders);

TEST_P(FrameHeaders, WithAClockKeepTheirRulesForAHundredFrames) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.UseClock();
    FrameRules rules(38400, 333333, true);
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 100, rules), STATUS_SUCCESS);
    EXPECT_GT(rules.LastTime(), 100 * 333333LL * 9 / 10);
    EXPECT_LE(rules.LastTime(), stream.ClockTime());
  });
}

TEST_P(FrameHeaders, WithoutAClockTellNoTimeAndNoNumber) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    FrameRules rules(38400, 333333, false);
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 20, rules), STATUS_SUCCESS);
    const KSPROPERTY_DROPPEDFRAMES_CURRENT_S dropped = stream.DroppedFrames();
    EXPECT_EQ(dropped.PictureNumber, 0);
    EXPECT_EQ(dropped.DropCount, 0);
  });
}

TEST_P(FrameHeaders, BeginAnewWithEachStart) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.UseClock();
    LONGLONG firstTime = 0;
    for (int round = 0; round < 3; ++round) {
      SCOPED_TRACE(round);
      FrameRules rules(38400, 333333, true);
      stream.Run();
      ASSERT_EQ(TakeFrames(stream, 1, rules), STATUS_SUCCESS);
      // The camera needs about the same time in each round.
      if (round == 0) firstTime = rules.LastTime();
      EXPECT_LT(rules.LastTime(), firstTime + kSecond);
      EXPECT_EQ(TakeFrames(stream, 5, rules), STATUS_SUCCESS);
      stream.Stop();
    }
  });
}

TEST_P(FrameHeaders, CountTheFramesWithoutABuffer) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120), {.Buffers = 3});
    stream.UseClock();
    FrameRules rules(38400, 333333, true);
    stream.Run();
    ASSERT_EQ(TakeFrames(stream, 5, rules), STATUS_SUCCESS);
    {
      std::vector<client::NextFrame> held;
      while (stream.Queued() != 0) {
        held.push_back(stream.Next(kFrameWait));
        ASSERT_EQ(held.back().Status, STATUS_SUCCESS);
        rules.Take(*held.back().Picture);
      }
      Sleep(2 * kSecond);
    }
    const LONGLONG before = rules.LastDropCount();
    const LONGLONG numberBefore = rules.LastNumber();
    ASSERT_EQ(TakeFrames(stream, 1, rules), STATUS_SUCCESS);
    // Sixty frames long, minus the delivered frame and the interval before it.
    EXPECT_GE(rules.LastDropCount(), before + 58);
    EXPECT_LE(rules.LastDropCount(), before + 70);
    EXPECT_GE(rules.LastNumber(), numberBefore + 59);
    const KSPROPERTY_DROPPEDFRAMES_CURRENT_S dropped = stream.DroppedFrames();
    EXPECT_EQ(dropped.DropCount, rules.LastDropCount());
    EXPECT_EQ(dropped.PictureNumber, rules.LastNumber());
    EXPECT_EQ(dropped.AverageFrameSize, 38400U);
  });
}

TEST_P(FrameHeaders, TellOfNothingBeforeTheStreamHasRun) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    const Stream stream(camera, camera.FormatOf(352, 288));
    const KSPROPERTY_DROPPEDFRAMES_CURRENT_S dropped = stream.DroppedFrames();
    EXPECT_EQ(dropped.PictureNumber, 0);
    EXPECT_EQ(dropped.DropCount, 0);
    EXPECT_EQ(dropped.AverageFrameSize, 202752U);
  });
}

TEST_P(FrameHeaders, GoOnWithTheirNumbersBehindAPause) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.UseClock();
    FrameRules rules(38400, 333333, true);
    stream.Run();
    ASSERT_EQ(TakeFrames(stream, 5, rules), STATUS_SUCCESS);
    stream.Pause();
    const LONGLONG paused = stream.ClockTime();
    Sleep(3 * kSecond);
    EXPECT_EQ(stream.ClockTime(), paused);
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 10, rules), STATUS_SUCCESS);
    // The clock was halted, so that the pause itself drops nothing.
    EXPECT_LT(rules.LastDropCount(), 60);
  });
}

}  // namespace
}  // namespace lidcam::compliance
