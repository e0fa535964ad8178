#include "driver/core/control/camera_lifecycle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/verifier/kernel_faults.h"
#include "tests/driver/support/statuses.h"
#include "tests/driver/usb/support/transport_world.h"

namespace lidcam::test {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

struct Flags {
  int Opened;
  int StreamRunning;
  int RestartPending;
  bool operator==(const Flags&) const = default;
};

Flags FlagsOf(const TransportWorld& world) {
  const UsbStreamRecord& stream = world.Stream();
  return {stream.Opened, stream.StreamRunning, stream.RestartPending};
}

constexpr Flags kFree{0, 0, 0};
constexpr Flags kPrepared{1, 0, 0};
constexpr Flags kRunning{1, 1, 0};
constexpr Flags kPaused{1, 0, 1};

std::function<std::optional<Verdict>(URB&)> RefuseIso(unsigned from) {
  return [from, sent = 0U](URB& urb) mutable -> std::optional<Verdict> {
    if (urb.UrbHeader.Function != 0x0A || ++sent < from) return std::nullopt;
    return Verdict{kUnsuccessful, static_cast<USBD_STATUS>(0xC0000A00)};
  };
}

// Worked out by hand: the order of each sequence is part of the design.
TEST(StreamControl, EachSequenceGoesInItsOrder) {
  InWorld([](TransportWorld& world) {
    CameraUsbDevice& device = world.Device();
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    EXPECT_EQ(FlagsOf(world), kFree);
    world.ExpectGolden("acquire_stream", [&] { EXPECT_EQ(world.Acquire(), 0); });
    EXPECT_EQ(FlagsOf(world), kPrepared);
    EXPECT_EQ(world.Record().Pin, &world.Pin);
    EXPECT_EQ(world.Stream().WaitFlags, 4U);
    world.ExpectGolden("run_stream", [&] { EXPECT_EQ(device.RunStream(), 0); });
    EXPECT_EQ(FlagsOf(world), kRunning);
    world.ExpectGolden("pause_stream", [&] { EXPECT_EQ(device.PauseStream(), 0); });
    EXPECT_EQ(FlagsOf(world), kPaused);
    world.ExpectGolden("resume_stream", [&] { EXPECT_EQ(device.ResumeStream(), 0); });
    EXPECT_EQ(FlagsOf(world), kRunning);
    EXPECT_EQ(device.PauseStream(), 0);
    world.ExpectGolden("release_stream", [&] { EXPECT_EQ(device.ReleaseStream(), 0); });
    EXPECT_EQ(FlagsOf(world), kFree);
    EXPECT_EQ(world.Stream().WaitFlags, 0U);
    EXPECT_EQ(world.Stream().StreamFormat.AlternateSetting, 0U);
  });
}

TEST(StreamControl, ARunOfARunningStreamChangesNothing) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire() | world.Device().RunStream(), 0);
    world.Log.Clear();
    EXPECT_EQ(world.Device().RunStream(), STATUS_SUCCESS);
    EXPECT_TRUE(world.Log.Lines().empty());
    EXPECT_EQ(FlagsOf(world), kRunning);
  });
}

TEST(StreamControl, APauseOfAStoppedStreamDoesNotTouchRestartPending) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    EXPECT_EQ(world.Device().PauseStream(), STATUS_SUCCESS);
    EXPECT_EQ(FlagsOf(world), kPrepared);
  });
}

TEST(StreamControl, AResumeWithoutAPauseDoesNothing) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    world.Log.Clear();
    EXPECT_EQ(world.Device().ResumeStream(), STATUS_SUCCESS);
    EXPECT_TRUE(world.Log.Lines().empty());
    EXPECT_EQ(FlagsOf(world), kPrepared);
  });
}

TEST(StreamControl, AReleaseWithoutAPreparedStreamClearsThePublishedFrame) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    std::uint8_t frame = 0;
    world.Device().PublishRawFrame(&frame, 1);
    world.Stream().RestartPending = 1;
    EXPECT_EQ(world.Device().ReleaseStream(), STATUS_SUCCESS);
    std::uint32_t size = 1;
    EXPECT_EQ(world.Device().GetRawFrame(size), nullptr);
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(FlagsOf(world), kFree);
  });
}

TEST(StreamControl, ASecondAcquireWithoutAReleaseFailsAndLeavesTheStream) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    EXPECT_EQ(world.Acquire(), kUnsuccessful);
    EXPECT_EQ(FlagsOf(world), kPrepared);
    ASSERT_EQ(world.Device().RunStream(), 0);
    EXPECT_EQ(world.Acquire(), kUnsuccessful);
    EXPECT_EQ(FlagsOf(world), kRunning);
  });
}

