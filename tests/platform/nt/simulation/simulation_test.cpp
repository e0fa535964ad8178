// Simulations in general: what a seed determines, and how a simulation that can't continue ends.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <set>
#include <vector>

#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::host {
namespace {

using testing::AllOf;
using testing::HasSubstr;

// Two producers and a consumer with a list, a lock and a semaphore, as in the transfers'
// completions and the frame thread.
struct Exchange {
  struct Item {
    LIST_ENTRY Link;
    int Number;
  };

  Exchange() {
    InitializeListHead(&List);
    KeInitializeSpinLock(&Lock);
    KeInitializeSemaphore(&Ready, 0, 0x7FFFFFFF);
  }

  void Produce(Item& item) {
    ExInterlockedInsertTailList(&List, &item.Link, &Lock);
    InterlockedIncrement(&Count);
    KeReleaseSemaphore(&Ready, 0, 1, FALSE);
  }

  int Consume() {
    WaitForever(&Ready);
    LIST_ENTRY* const link = ExInterlockedRemoveHeadList(&List, &Lock);
    InterlockedDecrement(&Count);
    return CONTAINING_RECORD(link, Item, Link)->Number;
  }

  LIST_ENTRY List;
  KSPIN_LOCK Lock;
  KSEMAPHORE Ready;
  LONG Count = 0;
};

std::vector<int> RunExchange() {
  Exchange exchange;
  std::vector<Exchange::Item> items{{{}, 1}, {{}, 2}, {{}, 3}, {{}, 4}};
  std::vector<int> consumed;
  TestThread first([&] {
    exchange.Produce(items[0]);
    exchange.Produce(items[1]);
  });
  TestThread second([&] {
    exchange.Produce(items[2]);
    exchange.Produce(items[3]);
  });
  for (int i = 0; i < 4; ++i) consumed.push_back(exchange.Consume());
  EXPECT_EQ(exchange.Count, 0);
  return consumed;
}

TEST(Simulation, GivesTheSameTraceForTheSameSeedAndOthersForOthers) {
  std::set<std::uint64_t> hashes;
  std::set<std::vector<int>> orders;
  for (std::uint64_t seed = 1; seed <= 1000; ++seed) {
    std::vector<int> first;
    std::vector<int> second;
    const SimulationOutcome outcome = Simulate({.Seed = seed}, [&] { first = RunExchange(); });
    const SimulationOutcome again = Simulate({.Seed = seed}, [&] { second = RunExchange(); });
    ASSERT_EQ(outcome, again) << "seed " << seed;
    ASSERT_EQ(first, second) << "seed " << seed;
    hashes.insert(outcome.TraceHash);
    orders.insert(first);
  }
  RecordProperty("interleavings", static_cast<int>(hashes.size()));
  EXPECT_GT(hashes.size(), 500U);
  EXPECT_EQ(orders.size(), 6U);  // all merges of two pairs
}

// A read and a write with a switch in between, which loses updates.
int RacyCount() {
  int counter = 0;
  const auto count = [&] {
    for (int i = 0; i < 3; ++i) {
      const int read = counter;
      YieldProcessor();
      counter = read + 1;
    }
  };
  TestThread first(count);
  TestThread second(count);
  first.Join();
  second.Join();
  return counter;
}

TEST(Simulation, FindsALostUpdateUnderSomeSeedsAndReplaysIt) {
  int losses = 0;
  int wholeRuns = 0;
  for (std::uint64_t seed = 1; seed <= 200; ++seed) {
    int result = 0;
    Simulate({.Seed = seed}, [&] { result = RacyCount(); });
    int replayed = 0;
    Simulate({.Seed = seed}, [&] { replayed = RacyCount(); });
    ASSERT_EQ(result, replayed) << "seed " << seed;
    result < 6 ? ++losses : ++wholeRuns;
  }
  EXPECT_GT(losses, 0);
  EXPECT_GT(wholeRuns, 0);
}

TEST(Simulation, TellsItsScheduleLengthAndTime) {
  const SimulationOutcome outcome = Simulate({}, [] {
    KeGetCurrentIrql();
    KeGetCurrentIrql();
    Sleep(30);
  });
  EXPECT_EQ(outcome.ScheduleLength, 3U);
  EXPECT_EQ(outcome.Time, 30);
}

// FNV-1a, 64 bits: thread 0's number, then the letters of "KeGetCurrentIrql".
TEST(Simulation, HashesThreadAndCallOfEachSwitchPoint) {
  std::uint64_t expected = 0xCBF29CE484222325;
  for (const char byte : std::string("\0KeGetCurrentIrql", 17)) {
    expected = (expected ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
  }
  EXPECT_EQ(Simulate({}, [] { KeGetCurrentIrql(); }).TraceHash, expected);
}

TEST(Simulation, LetsASpinningThreadWaitForAnother) {
  UnderManySeeds([] {
    LONG isSet = 0;
    TestThread setter([&] {
      Sleep(3 * kSecond);
      InterlockedExchange(&isSet, 1);
    });
    while (isSet == 0) YieldProcessor();
    EXPECT_EQ(Now(), 3 * kSecond);
  });
}

TEST(Simulation, DoesNotMoveTimeForAShortSpin) {
  Simulate({}, [] {
    KTIMER timer;
    KeInitializeTimer(&timer);
    KeSetTimer(&timer, Time(-kSecond), nullptr);
    for (int i = 0; i < 60; ++i) YieldProcessor();
    EXPECT_EQ(Now(), 0);
    KeCancelTimer(&timer);
  });
}

TEST(Simulation, ReportsADeadlockWithItsThreadsAndSeed) {
  const VerifierCapture capture;
  const auto deadlock = [] {
    KEVENT event;
    KeInitializeEvent(&event, NotificationEvent, FALSE);
    TestThread waiter([&] { WaitForever(&event); });
    WaitForever(&event);
  };
  EXPECT_THROW(Simulate({.Seed = 77}, deadlock), KernelStopped);
  ASSERT_EQ(capture.Violations().size(), 1U);
  const Violation violation = capture.Violations().front();
  EXPECT_EQ(violation.What, "deadlock: every thread waits and no time limit runs");
  EXPECT_THAT(violation.Report,
              AllOf(HasSubstr("seed 77"), HasSubstr("thread 0 (main) waits"),
                    HasSubstr("thread 1 (system thread) waits"),
                    HasSubstr("in KeWaitForSingleObject"), HasSubstr("last kernel calls:")));
}

TEST(Simulation, ReportsADeadlockThatTheLastRunningThreadLeavesBehind) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    EXPECT_EQ(ViolationOf(
                  [] {
                    KEVENT event;
                    KeInitializeEvent(&event, NotificationEvent, FALSE);
                    TestThread passing([] { Sleep(10); });
                    WaitForever(&event);
                  },
                  {.Seed = seed}),
              "scheduler: deadlock: every thread waits and no time limit runs");
  }
}

