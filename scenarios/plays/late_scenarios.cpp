#include "scenarios/plays/late_scenarios.h"

#include <string_view>
#include <utility>

#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/scheduling/thread.h"

namespace lidcam::scenarios {
namespace {

// A pause ends with the watchdog's next tick, and all else within a few milliseconds of it.
constexpr std::uint64_t kShortest = 300 * kMillisecond;
constexpr std::uint64_t kLongest = 3 * kSecond;

void StallWithin(Stage& stage, IsMeant isMeant, std::uint64_t points) {
  stage.StallOne(std::move(isMeant), stage.Chance().Between(1, points),
                 static_cast<LONGLONG>(stage.Chance().Between(kShortest, kLongest)));
}

IsMeant Named(std::string_view name) {
  return [name](const host::Thread& thread) { return thread.Name.starts_with(name); };
}

IsMeant Itself(const host::Thread& meant) {
  return [&meant](const host::Thread& thread) { return &thread == &meant; };
}

void BeginStream(Stage& stage) {
  stage.AllowDisturbedFrames();
  stage.AllowLateTransfers();
  stage.PlugInAndStream();
  stage.SleepAWhile(300 * kMillisecond);
}

void WaitForStall(Stage& stage) {
  const LONGLONG end = host::CurrentWorld().Now() + kSecond;
  while (!stage.WasStalled() && host::CurrentWorld().Now() < end) stage.Sleep(kMillisecond);
}

void WaitForItsEnd(Stage& stage) {
  const LONGLONG now = host::CurrentWorld().Now();
  const LONGLONG end = stage.CountedFrom(now);
  stage.Sleep(end - now + 50 * kMillisecond);
}

// With a stream behind it that has the records of the one before, or without anything.
void GoOnMeanwhile(Stage& stage) {
  WaitForStall(stage);
  if (stage.Chance().OneIn(3)) stage.SleepAWhile(50 * kMillisecond);
  stage.Pause();
  stage.Release();
  if (stage.Chance().OneIn(2)) {
    if (stage.Acquire() == STATUS_SUCCESS) stage.Run();
    WaitForItsEnd(stage);
    stage.RequireFramesOrFirstPipe();
    stage.Pause();
    stage.Release();
  } else {
    stage.Stop();
    stage.Remove();
    WaitForItsEnd(stage);
  }
}

void CompleteLate(Stage& stage, bool fails) {
  constexpr std::uint64_t kPointsOfACompletion = 30;
  BeginStream(stage);
  stage.Between().CompleteElsewhere(
      {.Fails = fails,
       .Ahead =
           [&stage] { StallWithin(stage, Itself(host::CurrentThread()), kPointsOfACompletion); },
       .Behind = [&stage] { stage.ForgetStall(); }});
  GoOnMeanwhile(stage);
}

}  // namespace

void LateCompletion(Stage& stage) {
  CompleteLate(stage, false);
}

void LateFailure(Stage& stage) {
  CompleteLate(stage, true);
}

void LateTick(Stage& stage) {
  BeginStream(stage);
  StallWithin(stage, Named("DPC"), 40);
  GoOnMeanwhile(stage);
}

// It is the one thread that asks for a priority of its own.
void LateFrameThread(Stage& stage) {
  BeginStream(stage);
  StallWithin(
      stage, [](const host::Thread& thread) { return thread.Priority == LOW_REALTIME_PRIORITY; },
      400);
  GoOnMeanwhile(stage);
}

void LateRecovery(Stage& stage) {
  BeginStream(stage);
  StallWithin(stage, Named("worker"), 400);
  stage.Camera().FailReads(1);
  GoOnMeanwhile(stage);
}

}  // namespace lidcam::scenarios
