// The USB side of the driver over a stack that completes its requests in any way and order:
// delayed, reordered, refused, completed within the call, with any status, length and offset, and
// with aborts that do nothing; while streams are acquired, run, paused, resumed, released and
// restarted in another size, the device is powered down and up, unplugged, stopped and restarted,
// and bulk transfers are sent. In all cases every call returns, and once the stack has completed
// all requests nothing is left of the device.

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "driver/core/base/camera_memory.h"
#include "driver/usb/stream/stream_reconfigure.h"
#include "driver/usb/transfers/bulk_transfers.h"
#include "fuzz/support/hostile_stack.h"
#include "fuzz/support/input.h"
#include "fuzz/support/step_limit.h"
#include "platform/host/nt/processor/kernel_guards.h"
#include "platform/host/nt/simulation/simulated_scheduler.h"
#include "platform/host/nt/system/debug_print.h"
#include "scenarios/camera/stamped_camera.h"
#include "testbed/transport_testbed.h"

namespace lidcam::fuzz {
namespace {

constexpr int kMostSteps = 32;
constexpr std::uint8_t kWaiterWantsEvent = 8;  // in BulkTransfer::Flags
constexpr std::size_t kMostBulkBytes = 20000;

void Sleep(LONGLONG milliseconds) {
  LARGE_INTEGER time{};
  time.QuadPart = -milliseconds * testbed::kMillisecond;
  KeDelayExecutionThread(KernelMode, FALSE, &time);
}

// Bulk transfers of the device, which the rest of the driver never starts.
class BulkClient {
 public:
  explicit BulkClient(testbed::TransportTestbed& camera) : camera_(camera) {
    KeInitializeEvent(&transfer_.DoneEvent, SynchronizationEvent, FALSE);
  }
  BulkClient(const BulkClient&) = delete;
  BulkClient& operator=(const BulkClient&) = delete;

  void Begin(Input& input) {
    UsbDeviceRecord* const device = camera_.Device().UsbDevice;
    if (!camera_.IsStarted() || device == nullptr) return;
    std::vector<std::uint8_t>& memory = memory_.emplace_back(1 + input.UpTo(kMostBulkBytes - 1));
    const auto length = static_cast<std::uint32_t>(memory.size());
    const std::uint32_t pipe = input.UpTo(2);
    if (input.OneIn(2)) {
      const auto callback = [](CameraContext*, void*, NTSTATUS status) {
        Require(status == STATUS_MORE_PROCESSING_REQUIRED);
      };
      StartBulkTransfer(*device, nullptr, nullptr, memory.data(), length, pipe, callback,
                        input.OneIn(4) ? 1 : 0);
      return;
    }
    // The stream has one transfer at a time, which may wait for the device to be powered up.
    if (transfer_.Outstanding != 0 || waitsIn_ != nullptr) return;
    transfer_.Flags = input.OneIn(2) ? kWaiterWantsEvent : 0;
    StartBulkTransfer(*device, device->Stream, &transfer_, memory.data(), length, pipe, nullptr, 0);
  }

  /// Lets the stream's transfer wait for the device to be powered up.
  void WaitForWake(Input& input) {
    UsbDeviceRecord* const device = camera_.Device().UsbDevice;
    const std::uint32_t pipe = input.UpTo(1);
    if (!camera_.IsStarted() || device == nullptr || device->PipeTable == nullptr ||
        PipeInformationOf(device->InterfaceInformation, pipe) == nullptr ||
        transfer_.Device != device || transfer_.Outstanding != 0 || waitsIn_ != nullptr) {
      return;
    }
    waitsIn_ = device->PipeTable + pipe;
    const host::SpinLockGuard guard(waitsIn_->Lock);
    InsertTailList(&waitsIn_->PendingList, &transfer_.Link);
  }

  /// Checks the transfer after an attempt to power up.
  void LookWhetherWoken() {
    if (waitsIn_ == nullptr) return;
    const host::SpinLockGuard guard(waitsIn_->Lock);
    if (IsListEmpty(&waitsIn_->PendingList) != FALSE) waitsIn_ = nullptr;
  }

  /// After the stack has completed all requests.
  void FreeParts() {
    if (transfer_.Irp != nullptr) IoFreeIrp(transfer_.Irp);
    FreeCameraMemory(transfer_.Urb);
    FreeCameraMemory(transfer_.BounceBuffer);
  }

