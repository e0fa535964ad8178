// The thread that walks completed transfers and resubmits them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/verifier/kernel_faults.h"
#include "platform/host/nt/verifier/no_allocation_scope.h"
#include "tests/driver/usb/support/circle.h"

namespace lidcam::test {
namespace {

using host::kMillisecond;
using host::Simulate;
using host::Sleep;
using testing::ElementsAre;

constexpr std::uint32_t kTag = 0x206D6457;  // "Wdm "

// Puts packets into the transfer that the lower device has had for the longest time.
void PutPackets(Circle& circle, const std::vector<std::vector<std::uint8_t>>& packets,
                USBD_STATUS packetStatus = USBD_STATUS_SUCCESS) {
  const IO_STACK_LOCATION& location = *IoGetCurrentIrpStackLocation(circle.Kept.front());
  auto& urb = *static_cast<_URB_ISOCH_TRANSFER*>(location.Parameters.Others.Argument1);
  USBD_ISO_PACKET_DESCRIPTOR* const descriptors = urb.IsoPacket;
  for (std::size_t i = 0; i < packets.size(); ++i) {
    std::copy(packets[i].begin(), packets[i].end(),
              static_cast<std::uint8_t*>(urb.TransferBuffer) + descriptors[i].Offset);
    descriptors[i].Length = static_cast<ULONG>(packets[i].size());
    descriptors[i].Status = packetStatus;
  }
  urb.ErrorCount = packetStatus == USBD_STATUS_SUCCESS ? 0 : 32;
}

const std::vector<std::uint8_t> kMarker = {0xFF, 0xD8, 1, 2};

TEST(FrameThread, SendsEachTransferDownAgainAsSoonAsPossible) {
  Simulate({}, [] {
    Circle circle(3);
    circle.Run();
    circle.Sent.clear();
    circle.CompleteTransfer(1);
    circle.CompleteTransfer(0);
    Sleep(kMillisecond);
    const SentTransfer again{0, 5, 32 * 1024, circle.Pipe(1).PipeHandle};
    EXPECT_THAT(circle.Sent, ElementsAre(again, again));
    EXPECT_EQ(circle.Kept.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(circle.Transfer(i).InFlight, 1);
    circle.Pause();
  });
}

TEST(FrameThread, RunsAtPrioritySixteen) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Run();
    Sleep(kMillisecond);
    EXPECT_EQ(static_cast<PKTHREAD>(circle.Pipeline->Thread)->Host->Priority, 16);
    circle.Pause();
  });
}

TEST(FrameThread, CountsPacketsByTheirLengthWhateverTheBusSaysOfThem) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Run();
    CameraContext& camera = *circle.Device.Camera;
    camera.ReceivedFrameBytes = 0;
    PutPackets(circle, {kMarker, {}, {3, 4, 5}, {6}}, USBD_STATUS_XACT_ERROR);
    circle.CompleteTransfer(0, USBD_STATUS_SUCCESS, STATUS_UNSUCCESSFUL);
    Sleep(kMillisecond);
    EXPECT_EQ(camera.FrameStartCount, 1U);
    EXPECT_EQ(camera.FramePacketCount, 3U);
    EXPECT_EQ(camera.ReceivedFrameBytes, 8U);
    circle.Pause();
  });
}

TEST(FrameThread, AssemblesAFrameOutOfTheTransfersInTheirOrder) {
  Simulate({}, [] {
    Circle circle(2);
    circle.Device.Camera->RawFrameSize = 10;
    circle.Device.Camera->ReceivedFrameBytes = 10;
    circle.Run();
    PutPackets(circle, {kMarker, {10, 11, 12}});
    circle.CompleteTransfer(0);
    PutPackets(circle, {{13, 14, 15}, kMarker});
    circle.CompleteTransfer(0);
    Sleep(kMillisecond);
    const std::uint8_t* const frame = circle.Stream.Assembly.ReadyBuffer;
    EXPECT_EQ(std::vector<std::uint8_t>(frame, frame + 10),
              (std::vector<std::uint8_t>{0xFF, 0xD8, 1, 2, 10, 11, 12, 13, 14, 15}));
    circle.Pause();
  });
}

TEST(FrameThread, LeavesTheTransferIdleWhenTheStreamHasStopped) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Run();
    circle.Sent.clear();
    circle.CompleteTransfer(0);
    circle.Stream.StreamRunning = 0;
    Sleep(kMillisecond);
    EXPECT_TRUE(circle.Sent.empty());
    EXPECT_EQ(circle.Transfer(0).InFlight, 0);
    EXPECT_EQ(circle.Stream.Halted, 0);
    EXPECT_EQ(circle.Pipeline->CompletedCount, 0);
  });
}

