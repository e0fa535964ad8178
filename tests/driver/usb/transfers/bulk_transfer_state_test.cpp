// The record of a bulk transfer while it runs and after its end.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <string>

#include "driver/core/base/camera_trace.h"
#include "platform/host/nt/memory/pool.h"
#include "tests/driver/usb/support/bulk_device.h"
#include "tests/driver/usb/support/kernel_arguments.h"

namespace lidcam::test {
namespace {

using host::Simulate;
using testing::ElementsAre;

BulkTransfer& Active(BulkDevice& device, std::size_t pipe = 0) {
  return *CONTAINING_RECORD(device.Lists(pipe).ActiveList.Flink, BulkTransfer, Link);
}

TEST(BulkState, FollowsEachChunk) {
  Simulate({}, [] {
    BulkDevice device;
    std::uint8_t buffer[330];
    device.Read(buffer, 330);
    BulkTransfer& transfer = Active(device);
    EXPECT_EQ(std::string(transfer.Signature, 4), "BUQR");
    EXPECT_EQ(transfer.Device, &device.Record);
    EXPECT_EQ(transfer.Stream, nullptr);
    EXPECT_EQ(transfer.PipeNumber, 0U);
    EXPECT_EQ(transfer.Outstanding, 1U);
    EXPECT_EQ(transfer.Remaining, 330U);
    EXPECT_EQ(transfer.ChunkSize, 256U);
    EXPECT_EQ(transfer.Transferred, 0U);
    EXPECT_EQ(transfer.Cursor, buffer);
    EXPECT_EQ(transfer.Bounced, 0);
    device.Answer(256);
    EXPECT_EQ(transfer.Outstanding, 1U);
    EXPECT_EQ(transfer.Remaining, 74U);
    EXPECT_EQ(transfer.ChunkSize, 64U);
    EXPECT_EQ(transfer.Transferred, 256U);
    EXPECT_EQ(transfer.Cursor, buffer + 256);
    EXPECT_EQ(transfer.Bounced, 0);
    device.Answer(64);
    EXPECT_EQ(transfer.Remaining, 10U);
    EXPECT_EQ(transfer.ChunkSize, 64U);
    EXPECT_EQ(transfer.Transferred, 320U);
    EXPECT_EQ(transfer.Bounced, 1);
    EXPECT_NE(transfer.BounceBuffer, nullptr);
    transfer.Flags = 8;
    device.Answer(10);
    EXPECT_EQ(transfer.Outstanding, 0U);
    EXPECT_EQ(transfer.Remaining, 0U);
    EXPECT_EQ(transfer.Transferred, 330U);
    IoFreeIrp(transfer.Irp);
    ExFreePool(transfer.Urb);
    ExFreePool(transfer.BounceBuffer);
    ExFreePool(&transfer);
  });
}

TEST(BulkState, OfAStreamsTransferBeginsAnewEachTime) {
  Simulate({}, [] {
    BulkDevice device;
    OwnTransfer transfer;
    transfer.Transferred = 77;
    transfer.Remaining = 77;
    std::uint8_t buffer[128];
    device.Stream.StreamRunning = 1;
    EXPECT_EQ(
        StartBulkTransfer(device.Record, &device.Stream, &transfer, buffer, 128, 0, nullptr, 1),
        STATUS_PENDING);
    EXPECT_EQ(transfer.Transferred, 0U);
    EXPECT_EQ(transfer.Remaining, 128U);
    EXPECT_EQ(transfer.Room, 128U);
    EXPECT_EQ(transfer.Repeat, 1);
    EXPECT_EQ(transfer.Stream, &device.Stream);
    device.Answer(128);
    EXPECT_EQ(transfer.Transferred, 128U);
    host::Sleep(1);
    transfer.Free();
  });
}

// The stack may write into the URB of the chunk before.
TEST(BulkState, EachChunksUrbIsFilledAnew) {
  Simulate({}, [] {
    BulkDevice device;
    std::uint8_t buffer[320];
    int handle = 0;
    device.Pipe(0).PipeHandle = &handle;
    device.Read(buffer, 320);
    _URB_BULK_OR_INTERRUPT_TRANSFER& urb = BulkDevice::UrbOf(device.Kept.front());
    const USHORT length = urb.Hdr.Length;
    urb.Hdr.Length = 0;
    urb.Hdr.Function = 0;
    urb.PipeHandle = nullptr;
    urb.TransferFlags = 0;
    void* const anything = &handle;
    urb.TransferBufferMDL = static_cast<decltype(urb.TransferBufferMDL)>(anything);
    urb.UrbLink = static_cast<decltype(urb.UrbLink)>(anything);
    device.Answer(256);
    EXPECT_EQ(&BulkDevice::UrbOf(device.Kept.front()), &urb);
    EXPECT_EQ(urb.Hdr.Length, length);
    EXPECT_EQ(urb.Hdr.Length, sizeof(void*) == 8 ? 128 : 72);
    EXPECT_EQ(urb.Hdr.Function, 9);
    EXPECT_EQ(urb.PipeHandle, &handle);
    EXPECT_EQ(urb.TransferFlags, 2U);
    EXPECT_EQ(urb.TransferBufferLength, 64U);
    EXPECT_EQ(urb.TransferBuffer, buffer + 256);
    EXPECT_EQ(urb.TransferBufferMDL, nullptr);
    EXPECT_EQ(urb.UrbLink, nullptr);
    device.Answer(64);
  });
}

TEST(BulkState, WorkOfADoneTransferIsQueuedToTheDelayedQueue) {
  Simulate({}, [] {
    BulkDevice device;
    OwnTransfer transfer;
    std::uint8_t buffer[64];
    device.Stream.StreamRunning = 1;
    StartBulkTransfer(device.Record, &device.Stream, &transfer, buffer, 64, 0, nullptr, 0);
    const KernelArguments arguments;
    device.Answer(64);
    EXPECT_THAT(arguments.WorkItemQueues, ElementsAre(DelayedWorkQueue));
    EXPECT_EQ(static_cast<int>(arguments.WorkItemQueues[0]), 1);
    host::Sleep(1);
    transfer.Free();
  });
}

TEST(BulkState, EventOfAWaiterIsSetWithoutABoostAndAfterItsFlagIsCleared) {
  Simulate({}, [] {
    BulkDevice device;
    std::uint8_t buffer[64];
    device.Read(buffer, 64);
    BulkTransfer& transfer = Active(device);
    transfer.Flags = 0xFF;
    KernelArguments arguments;
    int flags = 0;
    arguments.OnEventSet = [&](PRKEVENT) { flags = transfer.Flags; };
    device.Answer(64);
    EXPECT_EQ(flags, 0xF7);
    ASSERT_EQ(arguments.EventSets.size(), 1U);
    EXPECT_EQ(arguments.EventSets[0], (KernelArguments::EventSet{&transfer.DoneEvent, 0, FALSE}));
    IoFreeIrp(transfer.Irp);
    ExFreePool(transfer.Urb);
    ExFreePool(&transfer);
  });
}

std::vector<std::string>& TraceLines() {
  static std::vector<std::string> lines;
  return lines;
}

[[gnu::format(printf, 2, 0)]] void KeepLine(const CameraContext*, const char* format,
                                            std::va_list arguments) {
  char text[100];
  std::vsnprintf(text, sizeof(text), format, arguments);
  TraceLines().emplace_back(text);
}

TEST(BulkState, EachHaltOfItsStreamIsTracedWithItsReason) {
  Simulate({}, [] {
    TraceLines().clear();
    SetCameraTraceSink(KeepLine);
    BulkDevice device;
    OwnTransfer transfer;
    std::uint8_t buffer[64];
    StartBulkTransfer(device.Record, &device.Stream, &transfer, buffer, 64, 0, nullptr, 0);
    device.Answer(0, USBD_STATUS_STALL_PID);
    device.Stream.StreamRunning = 1;
    StartBulkTransfer(device.Record, &device.Stream, &transfer, buffer, 64, 0, nullptr, 0);
    device.Answer(0, USBD_STATUS_STALL_PID);
    device.Stream.WaitFlags = StopWaitArmed;
    device.SendStatus = STATUS_UNSUCCESSFUL;
    StartBulkTransfer(device.Record, &device.Stream, &transfer, buffer, 64, 0, nullptr, 0);
    SetCameraTraceSink(nullptr);
    EXPECT_THAT(TraceLines(),
                ElementsAre("bulk halted stopped status=C0000004",
                            "bulk halted urb status=C0000004", "bulk halted send status=C0000001"));
    transfer.Free();
  });
}

}  // namespace
}  // namespace lidcam::test
