#include "scenarios/stage/stage.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "driver/usb/requests/control_requests.h"
#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/verifier/irp_tracker.h"
#include "platform/host/nt/verifier/kernel_faults.h"
#include "platform/host/nt/verifier/verifier.h"
#include "scenarios/run/status_text.h"

namespace lidcam::scenarios {
namespace {

constexpr NTSTATUS kDeviceGone = STATUS_DEVICE_DATA_ERROR;

// The first seven transfers of a start are sent for frames that lie 32 ms apart and take 4 ms each:
// what the camera sends in between is lost, and the frame that it belongs to is torn, and one more
// may be by the time that the transfers follow each other.
constexpr LONGLONG kUnevenStart = (10 + 7 * 32 + 2 * 34) * kMillisecond;

LONGLONG Now() {
  return host::CurrentWorld().Now();
}

}  // namespace

Stage::Stage(const RunKey& key, TraceRecord& trace)
    : key_(key), trace_(trace), chance_(key.Seed, 1), stalls_(key.Seed) {
  if (key.Options.HasStalls) stalls_.BeginAnywhere();
  if (key.Options.HasExposure) around_ = std::make_unique<Surroundings>(key.Seed);
}

void Stage::Begin(const char* name) {
  own_ = {name, Now(), false, &host::CurrentThread()};
  ++counts_.Steps;
}

std::vector<const Activity*> Stage::Activities() const {
  std::vector<const Activity*> activities;
  if (!own_.IsOver) activities.push_back(&own_);
  std::ranges::copy_if(activities_, std::back_inserter(activities),
                       [](const Activity* activity) { return !activity->IsOver; });
  return activities;
}

const Activity& Stage::Longest() const {
  const std::vector<const Activity*> activities = Activities();
  const auto longest = std::ranges::min_element(
      activities, {}, [](const Activity* activity) { return activity->Began; });
  return longest != activities.end() ? **longest : own_;
}

bool Stage::IsDoing(std::string_view step) const {
  return std::ranges::any_of(Activities(),
                             [step](const Activity* activity) { return activity->Step == step; });
}

template <typename Operation>
NTSTATUS Stage::Do(const char* name, Operation operation) {
  Begin(name);
  const NTSTATUS status = operation();
  trace_.Add(StepLine(name, status));
  return status;
}

std::u16string Stage::DriverKey() const {
  return around_ != nullptr ? around_->DriverKey() : std::u16string();
}

void Stage::SaveSettings(PDEVICE_OBJECT physicalDevice) {
  if (around_ != nullptr) around_->SaveSettings(physicalDevice);
}

bus::UsbBus& Stage::LayBus(const PlugOptions& options) {
  StampedCameraOptions camera = options.Camera;
  camera.Around = around_.get();
  camera_ = std::make_unique<StampedCamera>(camera);
  faults_ = std::make_unique<bus::FaultBus>(
      *camera_, bus::FaultBusOptions{.Script = options.Script,
                                     .Sleep =
                                         [](std::uint64_t microseconds) {
                                           LARGE_INTEGER time{};
                                           time.QuadPart =
                                               -static_cast<LONGLONG>(microseconds) * 10;
                                           KeDelayExecutionThread(KernelMode, FALSE, &time);
                                         },
                                     .Observer = {}});
  interposer_ = std::make_unique<Interposer>();
  isGoneTold_ = false;
  return *faults_;
}

bool Stage::PlugIn(const PlugOptions& options) {
  Begin("plug in");
  bus::UsbBus& bus = LayBus(options);
  try {
    hosted_ = std::make_unique<testbed::TransportTestbed>(
        bus, testbed::TransportTestbedOptions{
                 .DriverKey = DriverKey(),
                 .Frames = [this](const testbed::HostedFrame& frame) { TakeFrame(frame); },
                 .Filter = interposer_.get()});
    SaveSettings(hosted_->Device().KsDevice->PhysicalDeviceObject);
  } catch (const std::runtime_error&) {
    trace_.Add("step plug in -> no room");
    return false;
  }
  return true;
}

// Guards that see an exception on its way leave the kernel alone.
void Stage::Abandon() {
  struct Dropper {
    ~Dropper() {
      Hosted.reset();
      Guest.reset();
    }
    std::unique_ptr<testbed::TransportTestbed> Hosted;
    std::unique_ptr<StageGuest> Guest;
  };
  activities_.clear();
  try {
    const Dropper dropper{std::move(hosted_), std::move(guest_)};
    throw host::KernelStopped{};
  } catch (const host::KernelStopped&) {
  }
}

void Stage::PlugInAndStream(const PlugOptions& options) {
  Require(PlugIn(options), "nothing can be plugged in");
  Require(Start() == STATUS_SUCCESS, "the hardware doesn't start");
  Require(Acquire() == STATUS_SUCCESS, "no stream can be acquired");
  Require(Run() == STATUS_SUCCESS, "the stream doesn't run");
}

UsbDeviceRecord* Stage::Device() const {
  if (hosted_ != nullptr) return hosted_->Device().UsbDevice;
  const UsbCaptureDevice* const usb = guest_ != nullptr ? guest_->Usb() : nullptr;
  if (usb == nullptr) return nullptr;
  return usb->UsbDevice;
}

UsbStreamRecord* Stage::Stream() const {
  return hosted_->Device().UsbStream;
}

NTSTATUS Stage::Start() {
  const NTSTATUS status = Do("start", [&] { return hosted_->Start(); });
  if (!IsBusStatus(status)) RequireStatus("start", status, {});
  return status;
}

void Stage::RequireAnswerOfGone(const char* operation, NTSTATUS status) {
  if (isGoneTold_) RequireStatus(operation, status, {kDeviceGone});
  if (!IsBusStatus(status)) RequireStatus(operation, status, {});
}

NTSTATUS Stage::Acquire(std::int32_t width, std::int32_t height) {
  const NTSTATUS status = Do("acquire", [&] { return hosted_->Acquire({width, height}); });
  RequireAnswerOfGone("acquire", status);
  return status;
}

NTSTATUS Stage::Run() {
  const NTSTATUS status = Do("run", [&] { return hosted_->Run(); });
  beganStream_ = Now();
  RequireAnswerOfGone("run", status);
  return status;
}

NTSTATUS Stage::Resume() {
  const NTSTATUS status = Do("resume", [&] { return hosted_->Resume(); });
  beganStream_ = Now();
  RequireAnswerOfGone("resume", status);
  return status;
}

NTSTATUS Stage::Pause() {
  const NTSTATUS status = Do("pause", [&] { return hosted_->Pause(); });
  RequireStatus("pause", status, {STATUS_SUCCESS, STATUS_TIMEOUT});
  if (Stream() != nullptr) RequireAlways(Stream()->StreamRunning == 0, "a paused stream runs");
  return status;
}

NTSTATUS Stage::Release() {
  const bool isRunning = Stream() != nullptr && Stream()->StreamRunning != 0;
  const NTSTATUS status = Do("release", [&] { return hosted_->Release(); });
  RequireStatus("release", status, {isRunning ? STATUS_UNSUCCESSFUL : STATUS_SUCCESS});
  if (!isRunning) RequireReleased(!allowsLateTransfers_ && !trace_.HasFailedDrain());
  return status;
}

NTSTATUS Stage::Stop() {
  const NTSTATUS status = Do("stop", [&] { return hosted_->Stop(); });
  RequireStatus("stop", status, {STATUS_SUCCESS});
  return status;
}

void Stage::PowerDown() {
  Do("power down", [&] {
    hosted_->PowerDown();
    return STATUS_SUCCESS;
  });
}

void Stage::PowerUp() {
  Do("power up", [&] {
    hosted_->PowerUp();
    return STATUS_SUCCESS;
  });
}

void Stage::TellGone() {
  Do("device gone", [&] {
    hosted_->PullPlug();
    hosted_->TellGone();
    return STATUS_SUCCESS;
  });
  isGoneTold_ = true;
  RequireRequestsFail();
  RequireReleased(true);
}

// Nothing of the bus is reached any more, and nothing is asked for.
void Stage::RequireRequestsFail() {
  if (Device() == nullptr) return;
  TransportRecord* const transport = hosted_->Device().TransportRecord;
  std::uint8_t value = 0x5A;
  std::uint32_t length = 1;
  RequireAlways(UsbReadRequest(transport, 0xA1, 0xFF0A, 0, &value, &length) == -1 &&
                    value == 0x5A &&
                    UsbWriteRequest(transport, 0xA0, 0xFF0A, 0, nullptr, nullptr) == -1,
                "a device that is gone answers requests");
}

void Stage::RequireReleased(bool allAreHome) {
  const UsbStreamRecord* const stream = Stream();
  if (stream == nullptr || stream->Pipeline == nullptr) return;
  RequireAlways(stream->Opened == 0, "a released stream is open");
  RequireAlways(stream->RawMemory == nullptr && stream->Assembly.ReadyBuffer == nullptr &&
                    stream->Assembly.FillBuffer == nullptr,
                "a released stream has raw buffers");
  for (const IsoTransfer& transfer : TransfersOf(*stream)) {
    RequireAlways(transfer.OwnsMemory == 0 || transfer.Irp == nullptr,
                  "a released stream owns a transfer");
  }
  std::uint32_t size = 0;
  RequireAlways(hosted_->Device().GetRawFrame(size) == nullptr && size == 0,
                "a released stream shows a frame");
  if (!allAreHome) return;
  // One that the frame thread sent as the stream was paused comes home by itself.
  const LONGLONG began = Now();
  while (host::IrpUsageOfWorld().Known != 0 && Now() < CountedFrom(began) + 200 * kMillisecond) {
    Sleep(5 * kMillisecond);
  }
  const std::size_t left = host::IrpUsageOfWorld().Known;
  Require(left == 0, "a released stream has left " + std::to_string(left) + " request(s)");
}

void Stage::Remove() {
  Do("remove", [&] {
    hosted_->Close();
    return STATUS_SUCCESS;
  });
  hosted_.reset();
  interposer_.reset();
  faults_.reset();
  const host::IrpUsage usage = host::IrpUsageOfWorld();
  RequireAlways(usage.Known == 0,
                "a removed camera has left " + std::to_string(usage.Known) + " request(s)");
}

LONGLONG Stage::AtSwitchPoint(const host::SwitchPlace& place) {
  if (place.Number == unplugAt_ && camera_ != nullptr) {
    camera_->Unplug();
    reachedFault_ = true;
  }
  return stalls_.At(place, Now());
}

LONGLONG Stage::CountedFrom(LONGLONG time) const {
  return std::max(time, stalls_.End());
}

void Stage::FailAllocation(std::uint64_t number) {
  isFaultSet_ = true;
  host::FailPoolAllocation(static_cast<std::uint32_t>(number));
}

void Stage::FailCall(const char* function, std::uint64_t number, NTSTATUS status) {
  isFaultSet_ = true;
  host::FailKernelCall(function, static_cast<std::uint32_t>(number), status);
}

void Stage::EndFaults() {
  if (!isFaultSet_) return;
  isFaultSet_ = false;
  reachedFault_ =
      reachedFault_ || (!host::IsPoolFailureToCome() && !host::IsKernelCallFaultToCome());
  host::FailPoolAllocation(0);
  host::ClearKernelCallFaults();
}

void Stage::Sleep(LONGLONG time) {
  LARGE_INTEGER interval{};
  interval.QuadPart = -time;
  KeDelayExecutionThread(KernelMode, FALSE, &interval);
}

void Stage::SleepAWhile(LONGLONG longest) {
  if (chance_.OneIn(3)) return;
  Sleep(static_cast<LONGLONG>(chance_.Between(1, static_cast<std::uint64_t>(longest))));
}

bool Stage::FramesCome(std::uint64_t count, LONGLONG limit) {
  Begin("wait for frames");
  const std::uint64_t wanted = hosted_->Counts().Delivered() + count;
  const LONGLONG began = Now();
  for (LONGLONG left = limit; left > 0; left = CountedFrom(began) + limit - Now()) {
    const LONGLONG end = Now() + left;
    if (hosted_->WaitForFrames(wanted, left)) return true;
    if (Now() < end) return false;  // the bus has ended
  }
  return false;
}

void Stage::RequireFramesOrFirstPipe() {
  if (FramesCome()) return;
  Require(Stream()->PipeIndex == 0 && trace_.RecoveriesEnded() != 0, "no frames come");
}

void Stage::TakeFrame(const testbed::HostedFrame& frame) {
  const bool isWhole = frame.IsGood && StampedCamera::Check(frame.RawFrame) == FrameContent::Whole;
  CountFrame(isWhole);
  const bool isBeginning = Now() - beganStream_ < kUnevenStart;
  if (isWhole || isBeginning) return;
  Require(AllowsDisturbedFrames(), "a frame is torn on a bus without faults");
}

void Stage::Require(bool holds, const std::string& what) {
  if (!holds && WasStalled()) {
    cutShort_ = what;
    host::EndWorld();
  }
  RequireAlways(holds, what);
}

void Stage::RequireAlways(bool holds, const std::string& what) {
  if (holds) return;
  host::ReportViolation("simulation", what + " (at step '" + own_.Step + "')");
}

void Stage::RequireStatus(const char* operation, NTSTATUS status,
                          std::initializer_list<NTSTATUS> allowed) {
  const bool isAllowed = std::find(allowed.begin(), allowed.end(), status) != allowed.end();
  Require(isAllowed, std::string(operation) + " answers " + HexOf(status));
}

RunCounts Stage::Counts() const {
  RunCounts counts = counts_;
  counts.Recoveries = trace_.RecoveriesEnded();
  return counts;
}

}  // namespace lidcam::scenarios
