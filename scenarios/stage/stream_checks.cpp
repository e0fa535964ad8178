#include "scenarios/stage/stream_checks.h"

#include <array>

#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/verifier/irp_tracker.h"
#include "scenarios/run/random.h"
#include "scenarios/run/value_of.h"

namespace lidcam::scenarios {
namespace {

// Parts of ReferenceCountedMemory::Holds.
constexpr LONG kCountOfHolds = 0xFFFF;
constexpr LONG kStartRequested = 0x10000;

bool HasFlag(const UsbStreamRecord& stream, WaitFlag flag) {
  return (ValueOf(stream.WaitFlags) & flag) != 0;
}

bool IsWaitingForTransfers(const IsoPipeline& pipeline) {
  const auto* const object = static_cast<const KTHREAD*>(pipeline.Thread);
  return object != nullptr && object->Host->State == host::Thread::RunState::Blocked &&
         object->Host->LastObject == &pipeline.WakeSemaphore;
}

std::string WrongWatchdog(const UsbStreamRecord& stream) {
  const bool isRunning = HasFlag(stream, WatchdogRunning);
  const bool isSet = stream.WatchdogTimer.Header.Inserted != FALSE;
  if (isRunning == isSet) return {};
  return isRunning ? "the watchdog is on and its timer isn't set"
                   : "the watchdog is off and its timer is set";
}

std::string WrongTransfer(const IsoTransfer& transfer, bool isThreadWaiting) {
  if (transfer.OwnsMemory == 0 || transfer.Memory == nullptr) return {};
  const bool isOut = transfer.Memory->Irp != nullptr && host::IsIrpInFlight(transfer.Memory->Irp);
  if (transfer.InFlight != (isOut ? 1 : 0)) {
    return "a transfer counts as in flight " + std::to_string(transfer.InFlight) + " times and " +
           (isOut ? "is" : "isn't");
  }
  const LONG holds = transfer.Memory->Holds;
  if (isOut && (holds & kCountOfHolds) != 2) return "a transfer in flight has not two references";
  if (!isOut && isThreadWaiting && holds != 1)
    return "a transfer that nothing uses has a second reference";
  return {};
}

bool HasStartRequest(const UsbStreamRecord& stream) {
  const IsoPipeline* const pipeline = ValueOf(stream.Pipeline);
  if (pipeline == nullptr) return false;
  for (std::uint32_t i = 0; i < stream.Device->TransferCount; ++i) {
    const IsoTransfer& transfer = pipeline->Transfers[i];
    if (transfer.OwnsMemory != 0 && (transfer.Memory->Holds & kStartRequested) != 0) return true;
  }
  return false;
}

std::string WrongTransfers(const UsbStreamRecord& stream, const IsoPipeline& pipeline) {
  const bool isThreadWaiting = IsWaitingForTransfers(pipeline);
  if (isThreadWaiting && pipeline.CompletedCount != 0)
    return "a transfer is queued, and the frame thread isn't woken";
  const UsbDeviceRecord& device = *stream.Device;
  for (std::uint32_t i = 0; i < device.TransferCount; ++i) {
    std::string wrong = WrongTransfer(pipeline.Transfers[i], isThreadWaiting);
    if (!wrong.empty()) return wrong;
  }
  return {};
}

}  // namespace

std::string StreamChecks::Look(std::string_view line) {
  if (line.starts_with("device gone") || line.starts_with("stream hardware")) stream_ = nullptr;
  if (stream_ == nullptr) return {};
  if (line == "recovery idle status=00000000" &&
      (HasFlag(*stream_, ResetWaitArmed) || ValueOf(stream_->Halted) != 0)) {
    return "a recovery's wait has ended, and its flag or Halted is still set";
  }
  if (line == "drain ends status=00000000" && HasFlag(*stream_, StopWaitArmed)) {
    return "a stop's wait has ended, and its flag is still set";
  }
  // The device's mutex is held, so nothing can have been started since.
  if (line.starts_with("drain ends") && HasStartRequest(*stream_)) {
    return "a drain has left the request of a start before it";
  }
  return {};
}

std::uint64_t StreamChecks::StateAt(const void* object) const {
  if (stream_ == nullptr) return 0;
  const auto offset =
      reinterpret_cast<std::uintptr_t>(object) - reinterpret_cast<std::uintptr_t>(stream_);
  const UsbDeviceRecord& device = *stream_->Device;
  const std::array<std::uint64_t, 12> values{
      1 + (offset < sizeof(UsbStreamRecord) ? offset : sizeof(UsbStreamRecord)),
      ValueOf(stream_->WaitFlags),
      ValueOf(stream_->Halted),
      ValueOf(stream_->RestartPending),
      ValueOf(stream_->StreamRunning),
      ValueOf(stream_->Opened),
      static_cast<std::uint64_t>(stream_->WatchdogChain),
      static_cast<std::uint64_t>(stream_->RunningTicks),
      ValueOf(stream_->PipeIndex),
      static_cast<std::uint64_t>(device.ResetGuard),
      ValueOf(device.DeviceOpen),
      ValueOf(device.Connected)};
  std::uint64_t state = 0;
  for (const std::uint64_t value : values) state = Random(state, value).Next();
  return state;
}

std::string StreamChecks::WrongAtRest(bool hasFailedSend, bool hasFailedDrain) const {
  if (stream_ == nullptr) return {};
  if (!hasFailedDrain) {
    std::string wrong = WrongWatchdog(*stream_);
    if (!wrong.empty()) return wrong;
  }
  if (stream_->Device->ResetGuard > 0) return "two recoveries are under way";
  const IsoPipeline* const pipeline = ValueOf(stream_->Pipeline);
  if (hasFailedSend || pipeline == nullptr) return {};
  return WrongTransfers(*stream_, *pipeline);
}

}  // namespace lidcam::scenarios
