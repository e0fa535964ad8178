// Runs that leave out kinds of fault and operation, and draw their parameters.

#include "scenarios/run/swarm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <string_view>

#include "scenarios/runner.h"

namespace lidcam::scenarios {
namespace {

constexpr std::string_view kKinds[] = {"pauses", "resumes", "resumes", "releases"};

RunResult PlaySwarm(const char* name, std::uint64_t seed, bool isSwarm = true) {
  return RunScenario(*FindScenario(name),
                     {name, seed, 0, {.HasExposure = true, .IsSwarm = isSwarm}},
                     {.KeepsTrace = true});
}

TEST(Swarm, UsualRunHasAllKindsAndTheUsualParameters) {
  Swarm usual;
  Random chance(1);
  Random plain(1);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(usual.Choose(chance, kKinds), plain.Below(4));
  EXPECT_TRUE(usual.Has("pauses"));
  EXPECT_EQ(usual.Value("applications", 3, 1, 5), 3U);
  EXPECT_TRUE(usual.LeftOut().empty());
  EXPECT_TRUE(usual.Parameters().empty());
}

TEST(Swarm, SeedLeavesOutTheSameKindsInWhateverOrderTheyAreAskedFor) {
  for (std::uint64_t seed = 1; seed <= 50; ++seed) {
    Swarm first(seed);
    Swarm second(seed);
    const bool hasPauses = first.Has("pauses");
    const std::uint64_t applications = first.Value("applications", 3, 1, 5);
    EXPECT_EQ(second.Value("applications", 3, 1, 5), applications);
    static_cast<void>(second.Has("releases"));
    EXPECT_EQ(second.Has("pauses"), hasPauses);
  }
}

TEST(Swarm, KindThatIsLeftOutIsNeverChosen) {
  int leftOut = 0;
  for (std::uint64_t seed = 1; seed <= 200; ++seed) {
    Swarm swarm(seed);
    Random chance(seed);
    std::set<std::string_view> chosen;
    for (int i = 0; i < 60; ++i) chosen.insert(kKinds[swarm.Choose(chance, kKinds)]);
    if (swarm.LeftOut().size() == 3) {
      EXPECT_EQ(chosen.size(), 3U) << "a run without any of the kinds chooses among all";
      continue;
    }
    for (const std::string& kind : swarm.LeftOut()) EXPECT_FALSE(chosen.contains(kind));
    EXPECT_EQ(chosen.size() + swarm.LeftOut().size(), 3U);
    if (!swarm.LeftOut().empty()) ++leftOut;
  }
  EXPECT_GT(leftOut, 50);
  EXPECT_LT(leftOut, 150);
}

TEST(Swarm, ParametersKeepTheirRange) {
  std::set<std::uint64_t> values;
  for (std::uint64_t seed = 1; seed <= 300; ++seed)
    values.insert(Swarm(seed).Value("applications", 9, 1, 5));
  EXPECT_EQ(values, (std::set<std::uint64_t>{1, 2, 3, 4, 5, 9}));
}

TEST(Swarm, RunTellsWhatItLeavesOutAndIsTheSameRunAgain) {
  std::set<std::string> leftOut;
  std::set<std::uint64_t> applications;
  for (std::uint64_t seed = 1; seed <= 12; ++seed) {
    const RunResult run = PlaySwarm("clients-and-faults", seed);
    EXPECT_NE(run.Outcome, Verdict::Failed) << ReplayCommand(run.Key) << "\n" << run.What;
    const RunResult again = PlaySwarm("clients-and-faults", seed);
    EXPECT_EQ(run.Hash, again.Hash);
    EXPECT_EQ(run.LeftOut, again.LeftOut);
    EXPECT_EQ(run.Parameters, again.Parameters);
    leftOut.insert(run.LeftOut.begin(), run.LeftOut.end());
    applications.insert(run.Parameters.at("applications"));
  }
  for (const char* const kind : {"connecting", "no settings", "sleeps of the device", "640x480"})
    EXPECT_TRUE(leftOut.contains(kind)) << kind;
  EXPECT_GT(applications.size(), 2U);
}

TEST(Swarm, DeviceDoesNothingThatItsRunLeavesOut) {
  int without = 0;
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    const RunResult run = PlaySwarm("mixture", seed);
    const bool sleeps = run.Trace.find("\nstep power down") != std::string::npos;
    if (!run.LeftOut.contains("sleeps of the device")) continue;
    EXPECT_FALSE(sleeps) << ReplayCommand(run.Key);
    ++without;
  }
  EXPECT_GT(without, 0);
}

TEST(Swarm, UsualRunTellsNothing) {
  const RunResult run = PlaySwarm("clients", 1, false);
  EXPECT_TRUE(run.LeftOut.empty());
  EXPECT_TRUE(run.Parameters.empty());
}

// Under this seed the reads of two applications meet the frame path, and both hang as stated.
TEST(StatedHangs, ReadsOfTwoApplicationsThatStopForGoodAreOne) {
  RunOptions options{.HasPoints = true, .HasExposure = true, .IsSwarm = true};
  options.Scheduler = host::SchedulerKind::Burst;
  const RunResult run = RunScenario(*FindScenario("controls"), {"controls", 4000171, 0, options},
                                    {.KeepsTrace = true});
  EXPECT_EQ(run.Outcome, Verdict::StatedHang) << run.What;
  EXPECT_EQ(run.Hang, "read-stops-for-good");
}

}  // namespace
}  // namespace lidcam::scenarios