TEST(Simulation, ReportsALivelockAtItsLimit) {
  EXPECT_EQ(ViolationOf(
                [] {
                  while (true) YieldProcessor();
                },
                {.LongestStandstill = 5000}),
            "YieldProcessor: livelock: 5000 switch points at one time");
  EXPECT_EQ(ViolationOf(
                [] {
                  TestThread other([] {
                    while (true) KeGetCurrentIrql();
                  });
                  while (true) KeGetCurrentIrql();
                },
                {.LongestStandstill = 5000}),
            "KeGetCurrentIrql: livelock: 5000 switch points at one time");
}

TEST(Simulation, GoesOnForeverAsLongAsTimeMoves) {
  EXPECT_EQ(ViolationOf(
                [] {
                  for (int i = 0; i < 5000; ++i) Sleep(1);
                },
                {.LongestStandstill = 100}),
            "");
}

TEST(Simulation, ReportsAThreadThatStillRunsAtTheEnd) {
  EXPECT_THAT(ViolationOf([] {
                static KEVENT event;
                KeInitializeEvent(&event, NotificationEvent, FALSE);
                HANDLE handle = nullptr;
                const auto wait = [](PVOID) NTAPI { WaitForever(&event); };
                PsCreateSystemThread(&handle, 0, nullptr, nullptr, nullptr, wait, nullptr);
                ZwClose(handle);
              }),
              HasSubstr("thread 1 still runs, last seen in KeWaitForSingleObject"));
}

TEST(Simulation, LetsThreadsThatAreAboutToEndComeToTheirEnd) {
  UnderManySeeds([] {
    HANDLE handle = nullptr;
    const auto end = [](PVOID) NTAPI {
      KeGetCurrentIrql();
      PsTerminateSystemThread(STATUS_SUCCESS);
    };
    PsCreateSystemThread(&handle, 0, nullptr, nullptr, nullptr, end, nullptr);
    ZwClose(handle);
  });
}

