// Transfers between the camera and the USB stack: creation, start and completion.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>

#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/verifier/irp_tracker.h"
#include "platform/host/nt/verifier/kernel_faults.h"
#include "platform/host/nt/verifier/no_allocation_scope.h"
#include "tests/driver/usb/support/circle.h"

namespace lidcam::test {
namespace {

using host::IrpUsageOfWorld;
using host::PoolUsageOfTag;
using host::Simulate;

constexpr std::uint32_t kTag = 0x206D6457;  // "Wdm "
constexpr LowerAnswer kFailsAtOnce{false, STATUS_DEVICE_NOT_CONNECTED, USBD_STATUS_DEVICE_GONE};

std::vector<std::uint32_t> StartFrames(const Circle& circle) {
  std::vector<std::uint32_t> frames;
  for (const SentTransfer& sent : circle.Sent) frames.push_back(sent.StartFrame);
  return frames;
}

TEST(IsoTransfer, PacketSizeZeroFailsBeforeAnythingIsAllocated) {
  Simulate({}, [] {
    Circle circle;
    circle.Pipe(1).MaximumPacketSize = 0;
    EXPECT_EQ(PrepareIsoTransfer(circle.Stream, circle.Transfer(0)),
              static_cast<NTSTATUS>(0xC000009C));
    EXPECT_EQ(PoolUsageOfTag(kTag).Blocks, 0U);
    EXPECT_EQ(IrpUsageOfWorld().Allocated, 0U);
  });
}

TEST(IsoTransfer, PipeThatTheInterfaceLacksFailsLikePacketSizeZero) {
  Simulate({}, [] {
    Circle circle;
    circle.Stream.PipeIndex = 2;
    EXPECT_EQ(PrepareIsoTransfer(circle.Stream, circle.Transfer(0)),
              static_cast<NTSTATUS>(0xC000009C));
  });
}

TEST(IsoTransfer, MadeTransferCarriesItsSignatureBlockAndIrp) {
  Simulate({}, [] {
    Circle circle;
    IsoTransfer& transfer = circle.Transfer(3);
    ASSERT_EQ(PrepareIsoTransfer(circle.Stream, transfer), STATUS_SUCCESS);
    EXPECT_EQ(std::string(transfer.Signature, 4), "ISQR");
    EXPECT_EQ(transfer.Device, &circle.Device);
    EXPECT_EQ(transfer.Stream, &circle.Stream);
    EXPECT_EQ(transfer.InFlight, 0);
    EXPECT_EQ(static_cast<void*>(transfer.Urb),
              static_cast<std::uint8_t*>(transfer.Buffer) + 32 * 1024);
    EXPECT_NE(transfer.Irp, nullptr);
    EXPECT_EQ(PoolUsageOfTag(kTag).Blocks, 1U);
    EXPECT_EQ(IrpUsageOfWorld().Allocated, 1U);
  });
}

TEST(IsoTransfer, NoMemoryForTheBlockFailsWithNothingAllocated) {
  Simulate({}, [] {
    Circle circle;
    host::FailPoolAllocation(1);
    EXPECT_EQ(PrepareIsoTransfer(circle.Stream, circle.Transfer(0)),
              static_cast<NTSTATUS>(0xC000009A));
    EXPECT_EQ(PoolUsageOfTag(kTag).Blocks, 0U);
  });
}

TEST(IsoTransfer, NoIrpFailsAndLeavesTheBlockUntilTheRelease) {
  Simulate({}, [] {
    Circle circle;
    host::FailKernelCall("IoAllocateIrp", 1, STATUS_INSUFFICIENT_RESOURCES);
    IsoTransfer& transfer = circle.Transfer(0);
    EXPECT_EQ(PrepareIsoTransfer(circle.Stream, transfer), static_cast<NTSTATUS>(0xC000009A));
    EXPECT_EQ(PoolUsageOfTag(kTag).Blocks, 1U);
    ReleaseIsoTransfer(transfer);
    EXPECT_EQ(PoolUsageOfTag(kTag).Blocks, 0U);
  });
}

// The URB of a transfer, for both numbers of packets and both packet sizes of a pipe.
class IsoUrb : public testing::TestWithParam<std::tuple<std::uint32_t, std::uint32_t>> {};

TEST_P(IsoUrb, HasEveryFieldOfTheTable) {
  const std::uint32_t packets = std::get<0>(GetParam());
  const std::uint32_t size = std::get<1>(GetParam());
  Simulate({}, [&] {
    Circle circle(3, packets);
    circle.Pipe(1).MaximumPacketSize = static_cast<USHORT>(size);
    ASSERT_EQ(PrepareIsoTransfer(circle.Stream, circle.Transfer(0)), STATUS_SUCCESS);
    const _URB_ISOCH_TRANSFER& urb = *circle.Transfer(0).Urb;
    const std::uint32_t fixed = sizeof(void*) == 4 ? 96 : 152;
    EXPECT_EQ(urb.Hdr.Length, fixed + 12 * packets);
    EXPECT_EQ(urb.Hdr.Function, 0x000A);
    EXPECT_EQ(urb.PipeHandle, circle.Pipe(1).PipeHandle);
    EXPECT_EQ(urb.TransferFlags, 5U);
    EXPECT_EQ(urb.TransferBufferLength, packets * size);
    EXPECT_EQ(urb.TransferBuffer, circle.Transfer(0).Buffer);
    EXPECT_EQ(urb.TransferBufferMDL, nullptr);
    EXPECT_EQ(urb.UrbLink, nullptr);
    EXPECT_EQ(urb.NumberOfPackets, packets);
    EXPECT_EQ(urb.StartFrame, 0U);
    EXPECT_EQ(urb.ErrorCount, 0U);
    const USBD_ISO_PACKET_DESCRIPTOR* const descriptors = urb.IsoPacket;
    for (std::uint32_t i = 0; i < packets; ++i) {
      EXPECT_EQ(descriptors[i].Offset, i * size);
      EXPECT_EQ(descriptors[i].Length, 0U);
      EXPECT_EQ(descriptors[i].Status, 0);
    }
  });
}

INSTANTIATE_TEST_SUITE_P(AllSizes, IsoUrb,
                         testing::Combine(testing::Values(4U, 32U),
                                          testing::Values(128U, 512U, 1023U, 1024U, 2816U, 3072U,
                                                          4992U, 5120U)));

TEST(IsoUrb, LengthsEndWithTheBlockWhereThePipeHasGrown) {
  Simulate({}, [] {
    Circle circle(1, 4);
    ASSERT_EQ(PrepareIsoTransfer(circle.Stream, circle.Transfer(0)), STATUS_SUCCESS);
    IsoTransfer& transfer = circle.Transfer(0);
    circle.Pipe(1).MaximumPacketSize = 3000;
    EXPECT_EQ(BuildIsoUrb(*circle.Pipeline, *transfer.Urb, circle.Pipe(1), transfer.Buffer,
                          transfer.DataSize),
              0);
    EXPECT_EQ(transfer.Urb->NumberOfPackets, 4U);
    EXPECT_EQ(transfer.Urb->TransferBufferLength, 4096U);
    const USBD_ISO_PACKET_DESCRIPTOR* const descriptors = transfer.Urb->IsoPacket;
    EXPECT_EQ(descriptors[1].Offset, 3000U);
    EXPECT_EQ(descriptors[2].Offset, 4096U);
    EXPECT_EQ(descriptors[3].Offset, 4096U);
  });
}

TEST(StartTransfers, LaysAllTransfersBackToBackFromTenFramesAhead) {
  Simulate({}, [] {
    Circle circle;
    circle.Prepare();
    EXPECT_EQ(StartTransfers(circle.Stream), STATUS_SUCCESS);
    EXPECT_EQ(StartFrames(circle),
              (std::vector<std::uint32_t>{1010, 1042, 1074, 1106, 1138, 1170, 1202}));
    for (const SentTransfer& sent : circle.Sent) EXPECT_EQ(sent.Flags, 1U);
    EXPECT_EQ(circle.Stream.NextStartFrame, 1234U);
    EXPECT_EQ(AnyTransferInFlight(circle.Stream), 1);
  });
}

TEST(StartTransfers, OldPlatformsTakeFourFramesATransfer) {
  Simulate({}, [] {
    Circle circle(3, 4);
    circle.Prepare();
    EXPECT_EQ(StartTransfers(circle.Stream), STATUS_SUCCESS);
    EXPECT_EQ(StartFrames(circle), (std::vector<std::uint32_t>{1010, 1014, 1018}));
  });
}

TEST(StartTransfers, StartsFromFrameTenWhenTheBusDoesNotTellItsFrame) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Prepare();
    circle.CurrentFrame.reset();
    EXPECT_EQ(StartTransfers(circle.Stream), STATUS_SUCCESS);
    EXPECT_EQ(StartFrames(circle), std::vector<std::uint32_t>{10});
  });
}

