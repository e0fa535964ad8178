// Runs that branch where a switch point is reached in a new state of the driver.

#include "scenarios/guide.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <vector>

#include "platform/host/nt/processor/kernel_guards.h"
#include "platform/shared_access.h"

namespace lidcam::scenarios {
namespace {

constexpr RunOptions kHasPoints{.HasPoints = true};

class Guided : public testing::Test {
 protected:
  void SetUp() override {
    if (!Guide::IsPossible()) GTEST_SKIP() << "a simulation has several machine threads here";
  }
};

std::vector<RunResult> PlayGuided(Guide& guide, const Scenario& scenario, std::uint64_t seed) {
  std::vector<RunResult> results;
  guide.Play(scenario, {std::string(scenario.Name), seed, 0, kHasPoints},
             [&results](const RunResult& result) { results.push_back(result); });
  return results;
}

TEST_F(Guided, RunItselfIsTheSameAsWithoutBranches) {
  for (const char* const name : {"urb-errors", "failing-ZwWriteFile", "clients-and-removal"}) {
    const Scenario& scenario = *FindScenario(name);
    Guide guide(5);
    const std::vector<RunResult> results = PlayGuided(guide, scenario, 3);
    EXPECT_EQ(results.size(), 6U);
    const RunResult alone = RunScenario(scenario, {name, 3, 0, kHasPoints});
    EXPECT_EQ(results.front().Hash, alone.Hash) << name;
    EXPECT_EQ(results.front().What, alone.What);
    EXPECT_TRUE(results.front().Key.Reseedings.empty());
  }
}

TEST_F(Guided, BranchIsARunByItsKeyAlone) {
  const Scenario& scenario = *FindScenario("pause-storm");
  Guide guide(12);
  const std::vector<RunResult> results = PlayGuided(guide, scenario, 2);
  std::size_t deepest = 0;
  int different = 0;
  for (const RunResult& result : results) {
    const RunResult again = RunScenario(scenario, result.Key);
    EXPECT_EQ(again.Hash, result.Hash) << ReplayCommand(result.Key);
    EXPECT_EQ(again.ScheduleLength, result.ScheduleLength);
    EXPECT_EQ(again.Outcome, result.Outcome);
    EXPECT_EQ(again.Counts.Frames, result.Counts.Frames);
    if (result.Hash != results.front().Hash) ++different;
    deepest = std::max(deepest, result.Key.Reseedings.size());
  }
  EXPECT_GT(different, 8);
  EXPECT_GT(deepest, 1U) << "no branch has branched";
}

TEST_F(Guided, RunBranchesOnlyWhereItReachesANewPair) {
  const Scenario& scenario = *FindScenario("start-stop");
  Guide guide(3);
  EXPECT_EQ(PlayGuided(guide, scenario, 1).size(), 4U);
  const std::uint64_t pairs = guide.Pairs();
  EXPECT_GT(pairs, 100U);
  EXPECT_EQ(PlayGuided(guide, scenario, 1).size(), 1U);
  EXPECT_EQ(guide.Pairs(), pairs);
}

// An increment is lost if a second thread runs between the load and the store of the first one.
void LoseOneIncrement(Stage& stage) {
  static int sum;
  sum = 0;
  const auto work = [] {
    for (int i = 0; i < 10; ++i) KeGetCurrentIrql();
    BeforeSharedLoad(&sum);
    const int before = sum;
    BeforeSharedStore(&sum);
    sum = before + 1;
  };
  {
    const host::ServiceThread first(work);
    const host::ServiceThread second(work);
  }
  stage.Require(sum == 2, "an increment is lost");
}

TEST_F(Guided, FailureOfABranchIsRepeatedByItsKey) {
  const Scenario losing{"losing", "", LoseOneIncrement};
  int found = 0;
  for (std::uint64_t seed = 1; seed <= 30; ++seed) {
    Guide guide(8);
    for (const RunResult& result : PlayGuided(guide, losing, seed)) {
      if (result.Outcome != Verdict::Failed || result.Key.Reseedings.empty()) continue;
      ++found;
      EXPECT_EQ(result.What, "simulation: an increment is lost (at step 'begin')");
      const RunResult again = RunScenario(losing, result.Key);
      EXPECT_EQ(again.Outcome, Verdict::Failed);
      EXPECT_EQ(again.What, result.What);
    }
  }
  EXPECT_GT(found, 0);
}

pid_t g_firstProcess = 0;

void DieInABranch(Stage&) {
  for (int i = 0; i < 10; ++i) {
    KeGetCurrentIrql();
    if (getpid() != g_firstProcess) std::raise(SIGKILL);
  }
}

TEST_F(Guided, BranchWhoseProcessDiesHasFailed) {
  const Scenario dying{"dying", "", DieInABranch};
  g_firstProcess = getpid();
  Guide guide(1);
  const std::vector<RunResult> results = PlayGuided(guide, dying, 1);
  ASSERT_EQ(results.size(), 2U);
  EXPECT_EQ(results[0].Outcome, Verdict::Passed);
  EXPECT_EQ(results[1].Outcome, Verdict::Failed);
  EXPECT_EQ(results[1].What, "the process ended by signal 9");
  EXPECT_EQ(results[1].Key.Reseedings.size(), 1U);
}

}  // namespace
}  // namespace lidcam::scenarios