TEST(StreamControl, AStoppedDeviceRefusesAnAcquireAndARun) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    ASSERT_EQ(world.Device().ReleaseStream(), STATUS_SUCCESS);
    ASSERT_EQ(world.Device().StopHardware(), STATUS_SUCCESS);
    EXPECT_EQ(world.Record().Connected, 1);
    EXPECT_EQ(world.Acquire(), kGone);
    EXPECT_EQ(world.Device().RunStream(), kGone);
    EXPECT_EQ(world.Device().PowerDown(PowerDeviceD3, PowerDeviceD0), kGone);
    EXPECT_EQ(world.Device().PowerUp(PowerDeviceD0, PowerDeviceD3, nullptr), kGone);
  });
}

TEST(StreamControl, OfTwoRunsAtATimeOneIsRefused) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    NTSTATUS first = 1;
    NTSTATUS second = 1;
    KsAcquireDevice(world.Ks());
    host::TestThread one([&] { first = world.Device().RunStream(); });
    host::TestThread other([&] { second = world.Device().RunStream(); });
    host::Sleep(host::kMillisecond);
    KsReleaseDevice(world.Ks());
    one.Join();
    other.Join();
    EXPECT_THAT((std::vector<NTSTATUS>{first, second}),
                UnorderedElementsAre(STATUS_SUCCESS, kUnsuccessful));
    EXPECT_EQ(FlagsOf(world), kRunning);
  });
}

TEST(StreamControl, ADeviceThatIsGoneRefusesEverything) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire() | world.Device().RunStream(), 0);
    EXPECT_EQ(world.Device().OnDeviceGone(1), STATUS_SUCCESS);
    EXPECT_EQ(world.Device().OnDeviceGone(2), STATUS_SUCCESS);
    EXPECT_EQ(world.Device().OnDeviceGone(4), static_cast<NTSTATUS>(0xC0000002));
    EXPECT_EQ(FlagsOf(world), kRunning);
    // Nothing reaches the stack any more: the transfers complete by themselves.
    const host::TestThread home([&] {
      host::Sleep(10 * host::kMillisecond);
      while (world.Stack.IsoOut() != 0) world.Stack.CompleteIso(USBD_STATUS_CANCELED);
    });
    EXPECT_EQ(world.Device().OnDeviceGone(3), STATUS_SUCCESS);
    EXPECT_EQ(FlagsOf(world), kFree);
    EXPECT_EQ(world.Acquire(), kGone);
    EXPECT_EQ(world.Device().RunStream(), kGone);
    EXPECT_EQ(world.Device().ResumeStream(), kGone);
    EXPECT_EQ(world.Record().Camera->ReadRequest(world.Device().TransportRecord, 0, 0, 0, nullptr,
                                                 nullptr),
              -1);
    EXPECT_EQ(world.Record().Camera->WriteRequest(world.Device().TransportRecord, 0, 0, 0, nullptr,
                                                  nullptr),
              -1);
  });
}

// The removal releases the stream; a run that comes first leaves that to it.
TEST(StreamControl, ARunOfADeviceThatIsGoneChangesNothing) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    std::uint8_t frame = 0;
    world.Device().PublishRawFrame(&frame, 1);
    world.Record().Connected = 0;
    world.Log.Clear();
    EXPECT_EQ(world.Device().RunStream(), kGone);
    EXPECT_EQ(FlagsOf(world), kPrepared);
    world.Stream().StreamRunning = 1;
    EXPECT_EQ(world.Device().RunStream(), kGone);
    world.Stream().StreamRunning = 0;
    EXPECT_TRUE(world.Log.Lines().empty());
    std::uint32_t size = 0;
    EXPECT_EQ(world.Device().GetRawFrame(size), &frame);
  });
}

TEST(StreamControl, APauseFollowedByARunRebuildsTheTransfersToo) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire() | world.Device().RunStream(), 0);
    ASSERT_EQ(world.Device().PauseStream(), 0);
    // The URB's content from its last use is replaced by the rebuild.
    IsoTransfer* const transfers = world.Device().Pipeline->Transfers;
    for (int i = 0; i < 7; ++i) transfers[i].Urb->ErrorCount = 99;
    EXPECT_EQ(world.Device().RunStream(), STATUS_SUCCESS);
    EXPECT_EQ(world.Stack.IsoOut(), 7U);
    for (int i = 0; i < 7; ++i) EXPECT_EQ(transfers[i].Urb->ErrorCount, 0U);
    EXPECT_EQ(FlagsOf(world), kRunning);
  });
}

TEST(StreamControl, APauseWaitsForTheWatchdogsTickAndNoLonger) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire() | world.Device().RunStream(), 0);
    const LONGLONG acquired = host::Now();
    EXPECT_EQ(world.Device().PauseStream(), STATUS_SUCCESS);
    EXPECT_EQ(host::Now() - acquired, 2'500'000);
  });
}

