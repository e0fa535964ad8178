#include "scenarios/runner.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <optional>

#include "driver/frame/resampler/scale_kernels.h"
#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/processor/kernel_guards.h"
#include "platform/host/nt/simulation/simulated_scheduler.h"
#include "platform/host/nt/system/debug_print.h"
#include "platform/host/nt/verifier/kernel_faults.h"
#include "platform/host/nt/verifier/verifier.h"
#include "scenarios/run/swarm.h"
#include "scenarios/stated_hangs.h"
#include "testbed/shared_exposure.h"

namespace lidcam::scenarios {
namespace {

// No operation takes longer, even if all its requests have faults.
constexpr LONGLONG kLongestStep = 120 * kSecond;
constexpr LONGLONG kLook = 10 * kSecond;

// Ends all faults of the run that are left.
class FaultsOff {
 public:
  FaultsOff() { Clear(); }
  FaultsOff(const FaultsOff&) = delete;
  FaultsOff& operator=(const FaultsOff&) = delete;
  ~FaultsOff() { Clear(); }

 private:
  static void Clear() {
    host::ClearKernelCallFaults();
    host::FailPoolAllocation(0);
  }
};

// A comparison with an image needs the kernels that the image has: those for 128-bit registers.
class KernelsOfImage {
 public:
  explicit KernelsOfImage(bool areOfImage) : areOfImage_(areOfImage) {
    if (areOfImage_) LimitScaleKernels(kCount);
  }
  KernelsOfImage(const KernelsOfImage&) = delete;
  KernelsOfImage& operator=(const KernelsOfImage&) = delete;
  ~KernelsOfImage() {
    if (areOfImage_) LimitScaleKernels(SIZE_MAX);
  }

 private:
  static constexpr std::size_t kCount = 3;  // reference, SSE2, SSSE3
  const bool areOfImage_;
};

// The scenario has its own thread, so that thread 0 detects when it hangs.
class Player {
 public:
  Player(const Scenario& scenario, Stage& stage, RunResult& result)
      : scenario_(scenario), stage_(stage), result_(result) {
    KeInitializeEvent(&done_, NotificationEvent, FALSE);
  }

  void Play() {
    const host::ServiceThread thread([this] {
      scenario_.Play(stage_);
      stage_.EndFaults();
      stage_.EndGuest();
      KeSetEvent(&done_, IO_NO_INCREMENT, FALSE);
    });
    while (!IsDoneWithin(kLook)) {
      const LONGLONG time = host::CurrentWorld().Now() - stage_.Longest().Began;
      const StatedHang* const hang = time >= kLook ? RecognizeHang(stage_) : nullptr;
      if (hang != nullptr || time > kLongestStep) ReportHang(hang);
    }
  }

 private:
  bool IsDoneWithin(LONGLONG time) {
    LARGE_INTEGER limit{};
    limit.QuadPart = -time;
    return KeWaitForSingleObject(&done_, Executive, KernelMode, FALSE, &limit) == STATUS_SUCCESS;
  }

  void ReportHang(const StatedHang* hang) {
    if (hang != nullptr) result_.Hang = hang->Name;
    host::ReportViolation("simulation", "hangs at step '" + LongestUnexplained(stage_).Step + "'");
  }