TEST(StartTransfers, ResetsThePipeOfAStreamThatDoesNotRun) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Prepare();
    StartTransfers(circle.Stream);
    EXPECT_EQ(circle.Text(),
              "urb reset pipe=0x101\nurb frame number\niso start frame=1010 pipe=1\n"
              "iso started status=00000000\n");
  });
}

TEST(StartTransfers, DoesNotResetThePipeOfAStreamThatRuns) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Prepare();
    circle.Stream.StreamRunning = 1;
    StartTransfers(circle.Stream);
    EXPECT_EQ(circle.Lines.front(), "urb frame number");
  });
}

TEST(StartTransfers, EndsWithTheStatusOfAResetThatFails) {
  Simulate({}, [] {
    Circle circle;
    circle.Prepare();
    circle.ResetStatus = STATUS_DEVICE_NOT_CONNECTED;
    EXPECT_EQ(StartTransfers(circle.Stream), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_TRUE(circle.Sent.empty());
    EXPECT_EQ(circle.Text(), "urb reset pipe=0x101\n");
  });
}

TEST(StartTransfers, LeavesATransferInFlightAloneAndDoesNotConsumeItsSlot) {
  Simulate({}, [] {
    Circle circle(3);
    circle.Prepare();
    circle.Transfer(1).InFlight = 1;
    EXPECT_EQ(StartTransfers(circle.Stream), STATUS_SUCCESS);
    EXPECT_EQ(StartFrames(circle), (std::vector<std::uint32_t>{1010, 1042}));
    EXPECT_EQ(circle.Stream.NextStartFrame, 1074U);
    EXPECT_EQ(circle.Transfer(1).InFlight, 1);
    circle.Transfer(1).InFlight = 0;
  });
}

TEST(StartTransfers, ReturnsTheLastSendsResultOnly) {
  Simulate({}, [] {
    Circle circle(3);
    circle.Prepare();
    circle.Answers = {kFailsAtOnce, kFailsAtOnce, {}};
    EXPECT_EQ(StartTransfers(circle.Stream), STATUS_SUCCESS);
    EXPECT_EQ(circle.Sent.size(), 3U);
    EXPECT_EQ(circle.Stream.Halted, 1);
  });
  Simulate({}, [] {
    Circle circle(3);
    circle.Prepare();
    circle.Answers = {{}, {}, kFailsAtOnce};
    EXPECT_EQ(StartTransfers(circle.Stream), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(circle.Sent.size(), 3U);
  });
}

TEST(StartTransfers, SendsNothingToADeviceThatIsGoneButConsumesTheSlots) {
  for (const bool isOpen : {false, true}) {
    Simulate({}, [isOpen] {
      Circle circle(3);
      circle.Prepare();
      circle.Stream.StreamRunning = 1;
      (isOpen ? circle.Device.Connected : circle.Device.DeviceOpen) = 0;
      EXPECT_EQ(StartTransfers(circle.Stream), static_cast<NTSTATUS>(0xC000009C));
      EXPECT_TRUE(circle.Sent.empty());
      EXPECT_EQ(circle.Stream.NextStartFrame, 10U + 3 * 32);
      EXPECT_EQ(AnyTransferInFlight(circle.Stream), 0);
    });
  }
}

// The thread still walks it: a transfer in use is not sent to a device that is gone, either.
TEST(StartTransfers, OfADeviceThatIsGoneFailsForATransferInTheThreadsHandsToo) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Prepare();
    circle.Stream.StreamRunning = 1;
    Hold(*circle.Transfer(0).Memory);
    circle.Device.Connected = 0;
    EXPECT_EQ(StartTransfers(circle.Stream), static_cast<NTSTATUS>(0xC000009C));
    LetGo(*circle.Transfer(0).Memory);
  });
}