TEST(StreamControl, ADrainThatTakes8SecondsCountsAsDone) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire() | world.Device().RunStream(), 0);
    world.Stack.Decide = [](URB& urb) -> std::optional<Verdict> {
      if (urb.UrbHeader.Function != 2) return std::nullopt;
      return Verdict{};  // the abort succeeds and completes nothing
    };
    const LONGLONG begin = host::Now();
    EXPECT_EQ(world.Device().PauseStream(), STATUS_TIMEOUT);
    EXPECT_EQ(host::Now() - begin, 80'000'000);
    EXPECT_EQ(FlagsOf(world), kPaused);
    EXPECT_EQ(world.Stream().WaitFlags, 5U);
    // Released with the stack still holding all of them: they live until it releases them.
    EXPECT_EQ(world.Device().ReleaseStream(), STATUS_SUCCESS);
    EXPECT_EQ(world.Stack.IsoOut(), 7U);
    while (world.Stack.IsoOut() != 0) world.Stack.CompleteIso(USBD_STATUS_CANCELED);
    EXPECT_EQ(world.Log.Lines().back(), "free transfer");
  });
}

TEST(StreamControl, AStartThatFailsHalfwayReleasesTheStream) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    world.Stack.Decide = RefuseIso(5);
    EXPECT_EQ(world.Device().RunStream(), kUnsuccessful);
    EXPECT_EQ(FlagsOf(world), kFree);
    EXPECT_EQ(world.Stack.IsoOut(), 4U);
    world.Stack.Decide = nullptr;
    // Its transfers are still in flight, and the next stream has transfers of its own.
    EXPECT_EQ(world.Acquire(), STATUS_SUCCESS);
    while (world.Stack.IsoOut() != 0) world.Stack.CompleteIso(0);
    EXPECT_EQ(world.Device().RunStream(), STATUS_SUCCESS);
    EXPECT_EQ(world.Stack.IsoOut(), 7U);
  });
}

TEST(StreamControl, ARunWithoutAnAcquireSendsNothing) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    EXPECT_EQ(world.Device().RunStream(), kGone);
    EXPECT_EQ(world.Stack.IsoOut(), 0U);
    EXPECT_EQ(FlagsOf(world), kFree);
  });
}

TEST(StreamControl, ARunAfterAFailedRunSendsNothing) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    world.Stack.Decide = RefuseIso(1);
    EXPECT_EQ(world.Device().RunStream(), kUnsuccessful);
    world.Stack.Decide = nullptr;
    EXPECT_EQ(world.Device().RunStream(), kGone);
    EXPECT_EQ(world.Stack.IsoOut(), 0U);
  });
}

TEST(StreamControl, AReleaseWhilePausedReturnsTheInterfaceTo0EvenIfThatIsRefused) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire() | world.Device().RunStream(), 0);
    ASSERT_EQ(world.Device().PauseStream(), 0);
    world.Stack.Decide = [](URB& urb) -> std::optional<Verdict> {
      if (urb.UrbHeader.Function != 1) return std::nullopt;
      return Verdict{kUnsuccessful};
    };
    EXPECT_EQ(world.Device().ReleaseStream(), STATUS_SUCCESS);
    EXPECT_EQ(world.Stack.SettingsAsked.back(), 0U);
    EXPECT_EQ(world.Stream().StreamFormat.AlternateSetting, 7U);
    EXPECT_EQ(FlagsOf(world), kFree);
  });
}

TEST(StreamControl, AReleaseOfARunningStreamIsRefused) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire() | world.Device().RunStream(), 0);
    EXPECT_EQ(world.Device().ReleaseStream(), kUnsuccessful);
    EXPECT_EQ(FlagsOf(world), kRunning);
  });
}

TEST(StreamControl, AThreadThatCannotBeMadeFailsTheAcquireAtOnce) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    host::FailKernelCall("PsCreateSystemThread", 1, kUnsuccessful);
    EXPECT_EQ(world.Acquire(), kNoMemory);
    EXPECT_EQ(FlagsOf(world), kFree);
    EXPECT_EQ(world.Acquire(), STATUS_SUCCESS);
  });
}

TEST(StreamControl, AnAcquireThatRunsOutOfMemoryAnywhereFailsAndTheNextOneWorks) {
  for (std::uint32_t n = 1; n <= 40; ++n) {
    InWorld([&](TransportWorld& world) {
      ASSERT_EQ(world.Start(), STATUS_SUCCESS);
      host::FailPoolAllocation(n);
      const NTSTATUS status = world.Acquire();
      host::FailPoolAllocation(0);
      if (status != STATUS_SUCCESS) {
        EXPECT_EQ(status, kNoMemory) << n;
        EXPECT_EQ(FlagsOf(world), kFree) << n;
        EXPECT_EQ(world.Acquire(), STATUS_SUCCESS) << n;
      }
      EXPECT_EQ(world.Device().RunStream(), STATUS_SUCCESS) << n;
      EXPECT_EQ(world.Device().PauseStream(), STATUS_SUCCESS) << n;
    });
  }
}

