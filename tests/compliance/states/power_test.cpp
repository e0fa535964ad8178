// Power down and power up, with and without a stream.

#include "platform/host/nt/io/plug_and_play.h"

#include <gtest/gtest.h>
#include "tests/compliance/support/compliance_world.h"
#include "tests/compliance/support/frame_rules.h"
#include "tests/compliance/support/property_table.h"

namespace lidcam::compliance {
namespace {

using client::Camera;
using client::Stream;

class Power : public EveryCamera {};
LIDCAM_ON_EVERY_CAMERA(Power);

TEST_P(Power, DownInMidStreamEndsFramesUntilTheClientPausesAndRunsAgain) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.UseClock();
    FrameRules rules(38400, 333333, true);
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 3, rules), STATUS_SUCCESS);
    for (int night = 0; night < 2; ++night) {
      SCOPED_TRACE(night);
      EXPECT_EQ(host.Installed().PowerDown(), STATUS_SUCCESS);
      TakeFramesUntilQuiet(stream, rules);
      EXPECT_EQ(stream.State(), KSSTATE_RUN);
      EXPECT_EQ(host.Installed().PowerUp(), STATUS_SUCCESS);
      EXPECT_EQ(stream.Next(kSecond).Status, STATUS_TIMEOUT);
      EXPECT_EQ(stream.State(), KSSTATE_RUN);
      EXPECT_EQ(stream.SetState(KSSTATE_PAUSE), STATUS_SUCCESS);
      stream.Run();
      EXPECT_EQ(TakeFrames(stream, 5, rules), STATUS_SUCCESS);
    }
    stream.Stop();
  });
}

TEST_P(Power, DownSwallowsARunOfAPausedStream) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 2), STATUS_SUCCESS);
    stream.Pause();
    EXPECT_EQ(DrainFrames(stream, 200 * kMillisecond), STATUS_TIMEOUT);
    EXPECT_EQ(host.Installed().PowerDown(), STATUS_SUCCESS);
    stream.Run();
    EXPECT_EQ(stream.State(), KSSTATE_RUN);
    EXPECT_EQ(stream.Next(kSecond).Status, STATUS_TIMEOUT);
    EXPECT_EQ(host.Installed().PowerUp(), STATUS_SUCCESS);
    EXPECT_EQ(stream.Next(kSecond).Status, STATUS_TIMEOUT);
    EXPECT_EQ(stream.SetState(KSSTATE_PAUSE), STATUS_SUCCESS);
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 5), STATUS_SUCCESS);
  });
}

TEST_P(Power, DownSwallowsTheFirstRunOfAStream) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    EXPECT_EQ(stream.SetState(KSSTATE_PAUSE), STATUS_SUCCESS);
    EXPECT_EQ(host.Installed().PowerDown(), STATUS_SUCCESS);
    stream.Run();
    EXPECT_EQ(stream.State(), KSSTATE_RUN);
    EXPECT_EQ(stream.Next(kSecond).Status, STATUS_TIMEOUT);
    EXPECT_EQ(host.Installed().PowerUp(), STATUS_SUCCESS);
    EXPECT_EQ(stream.Next(kSecond).Status, STATUS_TIMEOUT);
  });
}

TEST_P(Power, DownAndUpOverAStoppedStreamChangesNothing) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    for (int night = 0; night < 3; ++night) {
      SCOPED_TRACE(night);
      EXPECT_EQ(host.Installed().PowerDown(), STATUS_SUCCESS);
      EXPECT_EQ(host.Installed().PowerUp(), STATUS_SUCCESS);
      stream.Run();
      EXPECT_EQ(TakeFrames(stream, 2), STATUS_SUCCESS);
      stream.Stop();
    }
  });
}

TEST_P(Power, DownLeavesPropertiesToBeRead) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    EXPECT_EQ(host.Installed().PowerDown(), STATUS_SUCCESS);
    for (const PropertyRow& row : PropertyRows()) {
      EXPECT_EQ(camera.GetLevel(*row.Set, row.Id).Value, row.First) << row.Name;
    }
    EXPECT_EQ(host.Installed().PowerUp(), STATUS_SUCCESS);
  });
}

