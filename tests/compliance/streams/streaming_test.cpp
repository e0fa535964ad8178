// Frames are delivered while the stream runs and has buffers, and not otherwise.

#include <gtest/gtest.h>

#include <tuple>

#include "tests/compliance/support/compliance_world.h"
#include "tests/compliance/support/frame_rules.h"

namespace lidcam::compliance {
namespace {

using client::Camera;
using client::Stream;

class Frames : public ::testing::TestWithParam<std::tuple<CameraKind, int>> {};

TEST_P(Frames, AreDeliveredInTheNumberThatIsTakenAndThenTheCameraStops) {
  const auto [kind, count] = GetParam();
  RunOn(kind, [count = count](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.UseClock();
    FrameRules rules(38400, 333333, true);
    stream.Run();
    EXPECT_EQ(stream.State(), KSSTATE_RUN);
    EXPECT_EQ(TakeFrames(stream, count, rules), STATUS_SUCCESS);
    EXPECT_EQ(rules.Count(), count);
    stream.Stop();
    EXPECT_EQ(stream.State(), KSSTATE_STOP);
    EXPECT_EQ(stream.Queued(), 0U);
    EXPECT_EQ(stream.Next(kSecond).Status, STATUS_CANCELLED);
  });
}

INSTANTIATE_TEST_SUITE_P(, Frames,
                         ::testing::Combine(::testing::Values(CameraKind::Simulated,
                                                              CameraKind::Recorded,
                                                              CameraKind::Disturbed),
                                            ::testing::Values(1, 2, 3, 5, 8, 13, 89)),
                         [](const auto& test) {
                           return NameOf(std::get<0>(test.param)) +
                                  std::to_string(std::get<1>(test.param));
                         });

class Streaming : public EveryCamera {};
LIDCAM_ON_EVERY_CAMERA(Streaming);

TEST_P(Streaming, StartsAndStopsTwentyTimes) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.UseClock();
    for (int round = 0; round < 20; ++round) {
      SCOPED_TRACE(round);
      FrameRules rules(38400, 333333, true);
      stream.Run();
      EXPECT_EQ(TakeFrames(stream, 2, rules), STATUS_SUCCESS);
      stream.Stop();
      EXPECT_EQ(stream.Queued(), 0U);
    }
  });
}

TEST_P(Streaming, StartsAnewOnAPinOpenedAnewTwentyTimes) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    for (int round = 0; round < 20; ++round) {
      SCOPED_TRACE(round);
      Stream stream(camera, camera.FormatOf(160, 120));
      stream.Run();
      EXPECT_EQ(TakeFrames(stream, 1), STATUS_SUCCESS);
    }
  });
}

TEST_P(Streaming, PausesAndGoesOnTenTimesWithItsNumbers) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.UseClock();
    FrameRules rules(38400, 333333, true);
    for (int round = 0; round < 10; ++round) {
      SCOPED_TRACE(round);
      stream.Run();
      EXPECT_EQ(TakeFrames(stream, 2, rules), STATUS_SUCCESS);
      stream.Pause();
      EXPECT_EQ(stream.State(), KSSTATE_PAUSE);
      TakeFramesUntilQuiet(stream, rules);
    }
  });
}

TEST_P(Streaming, GivesAllBuffersBackThatAnApplicationCancels) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.Run();
    ASSERT_EQ(TakeFrames(stream, 2), STATUS_SUCCESS);
    stream.CancelBuffers();
    EXPECT_EQ(DrainFrames(stream, kFrameWait), STATUS_CANCELLED);
    EXPECT_EQ(stream.State(), KSSTATE_RUN);
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 7), STATUS_SUCCESS);
  });
}

TEST_P(Streaming, RunsWithASingleBuffer) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120), {.Buffers = 1});
    stream.UseClock();
    FrameRules rules(38400, 333333, true);
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 8, rules), STATUS_SUCCESS);
  });
}

TEST_P(Streaming, StopsWithoutEverHavingRun) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    EXPECT_EQ(stream.SetState(KSSTATE_ACQUIRE), STATUS_SUCCESS);
    EXPECT_EQ(stream.State(), KSSTATE_ACQUIRE);
    EXPECT_EQ(stream.SetState(KSSTATE_STOP), STATUS_SUCCESS);
    EXPECT_EQ(stream.State(), KSSTATE_STOP);
  });
}

}  // namespace
}  // namespace lidcam::compliance
