// The watchdog: the decisions of a tick, and the times of the ticks.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/verifier/kernel_faults.h"
#include "tests/driver/usb/support/circle.h"

namespace lidcam::test {
namespace {

using host::kMillisecond;
using host::Now;
using host::Simulate;
using host::Sleep;
using host::TestThread;
using host::UnderManySeeds;
using testing::ElementsAre;

// The state before a tick and after it.
struct TickRow {
  const char* Name;
  std::uint8_t Running;
  std::uint8_t Halted;
  std::uint32_t WaitFlags;
  std::uint8_t Connected;
  LONG InFlight;
  // afterwards
  std::uint8_t HaltedAfter;
  std::uint32_t WaitFlagsAfter;
  bool Schedules;
  bool EndsResetWait;
  bool EndsStopWait;
};

std::ostream& operator<<(std::ostream& stream, const TickRow& row) {
  return stream << row.Name;
}

class WatchdogTick : public testing::TestWithParam<TickRow> {};

TEST_P(WatchdogTick, DecidesAsItsRowSays) {
  const TickRow& row = GetParam();
  Simulate({}, [&row] {
    Circle circle(2);
    KeInitializeEvent(&circle.Stream.ResetEvent, SynchronizationEvent, FALSE);
    KeInitializeEvent(&circle.Stream.StopEvent, SynchronizationEvent, FALSE);
    circle.Stream.StreamRunning = row.Running;
    circle.Stream.Halted = row.Halted;
    circle.Stream.WaitFlags = row.WaitFlags;
    circle.Device.Connected = row.Connected;
    circle.Transfer(1).InFlight = row.InFlight;
    circle.Tick();
    EXPECT_EQ(circle.Stream.Halted, row.HaltedAfter);
    EXPECT_EQ(circle.Stream.WaitFlags, row.WaitFlagsAfter);
    EXPECT_EQ(circle.Text().find("recovery scheduled") != std::string::npos, row.Schedules);
    EXPECT_EQ(KeReadStateEvent(&circle.Stream.ResetEvent) != 0, row.EndsResetWait);
    EXPECT_EQ(KeReadStateEvent(&circle.Stream.StopEvent) != 0, row.EndsStopWait);
    WaitForRecovery(circle.Device);
  });
}

INSTANTIATE_TEST_SUITE_P(
    AllTests, WatchdogTick,
    testing::Values(
        TickRow{"all is well", 1, 0, 0, 1, 0, 0, 0, false, false, false},
        TickRow{"well with transfers out", 1, 0, 0, 1, 1, 0, 0, false, false, false},
        TickRow{"broken with transfers out", 1, 1, 0, 1, 1, 1, 0, false, false, false},
        TickRow{"broken and all home", 1, 1, 0, 1, 0, 1, 0, true, false, false},
        TickRow{"broken and one invisible", 1, 1, 0, 1, -1, 1, 0, true, false, false},
        TickRow{"broken but not running", 0, 1, 0, 1, 0, 1, 0, false, false, false},
        TickRow{"broken and gone", 1, 1, 0, 0, 0, 1, 0, false, false, false},
        TickRow{"gone", 1, 0, 0, 0, 0, 0, 0, false, false, false},
        TickRow{"recovering with transfers out", 1, 1, 2, 1, 1, 1, 2, false, false, false},
        TickRow{"recovering and all home", 1, 1, 2, 1, 0, 0, 0, true, true, false},
        TickRow{"recovering but not running", 0, 1, 2, 1, 0, 1, 2, false, false, false},
        TickRow{"recovering and gone", 1, 1, 2, 0, 0, 0, 0, false, true, false},
        TickRow{"stopping with transfers out", 1, 0, 1, 1, 1, 0, 1, false, false, false},
        TickRow{"stopping and all home", 1, 0, 1, 1, 0, 0, 0, false, false, true},
        TickRow{"stopping a broken circle", 1, 1, 1, 1, 0, 1, 0, false, false, true},
        TickRow{"stopping but not running", 0, 0, 1, 1, 0, 0, 1, false, false, false},
        TickRow{"stopping and gone", 1, 0, 1, 0, 0, 0, 0, false, false, true},
        TickRow{"stopping a recovery", 1, 1, 3, 1, 0, 0, 0, false, true, true}));

TEST(WaitFlags, HaveTheirBits) {
  EXPECT_EQ(StopWaitArmed, 1U);
  EXPECT_EQ(ResetWaitArmed, 2U);
  EXPECT_EQ(WatchdogRunning, 4U);
}

// Times at which the watchdog checked a stream with a failed transfer, over the given period.
std::vector<LONGLONG> TicksOf(Circle& circle, LONGLONG milliseconds) {
  circle.Forget();
  Sleep(milliseconds * kMillisecond);
  return circle.Times;
}

TEST(Watchdog, TicksEveryQuarterOfASecondAlsoWhileNoTransfersAreOut) {
  Simulate({}, [] {
    Circle circle(1);
    SetWaitFlag(circle.Stream, WatchdogRunning);
    ArmWatchdog(circle.Stream);
    circle.Stream.Halted = 1;
    circle.Transfer(0).InFlight = 1;
    const std::vector<LONGLONG> ticks = TicksOf(circle, 1100);
    circle.Transfer(0).InFlight = 0;
    DisarmWatchdog(circle.Stream);
    EXPECT_THAT(ticks, ElementsAre(2'500'000, 5'000'000, 7'500'000, 10'000'000));
    EXPECT_EQ(circle.Stream.WatchdogTimer.Header.Type, 9);  // a SynchronizationTimer
    EXPECT_EQ(circle.Stream.WatchdogDpc.DeferredContext, &circle.Stream);
  });
}

TEST(Watchdog, FirstTickComesNeitherBeforeNorAfterItsTime) {
  Simulate({}, [] {
    Circle circle(1);
    SetWaitFlag(circle.Stream, WatchdogRunning);
    ArmWatchdog(circle.Stream);
    circle.Stream.Halted = 1;
    circle.Transfer(0).InFlight = 1;
    Sleep(2'499'999);
    EXPECT_TRUE(circle.Lines.empty());
    Sleep(2);
    EXPECT_THAT(circle.Lines, ElementsAre("watchdog waits for transfers"));
    circle.Transfer(0).InFlight = 0;
    DisarmWatchdog(circle.Stream);
  });
}

TEST(Watchdog, TickWithTransfersOutDoesNothingHoweverLongTheyStayOut) {
  Simulate({}, [] {
    Circle circle(2);
    circle.Run();
    circle.CompleteTransfer(0, USBD_STATUS_XACT_ERROR);
    circle.AbortBringsHome = false;
    Sleep(10 * 60 * host::kSecond);  // the recovery gives up after 8 s
    EXPECT_EQ(circle.Flags(), "running halted wait=4");
    EXPECT_EQ(circle.Text().find("watchdog reset"), std::string::npos);
    EXPECT_EQ(circle.Sent.size(), 2U);
    circle.Stream.StreamRunning = 0;
    circle.CompleteAllTransfers();
  });
}

TEST(Watchdog, CalledOffTicksNoMore) {
  Simulate({}, [] {
    Circle circle(1);
    SetWaitFlag(circle.Stream, WatchdogRunning);
    ArmWatchdog(circle.Stream);
    DisarmWatchdog(circle.Stream);
    circle.Stream.Halted = 1;
    circle.Transfer(0).InFlight = 1;
    Sleep(host::kSecond);
    EXPECT_TRUE(circle.Lines.empty());
    circle.Transfer(0).InFlight = 0;
  });
}

TEST(Watchdog, FlagClearedAloneMakesTheNextTickTheLast) {
  Simulate({}, [] {
    Circle circle(1);
    SetWaitFlag(circle.Stream, WatchdogRunning);
    ArmWatchdog(circle.Stream);
    ClearWaitFlag(circle.Stream, WatchdogRunning);
    circle.Stream.Halted = 1;
    circle.Transfer(0).InFlight = 1;
    Sleep(host::kSecond);
    EXPECT_THAT(circle.Lines, ElementsAre("watchdog waits for transfers"));
    EXPECT_EQ(circle.Stream.WatchdogChain, 0);
    circle.Transfer(0).InFlight = 0;
  });
}

// A stream that is acquired while the last tick of the previous one is under way: one watchdog, and
// never a timer that is initialized while it is set.
TEST(Watchdog, CalledOffAndArmedAgainAtAnyMomentOfATickGoesOnTickingOnce) {
  host::UnderManySeeds(
      [] {
        Circle circle(1);
        SetWaitFlag(circle.Stream, WatchdogRunning);
        ArmWatchdog(circle.Stream);
        host::TestThread control([&circle] {
          for (int i = 0; i < 20; ++i) {
            Sleep(2'500'000);
            DisarmWatchdog(circle.Stream);
            SetWaitFlag(circle.Stream, WatchdogRunning);
            ArmWatchdog(circle.Stream);
          }
        });
        control.Join();
        Sleep(kMillisecond);  // past a tick that is due just now
        circle.Stream.Halted = 1;
        circle.Transfer(0).InFlight = 1;
        EXPECT_EQ(TicksOf(circle, 1100).size(), 4U);
        circle.Transfer(0).InFlight = 0;
        DisarmWatchdog(circle.Stream);
        WaitForRecovery(circle.Device);
      },
      300);
}

TEST(Watchdog, ATickIsCountedAsLongAsItMayUseTheRecord) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Stream.Halted = 1;
    circle.Transfer(0).InFlight = 1;
    LONG inside = 0;
    circle.OnTrace = [&](const std::string&) { inside = circle.Stream.RunningTicks; };
    circle.Tick();
    circle.Transfer(0).InFlight = 0;
    EXPECT_EQ(inside, 1);
    EXPECT_EQ(circle.Stream.RunningTicks, 0);
  });
}

