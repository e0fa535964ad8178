#include "scenarios/plays/transport_scenarios.h"

#include <unistd.h>
#include <algorithm>
#include <array>

#include <filesystem>
#include <string>
#include <system_error>

#include "platform/host/nt/files/files.h"
#include "scenarios/plays/sequences.h"

namespace lidcam::scenarios {
namespace {

constexpr NTSTATUS kSharingViolation = static_cast<NTSTATUS>(0xC0000043);

constexpr std::string_view kFailingCall = "failing-";

struct FailingCall {
  const char* Function;
  NTSTATUS Status;
  std::uint64_t Often;  ///< approximate number of calls in Everyday()
};

constexpr std::array kFailingCalls{
    FailingCall{"IoAllocateIrp", STATUS_INSUFFICIENT_RESOURCES, 900},
    FailingCall{"IoAllocateWorkItem", STATUS_INSUFFICIENT_RESOURCES, 2},
    FailingCall{"IoCreateDevice", STATUS_INSUFFICIENT_RESOURCES, 3},
    FailingCall{"KeSaveFloatingPointState", STATUS_UNSUCCESSFUL, 40},
    FailingCall{"ObReferenceObjectByHandle", STATUS_INVALID_PARAMETER, 5},
    FailingCall{"PsCreateSystemThread", STATUS_INSUFFICIENT_RESOURCES, 5},
    FailingCall{"ZwCreateFile", STATUS_UNSUCCESSFUL, 3},
    FailingCall{"ZwWriteFile", STATUS_UNSUCCESSFUL, 2},
};

// A folder for the run's stills, so that file operations can fail.
class StillFolder {
 public:
  StillFolder()
      : folder_(std::filesystem::temp_directory_path() /
                ("lidcam-simulation-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(folder_ / "system32" / "drivers");
    host::SetSystemRoot(folder_);
  }
  StillFolder(const StillFolder&) = delete;
  StillFolder& operator=(const StillFolder&) = delete;
  // A branch of the run shares the folder with the run itself, whose process has made it.
  ~StillFolder() {
    host::SetSystemRoot({});
    if (getpid() != owner_) return;
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

 private:
  const pid_t owner_ = getpid();
  const std::filesystem::path folder_;
};

}  // namespace

// ---- A bus without faults.

void StartAndStop(TransportStage& camera) {
  Stage& stage = camera.Host();
  camera.PlugIn(SomeCamera(stage));
  stage.Require(Succeeded(camera.Start()), "the hardware doesn't start");
  const std::uint64_t streams = stage.Chance().Between(1, 3);
  for (std::uint64_t i = 0; i < streams; ++i) {
    stage.Require(Succeeded(camera.Acquire()), "no stream can be acquired");
    stage.SleepAWhile(300 * kMillisecond);
    if (stage.Chance().OneIn(5)) {
      camera.Release();  // acquired and never run
      continue;
    }
    stage.Require(Succeeded(camera.Run()), "the stream doesn't run");
    stage.Require(Succeeded(camera.Run()), "a running stream can't be run");
    stage.SleepAWhile(400 * kMillisecond);
    if (stage.Chance().OneIn(3)) camera.RequireFramesOrFirstPipe();
    if (stage.Chance().OneIn(6)) break;             // the device is removed while streaming
    if (stage.Chance().OneIn(6)) camera.Release();  // refused: the stream runs
    camera.Pause();
    stage.SleepAWhile(100 * kMillisecond);
    camera.Release();
    stage.Require(Succeeded(camera.Release()), "a released stream can't be released");
  }
  camera.Stop();
}

void PauseStorm(TransportStage& camera) {
  Stage& stage = camera.Host();
  camera.PlugInAndStream(SomeCamera(stage));
  const std::uint64_t storms = stage.Chance().Between(2, 8);
  for (std::uint64_t i = 0; i < storms; ++i) {
    stage.SleepAWhile(60 * kMillisecond);
    camera.Pause();
    if (stage.Chance().OneIn(4)) camera.Pause();
    stage.SleepAWhile(20 * kMillisecond);
    const bool isResumed = !stage.Chance().OneIn(3);
    const NTSTATUS status = isResumed ? camera.Resume() : camera.Run();
    if (!Succeeded(status)) return ExpectFirstPipe(camera);
  }
  camera.RequireFramesOrFirstPipe();
  camera.Pause();
  camera.Release();
}

// A second acquire selects the widest setting again before it is refused. If the bus has no room
// for that one, the first stream's setting is selected again: its transfers end, and those that
// were built for the previous pipe can't be sent.
void SecondPin(TransportStage& camera) {
  Stage& stage = camera.Host();
  PlugOptions options = SomeCamera(stage);
  const bool isWide = stage.Chance().OneIn(2);
  if (isWide) {
    options.Camera.BandwidthLimit = 3072;
  } else {
    stage.AllowDisturbedFrames();
  }
  camera.PlugIn(options);
  stage.Require(Succeeded(camera.Start()), "the hardware doesn't start");
  CameraUsbDevice& device = camera.Hosted().Device();
  KS_VIDEOINFOHEADER format{};
  stage.Require(Succeeded(device.AcquireStreamSlot(nullptr, &format)), "the slot is taken");
  stage.Require(Succeeded(camera.Acquire()), "no stream can be acquired");
  const bool runsFirst = stage.Chance().OneIn(2);
  if (runsFirst) stage.Require(Succeeded(camera.Run()), "the stream doesn't run");
  stage.SleepAWhile(100 * kMillisecond);
  stage.Require(device.AcquireStreamSlot(nullptr, &format) == kSharingViolation,
                "a second pin gets the slot");
  stage.RequireStatus("a second acquire", camera.Acquire(), {STATUS_UNSUCCESSFUL});
  if (!runsFirst) {
    const NTSTATUS status = camera.Run();
    if (isWide) stage.Require(Succeeded(status), "the first stream doesn't run");
    if (!isWide)
      stage.RequireStatus("a run on a pipe of before", status, {STATUS_INVALID_PARAMETER});
  }
  if (isWide) stage.Require(camera.FramesCome(), "the first stream's frames don't come");
  if (!isWide && runsFirst) camera.RequireFramesOrFirstPipe();
  camera.Pause();
  camera.Release();
  device.ReleaseStreamSlot();
  stage.Require(Succeeded(device.AcquireStreamSlot(nullptr, &format)), "the slot stays taken");
  device.ReleaseStreamSlot();
}

void PowerChanges(TransportStage& camera) {
  Stage& stage = camera.Host();
  camera.PlugInAndStream(SomeCamera(stage));
  const std::uint64_t changes = stage.Chance().Between(1, 4);
  for (std::uint64_t i = 0; i < changes; ++i) {
    stage.SleepAWhile(100 * kMillisecond);
    if (stage.Chance().OneIn(3)) camera.Pause();
    camera.PowerDown();
    stage.Require(camera.Stream()->StreamRunning == 0, "a stream runs without power");
    stage.SleepAWhile(100 * kMillisecond);
    camera.PowerUp();
    stage.Require(!camera.FramesCome(1, 150 * kMillisecond), "frames come by themselves");
    camera.Pause();
    if (!Succeeded(camera.Resume())) return ExpectFirstPipe(camera);
    camera.RequireFramesOrFirstPipe();
  }
  if (stage.Chance().OneIn(2)) camera.PowerDown();
  camera.Pause();
  camera.Release();
}

// ---- Faults of the stream.

void UrbErrors(TransportStage& camera) {
  Stage& stage = camera.Host();
  stage.AllowDisturbedFrames();
  const PlugOptions options = SomeCamera(stage);
  camera.PlugInAndStream(options);
  stage.SleepAWhile(300 * kMillisecond);
  const std::uint64_t errors = stage.Chance().Between(1, 3);
  for (std::uint64_t i = 0; i < errors; ++i) {
    stage.Camera().FailReads(static_cast<std::uint32_t>(stage.Chance().Between(1, 9)));
    if (stage.Chance().OneIn(4)) {
      stage.SleepAWhile(700 * kMillisecond);
      camera.Pause();
      stage.Camera().FailReads(0);
      if (!Succeeded(camera.Resume())) return ExpectFirstPipe(camera);
      camera.RequireFramesOrFirstPipe();
      continue;  // the pause may have ended what needed the recovery
    }
    ExpectRecovery(camera, options.Camera.HasTwinPipes);
  }
  stage.SleepAWhile(300 * kMillisecond);
  camera.Pause();
  camera.Release();
  ExpectNextStream(camera, options.Camera.HasTwinPipes);
}

void SubmitFailures(TransportStage& camera) {
  Stage& stage = camera.Host();
  stage.AllowDisturbedFrames();
  const PlugOptions options = SomeCamera(stage);
  camera.PlugIn(options);
  stage.Require(Succeeded(camera.Start()), "the hardware doesn't start");
  stage.Require(Succeeded(camera.Acquire()), "no stream can be acquired");
  const auto count = static_cast<std::uint32_t>(stage.Chance().Between(1, 8));
  const bool atStart = stage.Chance().OneIn(2);
  const USBD_STATUS urbStatus =
      stage.Chance().OneIn(2) ? USBD_STATUS_BAD_START_FRAME : USBD_STATUS_SUCCESS;
  if (atStart) stage.Between().RefuseTransfers(count, urbStatus);
  const NTSTATUS status = camera.Run();
  if (atStart && count >= 7) {
    stage.RequireStatus("a run whose last transfer is refused", status, {STATUS_INVALID_PARAMETER});
    stage.Require(camera.Stream()->Opened == 0, "a run that failed leaves a stream");
    return;
  }
  stage.Require(Succeeded(status), "the stream doesn't run");
  if (!atStart) {
    stage.SleepAWhile(300 * kMillisecond);
    stage.Between().RefuseTransfers(count, urbStatus);
  }
  ExpectRecovery(camera, options.Camera.HasTwinPipes);
  camera.Pause();
  camera.Release();
  ExpectNextStream(camera, options.Camera.HasTwinPipes);
}

void LostCompletions(TransportStage& camera) {
  Stage& stage = camera.Host();
  stage.AllowDisturbedFrames();
  camera.PlugInAndStream(SomeCamera(stage));
  const std::uint64_t losses = stage.Chance().Between(1, 3);
  bool hasRefused = false;
  for (std::uint64_t i = 0; i < losses; ++i) {
    stage.SleepAWhile(100 * kMillisecond);
    const auto lost = static_cast<std::uint32_t>(stage.Chance().Between(1, 7));
    stage.Camera().SilenceReads(lost);
    stage.Sleep(100 * kMillisecond);
    const std::uint64_t recoveries = stage.Trace().RecoveriesEnded();
    const bool refuses = stage.Chance().OneIn(3);
    if (refuses) stage.Between().RefuseTransfers(1, USBD_STATUS_SUCCESS);
    stage.Sleep(550 * kMillisecond);
    // While a transfer is never completed, the watchdog does not repair the effects of a refused
    // one; but one that was refused earlier is no longer counted.
    stage.Require(hasRefused || stage.Trace().RecoveriesEnded() == recoveries,
                  "a stream recovers while a transfer is out");
    hasRefused = hasRefused || refuses;
    stage.Camera().SilenceReads(0);
    stage.Between().RefuseTransfers(0);
    stage.RequireStatus("a pause", camera.Pause(), {STATUS_SUCCESS});
    if (!Succeeded(camera.Resume())) return ExpectFirstPipe(camera);
    camera.RequireFramesOrFirstPipe();
  }
  camera.Pause();
  camera.Release();
}

void SilentRequests(TransportStage& camera) {
  Stage& stage = camera.Host();
  stage.AllowDisturbedFrames();
  camera.PlugIn(SomeCamera(stage));
  const bool atStart = stage.Chance().OneIn(4);
  if (atStart) SilenceSome(stage);
  if (!Succeeded(camera.Start())) return;
  if (stage.Chance().OneIn(3)) SilenceSome(stage);
  if (!Succeeded(camera.Acquire())) return;
  if (!Succeeded(camera.Run())) return;
  stage.SleepAWhile(100 * kMillisecond);
  SilenceSome(stage);
  if (stage.Chance().OneIn(2)) stage.Camera().FailReads(1);
  stage.SleepAWhile(2 * kSecond);
  camera.Pause();
  if (stage.Chance().OneIn(2)) SilenceSome(stage);
  if (Succeeded(camera.Resume())) stage.SleepAWhile(100 * kMillisecond);
  camera.Pause();
  camera.Release();
  if (stage.Chance().OneIn(4)) SilenceSome(stage);
}

// ---- Unplugging.

void UnplugAnywhere(TransportStage& camera) {
  Stage& stage = camera.Host();
  stage.AllowDisturbedFrames();
  stage.UnplugAt(stage.Key().Step != 0 ? stage.Key().Step : stage.Chance().Between(1, 9000));
  camera.PlugIn(SomeCamera(stage));
  DoSomething(camera, 12, [&stage] { return stage.Camera().IsUnplugged(); });
  if (!stage.Camera().IsUnplugged()) return;
  stage.SleepAWhile(400 * kMillisecond);
  camera.TellGone();
  camera.Acquire();
  camera.Run();
  camera.Resume();
  camera.Pause();
  camera.Release();
  camera.Stop();
}

// ---- Lack of memory, and refusals of the platform.

void OutOfMemory(TransportStage& camera) {
  Stage& stage = camera.Host();
  stage.AllowDisturbedFrames();
  stage.FailAllocation(stage.Key().Step != 0 ? stage.Key().Step : stage.Chance().Between(1, 1800));
  Everyday(camera);
}

void FailingCallOfName(TransportStage& camera) {
  Stage& stage = camera.Host();
  const StillFolder stills;
  stage.AllowDisturbedFrames();
  const std::string function = stage.Key().Scenario.substr(kFailingCall.size());
  for (const FailingCall& call : kFailingCalls) {
    if (function != call.Function) continue;
    const std::uint64_t step = stage.Key().Step;
    stage.FailCall(call.Function, step != 0 ? step : stage.Chance().Between(1, call.Often),
                   call.Status);
  }
  Everyday(camera);
}

// ---- All faults mixed.

void Mixture(TransportStage& camera) {
  Stage& stage = camera.Host();
  stage.AllowDisturbedFrames();
  camera.AllowLateTransfers();
  PlugOptions options = SomeCamera(stage);
  options.Script = stage.DrawFaults();
  if (!camera.PlugIn(options)) return;
  Random& chance = stage.Chance();
  if (stage.Happens(chance, 6, "failing allocations"))
    stage.FailAllocation(chance.Between(600, 2500));
  if (stage.Happens(chance, 6, "pulled plugs")) stage.UnplugAt(chance.Between(4000, 12000));
  DoSomething(camera, 10, [] { return false; });
  if (stage.Happens(chance, 3, "surprise removals")) camera.TellGone();
}

// ---- Hangs that the driver's own rules allow.

void LostWorkItem(TransportStage& camera) {
  Stage& stage = camera.Host();
  stage.AllowDisturbedFrames();
  camera.PlugInAndStream(SomeCamera(stage));
  stage.FailCall("IoAllocateWorkItem", 1, STATUS_INSUFFICIENT_RESOURCES);
  stage.Camera().FailReads(1);
  stage.Sleep(600 * kMillisecond);
  stage.EndFaults();
  stage.Require(stage.Trace().HasLostWorkItem(), "no recovery was tried");
  // The stream can be ended and restarted; only the device can't be stopped.
  camera.Pause();
  if (stage.Chance().OneIn(2) && Succeeded(camera.Resume())) {
    camera.RequireFramesOrFirstPipe();
    camera.Pause();
  }
  camera.Release();
  camera.Stop();
}

void KeptRequest(TransportStage& camera) {
  Stage& stage = camera.Host();
  stage.AllowDisturbedFrames();
  camera.PlugInAndStream(SomeCamera(stage));
  stage.SleepAWhile(100 * kMillisecond);
  camera.Pause();
  stage.Between().KeepRequests(1);
  camera.Release();
}

}  // namespace lidcam::scenarios
