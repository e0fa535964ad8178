// Checks after each operation of the driver.

#include "driver/usb/requests/control_requests.h"
#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/verifier/irp_tracker.h"
#include "scenarios/stage/transport_stage.h"

namespace lidcam::scenarios {
namespace {

constexpr NTSTATUS kDeviceGone = STATUS_DEVICE_DATA_ERROR;

// The first seven transfers of a start are sent for frames that are 32 ms apart and take 4 ms each:
// data that the camera sends in between are lost, and the frame that they belong to is torn, and
// possibly one more before the transfers are contiguous.
constexpr LONGLONG kUnevenStart = (10 + 7 * 32 + 2 * 34) * kMillisecond;

}  // namespace

void TransportStage::RequireAnswerOfGone(const char* operation, NTSTATUS status) {
  if (isGoneTold_) stage_.RequireStatus(operation, status, {kDeviceGone});
  if (!IsBusStatus(status)) stage_.RequireStatus(operation, status, {});
}

// The bus is not reachable any more, and is not used.
void TransportStage::RequireRequestsFail() {
  if (stage_.Device() == nullptr) return;
  TransportRecord* const transport = hosted_->Device().TransportRecord;
  std::uint8_t value = 0x5A;
  std::uint32_t length = 1;
  stage_.RequireAlways(UsbReadRequest(transport, 0xA1, 0xFF0A, 0, &value, &length) == -1 &&
                           value == 0x5A &&
                           UsbWriteRequest(transport, 0xA0, 0xFF0A, 0, nullptr, nullptr) == -1,
                       "a device that is gone answers requests");
}

void TransportStage::RequireReleased(bool allAreHome) {
  const UsbStreamRecord* const stream = Stream();
  if (stream == nullptr || stream->Pipeline == nullptr) return;
  const std::size_t prepared = RequireNothingOf(*stream);
  if (allAreHome) RequireAllHome(prepared);
}

// Returns the requests of a preparation that failed.
std::size_t TransportStage::RequireNothingOf(const UsbStreamRecord& stream) {
  stage_.RequireAlways(stream.Opened == 0, "a released stream is open");
  stage_.RequireAlways(stream.RawMemory == nullptr && stream.Assembly.ReadyBuffer == nullptr &&
                           stream.Assembly.FillBuffer == nullptr,
                       "a released stream has raw buffers");
  std::size_t prepared = 0;
  for (const IsoTransfer& transfer : TransfersOf(stream)) {
    if (transfer.OwnsMemory == 0) continue;
    stage_.RequireAlways(hasFailedPreparation_ && transfer.InFlight == 0,
                         "a released stream owns a transfer");
    if (transfer.Irp != nullptr) ++prepared;
  }
  std::uint32_t size = 0;
  stage_.RequireAlways(hosted_->Device().GetRawFrame(size) == nullptr && size == 0,
                       "a released stream shows a frame");
  return prepared;
}

// A request that the frame thread sent during the pause completes by itself.
void TransportStage::RequireAllHome(std::size_t prepared) {
  const LONGLONG began = host::CurrentWorld().Now();
  while (host::IrpUsageOfWorld().Known != prepared &&
         host::CurrentWorld().Now() < stage_.CountedFrom(began) + 200 * kMillisecond) {
    Stage::Sleep(5 * kMillisecond);
  }
  const std::size_t left = host::IrpUsageOfWorld().Known - prepared;
  stage_.Require(left == 0, "a released stream has left " + std::to_string(left) + " request(s)");
}

void TransportStage::RequireFramesOrFirstPipe() {
  if (FramesCome() || stage_.Trace().HasStoppedRecovery()) return;
  stage_.Require(Stream()->PipeIndex == 0 && stage_.Trace().RecoveriesEnded() != 0,
                 "no frames come");
}

void TransportStage::TakeFrame(const testbed::HostedFrame& frame) {
  const bool isWhole = frame.IsGood && StampedCamera::Check(frame.RawFrame) == FrameContent::Whole;
  stage_.CountFrame(isWhole);
  const bool isBeginning = host::CurrentWorld().Now() - beganStream_ < kUnevenStart;
  if (isWhole || isBeginning) return;
  stage_.Require(stage_.AllowsDisturbedFrames(), "a frame is torn on a bus without faults");
}

}  // namespace lidcam::scenarios
