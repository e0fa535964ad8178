// The engine of bulk and interrupt transfers: chunks, bounced packets and every end of a transfer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>

#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/verifier/irp_tracker.h"
#include "tests/driver/usb/support/bulk_device.h"

namespace lidcam::test {
namespace {

using host::Simulate;
using testing::ElementsAre;

constexpr std::uint32_t kTag = 0x206D6457;  // "Wdm "

std::vector<std::uint8_t> CountingUp(std::size_t bytes) {
  std::vector<std::uint8_t> data(bytes);
  for (std::size_t i = 0; i < bytes; ++i) data[i] = static_cast<std::uint8_t>(i);
  return data;
}

TEST(BulkTransfer, FillsItsUrbAsTheTableSays) {
  Simulate({}, [] {
    BulkDevice device;
    std::uint8_t buffer[128];
    EXPECT_EQ(device.Read(buffer, 128), STATUS_PENDING);
    const _URB_BULK_OR_INTERRUPT_TRANSFER& urb = BulkDevice::UrbOf(device.Kept[0]);
    EXPECT_EQ(urb.Hdr.Length, sizeof(void*) == 4 ? 72 : 128);
    EXPECT_EQ(urb.Hdr.Function, 9);
    EXPECT_EQ(urb.PipeHandle, device.Pipe(0).PipeHandle);
    EXPECT_EQ(urb.TransferBufferLength, 128U);
    EXPECT_EQ(urb.TransferBuffer, buffer);
    EXPECT_EQ(urb.TransferFlags, 2U);
    EXPECT_EQ(urb.TransferBufferMDL, nullptr);
    EXPECT_EQ(urb.UrbLink, nullptr);
    auto& transfer = *CONTAINING_RECORD(device.Lists(0).ActiveList.Flink, BulkTransfer, Link);
    EXPECT_EQ(std::string(transfer.Signature, 4), "BUQR");
    EXPECT_EQ(transfer.Outstanding, 1U);
    device.Answer(128);
    EXPECT_TRUE(IsListEmpty(&device.Lists(0).ActiveList));
  });
}

TEST(BulkTransfer, MovesInChunksOfTheLargestTransferAndEndsInABouncedPacket) {
  Simulate({}, [] {
    BulkDevice device;
    std::vector<std::uint8_t> buffer(600);
    EXPECT_EQ(device.Read(buffer.data(), 600), STATUS_PENDING);
    device.Answer(256);
    device.Answer(256);
    device.Answer(64);  // 88 bytes are left: a packet, and the rest of a packet
    device.Answer(24);
    EXPECT_THAT(device.Chunks, ElementsAre(256, 256, 64, 64));
    EXPECT_EQ(buffer, CountingUp(600));
    EXPECT_EQ(host::PoolUsageOfTag(kTag).Blocks, 0U);
    EXPECT_EQ(host::IrpUsageOfWorld().Allocated, 0U);
  });
}

TEST(BulkTransfer, CutsAChunkToWholePackets) {
  Simulate({}, [] {
    BulkDevice device;
    device.Pipe(0).MaximumTransferSize = 100;
    std::vector<std::uint8_t> buffer(128);
    device.Read(buffer.data(), 128);
    device.Answer(64);
    device.Answer(64);
    EXPECT_THAT(device.Chunks, ElementsAre(64, 64));
  });
}

TEST(BulkTransfer, ShortChunkEndsIt) {
  Simulate({}, [] {
    BulkDevice device;
    std::vector<std::uint8_t> buffer(600);
    device.Read(buffer.data(), 600);
    device.Answer(100);
    EXPECT_TRUE(device.Kept.empty());
    EXPECT_EQ(host::PoolUsageOfTag(kTag).Blocks, 0U);
  });
}

TEST(BulkTransfer, PacketThatIsLongerThanWhatIsWantedStaysInsideTheCallersMemory) {
  Simulate({}, [] {
    BulkDevice device;
    std::vector<std::uint8_t> buffer(12, 0xEE);
    device.Read(buffer.data(), 10);
    device.Answer(64);
    EXPECT_THAT(buffer, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0xEE, 0xEE));
  });
}

TEST(BulkTransfer, CallsBackWithTheStatusOfACompletionRoutine) {
  Simulate({}, [] {
    BulkDevice device;
    CameraContext camera{};
    device.Record.Camera = &camera;
    static CameraContext* told = nullptr;
    static NTSTATUS status = 0;
    static void* context = nullptr;
    context = &device;
    std::uint8_t buffer[64];
    device.Read(buffer, 64, [](CameraContext* of, void* with, NTSTATUS end) {
      told = of;
      context = with;
      status = end;
    });
    device.Answer(64);
    EXPECT_EQ(told, &camera);
    EXPECT_EQ(context, nullptr);
    EXPECT_EQ(status, static_cast<NTSTATUS>(0xC0000016));
  });
}

TEST(BulkTransfer, RepeatsWithTheLengthOfItsLastChunkAndItsMemory) {
  Simulate({}, [] {
    BulkDevice device;
    std::vector<std::uint8_t> buffer(266, 0xEE);
    device.Read(buffer.data(), 266, nullptr, 1);
    device.Answer(256);
    device.Answer(10);
    EXPECT_THAT(device.Chunks, ElementsAre(256, 64, 64));
    device.Answer(64);  // more than the 10 bytes that the caller has there
    EXPECT_EQ(buffer.size(), 266U);
    EXPECT_EQ(buffer[256], 10);
    device.Answer(0, USBD_STATUS_CANCELED);
    EXPECT_EQ(host::PoolUsageOfTag(kTag).Blocks, 0U);
  });
}

TEST(BulkTransfer, WaiterGetsTheEventAndKeepsTheTransfer) {
  for (const USBD_STATUS status :
       {USBD_STATUS_SUCCESS, USBD_STATUS_CANCELED, USBD_STATUS_STALL_PID}) {
    Simulate({}, [status] {
      BulkDevice device;
      std::uint8_t buffer[64];
      device.Read(buffer, 64);
      auto& transfer = *CONTAINING_RECORD(device.Lists(0).ActiveList.Flink, BulkTransfer, Link);
      transfer.Flags = 8;
      device.Answer(64, status);
      EXPECT_EQ(host::WaitFor(&transfer.DoneEvent, 0), STATUS_SUCCESS);
      EXPECT_EQ(transfer.Flags, status == USBD_STATUS_SUCCESS ? 0 : 8);
      IoFreeIrp(transfer.Irp);
      ExFreePool(transfer.Urb);
      ExFreePool(&transfer);
    });
  }
}

TEST(BulkTransfer, CancelledOrFailedOneThatStandsForItselfIsFreed) {
  const std::vector<std::pair<USBD_STATUS, NTSTATUS>> ends = {
      {USBD_STATUS_CANCELED, STATUS_SUCCESS},
      {USBD_STATUS_STALL_PID, STATUS_CANCELLED},
      {USBD_STATUS_STALL_PID, STATUS_UNSUCCESSFUL}};
  for (const auto& [urbStatus, irpStatus] : ends) {
    Simulate({}, [urbStatus = urbStatus, irpStatus = irpStatus] {
      BulkDevice device;
      std::uint8_t buffer[64];
      device.Read(buffer, 64);
      device.Answer(0, urbStatus, irpStatus);
      EXPECT_EQ(host::PoolUsageOfTag(kTag).Blocks, 0U);
      EXPECT_EQ(device.Stream.Halted, 0);
    });
  }
}

TEST(BulkTransfer, WriteOfLessThanAPacketSendsAnEmptyChunkAndEnds) {
  Simulate({}, [] {
    BulkDevice device;
    std::uint8_t buffer[10] = {};
    StartBulkTransfer(device.Record, nullptr, nullptr, buffer, 10, 1, nullptr, 0);
    device.Answer(0);
    EXPECT_THAT(device.Chunks, ElementsAre(0));
    EXPECT_EQ(host::PoolUsageOfTag(kTag).Blocks, 0U);
  });
}

TEST(BulkTransfer, PipeThatIsAbsentOrHasNoPacketsIsRefused) {
  Simulate({}, [] {
    BulkDevice device;
    std::uint8_t buffer[10];
    EXPECT_EQ(StartBulkTransfer(device.Record, nullptr, nullptr, buffer, 10, 2, nullptr, 0),
              static_cast<NTSTATUS>(0xC000009C));
    device.Pipe(0).MaximumPacketSize = 0;
    EXPECT_EQ(device.Read(buffer, 10), static_cast<NTSTATUS>(0xC000009C));
  });
}

// The table has the pipes of the setting that was selected first.
TEST(BulkTransfer, PipeThatOnlyALaterSettingHasIsRefused) {
  Simulate({}, [] {
    BulkDevice device;
    device.Record.PipeCount = 1;
    std::uint8_t buffer[10];
    EXPECT_EQ(StartBulkTransfer(device.Record, nullptr, nullptr, buffer, 10, 1, nullptr, 0),
              static_cast<NTSTATUS>(0xC000009C));
    EXPECT_EQ(device.Read(buffer, 10), STATUS_PENDING);
    device.Answer(10);
  });
}

TEST(BulkTransfer, EveryAllocationThatFailsEndsItWithNothingLeft) {
  for (std::uint32_t nth = 1; nth <= 3; ++nth) {
    Simulate({}, [nth] {
      BulkDevice device;
      std::uint8_t buffer[10];
      host::FailPoolAllocation(nth);
      EXPECT_EQ(device.Read(buffer, 10), static_cast<NTSTATUS>(0xC000009A));
      host::FailPoolAllocation(0);
      EXPECT_EQ(host::PoolUsageOfTag(kTag).Blocks, 0U);
    });
  }
}

// A stream's transfer: the effect of each end on the stream's flags.
struct StreamRow {
  std::uint8_t Running;
  std::uint32_t WaitFlags;
  USBD_STATUS UrbStatus;
  std::uint8_t HaltedAfter;
};

class BulkStream : public testing::TestWithParam<StreamRow> {};

TEST_P(BulkStream, EndsAsItsRowSays) {
  const StreamRow& row = GetParam();
  Simulate({}, [&row] {
    BulkDevice device;
    OwnTransfer transfer;
    std::uint8_t buffer[64];
    EXPECT_EQ(
        StartBulkTransfer(device.Record, &device.Stream, &transfer, buffer, 64, 0, nullptr, 0),
        STATUS_PENDING);
    device.Stream.StreamRunning = row.Running;
    device.Stream.WaitFlags = row.WaitFlags;
    device.Answer(64, row.UrbStatus);
    EXPECT_EQ(device.Stream.Halted, row.HaltedAfter);
    EXPECT_EQ(transfer.Outstanding, 0U);
    EXPECT_TRUE(IsListEmpty(&device.Lists(0).ActiveList));
    // The work item of a completed transfer has a block of its own, and frees it.
    const bool isDone = row.UrbStatus == USBD_STATUS_SUCCESS && row.Running != 0;
    EXPECT_EQ(host::PoolUsageOfTag(kTag).Blocks, isDone ? 2U : 1U);
    host::Sleep(1);
    EXPECT_EQ(host::PoolUsageOfTag(kTag).Blocks, 1U);
    transfer.Free();
    EXPECT_EQ(host::PoolUsageOfTag(kTag).Blocks, 0U);
  });
}

INSTANTIATE_TEST_SUITE_P(AllEnds, BulkStream,
                         testing::Values(StreamRow{1, 0, USBD_STATUS_SUCCESS, 0},
                                         StreamRow{0, 0, USBD_STATUS_SUCCESS, 1},
                                         StreamRow{1, 1, USBD_STATUS_STALL_PID, 0},
                                         StreamRow{1, 2, USBD_STATUS_STALL_PID, 1},
                                         StreamRow{1, 2, USBD_STATUS_SUCCESS, 0},
                                         StreamRow{1, 0, USBD_STATUS_CANCELED, 0},
                                         StreamRow{1, 0, USBD_STATUS_STALL_PID, 1}));

TEST(BulkStream, CancelledRequestIsACleanEndWhateverItsUrbSays) {
  Simulate({}, [] {
    BulkDevice device;
    OwnTransfer transfer;
    std::uint8_t buffer[64];
    device.Stream.StreamRunning = 1;
    StartBulkTransfer(device.Record, &device.Stream, &transfer, buffer, 64, 0, nullptr, 0);
    device.Answer(0, USBD_STATUS_STALL_PID, STATUS_CANCELLED);
    EXPECT_EQ(device.Stream.Halted, 0);
    transfer.Free();
  });
}

TEST(BulkStream, SendThatDoesNotPendHaltsTheStream) {
  for (const NTSTATUS status : {STATUS_DEVICE_NOT_CONNECTED, STATUS_SUCCESS}) {
    Simulate({}, [status] {
      BulkDevice device;
      OwnTransfer transfer;
      std::uint8_t buffer[64];
      device.SendStatus = status;
      device.Stream.StreamRunning = 1;
      device.Stream.WaitFlags = StopWaitArmed;  // so that only the sender halts
      EXPECT_EQ(
          StartBulkTransfer(device.Record, &device.Stream, &transfer, buffer, 64, 0, nullptr, 0),
          status);
      EXPECT_EQ(device.Stream.Halted, 1);
      transfer.Free();
    });
  }
}

TEST(RestartPendingTransfers, RestartsEachOfEachPipeAndGivesTheLastResult) {
  Simulate({}, [] {
    BulkDevice device;
    OwnTransfer transfers[3];
    std::uint8_t buffer[64];
    for (std::size_t i = 0; i < 3; ++i) {
      transfers[i].Device = &device.Record;
      transfers[i].Stream = &device.Stream;
      transfers[i].UserBuffer = buffer;
      transfers[i].Room = 64;
      transfers[i].ChunkSize = 64;
      InsertTailList(&device.Lists(i / 2).PendingList, &transfers[i].Link);
    }
    EXPECT_EQ(RestartPendingTransfers(device.Record), STATUS_PENDING);
    EXPECT_THAT(device.Chunks, ElementsAre(64, 64, 64));
    EXPECT_TRUE(IsListEmpty(&device.Lists(0).PendingList));
    EXPECT_TRUE(IsListEmpty(&device.Lists(1).PendingList));
    EXPECT_EQ(transfers[2].PipeNumber, 1U);
    while (!device.Kept.empty()) device.Answer(0, USBD_STATUS_CANCELED);
    for (OwnTransfer& transfer : transfers) transfer.Free();
  });
}

TEST(RestartPendingTransfers, LeavesWhatIsQueuedMeanwhileToTheNextTime) {
  Simulate({}, [] {
    BulkDevice device;
    OwnTransfer transfers[3];
    std::uint8_t buffer[64];
    for (OwnTransfer& transfer : transfers) {
      transfer.Device = &device.Record;
      transfer.Stream = &device.Stream;
      transfer.UserBuffer = buffer;
      transfer.Room = 64;
      transfer.ChunkSize = 64;
    }
    LIST_ENTRY& pending = device.Lists(0).PendingList;
    InsertTailList(&pending, &transfers[0].Link);
    device.OnSend = [&] {
      InsertTailList(&pending, &transfers[1].Link);
      InsertTailList(&pending, &transfers[2].Link);
      device.OnSend = nullptr;
    };
    EXPECT_EQ(RestartPendingTransfers(device.Record), STATUS_PENDING);
    EXPECT_THAT(device.Chunks, ElementsAre(64));
    EXPECT_EQ(RestartPendingTransfers(device.Record), STATUS_PENDING);
    EXPECT_THAT(device.Chunks, ElementsAre(64, 64, 64));
    while (!device.Kept.empty()) device.Answer(0, USBD_STATUS_CANCELED);
    for (OwnTransfer& transfer : transfers) transfer.Free();
  });
}

TEST(RestartPendingTransfers, PipesThatOnlyALaterSettingHasAreLeftOut) {
  Simulate({}, [] {
    BulkDevice device;
    device.Record.PipeCount = 1;
    // Their entry would be behind the table: nothing has made a list of it.
    device.Lists(1) = {};
    EXPECT_EQ(RestartPendingTransfers(device.Record), 0);
  });
}

TEST(RestartPendingTransfers, WithNothingPendingGivesZero) {
  Simulate({}, [] {
    BulkDevice device;
    EXPECT_EQ(RestartPendingTransfers(device.Record), 0);
    device.Record.PipeTable = nullptr;
    EXPECT_EQ(RestartPendingTransfers(device.Record), 0);
  });
}

}  // namespace
}  // namespace lidcam::test