// The thread resubmits a transfer as long as the stream runs, even while a stop is under way: the
// stop then waits for its completion.
TEST(FrameThread, TransferThatItProcessesDelaysAStopUntilItIsIdleAgain) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Device.Camera->RawFrameSize = 100;
    circle.Device.Camera->ReceivedFrameBytes = 100;
    circle.Stream.Assembly.Sink.IsProcessing = [](void*) -> std::uint8_t {
      Sleep(10 * kMillisecond);  // the walk is still under way
      return 0;
    };
    circle.Run();
    PutPackets(circle, {kMarker, std::vector<std::uint8_t>(96), kMarker});
    circle.CompleteTransfer(0);
    Sleep(kMillisecond);
    host::TestThread home([&circle] {
      Sleep(400 * kMillisecond);
      EXPECT_EQ(circle.Flags(), "running wait=5");
      EXPECT_EQ(circle.Kept.size(), 1U);
      circle.CompleteAllTransfers();
    });
    EXPECT_EQ(circle.Pause(), STATUS_SUCCESS);
    EXPECT_EQ(host::Now(), 5'000'000);
    EXPECT_EQ(circle.Sent.size(), 2U);
    circle.Stream.Assembly.Sink.IsProcessing = [](void*) -> std::uint8_t { return 0; };
  });
}

TEST(FrameThread, LeavesTheTransferIdleWithoutAFlagWhenTheDeviceIsGone) {
  for (const bool isOpen : {false, true}) {
    Simulate({}, [isOpen] {
      Circle circle(1);
      circle.Run();
      circle.Sent.clear();
      circle.CompleteTransfer(0);
      (isOpen ? circle.Device.Connected : circle.Device.DeviceOpen) = 0;
      Sleep(kMillisecond);
      EXPECT_TRUE(circle.Sent.empty());
      EXPECT_EQ(circle.Transfer(0).InFlight, 0);
      EXPECT_EQ(circle.Stream.Halted, 0);
      circle.Stream.StreamRunning = 0;
    });
  }
}

TEST(FrameThread, ResubmissionThatFailsHaltsTheCircleAndSchedulesNothing) {
  Simulate({}, [] {
    Circle circle(2);
    circle.Run();
    circle.Forget();
    circle.Answers = {{false, STATUS_DEVICE_NOT_CONNECTED, USBD_STATUS_SUCCESS}};
    circle.CompleteTransfer(0);
    circle.Stream.Halted = 1;
    Sleep(kMillisecond);
    EXPECT_EQ(circle.Stream.Halted, 1);
    EXPECT_EQ(circle.Transfer(0).InFlight, -1);
    EXPECT_THAT(circle.Lines, ElementsAre("iso halted transfer=0 send status=C000009D"));
    // The first tick that finds no other transfer in flight does it.
    Sleep(300 * kMillisecond);
    EXPECT_EQ(circle.Lines.back(), "watchdog waits for transfers");
    circle.Forget();
    circle.CompleteAllTransfers();
    Sleep(250 * kMillisecond);
    EXPECT_EQ(circle.Lines.front(), "recovery scheduled");
    WaitForRecovery(circle.Device);
    circle.Pause();
  });
}

TEST(FrameThread, WokenWithoutATransferCountsNoneAndWaitsForTheNext) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Run();
    circle.Sent.clear();
    KeReleaseSemaphore(&circle.Pipeline->WakeSemaphore, 0, 1, FALSE);
    Sleep(kMillisecond);
    EXPECT_EQ(circle.Pipeline->CompletedCount, 0);
    circle.CompleteTransfer(0);
    Sleep(kMillisecond);
    EXPECT_EQ(circle.Pipeline->CompletedCount, 0);
    EXPECT_EQ(circle.Sent.size(), 1U);
    circle.Pause();
  });
}

// Only a pending transfer circulates: one that ends at once, even well, is a failure of the pipe.
TEST(FrameThread, ResubmissionThatSucceedsAtOnceHaltsTheCircleToo) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Run();
    circle.Answers = {{false, STATUS_SUCCESS, USBD_STATUS_SUCCESS}};
    circle.CompleteTransfer(0);
    Sleep(kMillisecond);
    EXPECT_EQ(circle.Stream.Halted, 1);
    // It was completed and queued, and is with the lower device once more: down to -1, up to 0.
    EXPECT_EQ(circle.Kept.size(), 1U);
    EXPECT_EQ(circle.Transfer(0).InFlight, 0);
    circle.Pause();
  });
}