TEST(Simulation, ReportsAReferencedThreadATimerAndAWorkItemThatAreLeft) {
  EXPECT_THAT(ViolationOf([] {
                HANDLE handle = nullptr;
                PsCreateSystemThread(
                    &handle, 0, nullptr, nullptr, nullptr, [](PVOID) NTAPI {}, nullptr);
                PVOID object = nullptr;
                ObReferenceObjectByHandle(handle, 0, nullptr, KernelMode, &object, nullptr);
                ZwClose(handle);
              }),
              testing::MatchesRegex("end of the simulation: thread 0x.* was never released"));
  EXPECT_THAT(ViolationOf([] {
                static KTIMER timer;
                KeInitializeTimer(&timer);
                KeSetTimer(&timer, Time(-kSecond), nullptr);
              }),
              testing::MatchesRegex("end of the simulation: timer 0x.* is still pending"));
  // The simulation may leak the item: only the violation is checked.
  PIO_WORKITEM item = nullptr;
  EXPECT_THAT(ViolationOf([&] { item = IoAllocateWorkItem(nullptr); }),
              testing::MatchesRegex("end of the simulation: work item 0x.* was never released"));
  ::operator delete(item);
}

TEST(Simulation, LeavesTheRealTimeWorldAsItWas) {
  KEVENT event;
  KeInitializeEvent(&event, NotificationEvent, TRUE);
  const PKTHREAD before = KeGetCurrentThread();
  Simulate({}, [&] { EXPECT_NE(KeGetCurrentThread(), before); });
  EXPECT_EQ(KeGetCurrentThread(), before);
  EXPECT_EQ(WaitFor(&event, 0), STATUS_SUCCESS);
}

TEST(Simulation, IsCheckedWheneverAllItsThreadsWait) {
  std::vector<int> seen;
  int state = 0;
  Simulate({.AtRest =
                [&] {
                  seen.push_back(state);
                  return std::string();
                }},
           [&] {
             TestThread other([&] {
               state = 1;
               Sleep(3 * kMillisecond);
               state = 2;
             });
             Sleep(kMillisecond);
             state = 3;
             other.Join();
           });
  EXPECT_EQ(seen, (std::vector<int>{1, 3}));
}

TEST(Simulation, EndsWithTheViolationThatThisCheckFinds) {
  EXPECT_EQ(ViolationOf([] { Sleep(kMillisecond); },
                        {.AtRest = [] { return std::string("a lost wake-up"); }}),
            "simulation: a lost wake-up");
}

// Its locks may be held and its work half done.
TEST(Simulation, IsNotCheckedWhileAThreadIsStalled) {
  bool isStalled = false;
  const auto stall = [&](const SwitchPlace& place) -> LONGLONG {
    if (isStalled || place.Self.Number == 0) return 0;
    isStalled = true;
    return 5 * kMillisecond;
  };
  std::vector<LONGLONG> seen;
  const SimulationOptions options{.AtSwitchPoint = stall, .AtRest = [&] {
                                    seen.push_back(FindCurrentThread()->World.Now());
                                    return std::string();
                                  }};
  Simulate(options, [] {
    TestThread other([] { KeGetCurrentIrql(); });
    for (int i = 0; i < 8; ++i) Sleep(kMillisecond);
    other.Join();
  });
  ASSERT_FALSE(seen.empty());
  EXPECT_GE(seen.front(), 5 * kMillisecond);
}

// Which thread reaches each switch point.
std::vector<std::uint32_t> ThreadsAtPoints(std::uint64_t seed, std::uint64_t newSeed) {
  std::vector<std::uint32_t> threads;
  SimulationOptions options{.Seed = seed, .AtSwitchPoint = [&threads](const SwitchPlace& place) {
                              threads.push_back(place.Self.Number);
                              return LONGLONG{0};
                            }};
  if (newSeed != 0) {
    options.NewSeed = [newSeed](const SwitchPlace& place) {
      return place.Number == 12 ? std::optional(newSeed) : std::nullopt;
    };
  }
  Simulate(options, [] { static_cast<void>(RunExchange()); });
  return threads;
}

TEST(Simulation, NewSeedChangesTheScheduleFromItsPointOnOnly) {
  int changed = 0;
  for (std::uint64_t seed = 1; seed <= 10; ++seed) {
    const std::vector<std::uint32_t> whole = ThreadsAtPoints(seed, 0);
    const std::vector<std::uint32_t> other = ThreadsAtPoints(seed, 77);
    ASSERT_GT(whole.size(), 12U);
    ASSERT_GT(other.size(), 12U);
    EXPECT_TRUE(std::equal(whole.begin(), whole.begin() + 12, other.begin()));
    EXPECT_EQ(ThreadsAtPoints(seed, 77), other);
    if (whole != other) ++changed;
  }
  EXPECT_GT(changed, 0);
}

}  // namespace
}  // namespace lidcam::host
