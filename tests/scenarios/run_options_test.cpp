// Effects of switch points between the calls, of stalls and of the exposure loop on a run.

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "platform/shared_access.h"
#include "scenarios/runner.h"
#include "scenarios/stage/transport_stage.h"
#include "tests/driver/support/sanitizers.h"

namespace lidcam::scenarios {
namespace {

constexpr RunOptions kPoints{.HasPoints = true};
constexpr RunOptions kStalls{.HasStalls = true};
constexpr RunOptions kExposure{.HasExposure = true};
constexpr RunOptions kBurst{.Scheduler = host::SchedulerKind::Burst};
constexpr RunOptions kPriorities{.Scheduler = host::SchedulerKind::Priorities};
constexpr RunOptions kSwarm{.IsSwarm = true};
constexpr RunOptions kAll{.HasPoints = true, .HasStalls = true, .HasExposure = true};

RunResult Play(const Scenario& scenario, std::uint64_t seed, const RunOptions& options) {
  return RunScenario(scenario, {std::string(scenario.Name), seed, 0, options},
                     {.KeepsTrace = true});
}

RunResult Play(const char* name, std::uint64_t seed, const RunOptions& options) {
  return Play(*FindScenario(name), seed, options);
}

RunResult PlayBody(void (*play)(Stage& stage), std::uint64_t seed, const RunOptions& options) {
  return Play({"broken", "", play}, seed, options);
}

class EachScenarioWithOptions : public testing::TestWithParam<Scenario> {};

TEST_P(EachScenarioWithOptions, HoldsUnderItsFirstSeedsAndIsTheSameRunAgain) {
  const std::uint64_t kSeeds = test::kIsSanitized ? 1 : 2;
  for (std::uint64_t seed = 1; seed <= kSeeds; ++seed) {
    for (const RunOptions& options :
         {kPoints, kAll, kPoints | kBurst, kAll | kPriorities | kSwarm}) {
      const RunResult result = Play(GetParam(), seed, options);
      EXPECT_NE(result.Outcome, Verdict::Failed) << ReplayCommand(result.Key) << "\n"
                                                 << result.What << "\n"
                                                 << result.Report;
      EXPECT_EQ(Play(GetParam(), seed, options).Hash, result.Hash) << ReplayCommand(result.Key);
    }
  }
}

std::string NameOfScenario(const testing::TestParamInfo<Scenario>& scenario) {
  std::string name;
  for (const char letter : scenario.param.Name) {
    if (letter != '-') name += letter;
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(All, EachScenarioWithOptions, testing::ValuesIn(Scenarios()),
                         NameOfScenario);

TEST(RunOptions, StandInTheCommandThatPlaysTheRunAgain) {
  EXPECT_EQ(ReplayCommand({"unplug", 17, 3, kAll}),
            "lidcam simulate --scenario unplug --seed 17 --step 3 --points --stalls --exposure");
  EXPECT_EQ(ReplayCommand({"unplug", 17, 0, kPoints | kBurst}),
            "lidcam simulate --scenario unplug --seed 17 --points --scheduler burst");
  EXPECT_EQ(ReplayCommand({"unplug", 17, 0, kPriorities}),
            "lidcam simulate --scenario unplug --seed 17 --scheduler priorities");
  EXPECT_EQ(ReplayCommand({"unplug", 17, 0, kAll | kSwarm}),
            "lidcam simulate --scenario unplug --seed 17 --points --stalls --exposure --swarm");
  EXPECT_EQ(ReplayCommand({"unplug", 17, 0, {}}), "lidcam simulate --scenario unplug --seed 17");
}

TEST(RunOptions, ReseedingsStandInTheCommandThatPlaysTheRunAgain) {
  EXPECT_EQ(ReplayCommand({"unplug", 17, 0, kPoints, {{120, 7}, {340, 9}}}),
            "lidcam simulate --scenario unplug --seed 17 --points --reseed 120:7,340:9");
}

TEST(RunOptions, SideBySideAddsPicturesAndThePoolToTheTrace) {
  const std::string trace = Play("controls", 1, {.IsSideBySide = true}).Trace;
  EXPECT_NE(trace.find("\npicture 0 drop 0 time 0 duration 1 options 1 bytes 202752 hash "),
            std::string::npos);
  EXPECT_NE(trace.find("\npool allocated "), std::string::npos);
  EXPECT_NE(trace.find("\npool freed "), std::string::npos);
}

TEST(RunOptions, EachMakesAnotherRunOfASeed) {
  std::set<std::uint64_t> hashes;
  for (const RunOptions& options :
       {RunOptions{}, kPoints, kStalls, kExposure, kAll, kBurst, kPriorities}) {
    hashes.insert(Play("urb-errors", 2, options).Hash);
  }
  EXPECT_EQ(hashes.size(), 7U);
}

// ---- Switch points.

// Two threads increment a shared field, each with a load and a store.
void AddTwice(Stage& stage) {
  static int sum;
  sum = 0;
  const auto add = [] {
    BeforeSharedLoad(&sum);
    const int before = sum;
    BeforeSharedStore(&sum);
    sum = before + 1;
  };
  {
    const host::ServiceThread first(add);
    const host::ServiceThread second(add);
  }
  stage.Require(sum == 2, "an addition is lost");
}

TEST(Points, FaultBetweenTwoAccessesIsFoundWithThemOnly) {
  int found = 0;
  for (std::uint64_t seed = 1; seed <= 60; ++seed) {
    EXPECT_EQ(PlayBody(AddTwice, seed, {}).Outcome, Verdict::Passed);
    if (PlayBody(AddTwice, seed, kPoints).Outcome == Verdict::Failed) ++found;
  }
  EXPECT_GT(found, 0);
}

// ---- Stalls.

void RequireInTime(Stage& stage) {
  const LONGLONG began = host::CurrentWorld().Now();
  for (int i = 0; i < 30'000; ++i) KeGetCurrentIrql();
  stage.Require(host::CurrentWorld().Now() == began, "it took time");
}

TEST(Stalls, WhatComesTooLateBehindOneCutsTheRunShort) {
  std::set<Verdict> verdicts;
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    EXPECT_EQ(PlayBody(RequireInTime, seed, {}).Outcome, Verdict::Passed);
    const RunResult result = PlayBody(RequireInTime, seed, kStalls);
    verdicts.insert(result.Outcome);
    EXPECT_EQ(result.What, result.Outcome == Verdict::CutShort ? "it took time" : "");
  }
  EXPECT_TRUE(verdicts.contains(Verdict::CutShort));
  EXPECT_FALSE(verdicts.contains(Verdict::Failed));
}

TEST(Stalls, AreNoReasonForWhatMustAlwaysHold) {
  const RunResult result = PlayBody(
      [](Stage& stage) {
        for (int i = 0; i < 30'000; ++i) KeGetCurrentIrql();
        stage.RequireAlways(false, "memory is lost");
      },
      3, kStalls);
  EXPECT_EQ(result.Outcome, Verdict::Failed);
  EXPECT_EQ(result.What, "simulation: memory is lost (at step 'begin')");
}

TEST(Stalls, TimeLimitCountsFromTheEndOfTheLastOne) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    const RunResult result = PlayBody(
        [](Stage& stage) {
          const LONGLONG began = host::CurrentWorld().Now();
          stage.RequireAlways(stage.CountedFrom(began) == began, "a stall that hasn't been counts");
          for (int i = 0; i < 30'000; ++i) KeGetCurrentIrql();
          stage.RequireAlways(stage.CountedFrom(began) >= host::CurrentWorld().Now(),
                              "a stall that has been doesn't count");
        },
        seed, kStalls);
    EXPECT_EQ(result.Outcome, Verdict::Passed) << result.What;
  }
}

// ---- The exposure loop.

bool Has(const RunResult& result, const char* text) {
  return result.Trace.find(text) != std::string::npos;
}

TEST(Exposure, LoopRunsWithItOnly) {
  int runs = 0;
  for (std::uint64_t seed = 1; seed <= 8; ++seed) {
    EXPECT_FALSE(Has(Play("start-stop", seed, {}), "exposure index="));
    if (Has(Play("start-stop", seed, kExposure), "exposure index=")) ++runs;
  }
  EXPECT_GT(runs, 0);
}

TEST(Exposure, BringUpTakesTheTimeOfItsRequests) {
  const auto start = [](Stage& stage) {
    TransportStage& camera = TransportStage::On(stage);
    camera.PlugIn();
    camera.Start();
  };
  EXPECT_EQ(PlayBody(start, 1, {}).Time, 0);
  EXPECT_GT(PlayBody(start, 1, kExposure).Time, 20 * kMillisecond);
}

// The variables that all cameras share are reset between runs.
TEST(Exposure, RunDoesNotDependOnTheOneBefore) {
  const RunResult alone = Play("clients", 3, kExposure);
  static_cast<void>(Play("two-clients", 4, kExposure));
  EXPECT_EQ(Play("clients", 3, kExposure).Trace, alone.Trace);
}

}  // namespace
}  // namespace lidcam::scenarios