  const Scenario& scenario_;
  Stage& stage_;
  RunResult& result_;
  KEVENT done_{};
};

// The key's reseedings, and then those of the guide.
std::function<std::optional<std::uint64_t>(const host::SwitchPlace&)> NewSeedsOf(
    const RunKey& key, const RunRecords& records, const Stage& stage) {
  if (key.Reseedings.empty() && !records.Guide) return {};
  return [&key, &records, &stage, done = std::size_t{0}](
             const host::SwitchPlace& place) mutable -> std::optional<std::uint64_t> {
    if (done == key.Reseedings.size()) {
      if (!records.Guide) return {};
      return records.Guide(place, stage.DriverState(place.Subject.Object));
    }
    if (place.Number != key.Reseedings[done].Point) return {};
    return key.Reseedings[done++].Seed;
  };
}

std::uint64_t Mix(std::uint64_t trace, std::uint64_t schedule) {
  return Random(trace, schedule).Next();
}

}  // namespace

std::string_view ToString(Verdict verdict) {
  switch (verdict) {
    case Verdict::Passed:
      return "passed";
    case Verdict::StatedHang:
      return "stated hang";
    case Verdict::CutShort:
      return "cut short";
    case Verdict::Failed:
      return "FAILED";
  }
  return "";
}

RunOptions operator|(const RunOptions& a, const RunOptions& b) {
  return {.HasPoints = a.HasPoints || b.HasPoints,
          .HasStalls = a.HasStalls || b.HasStalls,
          .HasExposure = a.HasExposure || b.HasExposure,
          .IsSwarm = a.IsSwarm || b.IsSwarm,
          .Scheduler = b.Scheduler != host::SchedulerKind::Walk ? b.Scheduler : a.Scheduler,
          .IsSideBySide = a.IsSideBySide || b.IsSideBySide};
}

std::string ToString(const RunOptions& options) {
  std::string text;
  if (options.HasPoints) text += " --points";
  if (options.HasStalls) text += " --stalls";
  if (options.HasExposure) text += " --exposure";
  if (options.IsSwarm) text += " --swarm";
  if (options.Scheduler != host::SchedulerKind::Walk) {
    text.append(" --scheduler ").append(host::ToString(options.Scheduler));
  }
  return text;
}

std::string ToString(const std::vector<Reseeding>& reseedings) {
  std::string text;
  for (const Reseeding& each : reseedings) {
    text += (text.empty() ? " --reseed " : ",") + std::to_string(each.Point) + ":" +
            std::to_string(each.Seed);
  }
  return text;
}

std::string ReplayCommand(const RunKey& key) {
  std::string command =
      "lidcam simulate --scenario " + key.Scenario + " --seed " + std::to_string(key.Seed);
  if (key.Step != 0) command += " --step " + std::to_string(key.Step);
  return command + ToString(key.Options) + ToString(key.Reseedings);
}

RunResult RunScenario(const Scenario& scenario, const RunKey& key, const RunRecords& records) {
  RunResult result;
  result.Key = key;
  const FaultsOff faultsOff;
  testbed::ResetSharedExposure();
  const host::VerifierCapture capture;
  RunKey played = key;
  played.Options = key.Options | scenario.Needs;
  const KernelsOfImage kernels(played.Options.IsSideBySide);
  TraceRecord trace(records.KeepsTrace, !played.Options.IsSideBySide);
  std::optional<host::DebugPrintObserver> messages;
  std::optional<host::PoolObserver> pool;
  if (played.Options.IsSideBySide) {
    messages.emplace([&trace](const std::string& message) { trace.Add("message " + message); });
    pool.emplace([&trace](const host::PoolEvent& event) { trace.Add(ToString(event)); });
  }
  RunParts all;
  Swarm swarm = played.Options.IsSwarm ? Swarm(key.Seed) : Swarm();
  Stage stage(played, trace, records.Parts != nullptr ? *records.Parts : all, swarm);
  std::uint64_t schedule = 0;
  {
    host::SimulatedScheduler world(
        {.Seed = key.Seed,
         .Kind = played.Options.Scheduler,
         .FreesAllAtEnd = true,
         .HasPreemptionPoints = played.Options.HasPoints,
         .HasImportsOnly = played.Options.IsSideBySide,
         .AtSwitchPoint =
             [&stage](const host::SwitchPlace& place) { return stage.AtSwitchPoint(place); },
         .NewSeed = NewSeedsOf(key, records, stage),
         .AtRest = [&stage] { return stage.WrongAtRest(); },
         .Follow = records.Follow,
         .Record = records.Record});
    try {
      Player(scenario, stage, result).Play();
      world.Finish();
    } catch (const host::KernelStopped&) {
      stage.Abandon();
    }
    const host::SimulationOutcome outcome = world.OutcomeSoFar();
    schedule = outcome.TraceHash;
    result.ScheduleLength = outcome.ScheduleLength;
    result.Time = outcome.Time;
  }
  result.Hash = Mix(trace.Hash(), schedule);
  result.Trace = trace.Text();
  stage.EndFaults();
  result.Counts = stage.Counts();
  result.LeftOut = swarm.LeftOut();
  result.Parameters = swarm.Parameters();
  result.ReachedFault = stage.ReachedFault();
  const auto violations = capture.Violations();
  if (violations.empty()) {
    result.What = stage.CutShort();
    if (!result.What.empty()) result.Outcome = Verdict::CutShort;
    return result;
  }
  result.Outcome = result.Hang.empty() ? Verdict::Failed : Verdict::StatedHang;
  result.What = violations.front().Call + ": " + violations.front().What;
  result.Report = violations.front().Report;
  return result;
}

std::uint64_t RunAllSteps(const Scenario& scenario, std::uint64_t seed, const RunOptions& options,
                          const std::function<bool(const RunResult&)>& seen) {
  std::uint64_t reached = 0;
  for (std::uint64_t step = 1;; ++step) {
    const RunResult result =
        RunScenario(scenario, {std::string(scenario.Name), seed, step, options});
    if (!result.ReachedFault && result.Outcome != Verdict::Failed) return reached;
    ++reached;
    if (!seen(result)) return reached;
  }
}

}  // namespace lidcam::scenarios
