// The shortest schedule of a failed run.

#include "scenarios/minimizer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/host/nt/scheduling/thread.h"
#include "platform/shared_access.h"
#include "scenarios/stage/transport_stage.h"

namespace lidcam::scenarios {
namespace {

constexpr RunOptions kWithPoints{.HasPoints = true};

bool GoOn(std::size_t) {
  return true;
}

void Increment(int& sum) {
  BeforeSharedLoad(&sum);
  const int before = sum;
  BeforeSharedStore(&sum);
  sum = before + 1;
}

// An increment is lost if a second thread runs between the load and the store of the first one.
void LoseAnIncrement(Stage& stage) {
  static int sum;
  sum = 0;
  const auto work = [] {
    for (int i = 0; i < 20; ++i) KeGetCurrentIrql();
    Increment(sum);
    for (int i = 0; i < 20; ++i) KeGetCurrentIrql();
  };
  {
    const host::ServiceThread first(work);
    const host::ServiceThread second(work);
  }
  stage.Require(sum == 2, "an increment is lost");
}

constexpr Scenario kLosing{"losing", "", LoseAnIncrement};

RunKey FailingKey(host::SchedulerKind kind) {
  RunKey key{"losing", 1, 0, kWithPoints};
  key.Options.Scheduler = kind;
  while (RunScenario(kLosing, key).Outcome != Verdict::Failed) ++key.Seed;
  return key;
}

TEST(Minimizer, LeavesTheSwitchesThatTheFailureNeeds) {
  for (const auto kind :
       {host::SchedulerKind::Walk, host::SchedulerKind::Burst, host::SchedulerKind::Priorities}) {
    const MinimizedRun found = Minimize(kLosing, FailingKey(kind), GoOn);
    EXPECT_EQ(found.Result.Outcome, Verdict::Failed);
    EXPECT_NE(found.Result.What.find("an increment is lost"), std::string::npos);
    EXPECT_TRUE(found.IsMinimal);
    ASSERT_GE(found.Schedule.Deviations.size(), 1U);
    EXPECT_LT(found.Schedule.Deviations.size(), found.Before);
    EXPECT_EQ(found.Schedule.Texts.size(), found.Schedule.Deviations.size());
    for (std::size_t left = 0; left < found.Schedule.Deviations.size(); ++left) {
      host::ScheduleRecord without = found.Schedule;
      without.Deviations.erase(without.Deviations.begin() + static_cast<std::ptrdiff_t>(left));
      host::ScheduleRecord played;
      EXPECT_EQ(
          RunScenario(kLosing, found.Result.Key, {.Follow = &without, .Record = &played}).Outcome,
          Verdict::Passed)
          << left;
    }
  }
}

TEST(Minimizer, ScheduleOfTheResultIsThatRunAgain) {
  const RunKey key = FailingKey(host::SchedulerKind::Walk);
  const MinimizedRun found = Minimize(kLosing, key, GoOn);
  host::ScheduleRecord again;
  const RunResult result = RunScenario(kLosing, key, {.Follow = &found.Schedule, .Record = &again});
  EXPECT_EQ(result.Hash, found.Result.Hash);
  EXPECT_EQ(again.Deviations, found.Schedule.Deviations);
}

// Fails if its third and its seventh operation draw what they draw in the whole run, an allocation fails, and the
// second request of the bus is refused.
void FailByAFewParts(Stage& stage) {
  Random whole(stage.Key().Seed, 9);
  Random chance = whole;
  PlugOptions options;
  for (std::uint64_t request = 1; request <= 3; ++request) {
    options.Script.Faults.push_back({.Place = bus::FaultPlace::Control, .At = request});
  }
  bus::UsbBus& bus = stage.LayBus(options);
  stage.FailCall("ZwWriteFile", 1, STATUS_UNSUCCESSFUL);
  stage.FailAllocation(1);
  int same = 0;
  for (std::uint64_t i = 1; i <= 10; ++i) {
    const std::uint64_t drawn = whole.Next();
    if (!stage.HasOperation("device", i, chance)) continue;
    if (chance.Next() == drawn && (i == 3 || i == 7)) ++same;
  }
  bus::UsbStatus second{};
  for (int request = 1; request <= 3; ++request) {
    std::uint8_t descriptor[18] = {};
    const bus::SetupPacket read{.RequestType = 0x80, .Request = 6, .Value = 0x100, .Length = 18};
    const bus::UsbStatus status = bus.ControlTransfer(read, descriptor).Status;
    if (request == 2) second = status;
  }
  void* const memory = ExAllocatePoolWithTag(NonPagedPool, 16, 0x206D6457);
  const bool isFailing = same == 2 && memory == nullptr && second == bus::UsbStatus::Stalled;
  if (memory != nullptr) ExFreePool(memory);
  stage.EndFaults();
  stage.TakeUpBus();
  stage.Require(!isFailing, "it fails");
}

TEST(Minimizer, LeavesTheFaultsAndOperationsThatTheFailureNeeds) {
  const Scenario scenario{"parts", "", FailByAFewParts};
  const MinimizedRun found = Minimize(scenario, {"parts", 1, 0, kWithPoints}, GoOn);
  EXPECT_EQ(found.Result.Outcome, Verdict::Failed);
  EXPECT_TRUE(found.IsMinimal);
  EXPECT_EQ(found.PartsBefore, 15U);
  ASSERT_EQ(found.Parts.size(), 4U);
  EXPECT_TRUE(found.Parts[0].starts_with("fault 2: ")) << found.Parts[0];
  EXPECT_EQ(found.Parts[1], "an allocation fails");
  EXPECT_EQ(found.Parts[2], "device operation 3");
  EXPECT_EQ(found.Parts[3], "device operation 7");
}

// Its stall is one of its parts.
TEST(Minimizer, StallThatTheFailureNeedsIsLeft) {
  const Scenario scenario{"stalled", "", [](Stage& stage) {
                            const host::Thread& self = host::CurrentThread();
                            stage.StallOne(
                                [&self](const host::Thread& thread) { return &thread == &self; }, 1,
                                kSecond);
                            KeGetCurrentIrql();
                            stage.RequireAlways(!stage.WasStalled(), "it was stalled");
                          }};
  const MinimizedRun found = Minimize(scenario, {"stalled", 1, 0, kWithPoints}, GoOn);
  EXPECT_EQ(found.Parts, std::vector<std::string>{"stall 1"});
}

TEST(Minimizer, RunThatPassesIsLeftAlone) {
  const Scenario quiet{"quiet", "", [](Stage&) {}};
  const MinimizedRun found = Minimize(quiet, {"quiet", 1, 0, kWithPoints}, GoOn);
  EXPECT_EQ(found.Result.Outcome, Verdict::Passed);
  EXPECT_EQ(found.Runs, 1U);
}

TEST(Minimizer, StopsWhenItIsTold) {
  int left = 2;
  const MinimizedRun found = Minimize(kLosing, FailingKey(host::SchedulerKind::Walk),
                                      [&](std::size_t) { return --left != 0; });
  EXPECT_EQ(found.Result.Outcome, Verdict::Failed);
  EXPECT_FALSE(found.IsMinimal);
}

// A whole camera, with faults, recoveries and a frame thread.
TEST(ScheduleRecord, RunOfACameraIsTheSameByItsDeviationsAlone) {
  for (const auto kind :
       {host::SchedulerKind::Walk, host::SchedulerKind::Burst, host::SchedulerKind::Priorities}) {
    RunKey key{"urb-errors", 5, 0, kWithPoints};
    key.Options.Scheduler = kind;
    const Scenario& scenario = *FindScenario(key.Scenario);
    host::ScheduleRecord recorded;
    const RunResult first = RunScenario(scenario, key, {.Record = &recorded});
    EXPECT_EQ(first.Hash, RunScenario(scenario, key).Hash);
    EXPECT_GT(recorded.Deviations.size(), 10U);
    host::ScheduleRecord played;
    const RunResult second = RunScenario(scenario, key, {.Follow = &recorded, .Record = &played});
    EXPECT_EQ(second.Hash, first.Hash);
    EXPECT_EQ(played.Deviations, recorded.Deviations);
  }
}

TEST(ScheduleRecord, ThreadRunsUntilItWaitsWithoutDeviations) {
  const host::ScheduleRecord nothing;
  host::ScheduleRecord played;
  const RunResult result =
      RunScenario(kLosing, {"losing", 1, 0, kWithPoints}, {.Follow = &nothing, .Record = &played});
  EXPECT_EQ(result.Outcome, Verdict::Passed) << result.What;
  EXPECT_TRUE(played.Deviations.empty());
}

}  // namespace
}  // namespace lidcam::scenarios
