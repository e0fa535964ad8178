// Recoveries and stops of a stream: order, time limits and every way to end.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/host/nt/memory/pool.h"
#include "tests/driver/usb/support/camera_faults.h"
#include "tests/driver/usb/support/circle.h"

namespace lidcam::test {
namespace {

using host::kMillisecond;
using host::kSecond;
using host::Now;
using host::Simulate;
using host::Sleep;

constexpr USBD_STATUS kBad = USBD_STATUS_XACT_ERROR;

std::size_t CountOf(const Circle& circle, const std::string& text) {
  std::size_t count = 0;
  for (const std::string& line : circle.Lines) count += line == text ? 1U : 0U;
  return count;
}

NTSTATUS Recover(Circle& circle) {
  return RecoverStream(circle.Device, circle.Stream, nullptr, nullptr);
}

TEST(Recovery, GoesInItsOrder) {
  Simulate({}, [] {
    Circle circle(2);
    circle.Run();
    circle.Forget();
    circle.CompleteTransfer(0, kBad);
    Sleep(600 * kMillisecond);
    EXPECT_EQ(circle.Text(),
              "iso halted transfer=0 urb status=C0000011\n"
              "recovery scheduled\n"
              "urb abort pipe=0x101\n"
              "recovery abort status=00000000\n"
              "recovery under way\n"
              "watchdog reset idle\n"
              "recovery idle status=00000000\n"
              "urb reset pipe=0x101\n"
              "recovery reset status=00000000\n"
              "stream off\n"
              "stream setting=3 size-mode=4 frame-bytes=38466\n"
              "urb frame number\n"
              "iso start frame=1010 pipe=0\n"
              "iso started status=00000000\n"
              "recovery ends status=00000000\n");
    circle.Pause();
  });
}

TEST(Recovery, RestartsOnPipeEntryZeroWithItsLengthsAndTheSamePacketCount) {
  Simulate({}, [] {
    Circle circle(2);
    circle.Run();
    circle.Sent.clear();
    circle.CompleteTransfer(0, kBad);
    Sleep(600 * kMillisecond);
    EXPECT_EQ(circle.Stream.PipeIndex, 0U);
    ASSERT_EQ(circle.Sent.size(), 2U);
    for (std::uint32_t i = 0; i < 2; ++i) {
      EXPECT_EQ(circle.Sent[i],
                (SentTransfer{1010 + 32 * i, 1, 32 * 16, circle.Pipe(0).PipeHandle}));
      EXPECT_EQ(circle.Transfer(i).Urb->NumberOfPackets, 32U);
    }
    EXPECT_EQ(circle.Flags(), "running wait=4");
    circle.Pause();
  });
}

// Nothing in the driver writes the field.
TEST(Recovery, TakesItsPipeEntryFromTheDevicesRecord) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Run();
    circle.Device.RecoveryPipeIndex = 1;
    circle.Stream.PipeIndex = 0;
    circle.CompleteTransfer(0, kBad);
    Sleep(600 * kMillisecond);
    EXPECT_EQ(circle.Stream.PipeIndex, 1U);
    circle.Pause();
  });
}

TEST(Recovery, LengthsStayInsideTheBlockWhenEntryZeroHasLargerPackets) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Run();
    circle.Pipe(0).MaximumPacketSize = 5120;
    circle.Sent.clear();
    circle.CompleteTransfer(0, kBad);
    Sleep(600 * kMillisecond);
    ASSERT_EQ(circle.Sent.size(), 1U);
    EXPECT_EQ(circle.Sent[0].Bytes, 32U * 1024);
    circle.Pause();
  });
}

TEST(Recovery, OfAStreamThatIsNotOpenedDoesNothing) {
  Simulate({}, [] {
    Circle circle;
    EXPECT_EQ(Recover(circle), 0);
    EXPECT_EQ(circle.Text(), "recovery ends status=00000000\n");
    circle.Forget();
    circle.Stream.Opened = 2;  // the flag of an open stream is 1
    EXPECT_EQ(Recover(circle), 0);
    EXPECT_EQ(circle.Text(), "recovery ends status=00000000\n");
    circle.Stream.Opened = 0;
  });
}

TEST(Recovery, EndsWithTheStatusOfAnAbortThatFails) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Run();
    circle.AbortStatus = STATUS_DEVICE_NOT_CONNECTED;
    EXPECT_EQ(Recover(circle), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(circle.Flags(), "running wait=4");
    circle.AbortStatus = STATUS_SUCCESS;
    circle.Pause();
  });
}

TEST(Recovery, WithoutMemoryForTheAbortEndsWithNoResources) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Run();
    host::FailPoolAllocation(1);
    EXPECT_EQ(Recover(circle), static_cast<NTSTATUS>(0xC000009A));
    circle.Pause();
  });
}

