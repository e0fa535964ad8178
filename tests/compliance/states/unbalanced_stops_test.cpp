// Applications that stop more often than they start, or stop before they start.

#include <gtest/gtest.h>

#include "tests/compliance/support/compliance_world.h"
#include "tests/compliance/support/frame_rules.h"

namespace lidcam::compliance {
namespace {

using client::Camera;
using client::Stream;

class UnbalancedStops : public EveryCamera {};
LIDCAM_ON_EVERY_CAMERA(UnbalancedStops);

constexpr KSSTATE kStreamStates[] = {KSSTATE_STOP, KSSTATE_ACQUIRE, KSSTATE_PAUSE, KSSTATE_RUN};

TEST_P(UnbalancedStops, SecondOneIsSuccessAndChangesNothing) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    EXPECT_EQ(stream.SetState(KSSTATE_STOP), STATUS_SUCCESS);
    stream.Run();
    ASSERT_EQ(TakeFrames(stream, 1), STATUS_SUCCESS);
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(stream.SetState(KSSTATE_STOP), STATUS_SUCCESS);
      EXPECT_EQ(stream.State(), KSSTATE_STOP);
    }
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 2), STATUS_SUCCESS);
  });
}

TEST_P(UnbalancedStops, FromARunningStreamLeadToAnAcquisitionThatSucceeds) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    for (const KSSTATE last : {KSSTATE_RUN, KSSTATE_PAUSE, KSSTATE_ACQUIRE}) {
      SCOPED_TRACE(last);
      stream.Run();
      EXPECT_EQ(TakeFrames(stream, 1), STATUS_SUCCESS);
      EXPECT_EQ(stream.SetState(last), STATUS_SUCCESS);
      EXPECT_EQ(stream.State(), last);
      EXPECT_EQ(stream.SetState(KSSTATE_STOP), STATUS_SUCCESS);
      EXPECT_EQ(DrainFrames(stream, kSecond), STATUS_CANCELLED);
    }
  });
}

// A stream that was prepared and never ran stays prepared, and bars the next acquisition.
TEST_P(UnbalancedStops, FromAPauseThatNeverRanBarTheStreamUntilTheCameraIsRemoved) {
  Run([](Host& host) {
    {
      const Camera camera = host.Open();
      {
        Stream stream(camera, camera.FormatOf(160, 120));
        EXPECT_EQ(stream.SetState(KSSTATE_PAUSE), STATUS_SUCCESS);
        EXPECT_EQ(stream.SetState(KSSTATE_STOP), STATUS_SUCCESS);
        for (int i = 0; i < 3; ++i) {
          EXPECT_EQ(stream.SetState(KSSTATE_ACQUIRE), STATUS_UNSUCCESSFUL);
          EXPECT_EQ(stream.State(), KSSTATE_STOP);
        }
      }
      Stream another(camera, camera.FormatOf(640, 480));
      EXPECT_EQ(another.SetState(KSSTATE_RUN), STATUS_UNSUCCESSFUL);
      EXPECT_EQ(another.State(), KSSTATE_STOP);
    }
    host.Replug();
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 2), STATUS_SUCCESS);
  });
}

TEST_P(UnbalancedStops, FromAnAcquisitionThatNeverRanBarTheStreamAsWell) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    EXPECT_EQ(stream.SetState(KSSTATE_ACQUIRE), STATUS_SUCCESS);
    EXPECT_EQ(stream.SetState(KSSTATE_STOP), STATUS_SUCCESS);
    EXPECT_EQ(stream.SetState(KSSTATE_ACQUIRE), STATUS_UNSUCCESSFUL);
  });
}

TEST_P(UnbalancedStops, ClosingAPinInAnyStateLeavesTheCameraToTheNextOne) {
  for (const KSSTATE state : kStreamStates) {
    SCOPED_TRACE(state);
    Run([state](Host& host) {
      const Camera camera = host.Open();
      {
        Stream stream(camera, camera.FormatOf(160, 120));
        if (state == KSSTATE_RUN) {
          stream.Run();
          EXPECT_EQ(TakeFrames(stream, 1), STATUS_SUCCESS);
        } else {
          EXPECT_EQ(stream.SetState(state), STATUS_SUCCESS);
        }
      }
      Stream next(camera, camera.FormatOf(320, 240));
      // Barred as after a stop: closing steps the pin down.
      const bool isBarred = state == KSSTATE_ACQUIRE || state == KSSTATE_PAUSE;
      EXPECT_EQ(next.SetState(KSSTATE_ACQUIRE), isBarred ? STATUS_UNSUCCESSFUL : STATUS_SUCCESS);
      if (isBarred) return;
      next.Run();
      EXPECT_EQ(TakeFrames(next, 2), STATUS_SUCCESS);
    });
  }
}

TEST_P(UnbalancedStops, ClosingTheFilterAheadOfItsPinStopsNothing) {
  Run([](Host& host) {
    auto camera = std::make_unique<Camera>(host.Open());
    Stream stream(*camera, camera->FormatOf(160, 120));
    stream.Run();
    ASSERT_EQ(TakeFrames(stream, 1), STATUS_SUCCESS);
    camera.reset();
    EXPECT_EQ(TakeFrames(stream, 8), STATUS_SUCCESS);
  });
}

}  // namespace
}  // namespace lidcam::compliance
