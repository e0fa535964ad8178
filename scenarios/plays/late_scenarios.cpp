#include "scenarios/plays/late_scenarios.h"

#include <string_view>
#include <utility>

#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/scheduling/thread.h"

namespace lidcam::scenarios {
namespace {

// A pause ends by the watchdog's next tick, and everything else within a few milliseconds of it.
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

void BeginStream(TransportStage& camera) {
  Stage& stage = camera.Host();
  stage.AllowDisturbedFrames();
  camera.AllowLateTransfers();
  camera.PlugInAndStream();
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

// Continues with a new stream that has the records of the previous one, or without any.
void GoOnMeanwhile(TransportStage& camera) {
  Stage& stage = camera.Host();
  WaitForStall(stage);
  if (stage.Chance().OneIn(3)) stage.SleepAWhile(50 * kMillisecond);
  camera.Pause();
  camera.Release();
  if (stage.Chance().OneIn(2)) {
    if (camera.Acquire() == STATUS_SUCCESS) camera.Run();
    WaitForItsEnd(stage);
    camera.RequireFramesOrFirstPipe();
    camera.Pause();
    camera.Release();
  } else {
    camera.Stop();
    camera.Remove();
    WaitForItsEnd(stage);
  }
}

void CompleteLate(TransportStage& camera, bool fails) {
  Stage& stage = camera.Host();
  constexpr std::uint64_t kPointsOfACompletion = 30;
  BeginStream(camera);
  stage.Between().CompleteElsewhere(
      {.Fails = fails,
       .Ahead =
           [&stage] { StallWithin(stage, Itself(host::CurrentThread()), kPointsOfACompletion); },
       .Behind = [&stage] { stage.ForgetStall(); }});
  GoOnMeanwhile(camera);
}

}  // namespace

void LateCompletion(TransportStage& camera) {
  CompleteLate(camera, false);
}

void LateFailure(TransportStage& camera) {
  CompleteLate(camera, true);
}

void LateTick(TransportStage& camera) {
  Stage& stage = camera.Host();
  BeginStream(camera);
  StallWithin(stage, Named("DPC"), 40);
  GoOnMeanwhile(camera);
}

// The frame thread is the only one that sets its own priority.
void LateFrameThread(TransportStage& camera) {
  Stage& stage = camera.Host();
  BeginStream(camera);
  StallWithin(
      stage, [](const host::Thread& thread) { return thread.Priority == LOW_REALTIME_PRIORITY; },
      400);
  GoOnMeanwhile(camera);
}

void LateRecovery(TransportStage& camera) {
  Stage& stage = camera.Host();
  BeginStream(camera);
  StallWithin(stage, Named("worker"), 400);
  stage.Camera().FailReads(1);
  GoOnMeanwhile(camera);
}

}  // namespace lidcam::scenarios