// Such a tick has set its timer, and a disarming has cancelled that timer: only the count shows
// that the tick still uses the record. And it may have scheduled a recovery.
TEST(Watchdog, StoppingTheHardwareWaitsForATickBehindACancelledTimerAndThenForItsRecovery) {
  UnderManySeeds([] {
    Circle circle(1);
    InterlockedIncrement(&circle.Stream.RunningTicks);
    bool isOver = false;
    TestThread stopper([&] {
      WaitForRecovery(circle.Device);
      isOver = true;
    });
    Sleep(100 * kMillisecond);
    EXPECT_FALSE(isOver);
    InterlockedIncrement(&circle.Device.ResetGuard);
    InterlockedDecrement(&circle.Stream.RunningTicks);
    Sleep(100 * kMillisecond);
    EXPECT_FALSE(isOver);
    InterlockedDecrement(&circle.Device.ResetGuard);
    stopper.Join();
    EXPECT_TRUE(isOver);
  });
}

// A failed drain leaves it armed, and so does a tick that wrote the flags back as it had read them.
TEST(Watchdog, EndsWithTheHardwareHoweverItCameToBeOn) {
  Simulate({}, [] {
    Circle circle(1);
    SetWaitFlag(circle.Stream, WatchdogRunning);
    ArmWatchdog(circle.Stream);
    EndWatchdog(circle.Stream);
    EXPECT_FALSE(HasWaitFlag(circle.Stream, WatchdogRunning));
    EXPECT_EQ(KeCancelTimer(&circle.Stream.WatchdogTimer), FALSE);
  });
}