TEST(FrameThread, StopThrowsAwayWhatIsQueuedUnparsed) {
  Simulate({}, [] {
    Circle circle(3);
    circle.Run();
    circle.Sent.clear();
    for (int i = 0; i < 3; ++i) PutPackets(circle, {kMarker});
    // The thread wakes with the stop and the transfers set at the same time.
    KSPIN_LOCK& lock = circle.Pipeline->CompletedLock;
    KIRQL before{};
    KeAcquireSpinLock(&lock, &before);
    circle.Pipeline->StopRequested = 1;
    for (std::size_t i = 0; i < 3; ++i) {
      // As the completion routine does, under the same lock.
      InsertTailList(&circle.Pipeline->CompletedList, &circle.Transfer(i).Link);
      InterlockedIncrement(&circle.Pipeline->CompletedCount);
    }
    KeReleaseSpinLock(&lock, before);
    for (std::size_t i = 0; i < 3; ++i) Hold(*circle.Transfer(i).Memory);
    KeReleaseSemaphore(&circle.Pipeline->WakeSemaphore, 0, 1, FALSE);
    host::WaitForever(&circle.Pipeline->DoneSemaphore);
    EXPECT_EQ(circle.Pipeline->CompletedCount, 0);
    EXPECT_TRUE(IsListEmpty(&circle.Pipeline->CompletedList));
    EXPECT_EQ(circle.Device.Camera->FrameStartCount, 0U);
    EXPECT_TRUE(circle.Sent.empty());
    EXPECT_EQ(circle.Lines.back(), "frame thread ends dropped=3");
    ObDereferenceObject(circle.Pipeline->Thread);
  });
}

// Its last act is not its last instruction: the driver may be unloaded once the stop returns.
TEST(FrameThread, HasEndedAndNotOnlySaidSoWhenAStopReturns) {
  host::UnderManySeeds([] {
    Circle circle(1);
    EXPECT_EQ(StartFrameThread(circle.Stream), STATUS_SUCCESS);
    PVOID const thread = circle.Pipeline->Thread;
    ++static_cast<KTHREAD*>(thread)->Host->References;
    StopFrameThread(circle.Stream);
    EXPECT_EQ(host::WaitFor(thread, 0), STATUS_SUCCESS);
    ObDereferenceObject(thread);
  });
}

TEST(FrameThread, SecondStopDoesNothing) {
  Simulate({}, [] {
    Circle circle(1);
    EXPECT_EQ(StartFrameThread(circle.Stream), STATUS_SUCCESS);
    StopFrameThread(circle.Stream);
    StopFrameThread(circle.Stream);
    EXPECT_EQ(circle.Pipeline->WakeSemaphore.Header.SignalState, 0);
    EXPECT_EQ(circle.Pipeline->WakeSemaphore.Limit, 0x7FFFFFFF);
    EXPECT_EQ(circle.Pipeline->DoneSemaphore.Limit, 1);
  });
}

TEST(FrameThread, ThatCouldNotBeCreatedIsNotWaitedFor) {
  Simulate({}, [] {
    Circle circle(1);
    host::FailKernelCall("PsCreateSystemThread", 1, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(StartFrameThread(circle.Stream), STATUS_INSUFFICIENT_RESOURCES);
    StopFrameThread(circle.Stream);
    EXPECT_EQ(circle.Pipeline->StopRequested, 1);
  });
}

// A stop at each level and on each platform: whether it waited for the thread's end.
struct StopRow {
  std::int32_t WdmLevel;
  KIRQL Irql;
  bool Waits;
};

class FrameThreadStop : public testing::TestWithParam<StopRow> {};

TEST_P(FrameThreadStop, WaitsUnlessAnOldPlatformIsAtARaisedLevel) {
  const StopRow& row = GetParam();
  Simulate({}, [&row] {
    Circle circle(1);
    circle.Device.WdmLevel = row.WdmLevel;
    EXPECT_EQ(StartFrameThread(circle.Stream), STATUS_SUCCESS);
    Sleep(kMillisecond);
    circle.Forget();
    KIRQL before{};
    KeRaiseIrql(row.Irql, &before);
    StopFrameThread(circle.Stream);
    KeLowerIrql(before);
    EXPECT_EQ(circle.Pipeline->StopRequested, 1);
    if (row.Waits) {
      EXPECT_THAT(circle.Lines, ElementsAre("frame thread ends dropped=0"));
      EXPECT_EQ(circle.Pipeline->DoneSemaphore.Header.SignalState, 0);
    } else {
      // It ends by itself; its end has not been waited for yet.
      EXPECT_EQ(host::WaitForever(&circle.Pipeline->DoneSemaphore), STATUS_SUCCESS);
    }
  });
}

INSTANTIATE_TEST_SUITE_P(AllPlatforms, FrameThreadStop,
                         testing::Values(StopRow{1, PASSIVE_LEVEL, true},
                                         StopRow{2, PASSIVE_LEVEL, true},
                                         StopRow{5, PASSIVE_LEVEL, true},
                                         StopRow{1, DISPATCH_LEVEL, false},
                                         StopRow{2, DISPATCH_LEVEL, false}));

TEST(FrameThread, StopAtARaisedLevelWaitsAllTheSameFromLevel3On) {
  EXPECT_NE(host::ViolationOf([] {
              Circle circle(1);
              circle.Device.WdmLevel = 3;
              StartFrameThread(circle.Stream);
              KIRQL before{};
              KeRaiseIrql(DISPATCH_LEVEL, &before);
              StopFrameThread(circle.Stream);
              KeLowerIrql(before);
            }).find("KeWaitForSingleObject"),
            std::string::npos);
}

TEST(FrameThread, ThatCouldNotBeReferencedRunsAndIsWaitedForAllTheSame) {
  Simulate({}, [] {
    Circle circle(1);
    host::FailKernelCall("ObReferenceObjectByHandle", 1, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(StartFrameThread(circle.Stream), STATUS_SUCCESS);
    EXPECT_EQ(circle.Pipeline->Thread, nullptr);
    StopFrameThread(circle.Stream);
    EXPECT_EQ(circle.Lines.back(), "frame thread ends dropped=0");
  });
}

TEST(FrameThread, NothingIsQueuedOnceItIsToEnd) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Run();
    StopFrameThread(circle.Stream);
    circle.CompleteTransfer(0);
    EXPECT_EQ(circle.Pipeline->CompletedCount, 0);
    EXPECT_EQ(circle.Transfer(0).Memory->Holds, 1);
    circle.Stream.StreamRunning = 0;
  });
}

