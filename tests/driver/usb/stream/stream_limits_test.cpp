// Stream control in border cases: time limits, refusals and unusual statuses.

#include <gtest/gtest.h>

#include "tests/driver/support/statuses.h"
#include "tests/driver/usb/support/camera_faults.h"
#include "tests/driver/usb/support/transport_world.h"

namespace lidcam::test {
namespace {

constexpr auto kOddSuccess = static_cast<NTSTATUS>(0x40000000);

using Decision = std::function<std::optional<Verdict>(URB&)>;

Decision AnswerFunction(USHORT function, Verdict verdict) {
  return [=](URB& urb) -> std::optional<Verdict> {
    if (urb.UrbHeader.Function != function) return std::nullopt;
    return verdict;
  };
}

// The seventh transfer, the last of a start, is answered at once.
Decision AnswerTheLastTransfer(NTSTATUS status) {
  return [status, sent = 0U](URB& urb) mutable -> std::optional<Verdict> {
    if (urb.UrbHeader.Function != 0x0A || ++sent != 7) return std::nullopt;
    return Verdict{status};
  };
}

void CompleteAllTransfers(TransportWorld& world, USBD_STATUS status = USBD_STATUS_SUCCESS) {
  for (std::size_t left = world.Stack.IsoOut(); left != 0; --left) world.Stack.CompleteIso(status);
}

NTSTATUS StartAndRun(TransportWorld& world) {
  NTSTATUS status = world.Start();
  if (status == STATUS_SUCCESS) status = world.Acquire();
  return status == STATUS_SUCCESS ? world.Device().RunStream() : status;
}

TEST(StreamLimits, ARunWhoseLastSendGivesAPositiveStatusReturnsItAndRunsOn) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    std::uint8_t frame = 0;
    world.Device().PublishRawFrame(&frame, 1);
    world.Stream().RestartPending = 1;
    world.Stack.Decide = AnswerTheLastTransfer(kOddSuccess);
    EXPECT_EQ(world.Device().RunStream(), kOddSuccess);
    // The release that follows is refused, since the stream runs by then; its other effects stay.
    EXPECT_EQ(world.Stream().StreamRunning, 1);
    EXPECT_EQ(world.Stream().Opened, 1);
    EXPECT_EQ(world.Stream().RestartPending, 0);
    EXPECT_EQ(world.Stream().Halted, 1);
    EXPECT_EQ(world.Stack.IsoOut(), 6U);
    std::uint32_t size = 1;
    EXPECT_EQ(world.Device().GetRawFrame(size), nullptr);
  });
}

TEST(StreamLimits, ARunWhoseLastSendEndsAtOnceWithSuccessSucceeds) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    world.Stack.Decide = AnswerTheLastTransfer(STATUS_SUCCESS);
    EXPECT_EQ(world.Device().RunStream(), STATUS_SUCCESS);
    EXPECT_EQ(world.Stream().StreamRunning, 1);
    EXPECT_EQ(world.Stream().Halted, 1);
  });
}

TEST(StreamLimits, APipeThatCannotBeResetFailsTheRunAndReleasesTheStream) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    world.Stack.Decide = AnswerFunction(0x1E, {static_cast<NTSTATUS>(0xC0000185)});
    EXPECT_EQ(world.Device().RunStream(), static_cast<NTSTATUS>(0xC0000185));
    EXPECT_EQ(world.Stream().Opened, 0);
    EXPECT_EQ(world.Stream().StreamRunning, 0);
    EXPECT_EQ(world.Stack.SettingsAsked.back(), 0U);
  });
}

TEST(StreamLimits, AResumeThatFailsIsNotPendingAnyMore) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(StartAndRun(world), STATUS_SUCCESS);
    ASSERT_EQ(world.Device().PauseStream(), STATUS_SUCCESS);
    world.Stack.Decide = AnswerFunction(0x1E, {kUnsuccessful});
    EXPECT_EQ(world.Device().ResumeStream(), kUnsuccessful);
    EXPECT_EQ(world.Stream().RestartPending, 0);
    EXPECT_EQ(world.Device().ResumeStream(), STATUS_SUCCESS);
  });
}

TEST(StreamLimits, ACameraThatDoesNotTakeTheModeFailsTheAcquireBeforeAThreadIsMade) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    CameraFaults faults;
    faults.ModeFails = true;
    world.Log.Clear();
    EXPECT_EQ(world.Acquire(), kNoMemory);
    EXPECT_EQ(world.Stream().Opened, 0);
    EXPECT_EQ(world.Stream().WaitFlags, 0U);
    for (const std::string& line : world.Log.Lines()) EXPECT_NE(line, "create thread");
    EXPECT_EQ(world.Log.Lines().back(), "release device");
  });
}