TEST(StreamControl, TheRawBuffersAreTwoInOneBlockOfTheirSize) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    const FrameAssembly& assembly = world.Stream().Assembly;
    EXPECT_EQ(world.Stream().RawMemory->Size, std::size_t{2} * assembly.RawBufferSize);
    EXPECT_EQ(world.Stream().RawMemory->Block, assembly.ReadyBuffer);
    EXPECT_EQ(assembly.FillBuffer, assembly.ReadyBuffer + assembly.RawBufferSize);
    EXPECT_EQ(world.Device().ReleaseStream(), STATUS_SUCCESS);
  });
}

TEST(StreamControl, ARawFrameStaysReadableForWhoHoldsItWhateverBecomesOfTheStream) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    world.Device().PublishRawFrame(world.Stream().Assembly.ReadyBuffer, 921666);
    std::uint32_t size = 0;
    ReferenceCountedMemory* held = nullptr;
    std::uint8_t* const frame = world.Device().HoldRawFrame(size, held);
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(size, 921666U);
    EXPECT_EQ(world.Device().ReleaseStream(), STATUS_SUCCESS);
    ReferenceCountedMemory* none = held;
    EXPECT_EQ(world.Device().HoldRawFrame(size, none), nullptr);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(frame[921665], 0);
    world.Log.Clear();
    LetGo(*held);
    EXPECT_THAT(world.Log.Lines(), ElementsAre("free raw buffers"));
  });
}

TEST(StreamControl, PowerDownPausesARunningStreamAndPowerUpDoesNotRestartIt) {
  InWorld([](TransportWorld& world) {
    CameraUsbDevice& device = world.Device();
    ASSERT_EQ(world.Start() | world.Acquire() | device.RunStream(), 0);
    device.HardwareStarted = 1;
    device.PowerSet(world.Ks(), nullptr, PowerDeviceD3, PowerDeviceD0);
    EXPECT_EQ(FlagsOf(world), kPaused);
    EXPECT_EQ(world.Record().Camera->PowerOn, 0);
    device.PowerSet(world.Ks(), nullptr, PowerDeviceD0, PowerDeviceD3);
    EXPECT_EQ(FlagsOf(world), kPaused);
    EXPECT_EQ(world.Record().Camera->PowerOn, 1);
  });
}

// Plug and play doesn't wait for a pin's state changes: in either order, nothing is prepared any
// more after the removal, and the camera's record stays until the state change has ended.
TEST(StreamControl, ARemovalBesideAStreamsStartLeavesNothingPrepared) {
  host::UnderManySeeds([] {
    TransportWorld world;
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    UsbStreamRecord& stream = world.Stream();
    host::TestThread pin([&] {
      const NTSTATUS acquired = world.Acquire();
      const NTSTATUS ran = acquired == STATUS_SUCCESS ? world.Device().RunStream() : acquired;
      if (ran == STATUS_SUCCESS) world.Device().PauseStream();
      world.Device().ReleaseStream();
    });
    host::Sleep(host::kMillisecond / 50);
    world.Device().OnDeviceGone(3);
    world.Device().StopHardware();
    pin.Join();
    EXPECT_EQ(stream.Opened, 0);
    EXPECT_EQ(stream.StreamRunning, 0);
    EXPECT_EQ(static_cast<CameraContext*>(world.Device().Camera), nullptr);
  });
}

TEST(StreamControl, ASecondAcquireIsRefusedAsSuchEvenIfTheDeviceGoesMeanwhile) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    unsigned asked = 0;
    world.Stack.Decide = [&](URB& urb) -> std::optional<Verdict> {
      if (urb.UrbHeader.Function != 1) return std::nullopt;
      ++asked;
      if (asked == 1) return Verdict{kUnsuccessful};  // so that the second acquire asks again
      if (asked == 3) world.Record().Connected = 0;
      return std::nullopt;
    };
    ASSERT_EQ(world.Acquire(), STATUS_SUCCESS);
    EXPECT_EQ(world.Acquire(), kUnsuccessful);
    EXPECT_EQ(asked, 3U);
    EXPECT_EQ(FlagsOf(world), kPrepared);
  });
}

TEST(StreamControl, ADeviceThatGoesWhileItsSettingIsChosenPreparesNothing) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    world.Stack.Decide = [&world](URB& urb) -> std::optional<Verdict> {
      if (urb.UrbHeader.Function == 1) world.Device().OnDeviceGone(3);
      return std::nullopt;
    };
    EXPECT_EQ(world.Acquire(), kGone);
    EXPECT_EQ(world.Stream().Opened, 0);
  });
}

}  // namespace
}  // namespace lidcam::test
