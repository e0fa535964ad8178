// Broken drivers: each check of the simulation can fail, and reports how to repeat the run.

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <set>

#include "driver/usb/requests/control_requests.h"
#include "platform/host/nt/io/device_file.h"
#include "platform/host/nt/memory/pool.h"
#include "scenarios/clients/checked_stream.h"
#include "scenarios/clients/client_stage.h"
#include "scenarios/plays/sequences.h"
#include "scenarios/runner.h"
#include "scenarios/stage/request_checks.h"
#include "scenarios/stage/transport_stage.h"
#include "tests/driver/support/sanitizers.h"

namespace lidcam::scenarios {
namespace {

RunResult Play(void (*play)(Stage& stage), std::uint64_t seed = 7) {
  return RunScenario({"broken", "", play}, {"broken", seed, 0});
}

void ExpectFailure(const RunResult& result, const std::string& what) {
  EXPECT_EQ(result.Outcome, Verdict::Failed);
  EXPECT_NE(result.What.find(what), std::string::npos) << result.What;
  EXPECT_NE(result.Report.find("simulation with seed 7"), std::string::npos) << result.Report;
  EXPECT_EQ(ReplayCommand(result.Key), "lidcam simulate --scenario broken --seed 7");
}

TEST(SimulationChecks, RequestThatIsNotFreedIsFound) {
  ExpectFailure(Play([](Stage&) { static_cast<void>(IoAllocateIrp(1, FALSE)); }),
                "was never freed");
}

TEST(SimulationChecks, RequestThatARemovedCameraLeavesIsFound) {
  ExpectFailure(Play([](Stage& stage) {
                  TransportStage& camera = TransportStage::On(stage);
                  camera.PlugInAndStream();
                  static_cast<void>(IoAllocateIrp(1, FALSE));
                  camera.Remove();
                }),
                "a removed camera has left 1 request(s) (at step 'remove')");
}

TEST(SimulationChecks, MemoryThatIsNotFreedIsFound) {
  ExpectFailure(
      Play([](Stage&) { static_cast<void>(ExAllocatePoolWithTag(NonPagedPool, 48, 0x206D6457)); }),
      "never freed: 1 block(s) of 48 bytes with tag 'Wdm '");
}

TEST(SimulationChecks, WaitAtARaisedLevelIsFound) {
  ExpectFailure(Play([](Stage& stage) {
                  KIRQL before = 0;
                  KeRaiseIrql(DISPATCH_LEVEL, &before);
                  stage.Sleep(kMillisecond);
                }),
                "KeDelayExecutionThread: ");
}

TEST(SimulationChecks, HangThatNoRuleStatesIsAFailure) {
  const RunResult result = Play([](Stage&) {
    KEVENT never;
    KeInitializeEvent(&never, NotificationEvent, FALSE);
    KeWaitForSingleObject(&never, Executive, KernelMode, FALSE, nullptr);
  });
  ExpectFailure(result, "hangs at step 'begin'");
  EXPECT_EQ(result.Hang, "");
}

// A thread fails at some switch point of the camera's removal.
void FailDuringRemoval(Stage& stage) {
  TransportStage& camera = TransportStage::On(stage);
  camera.PlugIn();
  camera.Start();
  KEVENT begun;
  KeInitializeEvent(&begun, NotificationEvent, FALSE);
  const std::uint64_t points = stage.Chance().Between(1, 120);
  const host::ServiceThread failing([&stage, &begun, points] {
    KeWaitForSingleObject(&begun, Executive, KernelMode, FALSE, nullptr);
    for (std::uint64_t i = 0; i < points; ++i) KeGetCurrentIrql();
    stage.RequireAlways(false, "something fails meanwhile");
  });
  KeSetEvent(&begun, IO_NO_INCREMENT, FALSE);
  camera.Remove();
}

TEST(SimulationChecks, FailureWhileACameraIsRemovedEndsTheRunAndNotTheProgram) {
  for (std::uint64_t seed = 1; seed <= 60; ++seed) {
    const RunResult result = Play(FailDuringRemoval, seed);
    EXPECT_EQ(result.Outcome, Verdict::Failed);
    EXPECT_NE(result.What.find("something fails meanwhile"), std::string::npos) << result.What;
  }
}

// The camera is gone already, and while it is removed the bus's own device takes the driver's place.
void OpenDuringRemoval(Stage& stage) {
  ClientStage& clients = ClientStage::On(stage, {.HasTrouble = true});
  clients.PlugIn({});
  clients.Start();
  clients.SurpriseRemove();
  clients.BeginApplications(3, [](Application& application) { application.DoAnything(40); });
  clients.Remove();
  clients.WaitForApplications();
  clients.Close();
}

TEST(SimulationChecks, ApplicationMayBeRefusedByTheBusWhileACameraThatIsGoneIsRemoved) {
  for (std::uint64_t seed = 1; seed <= 100; ++seed) {
    const RunResult result = Play(OpenDuringRemoval, seed);
    EXPECT_EQ(result.Outcome, Verdict::Passed) << seed << ": " << result.What;
  }
}

TEST(SimulationChecks, TornFrameOnABusWithoutFaultsIsFound) {
  ExpectFailure(Play([](Stage& stage) {
                  TransportStage& camera = TransportStage::On(stage);
                  camera.PlugInAndStream();
                  stage.Sleep(500 * kMillisecond);
                  for (std::uint32_t i = 0; i < 40; ++i) {
                    stage.Camera().CorruptReads(1);
                    stage.Sleep(4 * kMillisecond);
                  }
                }),
                "a frame is torn on a bus without faults");
}

TEST(SimulationChecks, StatusThatADriverMayNotGiveIsFound) {
  ExpectFailure(Play([](Stage& stage) { stage.RequireStatus("run", 0x107, {STATUS_SUCCESS}); }),
                "run answers 0x00000107");
}

TEST(SimulationChecks, StreamThatStaysSilentWithoutARecoveryIsFound) {
  ExpectFailure(Play([](Stage& stage) {
                  TransportStage& camera = TransportStage::On(stage);
                  camera.PlugInAndStream();
                  stage.Camera().SilenceReads(7);
                  stage.Sleep(300 * kMillisecond);
                  camera.RequireFramesOrFirstPipe();
                }),
                "no frames come");
}

std::size_t TransfersOwnedBy(const UsbStreamRecord& stream) {
  std::size_t owned = 0;
  for (const IsoTransfer& transfer : TransfersOf(stream)) owned += transfer.OwnsMemory;
  return owned;
}

// Each allocation of a stream's preparation fails in turn. The last ones are those of the seven transfers and their
// requests: those before the one that fails stay, also when the device has gone.
TEST(SimulationChecks, TransfersThatAFailedPreparationLeavesAreNoFailure) {
  static std::uint32_t failing;
  static bool hasFailed;
  static std::set<std::size_t> left;
  hasFailed = true;
  left.clear();
  for (failing = 1; hasFailed; ++failing) {
    const RunResult result = Play([](Stage& stage) {
      TransportStage& camera = TransportStage::On(stage);
      camera.PlugIn();
      camera.Start();
      stage.FailAllocation(failing);
      camera.Acquire();
      hasFailed = !host::IsPoolFailureToCome();
      stage.EndFaults();
      if (camera.Stream()->Opened == 0) left.insert(TransfersOwnedBy(*camera.Stream()));
      camera.Release();
      camera.TellGone();
    });
    ASSERT_EQ(result.Outcome, Verdict::Passed) << failing << ": " << result.What;
  }
  EXPECT_EQ(left, (std::set<std::size_t>{0, 1, 2, 3, 4, 5, 6, 7}));
}

TEST(SimulationChecks, TransferThatAReleasedStreamOwnsIsFound) {
  ExpectFailure(Play([](Stage& stage) {
                  TransportStage& camera = TransportStage::On(stage);
                  camera.PlugInAndStream();
                  camera.Pause();
                  camera.Release();
                  TransfersOf(*camera.Stream())[3].OwnsMemory = 1;
                  camera.Release();
                }),
                "a released stream owns a transfer");
}

// Nothing has sent what a failed preparation leaves.
TEST(SimulationChecks, TransferInFlightThatAFailedPreparationLeftIsFound) {
  ExpectFailure(Play([](Stage& stage) {
                  TransportStage& camera = TransportStage::On(stage);
                  camera.PlugIn();
                  camera.Start();
                  stage.FailCall("PsCreateSystemThread", 1, STATUS_INSUFFICIENT_RESOURCES);
                  camera.Acquire();
                  stage.EndFaults();
                  TransfersOf(*camera.Stream())[0].OwnsMemory = 1;
                  TransfersOf(*camera.Stream())[0].InFlight = 1;
                  camera.Release();
                }),
                "a released stream owns a transfer");
}

TEST(SimulationChecks, RequestThatAReleasedStreamLeavesIsFound) {
  ExpectFailure(Play([](Stage& stage) {
                  TransportStage& camera = TransportStage::On(stage);
                  camera.PlugInAndStream();
                  camera.Pause();
                  static_cast<void>(IoAllocateIrp(1, FALSE));
                  camera.Release();
                }),
                "a released stream has left 1 request(s)");
}

// After the first frames of a run, which may be torn.
TEST(SimulationChecks, TornFrameThatAClientGetsIsFound) {
  ExpectFailure(Play([](Stage& stage) {
                  ClientStage& clients = ClientStage::On(stage, {});
                  clients.PlugIn({});
                  clients.Start();
                  const client::Camera camera = client::Camera::Open(clients.TopDevice());
                  CheckedStream stream(stage, true, camera, camera.FormatOf(160, 120), 5);
                  stage.Require(stream.Run() == STATUS_SUCCESS, "the stream doesn't run");
                  for (int frames = 0; frames < 60; ++frames) {
                    stage.Camera().CorruptReads(1);
                    static_cast<void>(stream.Take(kSecond));
                  }
                }),
                "a client gets a torn frame");
}

// The pin's buffers are those of the format that it was connected with. The camera's first frame, whose stamp is that
// of a buffer that was never written, passes before the stream runs.
TEST(SimulationChecks, PictureWithoutRoomInItsBufferIsNotATornOne) {
  const RunResult result = Play([](Stage& stage) {
    ClientStage& clients = ClientStage::On(stage, {});
    clients.PlugIn({});
    clients.Start();
    {
      const client::Camera camera = client::Camera::Open(clients.TopDevice());
      CheckedStream stream(stage, true, camera, camera.FormatOf(160, 120), 5);
      stage.Require(stream.SetFormat(camera.FormatOf(352, 288)) == STATUS_SUCCESS, "no format");
      stage.Require(stream.SetState(KSSTATE_ACQUIRE) == STATUS_SUCCESS, "no stream");
      stage.Sleep(100 * kMillisecond);
      stage.Require(stream.Run() == STATUS_SUCCESS, "the stream doesn't run");
      for (int frames = 0; frames < 30; ++frames) static_cast<void>(stream.Take(kSecond));
      stream.Stop();
    }
    clients.Close();
  });
  EXPECT_EQ(result.Outcome, Verdict::Passed) << result.What << result.Trace;
}

client::VideoFormat WithHeaderOf(client::VideoFormat format, ULONG bytes) {
  format.Header().VideoInfoHeader.bmiHeader.biSize = bytes;
  return format;
}

/// Takes frames of a stream that `change` has given another format.
RunResult TakeFramesAfter(void (*change)(Stage& stage, CheckedStream& stream,
                                         const client::Camera& camera)) {
  static void (*toChange)(Stage&, CheckedStream&, const client::Camera&);
  toChange = change;
  return Play([](Stage& stage) {
    ClientStage& clients = ClientStage::On(stage, {});
    clients.PlugIn({});
    clients.Start();
    {
      const client::Camera camera = client::Camera::Open(clients.TopDevice());
      CheckedStream stream(stage, true, camera, camera.FormatOf(640, 480), 5);
      toChange(stage, stream, camera);
      stage.Require(stream.Run() == STATUS_SUCCESS, "the stream doesn't run");
      stage.Require(stream.Take(kSecond) == STATUS_SUCCESS, "no frame comes");
      stream.Stop();
    }
    clients.Close();
  });
}

// The size of a picture is bytes 20 to 23 of the bitmap header, and 38400, the size of a small one, is in two of them.
TEST(SimulationChecks, FrameHasAsManyBytesAsAShortHeaderTells) {
  const RunResult result =
      TakeFramesAfter([](Stage& stage, CheckedStream& stream, const client::Camera& camera) {
        for (const ULONG bytes : {8U, 19U, 21U, 22U, 24U}) {
          const client::VideoFormat format = WithHeaderOf(camera.FormatOf(160, 120), bytes);
          stage.Require(stream.SetFormat(format) == STATUS_SUCCESS, "no format");
          stage.Require(stream.Run() == STATUS_SUCCESS, "the stream doesn't run");
          stage.Require(stream.Take(kSecond) == STATUS_SUCCESS, "no frame comes");
          stream.Stop();
        }
      });
  EXPECT_EQ(result.Outcome, Verdict::Passed) << result.What << result.Trace;
}

// The check doesn't know of the format that the pin is given.
TEST(SimulationChecks, FrameOfAnotherNumberOfBytesIsFound) {
  ExpectFailure(
      TakeFramesAfter([](Stage& stage, CheckedStream& stream, const client::Camera& camera) {
        const client::VideoFormat format = WithHeaderOf(camera.FormatOf(640, 480), 20);
        stage.Require(stream.Pin().SetFormat(format) == STATUS_SUCCESS, "no format");
      }),
      "a frame has another number of bytes");
}

// The pin's framing is that of its first format, whose header tells two bytes of the size: 0x6000 of 0x96000.
TEST(SimulationChecks, FrameHasNoMoreBytesThanABufferOfAShortHeader) {
  const RunResult result = Play([](Stage& stage) {
    ClientStage& clients = ClientStage::On(stage, {});
    clients.PlugIn({});
    clients.Start();
    {
      const client::Camera camera = client::Camera::Open(clients.TopDevice());
      CheckedStream stream(stage, true, camera, WithHeaderOf(camera.FormatOf(640, 480), 22), 5);
      stage.Require(stream.Pin().BufferBytes() == 0x6000, "a buffer has another size");
      for (const ULONG bytes : {22U, 40U}) {
        const client::VideoFormat format = WithHeaderOf(camera.FormatOf(640, 480), bytes);
        stage.Require(stream.SetFormat(format) == STATUS_SUCCESS, "no format");
        stage.Require(stream.Run() == STATUS_SUCCESS, "the stream doesn't run");
        stage.Require(stream.Take(kSecond) == STATUS_SUCCESS, "no frame comes");
        stream.Stop();
      }
    }
    clients.Close();
  });
  EXPECT_EQ(result.Outcome, Verdict::Passed) << result.What << result.Trace;
}

TEST(SimulationChecks, FrameThatNeverComesToAClientIsFound) {
  ExpectFailure(Play([](Stage& stage) {
                  ClientStage& clients = ClientStage::On(stage, {});
                  clients.PlugIn({});
                  clients.Start();
                  stage.Camera().SilenceReads(1000);
                  clients.BeginApplications(1, [](Application& client) { client.Stream(200); });
                  clients.WaitForApplications();
                }),
                "no frame comes to a running stream");
}

TEST(SimulationChecks, ClientThatHangsIsFoundBesideOthersThatGoOn) {
  ExpectFailure(Play([](Stage& stage) {
                  ClientStage& clients = ClientStage::On(stage, {});
                  clients.PlugIn({});
                  clients.Start();
                  clients.BeginApplications(1, [](Application& client) {
                    client.Stream(1);
                    KEVENT never;
                    KeInitializeEvent(&never, NotificationEvent, FALSE);
                    KeWaitForSingleObject(&never, Executive, KernelMode, FALSE, nullptr);
                  });
                  clients.BeginApplications(1, [](Application& client) { client.Stream(3); });
                  clients.WaitForApplications();
                }),
                "hangs at step 'open the camera'");
}

// A read that stops explains only hangs of its thread's waiters.
TEST(SimulationChecks, HangBesideAReadThatHasStoppedIsAFailure) {
  const auto play = [](Stage& stage) {
    stage.Around().KeepLoopBusy();
    ClientStage& clients = ClientStage::On(stage, {.HasTrouble = true});
    clients.PlugIn({});
    clients.Start();
    clients.BeginApplications(1, [](Application& client) {
      client.TurnControls(1);
      KEVENT never;
      KeInitializeEvent(&never, NotificationEvent, FALSE);
      KeWaitForSingleObject(&never, Executive, KernelMode, FALSE, nullptr);
    });
    clients.BeginApplications(1, [](Application& client) { client.StreamOn(); });
    clients.BeginApplications(1, [](Application& client) { client.TurnLight(10000); });
    clients.WaitForApplications();
  };
  const RunResult result = RunScenario({"broken", "", play, false, {.HasExposure = true}},
                                       {"broken", 7, 0}, {.KeepsTrace = true});
  EXPECT_NE(result.Trace.find("stops for good"), std::string::npos);
  ExpectFailure(result, "hangs at step 'change");
  EXPECT_EQ(result.Hang, "");
}

// The recovery's first read takes the frame path to be at work, and stops for good.
void StopTheRecovery(Stage& stage, CameraContext& camera) {
  camera.DriverRegisterBusy = 1;
  stage.Camera().FailReads(1);
}

RunResult PlayAfterAStoppedRecovery(void (*play)(TransportStage& camera)) {
  static void (*toPlay)(TransportStage & camera);
  toPlay = play;
  return Play([](Stage& stage) {
    TransportStage& camera = TransportStage::On(stage);
    stage.AllowDisturbedFrames();
    PlugOptions options;
    options.Camera.HasTwinPipes = true;
    camera.PlugInAndStream(options);
    camera.Hosted().WithCamera(
        [&stage](CameraContext& context) { StopTheRecovery(stage, context); });
    toPlay(camera);
    stage.RequireAlways(stage.Trace().HasStoppedRecovery(), "the recovery goes on");
    camera.Pause();
  });
}

TEST(SimulationChecks, RecoveryWhoseReadStopsForGoodIsThePausesHangAndNotAMissingOne) {
  for (const auto play : {+[](TransportStage& camera) { ExpectRecovery(camera, true); },
                          +[](TransportStage& camera) {
                            Stage::Sleep(kSecond);
                            camera.RequireFramesOrFirstPipe();
                          }}) {
    const RunResult result = PlayAfterAStoppedRecovery(play);
    EXPECT_EQ(result.Outcome, Verdict::StatedHang) << result.What << result.Trace;
    EXPECT_EQ(result.Hang, "read-stops-for-good");
    EXPECT_EQ(result.What, "simulation: hangs at step 'pause'");
  }
}

// The stream needs the recovery after a stall of some seconds.
TEST(SimulationChecks, ClientMayGetNoFrameOnceARecoverysReadHasStoppedAfterAStall) {
  const RunResult result = Play([](Stage& stage) {
    ClientStage& clients = ClientStage::On(stage, {});
    clients.PlugIn({});
    clients.Start();
    clients.BeginApplications(1, [](Application& client) { client.StreamOn(); });
    stage.Sleep(kSecond);
    stage.StallOne([](const host::Thread& thread) { return thread.Name.starts_with("DPC"); }, 1,
                   kSecond);
    stage.Sleep(kSecond);
    StopTheRecovery(stage, *clients.Usb()->UsbDevice->Camera);
    clients.WaitForApplications();
  });
  EXPECT_EQ(result.Outcome, Verdict::CutShort) << result.What << result.Trace;
  EXPECT_EQ(result.What, "client 1, take a frame: no frame comes to a running stream");
  EXPECT_NE(result.Trace.find("stops for good"), std::string::npos) << result.Trace;
}

TEST(SimulationChecks, FileThatAClientLeavesOpenIsFound) {
  ExpectFailure(
      Play([](Stage& stage) {
        ClientStage& clients = ClientStage::On(stage, {});
        clients.PlugIn({});
        clients.Start();
        std::unique_ptr<host::DeviceFile> file;
        static_cast<void>(host::DeviceFile::Open(clients.TopDevice(), u"", nullptr, file));
        // Still referenced, so that only the check at the world's end detects it.
        static const host::DeviceFile* leftOpen = nullptr;
        leftOpen = file.release();
        EXPECT_NE(leftOpen, nullptr);
        clients.Close();
      }),
      "was never closed");
}

TEST(SimulationChecks, RunThatIsSoundPassesAfterAllOfThem) {
  const RunResult result = Play([](Stage& stage) {
    TransportStage& camera = TransportStage::On(stage);
    camera.PlugInAndStream();
    camera.RequireFramesOrFirstPipe();
    camera.Pause();
    camera.Release();
  });
  EXPECT_EQ(result.Outcome, Verdict::Passed) << result.Report;
}

// ---- Requests to the USB stack.

void SendOutOfTurn(UsbDeviceRecord& device) {
  _URB_PIPE_REQUEST urb{};
  urb.Hdr.Length = sizeof(urb);
  urb.Hdr.Function = URB_FUNCTION_ABORT_PIPE;
  KEVENT done;
  KeInitializeEvent(&done, SynchronizationEvent, FALSE);
  PIRP const irp = CreateUrbIrp(device, &done, &urb, UrbDone);
  IofCallDriver(device.KsDevice->NextDeviceObject, irp);
  KeWaitForSingleObject(&done, Executive, KernelMode, FALSE, nullptr);
  IoFreeIrp(irp);
}

TEST(SimulationChecks, SecondSynchronousRequestAtATimeIsFound) {
  ExpectFailure(Play([](Stage& stage) {
                  TransportStage& camera = TransportStage::On(stage);
                  camera.PlugIn();
                  camera.Start();
                  SendOutOfTurn(*stage.Device());
                  stage.Trace().Add("one after the other is allowed");
                  stage.Camera().SilenceRequests(1);
                  const host::ServiceThread asking([&] {
                    std::uint8_t value = 0;
                    std::uint32_t length = 1;
                    UsbReadRequest(camera.Hosted().Device().TransportRecord, 0xA1, 0xFF0A, 0,
                                   &value, &length);
                  });
                  stage.Sleep(kMillisecond);
                  SendOutOfTurn(*stage.Device());
                }),
                "a synchronous request is sent while another one is under way (at step 'start')");
}

TEST(RequestChecks, TransferIsInFlightOnceWhenItIsSent) {
  const RunResult result = Play([](Stage&) {
    IsoTransfer transfer{};
    ReferenceCountedMemory memory{};
    memory.Owner = &transfer;
    PIRP const irp = IoAllocateIrp(1, FALSE);
    IoSetNextIrpStackLocation(irp);
    IoGetCurrentIrpStackLocation(irp)->Context = &memory;
    URB urb{};
    urb.UrbHeader.Function = URB_FUNCTION_ISOCH_TRANSFER;
    RequestChecks checks;
    transfer.InFlight = 1;
    EXPECT_EQ(checks.WrongSend(irp, urb, false), "");
    for (const LONG wrong : {0, 2}) {
      transfer.InFlight = wrong;
      EXPECT_EQ(checks.WrongSend(irp, urb, false),
                "a transfer is sent that is in flight " + std::to_string(wrong) + " times");
      EXPECT_EQ(checks.WrongSend(irp, urb, true), "");
    }
    IoFreeIrp(irp);
  });
  EXPECT_EQ(result.Outcome, Verdict::Passed) << result.What;
}

TEST(RequestChecks, TransfersOfARecoveryAreARestartAndThoseOfAStartAreNot) {
  const RunResult result = Play([](Stage& stage) {
    TransportStage& camera = TransportStage::On(stage);
    camera.PlugInAndStream();
    stage.Sleep(500 * kMillisecond);
    stage.Require(!stage.HasRestartByRecovery(), "a start counts as a restart");
    stage.Camera().FailReads(1);
    stage.Sleep(2 * kSecond);
    stage.Require(stage.HasRestartByRecovery(), "a recovery doesn't count as a restart");
  });
  EXPECT_EQ(result.Outcome, Verdict::Passed) << result.What;
}

TEST(SimulationChecks, RecoveryThatIsScheduledDuringAnotherIsFound) {
  ExpectFailure(Play([](Stage& stage) {
                  TransportStage& camera = TransportStage::On(stage);
                  camera.PlugInAndStream();
                  stage.Trace().AddOfDriver("recovery scheduled");
                  stage.Trace().AddOfDriver("recovery ends status=00000000");
                  stage.Trace().AddOfDriver("recovery scheduled");
                  stage.Sleep(500 * kMillisecond);
                  stage.Trace().AddOfDriver("recovery scheduled");
                  stage.Sleep(500 * kMillisecond);
                }),
                "a recovery is scheduled while one is under way");
}

// ---- The stream's records.

using BreakStream = void (*)(Stage& stage, UsbStreamRecord& stream);

/// What a run finds whose stream's records are broken by hand.
RunResult PlayBroken(BreakStream breakStream) {
  static BreakStream toBreak;
  toBreak = breakStream;
  return Play([](Stage& stage) {
    TransportStage& camera = TransportStage::On(stage);
    camera.PlugInAndStream();
    stage.Sleep(100 * kMillisecond);
    toBreak(stage, *camera.Stream());
    stage.Sleep(kMillisecond / 10);
  });
}

TEST(StreamChecks, RecoveryWhoseWaitEndsAheadOfHaltedIsFound) {
  ExpectFailure(PlayBroken([](Stage& stage, UsbStreamRecord& stream) {
                  stage.Trace().AddOfDriver("recovery idle status=00000000");
                  stream.Halted = 1;
                  stage.Trace().AddOfDriver("recovery idle status=00000102");
                  stage.Trace().AddOfDriver("recovery idle status=00000000");
                }),
                "a recovery's wait has ended, and its flag or Halted is still set");
}

TEST(StreamChecks, StopWhoseWaitEndsAheadOfItsFlagIsFound) {
  ExpectFailure(PlayBroken([](Stage& stage, UsbStreamRecord& stream) {
                  SetWaitFlag(stream, StopWaitArmed);
                  stage.Trace().Add("drain ends status=00000000");
                }),
                "a stop's wait has ended, and its flag is still set");
}

TEST(StreamChecks, WatchdogThatDoesNotTickAgainIsFound) {
  ExpectFailure(
      PlayBroken([](Stage&, UsbStreamRecord& stream) { KeCancelTimer(&stream.WatchdogTimer); }),
      "the watchdog is on and its timer isn't set");
}

TEST(StreamChecks, TimerOfAWatchdogThatIsOffIsFound) {
  ExpectFailure(
      PlayBroken([](Stage&, UsbStreamRecord& stream) { ClearWaitFlag(stream, WatchdogRunning); }),
      "the watchdog is off and its timer is set");
}

TEST(StreamChecks, SecondRecoveryIsFound) {
  ExpectFailure(PlayBroken([](Stage&, UsbStreamRecord& stream) {
                  InterlockedExchange(&stream.Device->ResetGuard, 1);
                }),
                "two recoveries are under way");
}

TEST(StreamChecks, QueuedTransferOfWhichTheFrameThreadDoesNotKnowIsFound) {
  ExpectFailure(PlayBroken([](Stage&, UsbStreamRecord& stream) {
                  InterlockedIncrement(&stream.Pipeline->CompletedCount);
                }),
                "a transfer is queued, and the frame thread isn't woken");
}

TEST(StreamChecks, TransferThatIsCountedTwiceIsFound) {
  ExpectFailure(PlayBroken([](Stage&, UsbStreamRecord& stream) {
                  InterlockedIncrement(&TransfersOf(stream)[0].InFlight);
                }),
                "a transfer counts as in flight 2 times and is");
}

TEST(StreamChecks, TransferInFlightThatItsOwnerAloneReferencesIsFound) {
  ExpectFailure(PlayBroken([](Stage&, UsbStreamRecord& stream) {
                  InterlockedDecrement(&TransfersOf(stream)[0].Memory->Holds);
                }),
                "a transfer in flight has not two references");
}

TEST(StreamChecks, TransferThatNothingUsesAndThatIsReferencedTwiceIsFound) {
  ExpectFailure(Play([](Stage& stage) {
                  TransportStage& camera = TransportStage::On(stage);
                  camera.PlugInAndStream();
                  stage.Sleep(100 * kMillisecond);
                  camera.Pause();
                  stage.Sleep(100 * kMillisecond);
                  InterlockedIncrement(&TransfersOf(*camera.Stream())[0].Memory->Holds);
                  stage.Sleep(kMillisecond);
                }),
                "a transfer that nothing uses has a second reference");
}

TEST(StreamChecks, StreamOfACameraThatIsGoneIsFound) {
  ExpectFailure(Play([](Stage& stage) {
                  ClientStage& clients = ClientStage::On(stage, {.HasTrouble = true});
                  clients.PlugIn({});
                  clients.Start();
                  clients.SurpriseRemove();
                  clients.Usb()->UsbStream->Opened = 1;
                  clients.Close();
                }),
                "a camera that is gone has a stream");
}

}  // namespace
}  // namespace lidcam::scenarios