TEST(StartTransfers, SendsNothingOfTransfersThatAFailedRunHasReleased) {
  Simulate({}, [] {
    Circle circle(3);
    circle.Prepare();
    for (std::size_t i = 0; i < 3; ++i) ReleaseIsoTransfer(circle.Transfer(i));
    EXPECT_EQ(StartTransfers(circle.Stream), static_cast<NTSTATUS>(0xC000009C));
    EXPECT_TRUE(circle.Sent.empty());
    EXPECT_EQ(circle.Stream.NextStartFrame, 1010U + 3 * 32);
  });
}

TEST(IsoTransfer, SendThatFailsAtOnceEndsAtMinusOneAndIsInvisibleFromThenOn) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Prepare();
    circle.Answers = {kFailsAtOnce};
    EXPECT_EQ(StartTransfers(circle.Stream), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(circle.Transfer(0).InFlight, -1);
    circle.Stream.RestartPending = 1;
    EXPECT_EQ(StartTransfers(circle.Stream), STATUS_SUCCESS);
    EXPECT_EQ(circle.Kept.size(), 1U);
    EXPECT_EQ(circle.Transfer(0).InFlight, 0);
    EXPECT_EQ(AnyTransferInFlight(circle.Stream), 0);
  });
}

// Its IRP is with the USB stack, whatever its InFlight says: a second send would be a fatal error.
TEST(IsoTransfer, InvisibleTransferIsNotSentASecondTime) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Prepare();
    circle.Answers = {kFailsAtOnce};
    StartTransfers(circle.Stream);
    circle.Stream.RestartPending = 1;
    StartTransfers(circle.Stream);
    EXPECT_EQ(StartTransfers(circle.Stream), STATUS_SUCCESS);
    EXPECT_EQ(circle.Sent.size(), 2U);
    EXPECT_EQ(circle.Kept.size(), 1U);
  });
}