TEST(ScheduleStreamReset, WithoutMemoryLowersTheGuardAndTheNextTickTriesAgain) {
  Simulate({}, [] {
    Circle circle(1);
    StreamResetItem last{};
    circle.Stream.ResetWorkItem = &last;
    host::FailPoolAllocation(1);
    EXPECT_EQ(ScheduleStreamReset(circle.Device, circle.Stream), 1);
    EXPECT_EQ(circle.Device.ResetGuard, -1);
    EXPECT_EQ(circle.Stream.ResetWorkItem, nullptr);
    circle.Stream.StreamRunning = 1;
    circle.Stream.Halted = 1;
    circle.Forget();
    circle.Tick();
    ASSERT_FALSE(circle.Lines.empty());
    EXPECT_EQ(circle.Lines.front(), "recovery scheduled");
    WaitForRecovery(circle.Device);
  });
}

// Until its last instruction: the memory it uses, and the driver itself, may be freed after the
// count has fallen.
TEST(ScheduleStreamReset, CountsItsWorkItemUntilAllOfItIsFreed) {
  UnderManySeeds([] {
    Circle circle(1);
    const std::size_t before = host::PoolUsageOfAll().Blocks;
    EXPECT_EQ(ScheduleStreamReset(circle.Device, circle.Stream), 1);
    while (circle.WorkItems != 0) Sleep(kMillisecond);
    EXPECT_EQ(circle.Device.ResetGuard, -1);
    EXPECT_EQ(host::PoolUsageOfAll().Blocks, before);
  });
}

