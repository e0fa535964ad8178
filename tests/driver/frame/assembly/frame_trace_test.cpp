#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "driver/core/base/camera_trace.h"
#include "tests/driver/frame/assembly/assembly_fixture.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(FrameTrace, HasOneCanonicalLineForEachFrameEndAndOneForEachDecision) {
  AssemblyFixture camera(614466, 921666);
  camera.Context.ReceivedFrameBytes = 614466;
  camera.BeginStream(0);
  const Packet frame = Start(614466, 1);
  camera.Feed({frame, frame, frame});
  camera.Busy = true;
  camera.Feed(frame);
  EXPECT_THAT(camera.TakeLog(),
              ElementsAre("frame end bytes=614466 expected=614466 settling",
                          "frame end bytes=614466 expected=614466 good",  //
                          "frame discarded", "frame end bytes=614466 expected=614466 good",
                          "frame published bytes=614466", "publish 614466", "wake",
                          "frame end bytes=614466 expected=614466 good",  //
                          "frame busy bytes=614466"));
}

TEST(FrameTrace, SaysBadWithTheBytesReceived) {
  AssemblyFixture camera(614466, 921666);
  camera.Feed({Body(100, 1), Start(20, 1)});
  EXPECT_THAT(camera.TakeLog(),
              ElementsAre("ReceivedRawFrameBuffer = 100", "Correct RawFrameBuffer = 614466",
                          "frame end bytes=100 expected=614466 bad", "frame published bytes=100",
                          "publish 100", "wake"));
}

TEST(FrameTrace, IsSilentBetweenFrameEnds) {
  AssemblyFixture camera(614466, 921666);
  camera.Feed({Body(100, 1), Body(100, 1), Packet{}});
  EXPECT_THAT(camera.Log, IsEmpty());
}

TEST(FrameTrace, IsSilentWhenOff) {
  AssemblyFixture camera(200, 921666);
  SetCameraTraceSink(nullptr);
  camera.Feed({Body(200, 1), Start(20, 1)});
  EXPECT_THAT(camera.Log, ElementsAre("publish 200", "wake"));
}

}  // namespace
}  // namespace lidcam::test
