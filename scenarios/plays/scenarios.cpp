#include "scenarios/plays/scenario.h"

#include <unistd.h>
#include <algorithm>
#include <array>

#include <chrono>
#include <filesystem>
#include <string>
#include <system_error>

#include "bus/faults/random_faults.h"
#include "platform/host/nt/files/files.h"
#include "scenarios/plays/client_scenarios.h"
#include "scenarios/plays/late_scenarios.h"
#include "scenarios/plays/sequences.h"

namespace lidcam::scenarios {
namespace {

constexpr NTSTATUS kSharingViolation = static_cast<NTSTATUS>(0xC0000043);

bool Succeeded(NTSTATUS status) {
  return status == STATUS_SUCCESS;
}

PlugOptions SomeCamera(Stage& stage) {
  PlugOptions options;
  options.Camera.HasTwinPipes = stage.Chance().OneIn(2);
  return options;
}

// ---- A bus without faults.

void StartAndStop(Stage& stage) {
  stage.PlugIn(SomeCamera(stage));
  stage.Require(Succeeded(stage.Start()), "the hardware doesn't start");
  const std::uint64_t streams = stage.Chance().Between(1, 3);
  for (std::uint64_t i = 0; i < streams; ++i) {
    stage.Require(Succeeded(stage.Acquire()), "no stream can be acquired");
    stage.SleepAWhile(300 * kMillisecond);
    if (stage.Chance().OneIn(5)) {
      stage.Release();  // acquired and never run
      continue;
    }
    stage.Require(Succeeded(stage.Run()), "the stream doesn't run");
    stage.Require(Succeeded(stage.Run()), "a running stream can't be run");
    stage.SleepAWhile(400 * kMillisecond);
    if (stage.Chance().OneIn(3)) stage.RequireFramesOrFirstPipe();
    if (stage.Chance().OneIn(6)) break;            // the device goes with the stream still running
    if (stage.Chance().OneIn(6)) stage.Release();  // refused: it runs
    stage.Pause();
    stage.SleepAWhile(100 * kMillisecond);
    stage.Release();
    stage.Require(Succeeded(stage.Release()), "a released stream can't be released");
  }
  stage.Stop();
}

void PauseStorm(Stage& stage) {
  stage.PlugInAndStream(SomeCamera(stage));
  const std::uint64_t storms = stage.Chance().Between(2, 8);
  for (std::uint64_t i = 0; i < storms; ++i) {
    stage.SleepAWhile(60 * kMillisecond);
    stage.Pause();
    if (stage.Chance().OneIn(4)) stage.Pause();
    stage.SleepAWhile(20 * kMillisecond);
    const bool isResumed = !stage.Chance().OneIn(3);
    const NTSTATUS status = isResumed ? stage.Resume() : stage.Run();
    if (!Succeeded(status)) return ExpectFirstPipe(stage);
  }
  stage.RequireFramesOrFirstPipe();
  stage.Pause();
  stage.Release();
}

// A second acquire asks for the widest setting again before it is refused. Where the bus has no room
// for that one, the first stream's setting is selected anew under it: its transfers end, and those
// that were built for the pipe before can't be sent.
void SecondPin(Stage& stage) {
  PlugOptions options = SomeCamera(stage);
  const bool isWide = stage.Chance().OneIn(2);
  if (isWide) {
    options.Camera.BandwidthLimit = 3072;
  } else {
    stage.AllowDisturbedFrames();
  }
  stage.PlugIn(options);
  stage.Require(Succeeded(stage.Start()), "the hardware doesn't start");
  CameraUsbDevice& device = stage.Hosted().Device();
  KS_VIDEOINFOHEADER format{};
  stage.Require(Succeeded(device.AcquireStreamSlot(nullptr, &format)), "the slot is taken");
  stage.Require(Succeeded(stage.Acquire()), "no stream can be acquired");
  const bool runsFirst = stage.Chance().OneIn(2);
  if (runsFirst) stage.Require(Succeeded(stage.Run()), "the stream doesn't run");
  stage.SleepAWhile(100 * kMillisecond);
  stage.Require(device.AcquireStreamSlot(nullptr, &format) == kSharingViolation,
                "a second pin gets the slot");
  stage.RequireStatus("a second acquire", stage.Acquire(), {STATUS_UNSUCCESSFUL});
  if (!runsFirst) {
    const NTSTATUS status = stage.Run();
    if (isWide) stage.Require(Succeeded(status), "the first stream doesn't run");
    if (!isWide)
      stage.RequireStatus("a run on a pipe of before", status, {STATUS_INVALID_PARAMETER});
  }
  if (isWide) stage.Require(stage.FramesCome(), "the first stream's frames don't come");
  if (!isWide && runsFirst) stage.RequireFramesOrFirstPipe();
  stage.Pause();
  stage.Release();
  device.ReleaseStreamSlot();
  stage.Require(Succeeded(device.AcquireStreamSlot(nullptr, &format)), "the slot stays taken");
  device.ReleaseStreamSlot();
}

void PowerChanges(Stage& stage) {
  stage.PlugInAndStream(SomeCamera(stage));
  const std::uint64_t changes = stage.Chance().Between(1, 4);
  for (std::uint64_t i = 0; i < changes; ++i) {
    stage.SleepAWhile(100 * kMillisecond);
    if (stage.Chance().OneIn(3)) stage.Pause();
    stage.PowerDown();
    stage.Require(stage.Stream()->StreamRunning == 0, "a stream runs without power");
    stage.SleepAWhile(100 * kMillisecond);
    stage.PowerUp();
    stage.Require(!stage.FramesCome(1, 150 * kMillisecond), "frames come by themselves");
    stage.Pause();
    if (!Succeeded(stage.Resume())) return ExpectFirstPipe(stage);
    stage.RequireFramesOrFirstPipe();
  }
  if (stage.Chance().OneIn(2)) stage.PowerDown();
  stage.Pause();
  stage.Release();
}

// ---- Faults of the stream.

void UrbErrors(Stage& stage) {
  stage.AllowDisturbedFrames();
  const PlugOptions options = SomeCamera(stage);
  stage.PlugInAndStream(options);
  stage.SleepAWhile(300 * kMillisecond);
  const std::uint64_t errors = stage.Chance().Between(1, 3);
  for (std::uint64_t i = 0; i < errors; ++i) {
    stage.Camera().FailReads(static_cast<std::uint32_t>(stage.Chance().Between(1, 9)));
    if (stage.Chance().OneIn(4)) {
      stage.SleepAWhile(700 * kMillisecond);
      stage.Pause();
      stage.Camera().FailReads(0);
      if (!Succeeded(stage.Resume())) return ExpectFirstPipe(stage);
      stage.RequireFramesOrFirstPipe();
      continue;  // the pause may have ended what the recovery was for
    }
    ExpectRecovery(stage, options.Camera.HasTwinPipes);
  }
  stage.SleepAWhile(300 * kMillisecond);
  stage.Pause();
  stage.Release();
  ExpectNextStream(stage, options.Camera.HasTwinPipes);
}

void SubmitFailures(Stage& stage) {
  stage.AllowDisturbedFrames();
  const PlugOptions options = SomeCamera(stage);
  stage.PlugIn(options);
  stage.Require(Succeeded(stage.Start()), "the hardware doesn't start");
  stage.Require(Succeeded(stage.Acquire()), "no stream can be acquired");
  const auto count = static_cast<std::uint32_t>(stage.Chance().Between(1, 8));
  const bool atStart = stage.Chance().OneIn(2);
  const USBD_STATUS urbStatus =
      stage.Chance().OneIn(2) ? USBD_STATUS_BAD_START_FRAME : USBD_STATUS_SUCCESS;
  if (atStart) stage.Between().RefuseTransfers(count, urbStatus);
  const NTSTATUS status = stage.Run();
  if (atStart && count >= 7) {
    stage.RequireStatus("a run whose last transfer is refused", status, {STATUS_INVALID_PARAMETER});
    stage.Require(stage.Stream()->Opened == 0, "a run that failed leaves a stream");
    return;
  }
  stage.Require(Succeeded(status), "the stream doesn't run");
  if (!atStart) {
    stage.SleepAWhile(300 * kMillisecond);
    stage.Between().RefuseTransfers(count, urbStatus);
  }
  ExpectRecovery(stage, options.Camera.HasTwinPipes);
  stage.Pause();
  stage.Release();
  ExpectNextStream(stage, options.Camera.HasTwinPipes);
}

void LostCompletions(Stage& stage) {
  stage.AllowDisturbedFrames();
  stage.PlugInAndStream(SomeCamera(stage));
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
    // A transfer that never comes home keeps the watchdog from mending what a refused one has broken;
    // but one that was refused before is out of its sight, wherever it is.
    stage.Require(hasRefused || stage.Trace().RecoveriesEnded() == recoveries,
                  "a stream recovers while a transfer is out");
    hasRefused = hasRefused || refuses;
    stage.Camera().SilenceReads(0);
    stage.Between().RefuseTransfers(0);
    stage.RequireStatus("a pause", stage.Pause(), {STATUS_SUCCESS});
    if (!Succeeded(stage.Resume())) return ExpectFirstPipe(stage);
    stage.RequireFramesOrFirstPipe();
  }
  stage.Pause();
  stage.Release();
}

void SilentRequests(Stage& stage) {
  stage.AllowDisturbedFrames();
  stage.PlugIn(SomeCamera(stage));
  const bool atStart = stage.Chance().OneIn(4);
  if (atStart) SilenceSome(stage);
  if (!Succeeded(stage.Start())) return;
  if (stage.Chance().OneIn(3)) SilenceSome(stage);
  if (!Succeeded(stage.Acquire())) return;
  if (!Succeeded(stage.Run())) return;
  stage.SleepAWhile(100 * kMillisecond);
  SilenceSome(stage);
  if (stage.Chance().OneIn(2)) stage.Camera().FailReads(1);
  stage.SleepAWhile(2 * kSecond);
  stage.Pause();
  if (stage.Chance().OneIn(2)) SilenceSome(stage);
  if (Succeeded(stage.Resume())) stage.SleepAWhile(100 * kMillisecond);
  stage.Pause();
  stage.Release();
  if (stage.Chance().OneIn(4)) SilenceSome(stage);
}

// ---- Pulled plugs.

void UnplugAnywhere(Stage& stage) {
  stage.AllowDisturbedFrames();
  stage.UnplugAt(stage.Key().Step != 0 ? stage.Key().Step : stage.Chance().Between(1, 9000));
  stage.PlugIn(SomeCamera(stage));
  DoSomething(stage, 12, [&stage] { return stage.Camera().IsUnplugged(); });
  if (!stage.Camera().IsUnplugged()) return;
  stage.SleepAWhile(400 * kMillisecond);
  stage.TellGone();
  stage.Acquire();
  stage.Run();
  stage.Resume();
  stage.Pause();
  stage.Release();
  stage.Stop();
}

// ---- Want of memory, and the platform's refusals.

void OutOfMemory(Stage& stage) {
  stage.AllowDisturbedFrames();
  stage.FailAllocation(stage.Key().Step != 0 ? stage.Key().Step : stage.Chance().Between(1, 1800));
  Everyday(stage);
}

constexpr std::string_view kFailingCall = "failing-";

struct FailingCall {
  const char* Function;
  NTSTATUS Status;
  std::uint64_t Often;  ///< calls in an everyday life, about
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

// A folder of the run's own for stills, so that there are files to fail on.
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
  ~StillFolder() {
    host::SetSystemRoot({});
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

 private:
  const std::filesystem::path folder_;
};

void FailingCallOfName(Stage& stage) {
  const StillFolder stills;
  stage.AllowDisturbedFrames();
  const std::string function = stage.Key().Scenario.substr(kFailingCall.size());
  for (const FailingCall& call : kFailingCalls) {
    if (function != call.Function) continue;
    const std::uint64_t step = stage.Key().Step;
    stage.FailCall(call.Function, step != 0 ? step : stage.Chance().Between(1, call.Often),
                   call.Status);
  }
  Everyday(stage);
}

// ---- Everything at once.

void Mixture(Stage& stage) {
  stage.AllowDisturbedFrames();
  stage.AllowLateTransfers();
  PlugOptions options = SomeCamera(stage);
  constexpr bus::RandomFaultMix kMixes[] = {
      bus::RandomFaultMix::Packets, bus::RandomFaultMix::Requests, bus::RandomFaultMix::Everything};
  options.Script =
      bus::RandomFaults(stage.Key().Seed, std::chrono::seconds(3), stage.Chance().OneOf(kMixes));
  if (!stage.PlugIn(options)) return;
  if (stage.Chance().OneIn(6)) stage.FailAllocation(stage.Chance().Between(600, 2500));
  if (stage.Chance().OneIn(6)) stage.UnplugAt(stage.Chance().Between(4000, 12000));
  DoSomething(stage, 10, [] { return false; });
  if (stage.Chance().OneIn(3)) stage.TellGone();
}

// ---- What the driver's own rules let hang.

void LostWorkItem(Stage& stage) {
  stage.AllowDisturbedFrames();
  stage.PlugInAndStream(SomeCamera(stage));
  stage.FailCall("IoAllocateWorkItem", 1, STATUS_INSUFFICIENT_RESOURCES);
  stage.Camera().FailReads(1);
  stage.Sleep(600 * kMillisecond);
  stage.EndFaults();
  stage.Require(stage.Trace().HasLostWorkItem(), "no recovery was tried");
  // The stream itself can be ended and begun anew; only the device can't be stopped.
  stage.Pause();
  if (stage.Chance().OneIn(2) && Succeeded(stage.Resume())) {
    stage.RequireFramesOrFirstPipe();
    stage.Pause();
  }
  stage.Release();
  stage.Stop();
}

void KeptRequest(Stage& stage) {
  stage.AllowDisturbedFrames();
  stage.PlugInAndStream(SomeCamera(stage));
  stage.SleepAWhile(100 * kMillisecond);
  stage.Pause();
  stage.Between().KeepRequests(1);
  stage.Release();
}

constexpr RunOptions kPoints{.HasPoints = true};

constexpr std::array kScenarios{
    Scenario{"start-stop", "streams and devices that end at any moment", StartAndStop},
    Scenario{"pause-storm", "pause, resume and run in quick order", PauseStorm},
    Scenario{"second-pin", "a second stream is wanted while one is there", SecondPin},
    Scenario{"power", "sleep and waking while a stream runs", PowerChanges},
    Scenario{"urb-errors", "transfers that end with an error", UrbErrors},
    Scenario{"submit-failures", "transfers that are refused when they are sent", SubmitFailures},
    Scenario{"lost-completions", "transfers that come home only when they are called back",
             LostCompletions},
    Scenario{"silent-requests", "control requests that nobody answers", SilentRequests},
    Scenario{"unplug", "the plug is pulled at the n-th switch point", UnplugAnywhere, true},
    Scenario{"out-of-memory", "the n-th allocation fails", OutOfMemory, true},
    Scenario{"failing-IoAllocateIrp", "the n-th call fails", FailingCallOfName, true},
    Scenario{"failing-IoAllocateWorkItem", "the n-th call fails", FailingCallOfName, true},
    Scenario{"failing-IoCreateDevice", "the n-th call fails", FailingCallOfName, true},
    Scenario{"failing-KeSaveFloatingPointState", "the n-th call fails", FailingCallOfName, true},
    Scenario{"failing-ObReferenceObjectByHandle", "the n-th call fails", FailingCallOfName, true},
    Scenario{"failing-PsCreateSystemThread", "the n-th call fails", FailingCallOfName, true},
    Scenario{"failing-ZwCreateFile", "the n-th call fails", FailingCallOfName, true},
    Scenario{"failing-ZwWriteFile", "the n-th call fails", FailingCallOfName, true},
    Scenario{"mixture", "random faults under random operations", Mixture},
    Scenario{"clients", "applications that do anything, on a camera that nobody disturbs", Clients},
    Scenario{"two-clients", "two applications want the one stream", TwoClients},
    Scenario{"wild-clients", "applications that write any register, too", WildClients},
    Scenario{"clients-and-power", "sleep and waking under applications", ClientsAndPower},
    Scenario{"clients-and-restarts", "the device is stopped and started under applications",
             ClientsAndRestarts},
    Scenario{"clients-and-removal", "the camera is pulled and removed under applications",
             ClientsAndRemoval},
    Scenario{"clients-and-faults", "a bad bus, sleep and removal under applications",
             ClientsAndFaults},
    Scenario{"out-of-memory-client", "the n-th allocation fails under an application",
             OutOfMemoryClient, true},
    Scenario{"lost-work-item", "a recovery gets no work item: the device can't be stopped",
             LostWorkItem},
    Scenario{"kept-request", "a cancelled request never comes back: nothing goes on", KeptRequest},
    Scenario{"controls", "one application streams, others turn controls", Controls},
    Scenario{"stopped-read",
             "a read meets the frame path and stops for good: its request hangs",
             StoppedRead,
             false,
             {.HasExposure = true}},
    Scenario{"late-completion", "a processor stops in a transfer's completion", LateCompletion,
             false, kPoints},
    Scenario{"late-failure", "a processor stops in the completion of a transfer that failed",
             LateFailure, false, kPoints},
    Scenario{"late-tick", "a processor stops in a tick of the watchdog", LateTick, false, kPoints},
    Scenario{"late-frame-thread", "the frame thread's processor stops", LateFrameThread, false,
             kPoints},
    Scenario{"late-recovery", "a processor stops in a recovery", LateRecovery, false, kPoints},
};

}  // namespace

std::span<const Scenario> Scenarios() {
  return kScenarios;
}

const Scenario* FindScenario(std::string_view name) {
  const auto found = std::ranges::find(kScenarios, name, &Scenario::Name);
  return found != kScenarios.end() ? &*found : nullptr;
}

}  // namespace lidcam::scenarios
