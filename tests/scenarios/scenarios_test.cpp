// Every scenario with some seeds. scripts/simulate runs many more.

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "platform/host/nt/memory/pool.h"
#include "scenarios/runner.h"
#include "tests/driver/support/sanitizers.h"

namespace lidcam::scenarios {
namespace {

const std::uint64_t kSeeds = test::kIsSanitized ? 3 : 8;
const std::uint64_t kRepeatedSeeds = test::kIsSanitized ? 1 : 3;

RunResult Play(const Scenario& scenario, std::uint64_t seed, std::uint64_t step = 0) {
  return RunScenario(scenario, {std::string(scenario.Name), seed, step});
}

RunResult Play(const char* name, std::uint64_t seed) {
  return Play(*FindScenario(name), seed);
}

class EachScenario : public testing::TestWithParam<Scenario> {};

TEST_P(EachScenario, HoldsUnderItsFirstSeeds) {
  for (std::uint64_t seed = 1; seed <= kSeeds; ++seed) {
    const RunResult result = Play(GetParam(), seed);
    EXPECT_NE(result.Outcome, Verdict::Failed) << ReplayCommand(result.Key) << "\n"
                                               << result.What << "\n"
                                               << result.Report;
  }
}

TEST_P(EachScenario, IsTheSameRunForTheSameSeed) {
  for (std::uint64_t seed = 1; seed <= kRepeatedSeeds; ++seed) {
    const RunResult first = Play(GetParam(), seed);
    const RunResult second = Play(GetParam(), seed);
    EXPECT_EQ(first.Hash, second.Hash);
    EXPECT_EQ(first.ScheduleLength, second.ScheduleLength);
    EXPECT_EQ(first.Time, second.Time);
    EXPECT_EQ(first.Trace, second.Trace);
  }
}

TEST_P(EachScenario, IsAnotherRunForAnotherSeed) {
  std::set<std::uint64_t> hashes;
  for (std::uint64_t seed = 1; seed <= 4; ++seed) hashes.insert(Play(GetParam(), seed).Hash);
  EXPECT_GT(hashes.size(), 1U);
}

std::string NameOf(const testing::TestParamInfo<Scenario>& scenario) {
  std::string name;
  for (const char letter : scenario.param.Name) {
    if (letter != '-') name += letter;
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(All, EachScenario, testing::ValuesIn(Scenarios()), NameOf);

// Fails the first, the second, the third call ... until no more follow.
class EachFailingCall : public testing::TestWithParam<const char*> {};

TEST_P(EachFailingCall, HoldsAtEveryCallThatIsReached) {
  const std::uint64_t steps =
      RunAllSteps(*FindScenario(GetParam()), 1, {}, [](const RunResult& result) {
        EXPECT_NE(result.Outcome, Verdict::Failed) << ReplayCommand(result.Key) << "\n"
                                                   << result.What << "\n"
                                                   << result.Report;
        return result.Outcome != Verdict::Failed;
      });
  EXPECT_GT(steps, 0U);
}

std::string CallOf(const testing::TestParamInfo<const char*>& scenario) {
  return std::string(scenario.param).substr(8);
}

INSTANTIATE_TEST_SUITE_P(Few, EachFailingCall,
                         testing::Values("failing-IoAllocateWorkItem", "failing-IoCreateDevice",
                                         "failing-ObReferenceObjectByHandle",
                                         "failing-PsCreateSystemThread", "failing-ZwCreateFile",
                                         "failing-ZwWriteFile"),
                         CallOf);

// The guard of a recovery that got no work item stays raised.
TEST(StatedHang, StopHardwareWaitsForEverAfterTheWorkItemCouldNotBeAllocated) {
  for (std::uint64_t seed = 1; seed <= 5; ++seed) {
    const RunResult result = Play("lost-work-item", seed);
    EXPECT_EQ(result.Outcome, Verdict::StatedHang) << result.What;
    EXPECT_EQ(result.Hang, "stop-after-lost-work-item");
    EXPECT_EQ(result.What, "simulation: hangs at step 'stop'");
  }
}

// The second wait of a request has no limit, and blocks the turn that all others wait for.
TEST(StatedHang, RequestThatNeverComesBackFromItsCancelHoldsTheReleaseUpForEver) {
  for (std::uint64_t seed = 1; seed <= 5; ++seed) {
    const RunResult result = Play("kept-request", seed);
    EXPECT_EQ(result.Outcome, Verdict::StatedHang) << result.What;
    EXPECT_EQ(result.Hang, "request-never-comes-back");
    EXPECT_EQ(result.What, "simulation: hangs at step 'release'");
  }
}

// The device is removed, or stopped, restarted and streams again, while the request is stopped.
TEST(StatedHang, ReadThatMeetsTheFramePathIsNeverAnsweredAndHoldsNoRemovalUp) {
  for (std::uint64_t seed = 1; seed <= 5; ++seed) {
    const RunResult result = Play("stopped-read", seed);
    EXPECT_EQ(result.Outcome, Verdict::StatedHang) << result.What;
    EXPECT_EQ(result.Hang, "read-stops-for-good");
    EXPECT_EQ(result.What, "simulation: hangs at step 'change the light'");
    EXPECT_NE(result.Trace.find("the device goes on"), std::string::npos) << result.Trace;
    EXPECT_NE(result.Report.find("has stopped"), std::string::npos) << result.Report;
  }
}

// A run without darkness, dim or glaring light: the exposure loop would come to its end, and no read meet it.
TEST(StatedHang, ReadMeetsTheFramePathWhateverLightTheRunLeavesOut) {
  const RunResult result =
      RunScenario(*FindScenario("stopped-read"), {"stopped-read",
                                                  10072171,
                                                  0,
                                                  {.HasPoints = true,
                                                   .HasExposure = true,
                                                   .IsSwarm = true,
                                                   .Scheduler = host::SchedulerKind::Burst}});
  EXPECT_EQ(result.Outcome, Verdict::StatedHang) << result.What;
  EXPECT_EQ(result.Hang, "read-stops-for-good");
}

// A recovery's read of the bridge meets the exposure loop's writes: the device's mutex stays taken.
TEST(StatedHang, RecoveryWhoseReadMeetsTheFramePathHoldsThePauseUpForEver) {
  const RunResult result = RunScenario(*FindScenario("submit-failures"),
                                       {"submit-failures",
                                        10024619,
                                        0,
                                        {.HasPoints = true,
                                         .HasExposure = true,
                                         .IsSwarm = true,
                                         .Scheduler = host::SchedulerKind::Priorities}});
  EXPECT_NE(result.Outcome, Verdict::Failed) << result.What;
}

TEST(StatedHang, RunThatStopsLeavesNothingInThePool) {
  const std::size_t before = host::PoolUsageOfAll().Blocks;
  for (const char* const name : {"lost-work-item", "kept-request", "stopped-read"}) {
    EXPECT_EQ(Play(name, 1).Outcome, Verdict::StatedHang);
    EXPECT_EQ(host::PoolUsageOfAll().Blocks, before) << name;
  }
}

TEST(Scenarios, RecoveriesAndFramesHappenInThem) {
  RunCounts sum;
  for (std::uint64_t seed = 1; seed <= 6; ++seed) {
    const RunCounts counts = Play("urb-errors", seed).Counts;
    sum.Frames += counts.Frames;
    sum.Recoveries += counts.Recoveries;
  }
  EXPECT_GT(sum.Frames, 6U);
  EXPECT_GT(sum.Recoveries, 6U);
}

// They are counted by the kernel's calls, which the driver of an image makes as well.
TEST(Scenarios, RecoveriesAreCountedAsTheTraceTellsThem) {
  for (std::uint64_t seed = 1; seed <= 6; ++seed) {
    SCOPED_TRACE(seed);
    const RunResult result =
        RunScenario(*FindScenario("urb-errors"), {"urb-errors", seed}, {.KeepsTrace = true});
    std::uint64_t told = 0;
    for (std::size_t at = 0; (at = result.Trace.find("\nrecovery ends ", at)) != std::string::npos;
         ++at) {
      ++told;
    }
    EXPECT_GT(told, 0U);
    EXPECT_EQ(result.Counts.Recoveries, told);
  }
}

// The only allocation that fails is that of the request for the state of a stream that was stopped.
TEST(Scenarios, StreamWhoseStateCouldNotBeAskedForMayTakeAFormat) {
  const RunResult result =
      RunScenario(*FindScenario("out-of-memory-client"),
                  {"out-of-memory-client", 2001987, 0, {.HasPoints = true, .HasExposure = true}});
  EXPECT_NE(result.Outcome, Verdict::Failed) << result.What;
}

// A stall of seconds breaks the stream's circle, and the recovery moves it to the pipe that carries no picture.
TEST(Scenarios, StreamThatARecoveryMovedAfterAStallMayGetNoFrame) {
  const RunResult result = RunScenario(
      *FindScenario("clients"),
      {"clients", 7000411, 0, {.HasPoints = true, .HasStalls = true, .HasExposure = true}});
  EXPECT_EQ(result.Outcome, Verdict::CutShort);
  EXPECT_EQ(result.What, "client 1, take a frame: no frame comes to a running stream");
  EXPECT_GT(result.Counts.Recoveries, 0U);
}

// A setting without a picture whose descriptor names one pipe: the pipe table has it alone, and the settings after it
// have two.
TEST(Scenarios, SettingsWithMorePipesThanTheFirstOneLeadBehindNoTable) {
  const RunResult result = Play("mixture", 10003021);
  EXPECT_NE(result.Outcome, Verdict::Failed) << result.What;
}

// The last acquisition fails at the memory of a transfer, or at its request, and leaves those before it. Then the device
// goes.
TEST(Scenarios, TransfersThatAFailedAcquisitionLeavesMayOutlastTheDevice) {
  for (const RunKey& key :
       {RunKey{
            "mixture",
            10022039,
            0,
            {.HasPoints = true, .HasExposure = true, .Scheduler = host::SchedulerKind::Priorities}},
        RunKey{"mixture",
               10032416,
               0,
               {.HasPoints = true,
               .HasStalls = true,
               .HasExposure = true,
               .Scheduler = host::SchedulerKind::Priorities}}}) {
    const RunResult result = RunScenario(*FindScenario(key.Scenario), key);
    EXPECT_NE(result.Outcome, Verdict::Failed) << ReplayCommand(key) << "\n" << result.What;
  }
}

// Its bitmap header is too short for the size, so that the stream's buffers have no memory, and are refused.
TEST(Scenarios, ApplicationWhoseFormatTellsNoPictureSizeMayGetItsBuffersRefused) {
  const RunResult result = Play("clients-and-faults", 2001365);
  EXPECT_EQ(result.Outcome, Verdict::Passed) << result.What;
}

// Its stream is given a format whose bitmap header ends before the size of a picture: 8 bytes, and 19.
TEST(Scenarios, ApplicationWhoseFormatTellsNoPictureSizeMayGetFramesOfNoBytes) {
  const RunKey keys[] = {
      {"out-of-memory-client",
       10021315,
       0,
       {.HasPoints = true, .HasExposure = true, .Scheduler = host::SchedulerKind::Burst}},
      {"out-of-memory-client",
       10021532,
       0,
       {.HasPoints = true,
        .HasStalls = true,
        .HasExposure = true,
        .Scheduler = host::SchedulerKind::Priorities}}};
  for (const RunKey& key : keys) {
    const RunResult result = RunScenario(*FindScenario(key.Scenario), key);
    EXPECT_NE(result.Outcome, Verdict::Failed) << ReplayCommand(key) << "\n" << result.What;
  }
}

}  // namespace
}  // namespace lidcam::scenarios
