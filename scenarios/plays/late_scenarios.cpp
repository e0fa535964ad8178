#include "scenarios/plays/late_scenarios.h"

#include <string_view>
#include <utility>

#include "platform/host/nt/processor/kernel_guards.h"
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

void StallACompletion(TransportStage& camera, bool fails) {
  Stage& stage = camera.Host();
  constexpr std::uint64_t kPointsOfACompletion = 30;
  BeginStream(camera);
  stage.Between().CompleteElsewhere(
      {.Fails = fails,
       .Ahead =
           [&stage] { StallWithin(stage, Itself(host::CurrentThread()), kPointsOfACompletion); },
       .Behind = [&stage] { stage.ForgetStall(); }});
}

// When the next tick of the watchdog is due, so that what follows happens during that tick.
void SleepUntilTick(TransportStage& camera) {
  const auto due = static_cast<LONGLONG>(camera.Stream()->WatchdogTimer.DueTime.QuadPart);
  const LONGLONG left = due - host::CurrentWorld().Now();
  if (left > 0) Stage::Sleep(left);
}

// The transfers stop circulating, and no recovery is scheduled before the next tick.
void StopCirculation(TransportStage& camera) {
  camera.Host().Between().RefuseTransfers(1, USBD_STATUS_SUCCESS);
  Stage::Sleep(60 * kMillisecond);
}

// A tick that ends the chain of ticks is still under way when the next stream arms the watchdog.
void ReplaceAtTick(TransportStage& camera) {
  Stage& stage = camera.Host();
  constexpr std::uint64_t kPointsOfATick = 12;
  if (camera.Acquire() != STATUS_SUCCESS) return;
  SleepUntilTick(camera);
  StallWithin(stage, Named("DPC"), kPointsOfATick);
  camera.Release();
  if (camera.Acquire() == STATUS_SUCCESS) {
    WaitForItsEnd(stage);
    camera.Release();
  }
  stage.ForgetStall();
}

// It keeps the widest setting, so that the next stream needs no request for it.
PlugOptions CameraThatKeepsItsSetting() {
  PlugOptions options;
  options.Camera.BandwidthLimit = 3072;
  options.Script.Faults = {{bus::FaultPlace::Setting, bus::FaultKind::Refuse, 0, 0, 0}};
  return options;
}

// With a processor that stops as the pause begins, or at the moment of a tick.
void PauseAroundTick(TransportStage& camera) {
  Stage& stage = camera.Host();
  constexpr std::uint64_t kPointsOfABeginningPause = 48;
  if (stage.Chance().OneIn(2)) {
    StallWithin(stage, Itself(host::CurrentThread()), kPointsOfABeginningPause);
  } else {
    SleepUntilTick(camera);
  }
  camera.Pause();
  stage.ForgetStall();
}

}  // namespace

void LateCompletion(TransportStage& camera) {
  StallACompletion(camera, false);
  GoOnMeanwhile(camera);
}

void LateFailure(TransportStage& camera) {
  StallACompletion(camera, true);
  GoOnMeanwhile(camera);
}

// Ticks and recoveries go on meanwhile.
void LateFailureAlone(TransportStage& camera) {
  Stage& stage = camera.Host();
  StallACompletion(camera, true);
  WaitForStall(stage);
  WaitForItsEnd(stage);
  stage.Sleep(kSecond);
  camera.RequireFramesOrFirstPipe();
  camera.Pause();
  camera.Release();
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

// It holds a transfer while the stream is paused and resumed, and paused or removed once more: perhaps at the moment
// when the processor goes on.
void LateFrameThreadOverPauses(TransportStage& camera) {
  Stage& stage = camera.Host();
  BeginStream(camera);
  StallWithin(
      stage, [](const host::Thread& thread) { return thread.Priority == LOW_REALTIME_PRIORITY; },
      400);
  WaitForStall(stage);
  camera.Pause();
  if (camera.Resume() != STATUS_SUCCESS) return;
  if (stage.Chance().OneIn(2)) {
    const LONGLONG now = host::CurrentWorld().Now();
    const LONGLONG left = stage.CountedFrom(now) - now;
    if (left > 0) Stage::Sleep(left);
  }
  constexpr std::uint64_t kPointsOfABeginningDrain = 60;
  if (stage.Chance().OneIn(2)) {
    if (stage.Chance().OneIn(2)) {
      StallWithin(stage, Itself(host::CurrentThread()), kPointsOfABeginningDrain);
    }
    camera.Hosted().Unplug();
    stage.ForgetStall();
  } else {
    camera.Pause();
    WaitForItsEnd(stage);
    camera.Release();
  }
  camera.Remove();
}

// The device goes while a processor has stopped in the preparation of a stream.
void LateAcquisition(TransportStage& camera) {
  Stage& stage = camera.Host();
  stage.AllowDisturbedFrames();
  camera.AllowLateTransfers();
  const bool keepsSetting = stage.Chance().OneIn(2);
  camera.PlugIn(keepsSetting ? CameraThatKeepsItsSetting() : PlugOptions{});
  stage.Require(camera.Start() == STATUS_SUCCESS, "the hardware doesn't start");
  if (keepsSetting) {
    camera.Acquire();
    camera.Release();
  }
  constexpr std::uint64_t kPointsAheadOfTheMutex = 12;
  constexpr std::uint64_t kPointsOfAPreparation = 1500;
  StallWithin(stage, Itself(host::CurrentThread()),
              stage.Chance().OneIn(3) ? kPointsAheadOfTheMutex : kPointsOfAPreparation);
  const bool isPulled = stage.Chance().OneIn(2);
  {
    const host::ServiceThread remover([&camera, &stage, isPulled] {
      WaitForStall(stage);
      if (isPulled) camera.Hosted().PullPlug();
      camera.Hosted().TellGone();
    });
    camera.Acquire();
    stage.ForgetStall();
  }
  camera.TellGone();
  camera.Acquire();
  camera.Run();
  camera.Release();
  camera.Stop();
}

// Streams end and begin during ticks of the watchdog.
void AtTicks(TransportStage& camera) {
  Stage& stage = camera.Host();
  BeginStream(camera);
  const std::uint64_t times = stage.Chance().Between(1, 4);
  for (std::uint64_t i = 0; i < times; ++i) {
    if (stage.Chance().OneIn(2)) StopCirculation(camera);
    PauseAroundTick(camera);
    stage.Between().RefuseTransfers(0);
    if (stage.Chance().OneIn(2)) {
      if (camera.Resume() != STATUS_SUCCESS) return;
      continue;
    }
    camera.Release();
    ReplaceAtTick(camera);
    if (camera.Acquire() != STATUS_SUCCESS || camera.Run() != STATUS_SUCCESS) return;
  }
  SleepUntilTick(camera);
  camera.Pause();
  camera.Release();
}

}  // namespace lidcam::scenarios
