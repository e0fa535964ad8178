// One camera in one host, in virtual time: every state of its stream, and its interruptions.

#include "testbed/transport_testbed.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "bus/faults/fault_bus.h"
#include "camera_model/bus_adapter/simulated_bus.h"
#include "driver/core/control/control_codes.h"
#include "platform/host/nt/memory/pool.h"

namespace lidcam::testbed {
namespace {

constexpr NTSTATUS kDeviceDataError = static_cast<NTSTATUS>(0xC000009C);
constexpr NTSTATUS kUnsuccessful = static_cast<NTSTATUS>(0xC0000001);
constexpr StreamRequest kSmall{.Width = 160, .Height = 120};

/// A host with the default camera, started, in a world of its own.
void WithStartedCamera(const std::function<void(TransportTestbed&)>& use, FrameHandler frames = {},
                       std::uint64_t seed = 1) {
  bus::SimulatedBus bus({});
  RunInVirtualTime({.Seed = seed}, [&] {
    WithTransportTestbed(bus, {.Frames = std::move(frames)}, [&](TransportTestbed& camera) {
      ASSERT_EQ(camera.Start(), STATUS_SUCCESS);
      use(camera);
    });
  });
}

TEST(TransportTestbed, DeliversFramesFromStartToStop) {
  std::size_t bytes = 0;
  std::vector<std::size_t> rawBytes;
  WithStartedCamera(
      [&](TransportTestbed& camera) {
        ASSERT_EQ(camera.Acquire({}), STATUS_SUCCESS);
        ASSERT_EQ(camera.Run(), STATUS_SUCCESS);
        EXPECT_TRUE(camera.WaitForFrames(3, kSecond));
        EXPECT_EQ(camera.Counts().Good, 3U);
        EXPECT_EQ(camera.Counts().Bad, 0U);
        EXPECT_EQ(camera.Counts().Dropped, 1U);  // the first, during which the stream settles
        EXPECT_EQ(camera.Pause(), STATUS_SUCCESS);
        EXPECT_EQ(camera.Release(), STATUS_SUCCESS);
        EXPECT_EQ(camera.Stop(), STATUS_SUCCESS);
      },
      [&](const HostedFrame& frame) {
        bytes = frame.Yuy2.size();
        rawBytes.push_back(frame.RawFrame.size());
        EXPECT_TRUE(frame.IsGood);
      });
  EXPECT_EQ(bytes, 614400U);
  EXPECT_THAT(rawBytes, ::testing::Each(614466U));
}

TEST(TransportTestbed, CountsTheBytesAndTheTimeOfTheBusFromItsAcquisitionOn) {
  WithStartedCamera([](TransportTestbed& camera) {
    for (int round = 0; round < 2; ++round) {
      ASSERT_EQ(camera.Acquire({}), STATUS_SUCCESS);
      EXPECT_EQ(camera.Counts().BusBytes, 0U);
      ASSERT_EQ(camera.Run(), STATUS_SUCCESS);
      EXPECT_TRUE(camera.WaitForFrames(2, kSecond));
      EXPECT_EQ(camera.Counts().Microframes % 32, 0U);
      EXPECT_GT(camera.Counts().BusBytes, 2U * 614466U);
      camera.Pause();
      camera.Release();
    }
  });
}

TEST(TransportTestbed, PausedDeliversNothingAndResumedGoesOn) {
  WithStartedCamera([](TransportTestbed& camera) {
    ASSERT_EQ(camera.Acquire(kSmall), STATUS_SUCCESS);
    ASSERT_EQ(camera.Run(), STATUS_SUCCESS);
    ASSERT_TRUE(camera.WaitForFrames(2, kSecond));
    ASSERT_EQ(camera.Pause(), STATUS_SUCCESS);
    camera.WaitForFrames(1000, 100 * kMillisecond);
    const std::uint64_t paused = camera.Counts().Delivered();
    camera.WaitForFrames(1000, kSecond);
    EXPECT_EQ(camera.Counts().Delivered(), paused);
    ASSERT_EQ(camera.Resume(), STATUS_SUCCESS);
    EXPECT_TRUE(camera.WaitForFrames(paused + 3, kSecond));
  });
}

TEST(TransportTestbed, AcquiredTwiceRefusesTheSecondTime) {
  WithStartedCamera([](TransportTestbed& camera) {
    ASSERT_EQ(camera.Acquire({}), STATUS_SUCCESS);
    EXPECT_EQ(camera.Acquire({}), kUnsuccessful);
  });
}

TEST(TransportTestbed, UnpluggedKeepsItsFramesAndAnswersThatItIsGone) {
  WithStartedCamera([](TransportTestbed& camera) {
    ASSERT_EQ(camera.Acquire({}), STATUS_SUCCESS);
    ASSERT_EQ(camera.Run(), STATUS_SUCCESS);
    ASSERT_TRUE(camera.WaitForFrames(2, kSecond));
    camera.Unplug();
    EXPECT_GE(camera.Counts().Delivered(), 2U);
    EXPECT_EQ(camera.Acquire({}), kDeviceDataError);
    EXPECT_EQ(camera.Run(), kDeviceDataError);
    EXPECT_EQ(camera.Resume(), kDeviceDataError);
  });
}

TEST(TransportTestbed, WhosePlugIsPulledByTheBusTellsItsEndAndClosesInOrder) {
  bus::SimulatedBus simulated({});
  bus::FaultBus bus(simulated, {.Script = bus::ParseFaultScript("at 500ms unplug")});
  RunInVirtualTime({.Seed = 3}, [&] {
    WithTransportTestbed(bus, {}, [](TransportTestbed& camera) {
      ASSERT_EQ(camera.Start(), STATUS_SUCCESS);
      ASSERT_EQ(camera.Acquire({}), STATUS_SUCCESS);
      ASSERT_EQ(camera.Run(), STATUS_SUCCESS);
      EXPECT_FALSE(camera.WaitForFrames(1000, 60 * kSecond));
      EXPECT_EQ(camera.End(), BusEnd::Unplugged);
      EXPECT_GE(camera.Counts().Good, 10U);
    });
  });
}

TEST(TransportTestbed, WithoutAnAnswerOnTheBusDoesNotStart) {
  bus::SimulatedBus simulated({});
  bus::FaultBus bus(simulated, {.Script = bus::ParseFaultScript("control 1 unplug")});
  RunInVirtualTime({.Seed = 1}, [&] {
    TransportTestbed camera(bus, {});
    EXPECT_FALSE(NT_SUCCESS(camera.Start()));
    EXPECT_FALSE(camera.IsStarted());
  });
}

TEST(TransportTestbed, SleepsAndWakesWithItsStream) {
  WithStartedCamera([](TransportTestbed& camera) {
    ASSERT_EQ(camera.Acquire(kSmall), STATUS_SUCCESS);
    ASSERT_EQ(camera.Run(), STATUS_SUCCESS);
    ASSERT_TRUE(camera.WaitForFrames(2, kSecond));
    camera.PowerDown();
    camera.WaitForFrames(1000, 100 * kMillisecond);
    const std::uint64_t asleep = camera.Counts().Delivered();
    camera.WaitForFrames(1000, kSecond);
    EXPECT_EQ(camera.Counts().Delivered(), asleep);
    camera.PowerUp();
    EXPECT_EQ(camera.Device().DevicePowerState, PowerDeviceD0);
  });
}

TEST(TransportTestbed, LetsControlsInBetweenItsFrames) {
  WithStartedCamera([](TransportTestbed& camera) {
    ASSERT_EQ(camera.Acquire(kSmall), STATUS_SUCCESS);
    ASSERT_EQ(camera.Run(), STATUS_SUCCESS);
    ASSERT_TRUE(camera.WaitForFrames(1, kSecond));
    std::uint32_t width = 0;
    camera.WithCamera([&width](CameraContext& record) {
      width = static_cast<std::uint32_t>(std::int32_t{record.RequestedWidth});
    });
    EXPECT_EQ(width, 160U);
    EXPECT_THROW(
        camera.WithCamera([](CameraContext&) { throw std::runtime_error("no such control"); }),
        std::runtime_error);
    EXPECT_TRUE(camera.WaitForFrames(3, kSecond));
  });
}

TEST(TransportTestbed, EndsWithWhatTheFrameHandlerThrew) {
  EXPECT_THROW(WithStartedCamera(
                   [](TransportTestbed& camera) {
                     ASSERT_EQ(camera.Acquire(kSmall), STATUS_SUCCESS);
                     ASSERT_EQ(camera.Run(), STATUS_SUCCESS);
                     camera.WaitForFrames(5, kSecond);
                     ADD_FAILURE() << "the handler's error was lost";
                   },
                   [](const HostedFrame&) { throw std::out_of_range("the disk is full"); }),
               std::out_of_range);
}

TEST(TransportTestbed, WithoutRoomForItsDeviceObjectsLeavesNothing) {
  bus::SimulatedBus bus({});
  for (std::uint32_t n = 1;; ++n) {
    bool isBuilt = false;
    RunInVirtualTime({.Seed = 1}, [&] {
      host::FailPoolAllocation(n);
      try {
        TransportTestbed camera(bus, {});
        host::FailPoolAllocation(0);
        isBuilt = true;
      } catch (const std::runtime_error&) {
      }
      host::FailPoolAllocation(0);
    });
    if (isBuilt) {
      EXPECT_GT(n, 3U);
      break;
    }
  }
}

/// Distinguishes one run of a seed from another.
struct RunAccount {
  host::SimulationOutcome Outcome;
  std::vector<std::uint8_t> LastPicture;

  bool operator==(const RunAccount&) const = default;
};

RunAccount RunOfSeed(std::uint64_t seed) {
  bus::SimulatedBus bus({});
  RunAccount account;
  account.Outcome = RunInVirtualTime({.Seed = seed}, [&] {
    const auto keep = [&account](const HostedFrame& frame) {
      account.LastPicture.assign(frame.Yuy2.begin(), frame.Yuy2.end());
    };
    WithTransportTestbed(bus, {.Frames = keep}, [](TransportTestbed& camera) {
      camera.Start();
      camera.Acquire(kSmall);
      camera.Run();
      camera.WaitForFrames(5, kSecond);
    });
  });
  return account;
}

TEST(TransportTestbed, OfOneSeedRunsTheSameScheduleToTheSamePicture) {
  const RunAccount first = RunOfSeed(7);
  EXPECT_TRUE(RunOfSeed(7) == first);
  const RunAccount other = RunOfSeed(8);
  EXPECT_NE(other.Outcome.TraceHash, first.Outcome.TraceHash);
  EXPECT_TRUE(other.LastPicture == first.LastPicture);
}

}  // namespace
}  // namespace lidcam::testbed
