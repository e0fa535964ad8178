// Timers and deferred calls, in virtual time.

#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::host {
namespace {

// A deferred call that records when and at which level it ran.
struct Ticker {
  Ticker() { KeInitializeDpc(&Dpc, Routine, this); }

  static void NTAPI Routine(PKDPC dpc, PVOID context, PVOID argument1, PVOID argument2) {
    auto& self = *static_cast<Ticker*>(context);
    EXPECT_EQ(dpc, &self.Dpc);
    EXPECT_EQ(KeGetCurrentIrql(), DISPATCH_LEVEL);
    self.Times.push_back(Now());
    self.Argument1 = argument1;
    self.Argument2 = argument2;
  }

  KDPC Dpc;
  std::vector<LONGLONG> Times;
  PVOID Argument1 = nullptr;
  PVOID Argument2 = nullptr;
};

TEST(SimulatedTimer, FiresItsDpcOnceAtTheRelativeTime) {
  UnderManySeeds([] {
    Ticker ticker;
    KTIMER timer;
    KeInitializeTimerEx(&timer, SynchronizationTimer);
    EXPECT_FALSE(KeSetTimer(&timer, Time(-2'500'000), &ticker.Dpc));
    Sleep(2'499'999);
    EXPECT_TRUE(ticker.Times.empty());
    Sleep(kSecond);
    EXPECT_EQ(ticker.Times, std::vector<LONGLONG>{2'500'000});
    EXPECT_FALSE(KeCancelTimer(&timer));
  });
}

TEST(SimulatedTimer, FiresAtAnAbsoluteTimeAndAtOnceForOneThatIsOver) {
  Simulate({}, [] {
    KTIMER timer;
    KeInitializeTimerEx(&timer, NotificationTimer);
    LARGE_INTEGER time{};
    KeQuerySystemTime(&time);
    KeSetTimer(&timer, Time(time.QuadPart + 777), nullptr);
    EXPECT_EQ(WaitForever(&timer), STATUS_SUCCESS);
    EXPECT_EQ(Now(), 777);
    KeSetTimer(&timer, Time(1), nullptr);
    EXPECT_EQ(WaitFor(&timer, 0), STATUS_SUCCESS);
    EXPECT_EQ(Now(), 777);
  });
}

TEST(SimulatedTimer, FiresEveryPeriodUntilItIsCancelled) {
  UnderManySeeds([] {
    Ticker ticker;
    KTIMER timer;
    KeInitializeTimer(&timer);
    KeSetTimerEx(&timer, Time(-5), 2, &ticker.Dpc);
    Sleep(5 + 3 * 2 * kMillisecond + kMillisecond);
    EXPECT_TRUE(KeCancelTimer(&timer));
    EXPECT_FALSE(KeCancelTimer(&timer));
    Sleep(kSecond);
    EXPECT_EQ(ticker.Times, (std::vector<LONGLONG>{5, 20005, 40005, 60005}));
  });
}

TEST(SimulatedTimer, CancelledInTimeNeverFires) {
  UnderManySeeds([] {
    Ticker ticker;
    KTIMER timer;
    KeInitializeTimerEx(&timer, SynchronizationTimer);
    KeSetTimer(&timer, Time(-100), &ticker.Dpc);
    Sleep(99);
    EXPECT_TRUE(KeCancelTimer(&timer));
    Sleep(kSecond);
    EXPECT_TRUE(ticker.Times.empty());
    EXPECT_EQ(WaitFor(&timer, 0), STATUS_TIMEOUT);
  });
}

TEST(SimulatedTimer, SetAgainForgetsItsEarlierTime) {
  Simulate({}, [] {
    Ticker ticker;
    KTIMER timer;
    KeInitializeTimer(&timer);
    EXPECT_FALSE(KeSetTimer(&timer, Time(-100), &ticker.Dpc));
    Sleep(50);
    EXPECT_TRUE(KeSetTimer(&timer, Time(-100), &ticker.Dpc));
    Sleep(kSecond);
    EXPECT_EQ(ticker.Times, std::vector<LONGLONG>{150});
  });
}

TEST(SimulatedTimer, OfSynchronizationLetsOneWaiterThroughOfNotificationAll) {
  for (const TIMER_TYPE type : {NotificationTimer, SynchronizationTimer}) {
    UnderManySeeds([type] {
      KTIMER timer;
      KeInitializeTimerEx(&timer, type);
      int through = 0;
      const auto wait = [&] { through += WaitFor(&timer, -kSecond) == STATUS_SUCCESS ? 1 : 0; };
      TestThread first(wait);
      TestThread second(wait);
      KeSetTimer(&timer, Time(-10), nullptr);
      first.Join();
      second.Join();
      EXPECT_EQ(through, type == NotificationTimer ? 2 : 1);
    });
  }
}

TEST(SimulatedTimer, FiresInTheOrderOfDueTimes) {
  UnderManySeeds([] {
    Ticker late;
    Ticker early;
    KTIMER lateTimer;
    KTIMER earlyTimer;
    KeInitializeTimer(&lateTimer);
    KeInitializeTimer(&earlyTimer);
    KeSetTimer(&lateTimer, Time(-101), &late.Dpc);
    KeSetTimer(&earlyTimer, Time(-100), &early.Dpc);
    Sleep(kSecond);
    EXPECT_EQ(early.Times, std::vector<LONGLONG>{100});
    EXPECT_EQ(late.Times, std::vector<LONGLONG>{101});
  });
}

// The seed chooses which of two waits that end at the same time times out first.
TEST(SimulatedTimer, OrdersWhatIsDueAtOneTimeByTheSeed) {
  std::set<bool> firstWentAhead;
  for (std::uint64_t seed = 1; seed <= 50; ++seed) {
    Simulate({.Seed = seed}, [&] {
      std::vector<int> order;
      TestThread first([&] {
        Sleep(100 - Now());
        order.push_back(1);
      });
      TestThread second([&] {
        Sleep(100 - Now());
        order.push_back(2);
      });
      first.Join();
      second.Join();
      firstWentAhead.insert(order.front() == 1);
    });
  }
  EXPECT_EQ(firstWentAhead.size(), 2U);
}

// As in the watchdog, which initialises timer and call again in each tick, after the timer has
// expired.
TEST(SimulatedTimer, IsInitialisedAndSetAnewByItsOwnDpc) {
  struct Watchdog {
    static void NTAPI Tick(PKDPC, PVOID context, PVOID, PVOID) {
      auto& self = *static_cast<Watchdog*>(context);
      self.Times.push_back(Now());
      if (!self.IsRunning) return;
      KeInitializeTimerEx(&self.Timer, SynchronizationTimer);
      KeInitializeDpc(&self.Dpc, Tick, &self);
      KeSetTimer(&self.Timer, Time(-250 * kMillisecond), &self.Dpc);
    }
    KTIMER Timer;
    KDPC Dpc;
    bool IsRunning = true;
    std::vector<LONGLONG> Times;
  };
  UnderManySeeds([] {
    Watchdog watchdog;
    KeInitializeTimerEx(&watchdog.Timer, SynchronizationTimer);
    KeInitializeDpc(&watchdog.Dpc, Watchdog::Tick, &watchdog);
    KeSetTimer(&watchdog.Timer, Time(-250 * kMillisecond), &watchdog.Dpc);
    Sleep(kSecond + 1);
    watchdog.IsRunning = false;
    KeCancelTimer(&watchdog.Timer);
    Sleep(kSecond);
    EXPECT_EQ(watchdog.Times, (std::vector<LONGLONG>{2'500'000, 5'000'000, 7'500'000, 10'000'000}));
  });
}

TEST(SimulatedDpc, RunsOnceAtDispatchLevelHoweverOftenItIsQueued) {
  UnderManySeeds([] {
    Ticker ticker;
    int first = 0;
    int second = 0;
    KIRQL before = 0;
    KeRaiseIrql(DISPATCH_LEVEL, &before);
    EXPECT_TRUE(KeInsertQueueDpc(&ticker.Dpc, &first, &second));
    KeLowerIrql(before);
    Sleep(1);
    ASSERT_EQ(ticker.Times.size(), 1U);
    EXPECT_EQ(ticker.Argument1, &first);
    EXPECT_EQ(ticker.Argument2, &second);
    EXPECT_TRUE(KeInsertQueueDpc(&ticker.Dpc, nullptr, nullptr));
    Sleep(1);
    EXPECT_EQ(ticker.Times.size(), 2U);
  });
}

TEST(SimulatedDpc, IsRefusedWhileItIsQueued) {
  std::set<BOOLEAN> second;
  for (std::uint64_t seed = 1; seed <= 50; ++seed) {
    Simulate({.Seed = seed}, [&] {
      Ticker ticker;
      KeInsertQueueDpc(&ticker.Dpc, nullptr, nullptr);
      const BOOLEAN queued = KeInsertQueueDpc(&ticker.Dpc, nullptr, nullptr);
      Sleep(1);
      EXPECT_EQ(ticker.Times.size(), queued != FALSE ? 2U : 1U);
      second.insert(queued);
    });
  }
  EXPECT_EQ(second, (std::set<BOOLEAN>{FALSE, TRUE}));
}

}  // namespace
}  // namespace lidcam::host
