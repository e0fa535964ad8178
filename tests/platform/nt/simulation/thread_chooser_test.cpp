// The rules by which a simulation chooses the next thread.

#include "platform/host/nt/simulation/thread_chooser.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/host/nt/scheduling/real_time_scheduler.h"
#include "platform/shared_access.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::host {
namespace {

constexpr std::array kKinds{SchedulerKind::Walk, SchedulerKind::Burst, SchedulerKind::Priorities};

/// Threads that could run, of no world.
class Threads {
 public:
  explicit Threads(std::uint32_t count) {
    for (std::uint32_t number = 0; number < count; ++number) {
      threads_.push_back(std::make_unique<Thread>(RealTimeScheduler::The(), number, "test"));
      candidates_.push_back(threads_.back().get());
    }
  }
  [[nodiscard]] Thread& At(std::size_t number) { return *threads_[number]; }
  [[nodiscard]] std::span<Thread* const> All() const { return candidates_; }

 private:
  std::vector<std::unique_ptr<Thread>> threads_;
  std::vector<Thread*> candidates_;
};

/// Choices until another thread than the first one is chosen.
int ChoicesOfOneThread(ThreadChooser& chooser, Threads& threads) {
  const Thread* const first = &chooser.Choose(threads.All());
  int choices = 1;
  while (&chooser.Choose(threads.All()) == first) ++choices;
  return choices;
}

TEST(BurstChooser, RunsOneThreadForEightTo512Choices) {
  std::set<int> lengths;
  for (std::uint64_t seed = 1; seed <= 100; ++seed) {
    base::SplitMix random(seed);
    const auto chooser = MakeThreadChooser(SchedulerKind::Burst, random);
    Threads threads(4);
    const int choices = ChoicesOfOneThread(*chooser, threads);
    EXPECT_GE(choices, 7) << seed;
    EXPECT_LE(choices, 512) << seed;
    lengths.insert(choices);
  }
  EXPECT_LT(*lengths.begin(), 40);
  EXPECT_GT(*lengths.rbegin(), 400);
}

TEST(BurstChooser, DrawsPrioritiesAnewWhenTimeAdvances) {
  base::SplitMix random(1);
  const auto chooser = MakeThreadChooser(SchedulerKind::Burst, random);
  Threads threads(4);
  std::set<const Thread*> chosen;
  for (int times = 0; times < 60; ++times) {
    chosen.insert(&chooser->Choose(threads.All()));
    chooser->MoveTime();
  }
  EXPECT_EQ(chosen.size(), 4U);
}

TEST(BurstChooser, RunsAThreadThatSpinsOnlyWhenNoOtherCanRun) {
  base::SplitMix random(1);
  const auto chooser = MakeThreadChooser(SchedulerKind::Burst, random);
  Threads threads(3);
  Thread& spinning = chooser->Choose(threads.All());
  chooser->Spin(spinning);
  EXPECT_NE(&chooser->Choose(threads.All()), &spinning);
  Thread* const alone = &spinning;
  EXPECT_EQ(&chooser->Choose({&alone, 1}), &spinning);
}

TEST(PriorityChooser, OperationKeepsItsPriorityUntilAnotherOnItsObjectHasRun) {
  base::SplitMix random(5);
  const auto chooser = MakeThreadChooser(SchedulerKind::Priorities, random);
  const int object = 0;
  const int other = 0;
  for (int round = 0; round < 20; ++round) {
    Threads threads(3);
    chooser->Reach(threads.At(0), &object);
    chooser->Reach(threads.At(1), &object);
    chooser->Reach(threads.At(2), &other);
    const std::array before{threads.At(0).Rank, threads.At(1).Rank, threads.At(2).Rank};
    const Thread& chosen = chooser->Choose(threads.All());
    for (std::uint32_t number = 0; number < 3; ++number) {
      const bool isDrawnAnew = number != chosen.Number && number < 2 && chosen.Number < 2;
      EXPECT_EQ(threads.At(number).Rank != before.at(number), isDrawnAnew)
          << round << " " << number;
    }
  }
}

TEST(PriorityChooser, ThreadThatSpinsIsBelowAllOthers) {
  base::SplitMix random(1);
  const auto chooser = MakeThreadChooser(SchedulerKind::Priorities, random);
  Threads threads(2);
  chooser->Reach(threads.At(0), nullptr);
  for (int turn = 0; turn < 20; ++turn) {
    chooser->Spin(threads.At(1));
    EXPECT_EQ(&chooser->Choose(threads.All()), &threads.At(0));
  }
}

// ---- In a simulation.

void TakeTurns() {
  LONG sum = 0;
  {
    TestThread first([&] { InterlockedIncrement(&sum); });
    TestThread second([&] { InterlockedIncrement(&sum); });
    while (InterlockedCompareExchange(&sum, 0, 0) != 2) YieldProcessor();
  }
  Sleep(kMillisecond);
}

TEST(Schedulers, EachIsAFunctionOfItsSeedAndDiffersFromTheOthers) {
  std::set<std::uint64_t> hashes;
  for (const SchedulerKind kind : kKinds) {
    const SimulationOutcome outcome = Simulate({.Seed = 3, .Kind = kind}, TakeTurns);
    EXPECT_EQ(Simulate({.Seed = 3, .Kind = kind}, TakeTurns), outcome) << ToString(kind);
    hashes.insert(outcome.TraceHash);
  }
  EXPECT_EQ(hashes.size(), kKinds.size());
}

// The spinning thread was made first, and no kernel call of it waits.
TEST(Schedulers, ThreadThatSpinsLetsTheOneRunThatItWaitsFor) {
  for (const SchedulerKind kind : kKinds) {
    for (std::uint64_t seed = 1; seed <= 50; ++seed) {
      EXPECT_EQ(ViolationOf(TakeTurns, {.Seed = seed, .Kind = kind, .LongestStandstill = 2000}), "")
          << ToString(kind) << " " << seed;
    }
  }
}

// A second thread sees the flag only if it runs all of its five looks between two accesses of the first.
void LookFiveTimes() {
  bool isBetween = false;
  bool isSeen = false;
  TestThread writer([&] {
    for (int i = 0; i < 20; ++i) {
      BeforeSharedStore(&isBetween);
      isBetween = true;
      BeforeSharedStore(&isBetween);
      isBetween = false;
    }
  });
  TestThread reader([&] {
    for (int i = 0; i < 10; ++i) {
      int looks = 0;
      while (looks < 5) {
        BeforeSharedLoad(&isBetween);
        if (!isBetween) break;
        ++looks;
      }
      if (looks == 5) isSeen = true;
    }
  });
  writer.Join();
  reader.Join();
  if (isSeen) ReportViolation("test", "seen");
}

int FoundBy(SchedulerKind kind) {
  int found = 0;
  for (std::uint64_t seed = 1; seed <= 200; ++seed) {
    const SimulationOptions options{.Seed = seed, .Kind = kind, .HasPreemptionPoints = true};
    if (!ViolationOf(LookFiveTimes, options).empty()) ++found;
  }
  return found;
}

TEST(Schedulers, EachFindsAFaultBetweenTwoAccesses) {
  for (const SchedulerKind kind : kKinds) EXPECT_GT(FoundBy(kind), 0) << ToString(kind);
}

}  // namespace
}  // namespace lidcam::host