TEST(IsoTransfer, RebuildsOnlyAfterAPauseOrInARunningStream) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Prepare();
    circle.Transfer(0).Urb->ErrorCount = 99;
    StartTransfers(circle.Stream);
    EXPECT_EQ(circle.Transfer(0).Urb->ErrorCount, 99U);
    circle.CompleteAllTransfers();
    circle.Stream.RestartPending = 1;
    StartTransfers(circle.Stream);
    EXPECT_EQ(circle.Transfer(0).Urb->ErrorCount, 0U);
  });
}

// One row for each combination of flags at a completion.
struct HomeRow {
  std::uint8_t Running;
  std::uint8_t Halted;
  std::uint32_t WaitFlags;
  USBD_STATUS UrbStatus;
  // afterwards
  std::uint8_t HaltedAfter;
  LONG Queued;
  std::uint8_t Recovers;
};

class IsoCompletion : public testing::TestWithParam<HomeRow> {};

TEST_P(IsoCompletion, IsQueuedOrNotAsItsRowSays) {
  const HomeRow& row = GetParam();
  Simulate({}, [&row] {
    Circle circle(1);
    InitializeListHead(&circle.Pipeline->CompletedList);
    KeInitializeSpinLock(&circle.Pipeline->CompletedLock);
    KeInitializeSemaphore(&circle.Pipeline->WakeSemaphore, 0, 0x7FFFFFFF);
    circle.Prepare();
    StartTransfers(circle.Stream);
    circle.Device.Connected = 1;
    circle.Stream.StreamRunning = row.Running;
    circle.Stream.Halted = row.Halted;
    circle.Stream.WaitFlags = row.WaitFlags;
    circle.Forget();
    circle.CompleteTransfer(0, row.UrbStatus, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(circle.Transfer(0).InFlight, 0);
    EXPECT_EQ(circle.Stream.Halted, row.HaltedAfter);
    EXPECT_EQ(circle.Pipeline->CompletedCount, row.Queued);
    EXPECT_EQ(circle.Pipeline->WakeSemaphore.Header.SignalState, row.Queued);
    const bool recovers = circle.Text().find("recovery scheduled") != std::string::npos;
    EXPECT_EQ(recovers, row.Recovers != 0) << circle.Text();
    if (row.Queued != 0) {
      // No frame thread takes it here.
      RemoveHeadList(&circle.Pipeline->CompletedList);
      LetGo(*circle.Transfer(0).Memory);
    }
    WaitForRecovery(circle.Device);
  });
}

constexpr USBD_STATUS kBad = USBD_STATUS_DEV_NOT_RESPONDING;
INSTANTIATE_TEST_SUITE_P(
    AllFlags, IsoCompletion,
    testing::Values(HomeRow{1, 0, 4, 0, 0, 1, 0}, HomeRow{1, 0, 0, 0, 0, 1, 0},
                    HomeRow{1, 0, 4, kBad, 1, 0, 1}, HomeRow{1, 0, 4, 1, 1, 0, 1},
                    HomeRow{1, 1, 4, 0, 1, 0, 0}, HomeRow{1, 1, 4, kBad, 1, 0, 0},
                    HomeRow{1, 0, 5, 0, 0, 0, 0}, HomeRow{1, 0, 5, kBad, 0, 0, 0},
                    HomeRow{1, 0, 6, 0, 0, 0, 0}, HomeRow{1, 1, 6, kBad, 1, 0, 0},
                    HomeRow{0, 0, 4, 0, 1, 0, 0}, HomeRow{0, 0, 0, kBad, 1, 0, 0},
                    HomeRow{0, 1, 4, 0, 1, 0, 0}));

// What finds no transfer in flight has to find the failure, too.
TEST(IsoCompletion, HaltsAStoppedStreamBeforeTheTransferCountsAsIdle) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Prepare();
    StartTransfers(circle.Stream);
    LONG inFlight = -2;
    circle.OnTrace = [&](const std::string& line) {
      if (line.starts_with("iso halted")) inFlight = circle.Transfer(0).InFlight;
    };
    circle.CompleteTransfer(0);
    EXPECT_EQ(inFlight, 1);
    EXPECT_EQ(circle.Transfer(0).InFlight, 0);
    circle.OnTrace = nullptr;
  });
}