TEST(Recovery, GivesUpAfterExactlyEightSecondsAndStaysHalted) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Run();
    circle.AbortBringsHome = false;
    circle.Stream.Halted = 1;
    const LONGLONG begin = Now();
    EXPECT_EQ(Recover(circle), 0x102);
    EXPECT_EQ(Now() - begin, 80'000'000);
    EXPECT_EQ(circle.Flags(), "running halted wait=4");
    circle.Stream.StreamRunning = 0;
    circle.CompleteAllTransfers();
  });
}

TEST(Recovery, WaitsForATickEvenWhenTheAbortCompletedAllAtOnce) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Run();
    Sleep(10 * kMillisecond);
    circle.Stream.Halted = 1;
    EXPECT_EQ(Recover(circle), 0);
    EXPECT_EQ(Now(), 2'500'000);
    circle.Pause();
  });
}

TEST(Recovery, GoesOnAfterAResetThatFailsWithoutPuttingTheCameraToRest) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Run();
    circle.ResetStatus = STATUS_DEVICE_NOT_CONNECTED;
    circle.Stream.Halted = 1;
    EXPECT_EQ(Recover(circle), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(CountOf(circle, "stream off"), 0U);
    EXPECT_EQ(circle.Stream.PipeIndex, 0U);
    EXPECT_EQ(circle.Kept.size(), 1U);
    circle.Pause();
  });
}

TEST(Recovery, EndsUnsuccessfullyWhereTheCameraRefuses) {
  for (const bool atEnd : {true, false}) {
    Simulate({}, [atEnd] {
      Circle circle(1);
      CameraFaults faults;
      (atEnd ? faults.EndFails : faults.ModeFails) = true;
      circle.Run();
      circle.Sent.clear();
      circle.Stream.Halted = 1;
      EXPECT_EQ(Recover(circle), static_cast<NTSTATUS>(0xC0000001));
      EXPECT_EQ(circle.Stream.PipeIndex, 1U);
      EXPECT_TRUE(circle.Sent.empty());
      circle.Pause();
    });
  }
}

// The stream is not ended after a failed reset, so only the camera's mode counts.
TEST(Recovery, AfterAResetThatFailsDoesNotAskForTheEndOfTheStream) {
  Simulate({}, [] {
    Circle circle(1);
    CameraFaults faults;
    faults.EndFails = true;
    circle.Run();
    circle.ResetStatus = STATUS_DEVICE_NOT_CONNECTED;
    circle.Stream.Halted = 1;
    EXPECT_EQ(Recover(circle), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(circle.Stream.PipeIndex, 0U);
    circle.Pause();
  });
}

TEST(Recovery, IgnoresWhatTheNewStartGives) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Run();
    circle.Stream.Halted = 1;
    circle.Answers = {{false, STATUS_DEVICE_NOT_CONNECTED, USBD_STATUS_DEVICE_GONE}};
    EXPECT_EQ(Recover(circle), STATUS_SUCCESS);
    EXPECT_EQ(circle.Flags(), "running halted wait=4");
    circle.Pause();
  });
}

TEST(Recovery, OfAStreamThatHasStoppedMeanwhileEndsAfterTheReset) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Run();
    circle.Stream.Halted = 1;
    circle.ResetStatus = 0x40000000;
    circle.OnRequest = [&circle](USHORT function) {
      if (function == 0x001E) circle.Stream.StreamRunning = 0;
    };
    EXPECT_EQ(Recover(circle), 0x40000000);
    EXPECT_EQ(circle.Stream.PipeIndex, 1U);
  });
}

TEST(Drain, EndsWithTheNextTickOnceNoneIsInFlight) {
  Simulate({}, [] {
    Circle circle(3);
    circle.Run();
    Sleep(10 * kMillisecond);
    circle.Forget();
    EXPECT_EQ(DrainTransfers(circle.Stream), 0);
    EXPECT_EQ(Now(), 2'500'000);
    EXPECT_EQ(circle.Text(),
              "urb abort pipe=0x101\n"
              "drain abort status=00000000\n"
              "watchdog stop idle\n"
              "drain ends status=00000000\n");
    EXPECT_EQ(circle.Flags(), "running wait=4");
    circle.Stream.StreamRunning = 0;
  });
}

TEST(Drain, GivesUpAfterExactlyEightSecondsAndStaysArmed) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Run();
    circle.AbortBringsHome = false;
    const LONGLONG begin = Now();
    EXPECT_EQ(DrainTransfers(circle.Stream), 0x102);
    EXPECT_EQ(Now() - begin, 80'000'000);
    EXPECT_EQ(circle.Flags(), "running wait=5");
    circle.Stream.StreamRunning = 0;
    circle.CompleteAllTransfers();
  });
}

