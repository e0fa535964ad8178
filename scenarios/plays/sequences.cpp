#include "scenarios/plays/sequences.h"

#include <cstdint>
#include <string_view>

namespace lidcam::scenarios {
namespace {

constexpr std::string_view kOperationsOfAStream[] = {
    "pauses",
    "resumes",
    "runs",
    "releases",
    "sleeps of the device",
    "short pauses",
    "waits for frames",
    "waits for frames",
    "waits for frames",
};

bool IsOpen(const TransportStage& camera) {
  return camera.Stream() != nullptr && camera.Stream()->Opened != 0;
}

void FirstStream(TransportStage& camera) {
  Stage& stage = camera.Host();
  if (!Succeeded(camera.Acquire(320, 240)) || !Succeeded(camera.Run())) return;
  camera.Hosted().WithCamera([](CameraContext& context) { context.StillRequested = 1; });
  static_cast<void>(camera.FramesCome(1, 600 * kMillisecond));
  stage.Camera().FailReads(1);
  stage.Sleep(520 * kMillisecond);
  stage.Camera().FailReads(0);
  camera.Pause();
  if (!Succeeded(camera.Resume())) return;
  camera.PowerDown();
  camera.PowerUp();
  camera.Pause();
  if (!Succeeded(camera.Resume())) return;
  stage.Sleep(50 * kMillisecond);
  camera.Pause();
  camera.Release();
}

void SecondStream(TransportStage& camera) {
  Stage& stage = camera.Host();
  if (!Succeeded(camera.Acquire()) || !Succeeded(camera.Run())) return;
  stage.Sleep(20 * kMillisecond);
  camera.Pause();
  camera.Release();
}

void DoOneThing(TransportStage& camera) {
  Stage& stage = camera.Host();
  if (!camera.Hosted().IsStarted()) {
    camera.Start();
    return;
  }
  if (!IsOpen(camera)) {
    if (Succeeded(camera.Acquire()) && !stage.Chance().OneIn(8)) camera.Run();
    return;
  }
  switch (stage.Kinds().Choose(stage.Chance(), kOperationsOfAStream)) {
    case 0:
      camera.Pause();
      break;
    case 1:
      camera.Resume();
      break;
    case 2:
      camera.Run();
      break;
    case 3:
      camera.Pause();
      camera.Release();
      break;
    case 4:
      camera.PowerDown();
      stage.SleepAWhile(50 * kMillisecond);
      camera.PowerUp();
      break;
    case 5:
      camera.Pause();
      camera.Resume();
      break;
    default:
      static_cast<void>(camera.FramesCome(2, 300 * kMillisecond));
      break;
  }
}

}  // namespace

PlugOptions SomeCamera(Stage& stage) {
  PlugOptions options;
  options.Camera.HasTwinPipes = stage.Chance().OneIn(2);
  return options;
}

void ExpectFirstPipe(TransportStage& camera) {
  Stage& stage = camera.Host();
  stage.Require(camera.Stream()->PipeIndex == 0 && stage.Trace().RecoveriesEnded() != 0,
                "a stream can't be run again");
}

void ExpectRecovery(TransportStage& camera, bool firstPipeCarriesPicture) {
  Stage& stage = camera.Host();
  const std::uint64_t before = stage.Trace().RecoveriesEnded();
  for (int tick = 0; tick < 12 && stage.Trace().RecoveriesEnded() == before; ++tick) {
    stage.Sleep(250 * kMillisecond);
  }
  if (stage.Trace().HasStoppedRecovery()) return;
  stage.Require(stage.Trace().RecoveriesEnded() != before, "a broken circle doesn't recover");
  stage.Require(camera.Stream()->PipeIndex == 0, "a recovery leaves the pipe as it was");
  stage.Require(stage.HasRestartByRecovery(), "a recovery sends no transfers");
  stage.Camera().FailReads(0);
  stage.Between().RefuseTransfers(0);
  if (firstPipeCarriesPicture) {
    const bool isSilent = !camera.FramesCome(2, 3 * kSecond);
    stage.Require(!isSilent || stage.Trace().HasStoppedRecovery(),
                  "no frames come after a recovery");
  } else {
    stage.Require(!camera.FramesCome(1, 300 * kMillisecond), "an interrupt pipe gives frames");
  }
}

void ExpectNextStream(TransportStage& camera, bool firstPipeCarriesPicture) {
  Stage& stage = camera.Host();
  stage.Require(Succeeded(camera.Acquire()), "no stream can be acquired after a recovery");
  const bool isOnFirstPipe = camera.Stream()->PipeIndex == 0;
  const NTSTATUS status = camera.Run();
  if (firstPipeCarriesPicture || !isOnFirstPipe) {
    stage.Require(Succeeded(status), "no stream runs after a recovery");
    camera.RequireFramesOrFirstPipe();
    camera.Pause();
    camera.Release();
  } else {
    stage.RequireStatus("a run on an interrupt pipe", status, {STATUS_INVALID_PARAMETER});
    camera.Remove();
    camera.PlugInAndStream();
    stage.Require(camera.FramesCome(), "no frames come from a camera plugged in again");
  }
}

void SilenceSome(Stage& stage) {
  stage.Camera().SilenceRequests(static_cast<std::uint32_t>(stage.Chance().Between(1, 2)));
}

void Everyday(TransportStage& camera) {
  Stage& stage = camera.Host();
  PlugOptions options;
  options.Camera.HasTwinPipes = stage.Chance().OneIn(2);
  if (!camera.PlugIn(options)) return;
  if (Succeeded(camera.Start())) {
    FirstStream(camera);
    SecondStream(camera);
    camera.Stop();
  }
  camera.Remove();
  if (!stage.Chance().OneIn(8)) return;
  // The injected fault occurs only once.
  stage.EndFaults();
  camera.PlugInAndStream();
  stage.Require(camera.FramesCome(), "no frames come from a camera plugged in again");
}

void DoSomething(TransportStage& camera, int most, const std::function<bool()>& isEnough) {
  Stage& stage = camera.Host();
  const std::uint64_t steps =
      stage.Kinds().Value("operations of the device", static_cast<std::uint64_t>(most), 3, 30);
  for (std::uint64_t i = 1; i <= steps && !isEnough(); ++i) {
    if (!stage.HasOperation("device", i, stage.Chance())) continue;
    stage.SleepAWhile(150 * kMillisecond);
    DoOneThing(camera);
  }
}

}  // namespace lidcam::scenarios