TEST_P(Power, BetweenTheLightSleepsTouchesNoStream) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.UseClock();
    FrameRules rules(38400, 333333, true);
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 2, rules), STATUS_SUCCESS);
    const PDEVICE_OBJECT device = host.Installed().TopDevice();
    for (const DEVICE_POWER_STATE state :
         {PowerDeviceD1, PowerDeviceD2, PowerDeviceD1, PowerDeviceD0}) {
      EXPECT_EQ(host::SetDevicePower(device, state), STATUS_SUCCESS);
      EXPECT_EQ(TakeFrames(stream, 2, rules), STATUS_SUCCESS);
    }
  });
}

TEST_P(Power, DownAndRemovalHandBuffersBack) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 2), STATUS_SUCCESS);
    EXPECT_EQ(host.Installed().PowerDown(), STATUS_SUCCESS);
    EXPECT_EQ(host.Installed().SurpriseRemove(), STATUS_SUCCESS);
    EXPECT_EQ(DrainFrames(stream, kSecond), STATUS_CANCELLED);
  });
}

TEST_P(Power, DownAndStopAndUpLeaveAStreamThatRuns) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 2), STATUS_SUCCESS);
    EXPECT_EQ(host.Installed().PowerDown(), STATUS_SUCCESS);
    stream.Stop();
    EXPECT_EQ(host.Installed().PowerUp(), STATUS_SUCCESS);
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 3), STATUS_SUCCESS);
  });
}

// Nothing is stopped in D1 and D2; but a stream that is paused there isn't run again before D0.
TEST_P(Power, StatesInBetweenStopNothingAndSwallowARun) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.Run();
    for (const DEVICE_POWER_STATE state : {PowerDeviceD1, PowerDeviceD2}) {
      SCOPED_TRACE(static_cast<int>(state));
      EXPECT_EQ(TakeFrames(stream, 2), STATUS_SUCCESS);
      EXPECT_EQ(host::SetDevicePower(host.Installed().TopDevice(), state), STATUS_SUCCESS);
      EXPECT_EQ(TakeFrames(stream, 4), STATUS_SUCCESS);
      stream.Pause();
      EXPECT_EQ(DrainFrames(stream, 200 * kMillisecond), STATUS_TIMEOUT);
      stream.Run();
      EXPECT_EQ(stream.Next(kSecond).Status, STATUS_TIMEOUT);
      EXPECT_EQ(host.Installed().PowerUp(), STATUS_SUCCESS);
      stream.Pause();
      stream.Run();
    }
    EXPECT_EQ(TakeFrames(stream, 2), STATUS_SUCCESS);
  });
}

TEST_P(Power, UpOfACameraThatIsUpLoadsNothing) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    camera.SetLevel(kVideoAmplifier, 0, {-33, 2});
    EXPECT_EQ(host.Installed().PowerUp(), STATUS_SUCCESS);
    EXPECT_EQ(camera.GetLevel(kVideoAmplifier, 0).Value, -33);
  });
}

// A power up from D3 loads the saved settings; one that comes by way of D1 doesn't.
TEST_P(Power, UpByAStateInBetweenLoadsNothing) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    camera.SetLevel(kVideoAmplifier, 0, {-33, 2});
    EXPECT_EQ(host.Installed().PowerDown(), STATUS_SUCCESS);
    EXPECT_EQ(host::SetDevicePower(host.Installed().TopDevice(), PowerDeviceD1), STATUS_SUCCESS);
    EXPECT_EQ(host.Installed().PowerUp(), STATUS_SUCCESS);
    EXPECT_EQ(camera.GetLevel(kVideoAmplifier, 0).Value, -33);
  });
}

}  // namespace
}  // namespace lidcam::compliance