TEST(Drain, OfADeviceThatIsGoneEndsAtTheNextTickWithNoneInFlight) {
  Simulate({}, [] {
    Circle circle(2);
    circle.Run();
    circle.CompleteAllTransfers(USBD_STATUS_DEVICE_GONE);
    circle.Device.Connected = 0;
    circle.Forget();
    Sleep(260 * kMillisecond);
    EXPECT_EQ(DrainTransfers(circle.Stream), 0);
    EXPECT_EQ(Now(), 5'000'000);
    EXPECT_EQ(CountOf(circle, "drain abort status=C000009C"), 1U);
    circle.Stream.StreamRunning = 0;
  });
}

TEST(Drain, OfAPreparedStreamThatHasStoppedWaitsItsFullEightSeconds) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Run();
    circle.Stream.StreamRunning = 0;
    EXPECT_EQ(DrainTransfers(circle.Stream), 0x102);
  });
}

// The watchdog ends waits of running streams only.
TEST(Recovery, QueuedJustBeforeAPauseHoldsTheDeviceForItsFullEightSeconds) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Run();
    KsAcquireDevice(&circle.KsDevice);
    circle.CompleteTransfer(0, kBad);
    EXPECT_EQ(circle.Pause(), 0);
    const LONGLONG begin = Now();
    KsReleaseDevice(&circle.KsDevice);
    WaitForRecovery(circle.Device);
    EXPECT_GE(Now() - begin, 80'000'000);
    EXPECT_LT(Now() - begin, 80'000'000 + 2 * kMillisecond + 1);
    EXPECT_EQ(CountOf(circle, "recovery idle status=00000102"), 1U);
    EXPECT_EQ(circle.Stream.PipeIndex, 1U);
  });
}

TEST(Drain, ThatTimedOutLeavesTheNextRunSilentUntilAPauseAndARun) {
  Simulate({}, [] {
    Circle circle(2);
    circle.Run();
    circle.AbortBringsHome = false;
    EXPECT_EQ(circle.Pause(), 0x102);
    circle.CompleteAllTransfers(USBD_STATUS_CANCELED);
    circle.Stream.Halted = 0;
    circle.AbortBringsHome = true;
    circle.Sent.clear();

    circle.Stream.RestartPending = 1;
    circle.Run();
    circle.CompleteAllTransfers();
    Sleep(10 * kSecond);
    EXPECT_EQ(circle.Sent.size(), 2U);  // the start's, and nothing since
    EXPECT_EQ(circle.Flags(), "running wait=4");

    EXPECT_EQ(circle.Pause(), 0);
    circle.Stream.RestartPending = 1;
    circle.Run();
    circle.CompleteAllTransfers();
    Sleep(kMillisecond);
    EXPECT_EQ(circle.Sent.size(), 6U);  // the start's, and the thread's
    EXPECT_EQ(circle.Pause(), 0);
  });
}

// The flags in each state of the stream, one after the other.
TEST(Circle, ShowsItsStatesInItsFlags) {
  Simulate({}, [] {
    Circle circle(2);
    circle.Run();
    EXPECT_EQ(circle.Flags(), "running wait=4");  // running

    circle.AbortBringsHome = false;
    KsAcquireDevice(&circle.KsDevice);
    circle.CompleteTransfer(0, kBad);
    EXPECT_EQ(circle.Flags(), "running halted wait=4");  // failed
    KsReleaseDevice(&circle.KsDevice);
    Sleep(kMillisecond);
    EXPECT_EQ(circle.Flags(), "running halted wait=6");  // recovering
    circle.CompleteAllTransfers(USBD_STATUS_CANCELED);
    Sleep(300 * kMillisecond);
    EXPECT_EQ(circle.Flags(), "running wait=4");  // running again

    host::TestThread stop([&circle] { circle.Pause(); });
    Sleep(kMillisecond);
    EXPECT_EQ(circle.Flags(), "running wait=5");  // stopping
    circle.CompleteAllTransfers(USBD_STATUS_CANCELED);
    stop.Join();
    EXPECT_EQ(circle.Flags(), "wait=4");  // idle

    circle.Release();
    EXPECT_EQ(circle.Flags(), "wait=0");  // released
  });
}

TEST(Recovery, BringsFramesBackAfterEachKindOfFailureUnderAnySchedule) {
  host::UnderManySeeds(
      [] {
        Circle circle(3);
        circle.Run();
        for (const USBD_STATUS status : {kBad, USBD_STATUS_CANCELED, USBD_STATUS_NOT_ACCESSED}) {
          circle.CompleteTransfer(0, status);
          if (!circle.Kept.empty()) circle.CompleteTransfer(0);  // the abort may have been faster
          Sleep(kSecond);
          EXPECT_EQ(circle.Flags(), "running wait=4");
          ASSERT_EQ(circle.Kept.size(), 3U) << circle.Text();
        }
        EXPECT_EQ(circle.Pause(), 0);
      },
      100);
}

}  // namespace
}  // namespace lidcam::test