TEST(StreamLimits, APreparedStreamHasThreadAndWatchdogAndIsReleasedWithoutARun) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start() | world.Acquire(), 0);
    EXPECT_EQ(world.Stream().WaitFlags, 4U);
    EXPECT_EQ(world.Stream().WatchdogChain, 1);
    EXPECT_EQ(world.Device().Pipeline->StopRequested, 0);
    EXPECT_NE(world.Device().Pipeline->Thread, nullptr);
    EXPECT_EQ(world.Stream().StreamFormat.AlternateSetting, 7U);
    EXPECT_EQ(world.Stack.IsoOut(), 0U);
    EXPECT_EQ(world.Device().ReleaseStream(), STATUS_SUCCESS);
    EXPECT_EQ(world.Stream().Opened, 0);
    EXPECT_EQ(world.Device().Pipeline->StopRequested, 1);
    EXPECT_EQ(world.Stack.SettingsAsked.back(), 0U);
  });
}

// The watchdog ends the waits of running streams only, and the pause has just ended this one.
TEST(StreamLimits, ARecoveryQueuedJustBeforeAPauseHoldsUpTheReleaseForItsFull8Seconds) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(StartAndRun(world), STATUS_SUCCESS);
    KsAcquireDevice(world.Ks());
    world.Stack.CompleteIso(USBD_STATUS_XACT_ERROR);
    EXPECT_EQ(world.Device().PauseStream(), STATUS_SUCCESS);
    const LONGLONG begin = host::Now();
    KsReleaseDevice(world.Ks());
    host::Sleep(host::kMillisecond);
    EXPECT_EQ(world.Stream().WaitFlags, 6U);
    EXPECT_EQ(world.Device().ReleaseStream(), STATUS_SUCCESS);
    EXPECT_EQ(host::Now() - begin, 80'000'000);
    EXPECT_EQ(world.Stream().PipeIndex, 1U);
  });
}

// The transfers of the timed-out pause complete during the next run: they are not resubmitted, and
// the run has sent none of its own.
TEST(StreamLimits, AStreamAfterADrainThatTimedOutStaysSilentUntilAPauseAndARun) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(StartAndRun(world), STATUS_SUCCESS);
    world.Stack.Decide = AnswerFunction(0x02, {});  // the abort completes nothing
    EXPECT_EQ(world.Device().PauseStream(), STATUS_TIMEOUT);
    world.Stack.Decide = nullptr;
    EXPECT_EQ(world.Device().ResumeStream(), STATUS_SUCCESS);
    EXPECT_EQ(world.Stack.IsoOut(), 7U);
    EXPECT_EQ(world.Stream().WaitFlags, 5U);
    CompleteAllTransfers(world);
    host::Sleep(60 * host::kSecond);
    EXPECT_EQ(world.Stack.IsoOut(), 0U);
    EXPECT_EQ(world.Stream().StreamRunning, 1);
    EXPECT_EQ(world.Stream().Halted, 0);
    EXPECT_EQ(world.Stream().WaitFlags, 4U);

    EXPECT_EQ(world.Device().PauseStream(), STATUS_SUCCESS);
    EXPECT_EQ(world.Device().RunStream(), STATUS_SUCCESS);
    CompleteAllTransfers(world);
    host::Sleep(host::kMillisecond);
    EXPECT_EQ(world.Stack.IsoOut(), 7U);
    EXPECT_EQ(world.Stream().PipeIndex, 1U);
  });
}

// Those that complete before the next run find no stream running, which counts as a failure: the
// first tick that finds none in flight ends the old wait, the second one recovers.
TEST(StreamLimits, TransfersThatCompleteBetweenATimedOutDrainAndARunLetThatRunRecover) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(StartAndRun(world), STATUS_SUCCESS);
    world.Stack.Decide = AnswerFunction(0x02, {});
    EXPECT_EQ(world.Device().PauseStream(), STATUS_TIMEOUT);
    world.Stack.Decide = nullptr;
    CompleteAllTransfers(world, USBD_STATUS_CANCELED);
    EXPECT_EQ(world.Stream().Halted, 1);
    EXPECT_EQ(world.Device().RunStream(), STATUS_SUCCESS);
    CompleteAllTransfers(world);
    EXPECT_EQ(world.Stack.IsoOut(), 0U);
    host::Sleep(host::kSecond);
    EXPECT_EQ(world.Stack.IsoOut(), 7U);
    EXPECT_EQ(world.Stream().Halted, 0);
    EXPECT_EQ(world.Stream().WaitFlags, 4U);
    EXPECT_EQ(world.Stream().PipeIndex, 0U);
  });
}

// The guard that a recovery without a work item has left raised is never lowered.
TEST(StreamLimits, AStopOfTheHardwareSleepsIn2MillisecondStepsUntilTheGuardIsDown) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    world.Record().ResetGuard = 0;
    const LONGLONG begin = host::Now();
    const host::TestThread release([&] {
      host::Sleep(7 * host::kMillisecond);
      InterlockedDecrement(&world.Record().ResetGuard);
    });
    EXPECT_EQ(world.Device().StopHardware(), STATUS_SUCCESS);
    EXPECT_EQ(host::Now() - begin, 80'000);
  });
}

}  // namespace
}  // namespace lidcam::test
