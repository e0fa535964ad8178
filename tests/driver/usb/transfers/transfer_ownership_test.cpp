// The records that a completion routine may use, and until when.

#include "driver/usb/transfers/transfer_ownership.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "driver/usb/transfers/frame_thread.h"
#include "tests/driver/usb/support/circle.h"

namespace lidcam::test {
namespace {

using host::kMillisecond;
using host::Simulate;
using host::Sleep;
using host::TestThread;
using host::UnderManySeeds;

TEST(TransferOwnership, ACompletionThatHasBegunHoldsTheGivingUpBack) {
  UnderManySeeds([] {
    ReferenceCountedMemory& memory = *AllocateReferenceCountedMemory(64);
    Hold(memory);
    ASSERT_TRUE(BeginCompletion(memory));
    bool isGivenUp = false;
    TestThread owner([&] {
      GiveUpTransfer(memory);
      isGivenUp = true;
    });
    Sleep(100 * kMillisecond);
    EXPECT_FALSE(isGivenUp);
    EndCompletion(memory);
    owner.Join();
    EXPECT_TRUE(isGivenUp);
    EXPECT_FALSE(BeginCompletion(memory));
    EXPECT_EQ(memory.Completions, 0);
    LetGo(memory);
  });
}

// One routine is at its end while the frame thread has resubmitted the transfer and the next one
// begins.
TEST(TransferOwnership, TwoCompletionsOfOneTransferAreBothWaitedFor) {
  UnderManySeeds([] {
    ReferenceCountedMemory& memory = *AllocateReferenceCountedMemory(64);
    ASSERT_TRUE(BeginCompletion(memory));
    ASSERT_TRUE(BeginCompletion(memory));
    bool isGivenUp = false;
    TestThread owner([&] {
      GiveUpTransfer(memory);
      isGivenUp = true;
    });
    EndCompletion(memory);
    Sleep(100 * kMillisecond);
    EXPECT_FALSE(isGivenUp);
    EndCompletion(memory);
  });
}

// The processor stops in the middle of the routine for as long as a whole new stream takes. Without
// the wait the routine would decrement, and queue, a transfer of the new stream.
TEST(TransferOwnership, AReleaseWaitsForACompletionRoutineThatHasBegun) {
  UnderManySeeds([] {
    Circle circle(1);
    circle.Run();
    Shared<bool> goesOn{false};
    Shared<bool> isInside{false};
    circle.OnTrace = [&](const std::string& line) {
      if (line.rfind("iso halted", 0) != 0) return;
      isInside = true;
      while (!goesOn) YieldProcessor();
    };
    TestThread processor([&] { circle.CompleteTransfer(0, USBD_STATUS_DEV_NOT_RESPONDING); });
    while (!isInside) YieldProcessor();
    bool isReleased = false;
    TestThread client([&] {
      circle.Pause();
      circle.Release();
      isReleased = true;
      circle.OnTrace = nullptr;
      circle.Run();
      EXPECT_EQ(circle.Transfer(0).InFlight, 1);
    });
    Sleep(1000 * kMillisecond);
    EXPECT_FALSE(isReleased);
    goesOn = true;
    processor.Join();
    client.Join();
    EXPECT_EQ(circle.Sent.size(), 2U);
    WaitForRecovery(circle.Device);
    circle.Pause();
  });
}

// The thread finds the memory by the transfer: any other must never come out of the queue.
TEST(TransferOwnership, OnlyTheTransfersOwnMemoryIsQueued) {
  Simulate({}, [] {
    Circle circle(1);
    InitializeListHead(&circle.Pipeline->CompletedList);
    KeInitializeSpinLock(&circle.Pipeline->CompletedLock);
    KeInitializeSemaphore(&circle.Pipeline->WakeSemaphore, 0, 0x7FFFFFFF);
    circle.Prepare();
    ReferenceCountedMemory& stale = *AllocateReferenceCountedMemory(64);
    Hold(stale);
    EXPECT_EQ(QueueCompletedTransfer(circle.Transfer(0), stale), 0);
    EXPECT_TRUE(IsListEmpty(&circle.Pipeline->CompletedList));
    EXPECT_EQ(circle.Pipeline->CompletedCount, 0);
    EXPECT_EQ(circle.Pipeline->WakeSemaphore.Header.SignalState, 0);
    EXPECT_EQ(stale.Holds, 1);  // the request's hold is released
    LetGo(stale);
  });
}

// Resubmitted, it has done what the start requested: a later stop must not make it sent once more.
TEST(TransferOwnership, AResubmissionForgetsTheStartThatWantedIt) {
  host::Simulate({}, [] {
    Circle circle(1);
    circle.Prepare();
    IsoTransfer& transfer = circle.Transfer(0);
    ReferenceCountedMemory& memory = *transfer.Memory;
    EXPECT_TRUE(TakeForStart(memory));
    EXPECT_FALSE(TakeForStart(memory));
    EXPECT_EQ(memory.Holds, 0x10002);
    ResubmitTransfer(transfer, memory);
    EXPECT_EQ(circle.Kept.size(), 1U);
    EXPECT_EQ(memory.Holds, 2);
    EXPECT_FALSE(ReleaseUnlessRequested(memory));
    EXPECT_EQ(memory.Holds, 1);
    Hold(memory);
  });
}

}  // namespace
}  // namespace lidcam::test
