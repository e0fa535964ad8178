// The fields that each step of stream control sets, and when.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/host/nt/verifier/kernel_faults.h"
#include "tests/driver/support/statuses.h"
#include "tests/driver/usb/support/transport_world.h"

namespace lidcam::test {
namespace {

using testing::ElementsAre;

// A raw frame that was published earlier.
class StaleFrame {
 public:
  explicit StaleFrame(TransportWorld& world) : device_(world.Device()) {
    device_.PublishRawFrame(&byte_, 1);
  }

  [[nodiscard]] bool IsStillPublished() const {
    std::uint32_t size = 0;
    return device_.GetRawFrame(size) == &byte_ && size == 1;
  }
  [[nodiscard]] bool IsCleared() const {
    std::uint32_t size = 1;
    return device_.GetRawFrame(size) == nullptr && size == 0;
  }

 private:
  CameraUsbDevice& device_;
  std::uint8_t byte_ = 0;
};

TEST(StreamFlags, APauseMendsABrokenCircle) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire() | world.Device().RunStream(), 0);
    world.Stream().Halted = 1;
    EXPECT_EQ(world.Device().PauseStream(), STATUS_SUCCESS);
    EXPECT_EQ(world.Stream().Halted, 0);
    EXPECT_EQ(world.Stream().StreamRunning, 0);
  });
}

TEST(StreamFlags, APauseWhoseDrainTimesOutMendsABrokenCircleToo) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire() | world.Device().RunStream(), 0);
    world.Stack.Decide = [](URB& urb) -> std::optional<Verdict> {
      if (urb.UrbHeader.Function != 2) return std::nullopt;
      return Verdict{};
    };
    world.Stream().Halted = 1;
    EXPECT_EQ(world.Device().PauseStream(), STATUS_TIMEOUT);
    EXPECT_EQ(world.Stream().Halted, 0);
    EXPECT_EQ(world.Stream().StreamRunning, 0);
  });
}

TEST(StreamFlags, APauseIsNotedBeforeItWaitsForTheDevice) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire() | world.Device().RunStream(), 0);
    KsAcquireDevice(world.Ks());
    host::TestThread pin([&] { EXPECT_EQ(world.Device().PauseStream(), STATUS_SUCCESS); });
    host::Sleep(host::kMillisecond);
    EXPECT_EQ(world.Stream().RestartPending, 1);
    EXPECT_EQ(world.Stream().StreamRunning, 1);
    EXPECT_EQ(world.Stream().WaitFlags, 4U);  // the drain has not begun
    KsReleaseDevice(world.Ks());
    pin.Join();
    EXPECT_EQ(world.Stream().StreamRunning, 0);
  });
}

TEST(StreamFlags, AResumeIsWantedUntilTheTransfersAreOut) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire() | world.Device().RunStream(), 0);
    ASSERT_EQ(world.Device().PauseStream(), STATUS_SUCCESS);
    std::uint8_t wantedAtLast = 0;
    world.Stack.Decide = [&](URB& urb) -> std::optional<Verdict> {
      if (urb.UrbHeader.Function == URB_FUNCTION_ISOCH_TRANSFER) {
        wantedAtLast = world.Stream().RestartPending;
      }
      return std::nullopt;
    };
    EXPECT_EQ(world.Device().ResumeStream(), STATUS_SUCCESS);
    world.Stack.Decide = nullptr;
    EXPECT_EQ(wantedAtLast, 1);
    EXPECT_EQ(world.Stream().RestartPending, 0);
  });
}

// A pause that has been noted and still waits for the device.
TEST(StreamFlags, AResumeOfAStreamThatRunsStillIsNotPendingAnyMore) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire() | world.Device().RunStream(), 0);
    world.Stream().RestartPending = 1;
    world.Log.Clear();
    EXPECT_EQ(world.Device().ResumeStream(), STATUS_SUCCESS);
    EXPECT_EQ(world.Stream().RestartPending, 0);
    EXPECT_EQ(world.Stream().StreamRunning, 1);
    EXPECT_TRUE(world.Log.Lines().empty());
  });
}

TEST(StreamFlags, ARunThrowsTheFrameUnderWayAwayAndForgetsABadEnd) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    FrameAssembly& assembly = world.Stream().Assembly;
    assembly.DiscardFrame = 0;
    assembly.BadFrameEnd = 1;
    assembly.ForcePublish = 1;
    EXPECT_EQ(world.Device().RunStream(), STATUS_SUCCESS);
    EXPECT_EQ(assembly.DiscardFrame, 1);
    EXPECT_EQ(assembly.BadFrameEnd, 0);
    EXPECT_EQ(assembly.ForcePublish, 1);
  });
}

