// Changes of a connected stream's format.

#include <gtest/gtest.h>

#include "tests/compliance/support/compliance_world.h"
#include "tests/compliance/support/frame_rules.h"

namespace lidcam::compliance {
namespace {

using client::Camera;
using client::Stream;
using client::VideoFormat;

class FormatChanges : public EveryCamera {};
LIDCAM_ON_EVERY_CAMERA(FormatChanges);

TEST_P(FormatChanges, OfAStoppedStreamAreTakenAndStreamed) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    // Buffers are made for the first format, so that it is the largest.
    Stream stream(camera, camera.FormatOf(320, 240));
    for (const auto& [width, height, bytes] :
         {std::tuple{176, 144, 50688U}, {160, 120, 38400U}, {320, 240, 153600U}}) {
      SCOPED_TRACE(width);
      EXPECT_EQ(stream.SetFormat(camera.FormatOf(width, height)), STATUS_SUCCESS);
      EXPECT_EQ(stream.Format().Width(), width);
      EXPECT_EQ(stream.DroppedFrames().AverageFrameSize, bytes);
      FrameRules rules(bytes, 333333, false);
      stream.Run();
      EXPECT_EQ(TakeFrames(stream, 3, rules), STATUS_SUCCESS);
      stream.Stop();
    }
  });
}

TEST_P(FormatChanges, AreRefusedInEveryStateButStop) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    const VideoFormat other = camera.FormatOf(640, 480);
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.UseClock();
    FrameRules rules(38400, 333333, true);
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 2, rules), STATUS_SUCCESS);
    for (const KSSTATE state : {KSSTATE_RUN, KSSTATE_PAUSE, KSSTATE_ACQUIRE}) {
      SCOPED_TRACE(state);
      EXPECT_EQ(stream.SetState(state), STATUS_SUCCESS);
      EXPECT_EQ(stream.SetFormat(other), static_cast<NTSTATUS>(0xC0000184));
      EXPECT_EQ(stream.Format().Width(), 160);
    }
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 5, rules), STATUS_SUCCESS);
    stream.Stop();
    EXPECT_EQ(stream.SetFormat(other), STATUS_SUCCESS);
    EXPECT_EQ(stream.Format().Width(), 640);
  });
}

// The size of buffers is that of the connection's framing, which a change of format keeps.
TEST_P(FormatChanges, ToALargerPictureFillTheBuffersAndNothingBehindThem) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    EXPECT_EQ(stream.SetFormat(camera.FormatOf(640, 480)), STATUS_SUCCESS);
    EXPECT_EQ(stream.Framing().FramingItem[0].FramingRange.Range.MinFrameSize, 38400U);
    stream.Run();
    for (int i = 0; i < 2; ++i) {
      const client::NextFrame next = stream.Next(kFrameWait);
      ASSERT_EQ(next.Status, STATUS_SUCCESS);
      EXPECT_EQ(next.Picture->Bytes().size(), 38400U);
    }
  });
}

TEST_P(FormatChanges, ToAnotherIntervalStampIt) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.UseClock();
    for (const LONGLONG interval : {666666LL, 333333LL}) {
      EXPECT_EQ(stream.SetFormat(camera.FormatOf(160, 120, interval)), STATUS_SUCCESS);
      FrameRules rules(38400, interval, true);
      stream.Run();
      EXPECT_EQ(TakeFrames(stream, 3, rules), STATUS_SUCCESS);
      stream.Stop();
    }
  });
}

}  // namespace
}  // namespace lidcam::compliance
