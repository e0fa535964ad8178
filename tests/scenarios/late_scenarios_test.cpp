// The stalls of the scenarios in which a processor stops at one place.

#include <gtest/gtest.h>

#include "platform/host/nt/scheduling/thread.h"
#include "scenarios/plays/sequences.h"
#include "scenarios/runner.h"
#include "scenarios/stage/transport_stage.h"

namespace lidcam::scenarios {
namespace {

RunResult PlayLate(void (*play)(Stage& stage), std::uint64_t seed) {
  return RunScenario({"late", "", play}, {"late", seed, 0, {.HasPoints = true}});
}

TEST(LateScenarios, TransferIsCompletedOnAnotherProcessorAndTheStreamGoesOn) {
  static bool isDeferred;
  isDeferred = false;
  const RunResult result = PlayLate(
      [](Stage& stage) {
        TransportStage& camera = TransportStage::On(stage);
        camera.PlugInAndStream();
        stage.Between().CompleteElsewhere({.Ahead =
                                               [] {
                                                 const host::Thread& self = host::CurrentThread();
                                                 isDeferred = self.Level == DISPATCH_LEVEL &&
                                                              self.Name.starts_with("DPC");
                                               },
                                           .Behind = [] {}});
        stage.Require(camera.FramesCome(5), "no frames come");
        camera.Pause();
        camera.Release();
      },
      3);
  EXPECT_EQ(result.Outcome, Verdict::Passed) << result.What;
  EXPECT_TRUE(isDeferred);
}

TEST(LateScenarios, TransferThatFailsOnAnotherProcessorIsRecoveredFrom) {
  const RunResult result = PlayLate(
      [](Stage& stage) {
        TransportStage& camera = TransportStage::On(stage);
        stage.AllowDisturbedFrames();
        PlugOptions options;
        options.Camera.HasTwinPipes = true;
        camera.PlugInAndStream(options);
        stage.Between().CompleteElsewhere({.Fails = true, .Ahead = [] {}, .Behind = [] {}});
        ExpectRecovery(camera, true);
      },
      4);
  EXPECT_EQ(result.Outcome, Verdict::Passed) << result.What;
  EXPECT_GT(result.Counts.Recoveries, 0U);
}

TEST(LateScenarios, RemovalWaitsForATransferThatIsStillBeingCompletedElsewhere) {
  static bool isCompleted;
  isCompleted = false;
  const RunResult result = PlayLate(
      [](Stage& stage) {
        TransportStage& camera = TransportStage::On(stage);
        stage.AllowDisturbedFrames();
        camera.AllowLateTransfers();
        camera.PlugInAndStream();
        stage.Between().CompleteElsewhere(
            {.Ahead =
                 [&stage] {
                   const host::Thread& self = host::CurrentThread();
                   stage.StallOne([&self](const host::Thread& thread) { return &thread == &self; },
                                  1, kSecond / 2);
                 },
             .Behind = [] { isCompleted = true; }});
        stage.Sleep(20 * kMillisecond);
        camera.Remove();
        stage.RequireAlways(isCompleted, "the camera was removed first");
      },
      5);
  EXPECT_EQ(result.Outcome, Verdict::Passed) << result.What;
  EXPECT_TRUE(isCompleted);
}

// At its third switch point from then on; other threads continue meanwhile.
TEST(LateScenarios, OneThreadStandsStillAtThePointThatWasPlanned) {
  const RunResult result = PlayLate(
      [](Stage& stage) {
        const LONGLONG began = host::CurrentWorld().Now();
        const host::Thread& self = host::CurrentThread();
        stage.StallOne([&self](const host::Thread& thread) { return &thread == &self; }, 3,
                       kSecond);
        stage.RequireAlways(!stage.WasStalled(), "it stands still at once");
        KeGetCurrentIrql();
        KeGetCurrentIrql();
        stage.RequireAlways(host::CurrentWorld().Now() == began, "it stands still too early");
        KeGetCurrentIrql();
        stage.RequireAlways(host::CurrentWorld().Now() == began + kSecond, "it doesn't");
        stage.RequireAlways(stage.WasStalled() && stage.CountedFrom(began) == began + kSecond,
                            "nobody knows of it");
      },
      6);
  EXPECT_EQ(result.Outcome, Verdict::Passed) << result.What;
}

}  // namespace
}  // namespace lidcam::scenarios