// The stream frees its transfers before it stops the thread, which may still walk one.
TEST(FrameThread, TransferReleasedInItsHandsLivesUntilItsWalkEndsAndIsNotSentAgain) {
  host::UnderManySeeds(
      [] {
        Circle circle(3);
        circle.Run();
        circle.Sent.clear();
        for (int i = 0; i < 3; ++i) {
          PutPackets(circle, {kMarker, {1, 2, 3}});
          circle.CompleteTransfer(0);
        }
        circle.Release();
        const std::size_t released = circle.Sent.size();
        circle.CompleteAllTransfers(USBD_STATUS_CANCELED);
        Sleep(kMillisecond);
        EXPECT_EQ(circle.Sent.size(), released);
        EXPECT_EQ(host::PoolUsageOfTag(kTag).Blocks, 0U);
        circle.Stream.StreamRunning = 0;
      },
      300);
}

// A pause finds no transfer in flight while the thread still has some in its queue; the next run
// must neither send those a second time nor lose them.
TEST(FrameThread, TransferThatAStartFindsInItsHandsGoesRoundWithTheOthers) {
  host::UnderManySeeds(
      [] {
        Circle circle(4);
        circle.Run();
        for (int round = 0; round < 5; ++round) {
          for (int i = 0; i < 4; ++i) circle.CompleteTransfer(0);
          circle.Stream.StreamRunning = 0;  // a stop that did not have to wait
          circle.Stream.RestartPending = 1;
          KsAcquireDevice(&circle.KsDevice);
          // Those that the thread has resubmitted already complete during the stop.
          circle.Stream.WaitFlags = WatchdogRunning | StopWaitArmed;
          circle.CompleteAllTransfers(USBD_STATUS_CANCELED);
          circle.Stream.WaitFlags = WatchdogRunning;
          circle.Stream.Halted = 0;
          KsReleaseDevice(&circle.KsDevice);
          circle.Run();
          Sleep(kMillisecond);
          EXPECT_EQ(circle.Kept.size(), 4U);
        }
        EXPECT_EQ(circle.Pause(), STATUS_SUCCESS);
      },
      300);
}

TEST(FrameThread, PacketPathNeitherAllocatesNorWaits) {
  Simulate({}, [] {
    Circle circle(1);
    FrameAssembly& assembly = circle.Stream.Assembly;
    std::vector<std::uint8_t> data(1024, 7);
    data[0] = 0xFF;
    data[1] = 0xD8;
    const TransferPacket packets[] = {{0, 512}, {512, 512}, {0, 512}};
    const host::NoAllocationScope scope("the packet path");
    AssembleTransfer(assembly, *circle.Device.Camera, data.data(), 1024, packets, 3);
  });
}

TEST(FrameThread, CirclesUnderAnySchedule) {
  host::UnderManySeeds(
      [] {
        const host::NoAllocationInCompletions scope;
        Circle circle(7);
        circle.Run();
        for (int i = 0; i < 50; ++i) {
          while (circle.Kept.empty()) Sleep(1);
          circle.CompleteTransfer(0);
        }
        Sleep(kMillisecond);
        EXPECT_EQ(circle.Kept.size(), 7U);
        EXPECT_EQ(circle.Sent.size(), 57U);
        EXPECT_EQ(circle.Pause(), STATUS_SUCCESS);
      },
      100);
}

}  // namespace
}  // namespace lidcam::test
