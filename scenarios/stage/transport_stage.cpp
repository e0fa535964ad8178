#include "scenarios/stage/transport_stage.h"

#include <stdexcept>

#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/verifier/irp_tracker.h"

namespace lidcam::scenarios {

TransportStage& TransportStage::On(Stage& stage) {
  auto made = std::make_unique<TransportStage>(stage);
  TransportStage& camera = *made;
  stage.Receive(std::move(made));
  return camera;
}

const UsbCaptureDevice* TransportStage::Usb() const {
  return hosted_ != nullptr ? &hosted_->Device() : nullptr;
}

bool TransportStage::PlugIn(const PlugOptions& options) {
  stage_.Begin("plug in");
  bus::UsbBus& bus = stage_.LayBus(options);
  isGoneTold_ = hasFailedPreparation_ = false;
  try {
    hosted_ = std::make_unique<testbed::TransportTestbed>(
        bus, testbed::TransportTestbedOptions{
                 .DriverKey = stage_.DriverKey(),
                 .Frames = [this](const testbed::HostedFrame& frame) { TakeFrame(frame); },
                 .Filter = &stage_.Between()});
    stage_.SaveSettings(hosted_->Device().KsDevice->PhysicalDeviceObject);
  } catch (const std::runtime_error&) {
    stage_.Trace().Add("step plug in -> no room");
    return false;
  }
  return true;
}

void TransportStage::PlugInAndStream(const PlugOptions& options) {
  stage_.Require(PlugIn(options), "nothing can be plugged in");
  stage_.Require(Start() == STATUS_SUCCESS, "the hardware doesn't start");
  stage_.Require(Acquire() == STATUS_SUCCESS, "no stream can be acquired");
  stage_.Require(Run() == STATUS_SUCCESS, "the stream doesn't run");
}

NTSTATUS TransportStage::Start() {
  const NTSTATUS status = stage_.Do("start", [this] { return hosted_->Start(); });
  if (!IsBusStatus(status)) stage_.RequireStatus("start", status, {});
  return status;
}

NTSTATUS TransportStage::Acquire(std::int32_t width, std::int32_t height) {
  const NTSTATUS status = stage_.Do("acquire", [&] { return hosted_->Acquire({width, height}); });
  // The next one, or the device's stop, releases the transfers that a failed one had prepared.
  if (NT_SUCCESS(status)) hasFailedPreparation_ = false;
  if (status == STATUS_INSUFFICIENT_RESOURCES) hasFailedPreparation_ = true;
  RequireAnswerOfGone("acquire", status);
  return status;
}

NTSTATUS TransportStage::Run() {
  const NTSTATUS status = stage_.Do("run", [this] { return hosted_->Run(); });
  beganStream_ = host::CurrentWorld().Now();
  RequireAnswerOfGone("run", status);
  return status;
}

NTSTATUS TransportStage::Resume() {
  const NTSTATUS status = stage_.Do("resume", [this] { return hosted_->Resume(); });
  beganStream_ = host::CurrentWorld().Now();
  RequireAnswerOfGone("resume", status);
  return status;
}

NTSTATUS TransportStage::Pause() {
  const NTSTATUS status = stage_.Do("pause", [this] { return hosted_->Pause(); });
  stage_.RequireStatus("pause", status, {STATUS_SUCCESS, STATUS_TIMEOUT});
  if (Stream() != nullptr) {
    stage_.RequireAlways(Stream()->StreamRunning == 0, "a paused stream runs");
  }
  return status;
}

NTSTATUS TransportStage::Release() {
  const bool isRunning = Stream() != nullptr && Stream()->StreamRunning != 0;
  const NTSTATUS status = stage_.Do("release", [this] { return hosted_->Release(); });
  stage_.RequireStatus("release", status, {isRunning ? STATUS_UNSUCCESSFUL : STATUS_SUCCESS});
  if (!isRunning) RequireReleased(!allowsLateTransfers_ && !stage_.Trace().HasFailedDrain());
  return status;
}

NTSTATUS TransportStage::Stop() {
  const NTSTATUS status = stage_.Do("stop", [this] { return hosted_->Stop(); });
  stage_.RequireStatus("stop", status, {STATUS_SUCCESS});
  return status;
}

void TransportStage::PowerDown() {
  stage_.Do("power down", [this] {
    hosted_->PowerDown();
    return STATUS_SUCCESS;
  });
}

void TransportStage::PowerUp() {
  stage_.Do("power up", [this] {
    hosted_->PowerUp();
    return STATUS_SUCCESS;
  });
}

void TransportStage::TellGone() {
  stage_.Do("device gone", [this] {
    hosted_->PullPlug();
    hosted_->TellGone();
    return STATUS_SUCCESS;
  });
  isGoneTold_ = true;
  RequireRequestsFail();
  RequireReleased(true);
}

void TransportStage::Remove() {
  stage_.Do("remove", [this] {
    hosted_->Close();
    return STATUS_SUCCESS;
  });
  hosted_.reset();
  stage_.TakeUpBus();
  const host::IrpUsage usage = host::IrpUsageOfWorld();
  stage_.RequireAlways(usage.Known == 0,
                       "a removed camera has left " + std::to_string(usage.Known) + " request(s)");
}

void TransportStage::End() {
  if (hosted_ != nullptr) Remove();
}

bool TransportStage::FramesCome(std::uint64_t count, LONGLONG limit) {
  stage_.Begin("wait for frames");
  const std::uint64_t wanted = hosted_->Counts().Delivered() + count;
  const LONGLONG began = host::CurrentWorld().Now();
  for (LONGLONG left = limit; left > 0;
       left = stage_.CountedFrom(began) + limit - host::CurrentWorld().Now()) {
    const LONGLONG end = host::CurrentWorld().Now() + left;
    if (hosted_->WaitForFrames(wanted, left)) return true;
    if (host::CurrentWorld().Now() < end) return false;  // the bus has ended
  }
  return false;
}

}  // namespace lidcam::scenarios
