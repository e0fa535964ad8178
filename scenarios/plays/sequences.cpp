#include "scenarios/plays/sequences.h"

namespace lidcam::scenarios {
namespace {

bool Succeeded(NTSTATUS status) {
  return status == STATUS_SUCCESS;
}

bool IsOpen(const Stage& stage) {
  return stage.Stream() != nullptr && stage.Stream()->Opened != 0;
}

void FirstStream(Stage& stage) {
  if (!Succeeded(stage.Acquire(320, 240)) || !Succeeded(stage.Run())) return;
  stage.Hosted().WithCamera([](CameraContext& camera) { camera.StillRequested = 1; });
  static_cast<void>(stage.FramesCome(1, 600 * kMillisecond));
  stage.Camera().FailReads(1);
  stage.Sleep(520 * kMillisecond);
  stage.Camera().FailReads(0);
  stage.Pause();
  if (!Succeeded(stage.Resume())) return;
  stage.PowerDown();
  stage.PowerUp();
  stage.Pause();
  if (!Succeeded(stage.Resume())) return;
  stage.Sleep(50 * kMillisecond);
  stage.Pause();
  stage.Release();
}

void SecondStream(Stage& stage) {
  if (!Succeeded(stage.Acquire()) || !Succeeded(stage.Run())) return;
  stage.Sleep(20 * kMillisecond);
  stage.Pause();
  stage.Release();
}

void DoOneThing(Stage& stage) {
  if (!stage.Hosted().IsStarted()) {
    stage.Start();
    return;
  }
  if (!IsOpen(stage)) {
    if (Succeeded(stage.Acquire()) && !stage.Chance().OneIn(8)) stage.Run();
    return;
  }
  switch (stage.Chance().Below(9)) {
    case 0:
      stage.Pause();
      break;
    case 1:
      stage.Resume();
      break;
    case 2:
      stage.Run();
      break;
    case 3:
      stage.Pause();
      stage.Release();
      break;
    case 4:
      stage.PowerDown();
      stage.SleepAWhile(50 * kMillisecond);
      stage.PowerUp();
      break;
    case 5:
      stage.Pause();
      stage.Resume();
      break;
    default:
      static_cast<void>(stage.FramesCome(2, 300 * kMillisecond));
      break;
  }
}

}  // namespace

void ExpectFirstPipe(Stage& stage) {
  stage.Require(stage.Stream()->PipeIndex == 0 && stage.Trace().RecoveriesEnded() != 0,
                "a stream can't be run again");
}

void ExpectRecovery(Stage& stage, bool firstPipeCarriesPicture) {
  const std::uint64_t before = stage.Trace().RecoveriesEnded();
  for (int tick = 0; tick < 12 && stage.Trace().RecoveriesEnded() == before; ++tick) {
    stage.Sleep(250 * kMillisecond);
  }
  stage.Require(stage.Trace().RecoveriesEnded() != before, "a broken circle doesn't recover");
  stage.Require(stage.Stream()->PipeIndex == 0, "a recovery leaves the pipe as it was");
  stage.Camera().FailReads(0);
  stage.Between().RefuseTransfers(0);
  if (firstPipeCarriesPicture) {
    stage.Require(stage.FramesCome(2, 3 * kSecond), "no frames come after a recovery");
  } else {
    stage.Require(!stage.FramesCome(1, 300 * kMillisecond), "an interrupt pipe gives frames");
  }
}

void ExpectNextStream(Stage& stage, bool firstPipeCarriesPicture) {
  stage.Require(Succeeded(stage.Acquire()), "no stream can be acquired after a recovery");
  const bool isOnFirstPipe = stage.Stream()->PipeIndex == 0;
  const NTSTATUS status = stage.Run();
  if (firstPipeCarriesPicture || !isOnFirstPipe) {
    stage.Require(Succeeded(status), "no stream runs after a recovery");
    stage.RequireFramesOrFirstPipe();
    stage.Pause();
    stage.Release();
  } else {
    stage.RequireStatus("a run on an interrupt pipe", status, {STATUS_INVALID_PARAMETER});
    stage.Remove();
    stage.PlugInAndStream();
    stage.Require(stage.FramesCome(), "no frames come from a camera plugged in again");
  }
}

void SilenceSome(Stage& stage) {
  stage.Camera().SilenceRequests(static_cast<std::uint32_t>(stage.Chance().Between(1, 2)));
}

void Everyday(Stage& stage) {
  PlugOptions options;
  options.Camera.HasTwinPipes = stage.Chance().OneIn(2);
  if (!stage.PlugIn(options)) return;
  if (Succeeded(stage.Start())) {
    FirstStream(stage);
    SecondStream(stage);
    stage.Stop();
  }
  stage.Remove();
  if (!stage.Chance().OneIn(8)) return;
  // Whatever failed, it was that once.
  stage.EndFaults();
  stage.PlugInAndStream();
  stage.Require(stage.FramesCome(), "no frames come from a camera plugged in again");
}

void DoSomething(Stage& stage, int most, const std::function<bool()>& isEnough) {
  for (int i = 0; i < most && !isEnough(); ++i) {
    stage.SleepAWhile(150 * kMillisecond);
    DoOneThing(stage);
  }
}

}  // namespace lidcam::scenarios