TEST(StreamFlags, ARunOfARunningStreamLeavesItsFrameAlone) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire() | world.Device().RunStream(), 0);
    FrameAssembly& assembly = world.Stream().Assembly;
    assembly.DiscardFrame = 0;
    assembly.BadFrameEnd = 1;
    EXPECT_EQ(world.Device().RunStream(), STATUS_SUCCESS);
    EXPECT_EQ(assembly.DiscardFrame, 0);
    EXPECT_EQ(assembly.BadFrameEnd, 1);
  });
}

TEST(StreamFlags, AReleaseForgetsTheFrameUnderWayAndItsBuffers) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    FrameAssembly& assembly = world.Stream().Assembly;
    EXPECT_EQ(assembly.FillOffset, 0U);
    assembly.FillOffset = 5;
    EXPECT_EQ(world.Device().ReleaseStream(), STATUS_SUCCESS);
    EXPECT_EQ(assembly.FillOffset, 0U);
    EXPECT_EQ(assembly.ReadyBuffer, nullptr);
    EXPECT_EQ(assembly.FillBuffer, nullptr);
    EXPECT_EQ(assembly.RawBufferSize, 921666U);
  });
}

TEST(StreamFlags, AnAcquireTakesTheStaleFrameAway) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    const StaleFrame frame(world);
    EXPECT_EQ(world.Acquire(), STATUS_SUCCESS);
    EXPECT_TRUE(frame.IsCleared());
  });
}

// The format comes first, then the frame is withdrawn, then the stream is prepared.
TEST(StreamFlags, AnAcquireTakesTheStaleFrameAwayBetweenFormatAndPreparation) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    const StaleFrame frame(world);
    world.Stack.Decide = [&frame](URB& urb) -> std::optional<Verdict> {
      if (urb.UrbHeader.Function == 1) {
        EXPECT_TRUE(frame.IsStillPublished());
        return Verdict{kIoError};
      }
      return std::nullopt;
    };
    EXPECT_EQ(world.Acquire(), kIoError);
    EXPECT_TRUE(frame.IsStillPublished());

    world.Stack.Decide = nullptr;
    ASSERT_EQ(world.Acquire(), STATUS_SUCCESS);
    const StaleFrame second(world);
    EXPECT_EQ(world.Acquire(), kUnsuccessful);
    EXPECT_TRUE(second.IsCleared());
  });
}

TEST(StreamFlags, ARefusedSecondAcquireHasTakenItsFormatOver) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(640, 480), 0);
    KS_VIDEOINFOHEADER info = VideoInfo(352, 288);
    info.AvgTimePerFrame = 500000;
    EXPECT_EQ(world.Device().AcquireStream(&world.Pin, &info), kUnsuccessful);
    const FormatRequest& format = world.Stream().StreamFormat;
    EXPECT_EQ(format.Width, 352);
    EXPECT_EQ(format.Height, 288);
    EXPECT_EQ(format.ImageSize, 202752U);
    EXPECT_EQ(format.AvgTimePerFrame, 500000);
    EXPECT_EQ(format.AlternateSetting, 7U);
    EXPECT_EQ(world.Record().Camera->CaptureWidth, 352);
    EXPECT_EQ(world.Record().Camera->CaptureHeight, 288);
    EXPECT_THAT(world.Stack.SettingsAsked, ElementsAre(7U));
  });
}

TEST(StreamFlags, ThePinIsRememberedWithTheAcquiresSuccessAndNeverForgotten) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    KSPIN other{};
    KS_VIDEOINFOHEADER info = VideoInfo(640, 480);
    host::FailKernelCall("PsCreateSystemThread", 1, kUnsuccessful);
    EXPECT_EQ(world.Device().AcquireStream(&other, &info), kNoMemory);
    EXPECT_EQ(world.Record().Pin, nullptr);

    ASSERT_EQ(world.Acquire(), STATUS_SUCCESS);
    EXPECT_EQ(world.Record().Pin, &world.Pin);
    EXPECT_EQ(world.Device().AcquireStream(&other, &info), kUnsuccessful);
    EXPECT_EQ(world.Record().Pin, &world.Pin);

    ASSERT_EQ(world.Device().RunStream() | world.Device().PauseStream(), 0);
    EXPECT_EQ(world.Record().Pin, &world.Pin);
    ASSERT_EQ(world.Device().ReleaseStream(), STATUS_SUCCESS);
    EXPECT_EQ(world.Record().Pin, &world.Pin);
    ASSERT_EQ(world.Device().OnDeviceGone(0) | world.Device().StopHardware(), 0);
    EXPECT_EQ(world.Record().Pin, &world.Pin);
  });
}

}  // namespace
}  // namespace lidcam::test