TEST(IsoCompletion, TwoUrbFailuresInARowScheduleOneRecovery) {
  Simulate({}, [] {
    Circle circle(2);
    circle.Run();
    circle.Forget();
    circle.CompleteTransfer(0, kBad);
    EXPECT_EQ(circle.Device.ResetGuard, 0);
    circle.Stream.Halted = 0;  // so that the second reaches the guard
    circle.CompleteTransfer(0, kBad);
    EXPECT_EQ(circle.Device.ResetGuard, 0);
    EXPECT_THAT(
        circle.Lines,
        testing::ElementsAre("iso halted transfer=0 urb status=C0000005", "recovery scheduled",
                             "iso halted transfer=1 urb status=C0000005", "recovery under way"));
    circle.Stream.StreamRunning = 0;
    circle.Stream.Opened = 1;
    circle.Device.Connected = 0;
    WaitForRecovery(circle.Device);
  });
}

TEST(IsoCompletion, NeitherAllocatesNorWaitsOnAnyWay) {
  Simulate({}, [] {
    const host::NoAllocationInCompletions scope;
    Circle circle(3);
    circle.Run();
    circle.CompleteTransfer(0);
    circle.Stream.Halted = 1;
    circle.CompleteTransfer(0);
    circle.Stream.StreamRunning = 0;
    circle.CompleteAllTransfers();
    circle.Release();
  });
}

TEST(IsoTransfer, ReleasedInFlightLivesUntilItsCompletion) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Prepare();
    StartTransfers(circle.Stream);
    IsoTransfer& transfer = circle.Transfer(0);
    const void* const buffer = transfer.Buffer;
    ReleaseIsoTransfer(transfer);
    EXPECT_EQ(transfer.Irp, nullptr);
    EXPECT_EQ(transfer.Urb, nullptr);
    EXPECT_EQ(transfer.Buffer, buffer);
    EXPECT_EQ(PoolUsageOfTag(kTag).Blocks, 1U);
    EXPECT_EQ(IrpUsageOfWorld().Allocated, 1U);
    circle.CompleteTransfer(0);
    EXPECT_EQ(PoolUsageOfTag(kTag).Blocks, 0U);
    EXPECT_EQ(IrpUsageOfWorld().Allocated, 0U);
  });
}

TEST(IsoTransfer, LateOneOfTheStreamBeforeDoesNotTouchTheNextStreams) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Prepare();
    StartTransfers(circle.Stream);
    ReleaseIsoTransfer(circle.Transfer(0));
    circle.Prepare();
    StartTransfers(circle.Stream);
    ASSERT_EQ(circle.Kept.size(), 2U);
    circle.CompleteTransfer(0);
    EXPECT_EQ(circle.Transfer(0).InFlight, 1);
    EXPECT_EQ(circle.Stream.Halted, 0);
    EXPECT_EQ(PoolUsageOfTag(kTag).Blocks, 1U);
  });
}

}  // namespace
}  // namespace lidcam::test