 private:
  testbed::TransportTestbed& camera_;
  BulkTransfer transfer_{};
  PipeRecord* waitsIn_ = nullptr;
  std::vector<std::vector<std::uint8_t>> memory_;
};

// Calls of plug and play, power and one pin to a device, in any order.
class Client {
 public:
  Client(Input& steps, testbed::TransportTestbed& camera, HostileStack& stack)
      : steps_(steps), camera_(camera), stack_(stack), bulk_(camera) {}

  void Run() {
    for (int i = 0; i < kMostSteps && !steps_.IsEmpty(); ++i) Step();
  }

  void FreeParts() { bulk_.FreeParts(); }

 private:
  void Step() {
    switch (steps_.Take<std::uint8_t>() % 16) {
      case 0:
        Start();
        break;
      case 1:
        Acquire();
        break;
      case 2:
        camera_.Run();
        break;
      case 3:
        camera_.Pause();
        break;
      case 4:
        camera_.Resume();
        break;
      case 5:
        camera_.Release();
        break;
      case 6:
        stack_.CompleteOne(steps_);
        break;
      case 7:
        Reconfigure();
        break;
      case 8:
        if (camera_.IsStarted()) camera_.PowerDown();
        break;
      case 9:
        WakeUp();
        break;
      case 10:
        bulk_.Begin(steps_);
        break;
      case 11:
        bulk_.WaitForWake(steps_);
        break;
      case 12:
        Leave();
        break;
      default:
        Sleep(steps_.Take<std::uint8_t>() * 2);
        break;
    }
  }

  void Start() {
    if (camera_.IsStarted() || !NT_SUCCESS(camera_.Start())) return;
    CameraUsbDevice& device = camera_.Device();
    Require(device.GetFormatListIndex() >= 0 && device.GetFormatCount() > 0);
    Require(device.AnyTransferInFlight() == 0);
  }

  void Acquire() {
    constexpr std::array<testbed::StreamRequest, 4> kRequests{
        {{160, 120}, {320, 240}, {640, 480}, {176, 144}}};
    camera_.Acquire(kRequests[steps_.UpTo(kRequests.size() - 1)]);
  }

  void Reconfigure() {
    if (!camera_.IsStarted()) return;
    std::uint32_t swap = steps_.UpTo(1);
    StreamReconfigure(camera_.Device().TransportRecord, &swap);
  }

  void WakeUp() {
    if (!camera_.IsStarted()) return;
    camera_.PowerUp();
    bulk_.LookWhetherWoken();
  }

  void Leave() {
    switch (steps_.UpTo(3)) {
      case 0:
        camera_.PullPlug();
        break;
      case 1:
        if (camera_.IsStarted()) camera_.TellGone();
        break;
      default:
        camera_.Stop();
        break;
    }
  }

  Input& steps_;
  testbed::TransportTestbed& camera_;
  HostileStack& stack_;
  BulkClient bulk_;
};

// The stack also completes requests while the client waits in a call.
void CompleteNowAndThen(Input& input, HostileStack& stack) {
  while (!input.IsEmpty()) {
    Sleep(input.Take<std::uint8_t>() * 2);
    stack.CompleteOne(input);
  }
}

void Play(Input& input, std::uint8_t chosen) {
  Input steps = input.Split(input.Take<std::uint8_t>());
  Input completions = input.Split(input.Take<std::uint8_t>());
  scenarios::StampedCamera bus({.BandwidthLimit = 5120, .HasTwinPipes = (chosen & 1U) != 0});
  HostileStack stack;
  testbed::TransportTestbed camera(
      bus, {.DriverKey = {}, .Frames = {}, .FirstBusFrame = chosen, .Filter = &stack});
  // Most inputs begin with a started device.
  if ((chosen & 2U) != 0) stack.TurnHostile(input);
  camera.Start();
  stack.TurnHostile(input);
  Client client(steps, camera, stack);
  {
    const host::ServiceThread thread([&] { CompleteNowAndThen(completions, stack); });
    client.Run();
  }
  if ((chosen & 4U) != 0) camera.Stop();
  stack.TurnHarmless();
  client.FreeParts();
  camera.Close();
}

}  // namespace
}  // namespace lidcam::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  lidcam::host::SetDebugPrintSink(nullptr);
  lidcam::fuzz::Input input(data, size);
  const auto chosen = input.Take<std::uint8_t>();
  lidcam::fuzz::StepLimit limit;
  lidcam::host::SimulatedScheduler world(limit.WorldOptions(chosen));
  limit.BeginInput();
  lidcam::fuzz::Play(input, chosen);
  world.Finish();
  return 0;
}