TEST(ScheduleStreamReset, WithoutWorkItemLeavesTheGuardRaisedForEver) {
  Simulate({}, [] {
    Circle circle(1);
    host::FailKernelCall("IoAllocateWorkItem", 1, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(ScheduleStreamReset(circle.Device, circle.Stream), 1);
    EXPECT_EQ(circle.Device.ResetGuard, 0);
    EXPECT_EQ(host::PoolUsageOfTag(0x206D6457).Blocks, 0U);
    EXPECT_EQ(ScheduleStreamReset(circle.Device, circle.Stream), 0);
    EXPECT_EQ(circle.Device.ResetGuard, 0);
  });
}

TEST(ScheduleStreamReset, BeforeTheDescriptorsAreReadDoesNothing) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Device.ResetGuard = 0;
    EXPECT_EQ(ScheduleStreamReset(circle.Device, circle.Stream), 0);
    EXPECT_EQ(circle.Device.ResetGuard, 0);
  });
}

TEST(ScheduleStreamReset, RecoveryOfADeviceThatHasGoneMeanwhileDoesNothing) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Stream.Opened = 1;
    EXPECT_EQ(ScheduleStreamReset(circle.Device, circle.Stream), 1);
    circle.Device.Connected = 0;
    WaitForRecovery(circle.Device);
    EXPECT_THAT(circle.Lines, ElementsAre("recovery scheduled"));
    EXPECT_EQ(circle.Device.ResetGuard, -1);
    circle.Stream.Opened = 0;
  });
}

TEST(WaitForRecovery, LooksEveryTwoMilliseconds) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Device.ResetGuard = 0;
    LONGLONG end = 0;
    host::TestThread waiter([&] {
      WaitForRecovery(circle.Device);
      end = Now();
    });
    Sleep(61 * kMillisecond);
    InterlockedDecrement(&circle.Device.ResetGuard);
    waiter.Join();
    EXPECT_EQ(end, 620'000);
  });
}

TEST(WaitForRecovery, WaitsForEverWhenTheGuardStaysRaised) {
  Simulate({}, [] {
    Circle circle(1);
    host::FailKernelCall("IoAllocateWorkItem", 1, STATUS_INSUFFICIENT_RESOURCES);
    ScheduleStreamReset(circle.Device, circle.Stream);
    bool isOver = false;
    host::TestThread waiter([&] {
      WaitForRecovery(circle.Device);
      isOver = true;
    });
    Sleep(3600 * host::kSecond);
    EXPECT_FALSE(isOver);
    InterlockedDecrement(&circle.Device.ResetGuard);
    waiter.Join();
  });
}

TEST(WaitForRecovery, LetsARunningRecoveryFinishFirst) {
  Simulate({}, [] {
    Circle circle(1);
    circle.Run();
    circle.CompleteTransfer(0, USBD_STATUS_XACT_ERROR);
    WaitForRecovery(circle.Device);
    EXPECT_NE(circle.Text().find("recovery ends status=00000000"), std::string::npos);
    EXPECT_EQ(circle.Device.ResetGuard, -1);
    EXPECT_EQ(circle.Pause(), STATUS_SUCCESS);
  });
}

}  // namespace
}  // namespace lidcam::test
