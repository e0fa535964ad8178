#include "driver/usb/transfers/stream_recovery.h"

#include "driver/core/base/camera_memory.h"
#include "driver/core/base/camera_trace.h"
#include "driver/core/control/camera_lifecycle.h"
#include "driver/core/control/stream_modes.h"
#include "driver/core/record/timed_wait.h"
#include "driver/usb/requests/control_requests.h"
#include "driver/usb/transfers/iso_transfers.h"
#include "driver/usb/transfers/transfer_ownership.h"

namespace lidcam {
namespace {

// In writable data, so that a debugger can lengthen a stop: the platform gets its address, or the
// compiler would put its value into the code.
constinit LARGE_INTEGER g_drainTimeLimit{.QuadPart = -kDrainTimeLimit};

// States of UsbStreamRecord::WatchdogChain.
constexpr LONG kNoTick = 0;
constexpr LONG kTicksOn = 1;

unsigned Hex(NTSTATUS status) {
  return static_cast<unsigned>(status);
}

bool IsChainStarted(UsbStreamRecord& stream) {
  return InterlockedCompareExchange(&stream.WatchdogChain, kTicksOn, kNoTick) == kNoTick;
}

void SetWatchdogTimer(UsbStreamRecord& stream) {
  KeInitializeTimerEx(&stream.WatchdogTimer, SynchronizationTimer);
  KeInitializeDpc(&stream.WatchdogDpc, TransferWatchdog, &stream);
  KeSetTimer(&stream.WatchdogTimer, RelativeTime(kWatchdogPeriod), &stream.WatchdogDpc);
}

bool IsAllWell(const UsbStreamRecord& stream) {
  return stream.Halted == 0 && !HasWaitFlag(stream, StopWaitArmed) &&
         !HasWaitFlag(stream, ResetWaitArmed) && stream.Device->Connected != 0;
}

void EndResetWait(UsbStreamRecord& stream) {
  TraceCamera(stream.Device->Camera, "watchdog reset idle");
  ClearWaitFlag(stream, ResetWaitArmed);
  stream.Halted = 0;
  KeSetEvent(&stream.ResetEvent, EVENT_INCREMENT, FALSE);
}

void EndStopWait(UsbStreamRecord& stream) {
  TraceCamera(stream.Device->Camera, "watchdog stop idle");
  ClearWaitFlag(stream, StopWaitArmed);
  KeSetEvent(&stream.StopEvent, EVENT_INCREMENT, FALSE);
}

// The order of the tests is the priority: no wait ends while a transfer is in flight, and a stop
// prevents a recovery, which it makes needless.
void CheckPipeline(UsbStreamRecord& stream) {
  if (IsAllWell(stream)) return;
  if (AnyTransferInFlight(stream) != 0) {
    TraceCamera(stream.Device->Camera, "watchdog waits for transfers");
    return;
  }
  if (stream.StreamRunning == 0) return;
  UsbDeviceRecord& device = *stream.Device;
  if (stream.Halted != 0 && device.Connected != 0 && !HasWaitFlag(stream, StopWaitArmed)) {
    ScheduleStreamReset(device, stream);
  }
  if (HasWaitFlag(stream, ResetWaitArmed)) EndResetWait(stream);
  if (HasWaitFlag(stream, StopWaitArmed)) EndStopWait(stream);
}

void NTAPI RunStreamReset(PDEVICE_OBJECT, PVOID context) {
  auto* const item = static_cast<StreamResetItem*>(context);
  UsbStreamRecord& stream = *item->Stream;
  UsbDeviceRecord& device = *stream.Device;
  volatile LONG& workItems = *device.WorkItems;
  if (device.Connected != 0) RecoverStream(device, stream, nullptr, nullptr);
  InterlockedDecrement(&device.ResetGuard);
  IoFreeWorkItem(item->WorkItem);
  FreeCameraMemory(item);
  InterlockedDecrement(&workItems);
}

std::uint8_t GiveUpReset(UsbDeviceRecord& device, const char* reason) {
  TraceCamera(device.Camera, "recovery %s", reason);
  InterlockedDecrement(&device.ResetGuard);
  return 1;
}

NTSTATUS AbortStreamPipe(UsbDeviceRecord& device, const UsbStreamRecord& stream) {
  const USBD_PIPE_INFORMATION* const pipe = StreamPipe(stream);
  if (pipe == nullptr) return STATUS_DEVICE_DATA_ERROR;
  return AbortPipe(device, pipe->PipeHandle);
}

// After a failed pipe reset the camera is programmed too, but its stream is not ended first.
bool ProgramCameraAnew(CameraContext& camera, const UsbStreamRecord& stream, bool endStream) {
  if (endStream && EndStream(camera) != 0) return false;
  return SelectStreamMode(camera, stream.StreamFormat) == 0;
}

// Returns the pipe reset's status, whatever follows, unless the camera refuses.
NTSTATUS RestartPipeline(UsbDeviceRecord& device, UsbStreamRecord& stream, NTSTATUS reset) {
  if (stream.StreamRunning == 0) return reset;
  if (!ProgramCameraAnew(*device.Camera, stream, NT_SUCCESS(reset))) return STATUS_UNSUCCESSFUL;
  stream.PipeIndex = device.RecoveryPipeIndex;
  StartTransfers(stream);
  return reset;
}

NTSTATUS RecoverLocked(UsbDeviceRecord& device, UsbStreamRecord& stream) {
  if (stream.Opened != 1) return STATUS_SUCCESS;
  const NTSTATUS abort = AbortStreamPipe(device, stream);
  TraceCamera(device.Camera, "recovery abort status=%08X", Hex(abort));
  if (!NT_SUCCESS(abort)) return abort;
  NTSTATUS wait = STATUS_SUCCESS;
  WaitResetIdle(stream, wait);
  TraceCamera(device.Camera, "recovery idle status=%08X", Hex(wait));
  if (wait == STATUS_TIMEOUT) return wait;
  const NTSTATUS reset = ResetPipe(device, stream, device.InterfaceInformation, PipeRequest::Reset);
  TraceCamera(device.Camera, "recovery reset status=%08X", Hex(reset));
  return RestartPipeline(device, stream, reset);
}

void ForgetStarts(const UsbStreamRecord& stream) {
  for (const IsoTransfer& transfer : TransfersOf(stream)) {
    if (transfer.OwnsMemory != 0) ForgetStart(*transfer.Memory);
  }
}

bool IsLastTickUnderWay(UsbStreamRecord& stream) {
  return !HasWaitFlag(stream, WatchdogRunning) &&
         InterlockedCompareExchange(&stream.WatchdogChain, kNoTick, kNoTick) == kTicksOn;
}

// A tick that has set its timer again may still use the record after a disarming has cancelled that
// timer and so ended the chain.
bool IsTickRunning(UsbStreamRecord& stream) {
  return InterlockedCompareExchange(&stream.RunningTicks, 0, 0) != 0;
}

// The watchdog may be disarmed, and armed for the next stream, at any moment of a tick: a tick that
// ends the chain of ticks checks once more whether a stream needs the watchdog.
void EndTick(UsbStreamRecord& stream) {
  do {
    if (HasWaitFlag(stream, WatchdogRunning)) {
      SetWatchdogTimer(stream);
      if (HasWaitFlag(stream, WatchdogRunning)) return;
      if (KeCancelTimer(&stream.WatchdogTimer) == FALSE) return;
    }
    InterlockedExchange(&stream.WatchdogChain, kNoTick);
  } while (HasWaitFlag(stream, WatchdogRunning) && IsChainStarted(stream));
}

}  // namespace

void NTAPI TransferWatchdog(PKDPC, PVOID context, PVOID, PVOID) {
  UsbStreamRecord& stream = *static_cast<UsbStreamRecord*>(context);
  InterlockedIncrement(&stream.RunningTicks);
  CheckPipeline(stream);
  EndTick(stream);
  InterlockedDecrement(&stream.RunningTicks);
}

void ArmWatchdog(UsbStreamRecord& stream) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  if (IsChainStarted(stream)) SetWatchdogTimer(stream);
}

void DisarmWatchdog(UsbStreamRecord& stream) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  ClearWaitFlag(stream, WatchdogRunning);
  const BOOLEAN wasSet = KeCancelTimer(&stream.WatchdogTimer);
  if (wasSet != FALSE) InterlockedExchange(&stream.WatchdogChain, kNoTick);
}

std::uint8_t ScheduleStreamReset(UsbDeviceRecord& device, UsbStreamRecord& stream) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  if (InterlockedIncrement(&device.ResetGuard) > 0) {
    InterlockedDecrement(&device.ResetGuard);
    TraceCamera(device.Camera, "recovery under way");
    return 0;
  }
  auto* const item = static_cast<StreamResetItem*>(AllocateCameraMemory(sizeof(StreamResetItem)));
  stream.ResetWorkItem = item;
  if (item == nullptr) return GiveUpReset(device, "has no memory");
  item->Stream = &stream;
  item->WorkItem = IoAllocateWorkItem(device.KsDevice->NextDeviceObject);
  if (item->WorkItem == nullptr) {
    // The guard stays raised: no recovery can be scheduled, and the device can't be stopped.
    FreeCameraMemory(item);
    TraceCamera(device.Camera, "recovery has no work item");
    return 1;
  }
  TraceCamera(device.Camera, "recovery scheduled");
  InterlockedIncrement(device.WorkItems);
  IoQueueWorkItem(item->WorkItem, RunStreamReset, CriticalWorkQueue, item);
  return 1;
}

NTSTATUS RecoverStream(UsbDeviceRecord& device, UsbStreamRecord& stream, void*, void*) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  KsAcquireDevice(device.KsDevice);
  const NTSTATUS status = RecoverLocked(device, stream);
  KsReleaseDevice(device.KsDevice);
  TraceCamera(device.Camera, "recovery ends status=%08X", Hex(status));
  return status;
}

void WaitResetIdle(UsbStreamRecord& stream, NTSTATUS& waitResult) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  LARGE_INTEGER limit = RelativeTime(kResetTimeLimit);
  KeInitializeEvent(&stream.ResetEvent, SynchronizationEvent, FALSE);
  SetWaitFlag(stream, ResetWaitArmed);
  waitResult = KeWaitForSingleObject(&stream.ResetEvent, Executive, KernelMode, FALSE, &limit);
  if (waitResult == STATUS_TIMEOUT) ClearWaitFlag(stream, ResetWaitArmed);
}

NTSTATUS DrainTransfers(UsbStreamRecord& stream) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  ForgetStarts(stream);
  KeInitializeEvent(&stream.StopEvent, SynchronizationEvent, FALSE);
  SetWaitFlag(stream, StopWaitArmed);
  const NTSTATUS abort = AbortStreamPipe(*stream.Device, stream);
  TraceCamera(stream.Device->Camera, "drain abort status=%08X", Hex(abort));
  const NTSTATUS status =
      KeWaitForSingleObject(&stream.StopEvent, Executive, KernelMode, FALSE, &g_drainTimeLimit);
  TraceCamera(stream.Device->Camera, "drain ends status=%08X", Hex(status));
  return status;
}

void WaitForTicks(UsbStreamRecord& stream) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  while (IsLastTickUnderWay(stream) || IsTickRunning(stream)) SleepOnePoll();
}

// A stop whose drain failed leaves the watchdog armed. Also, the flags have no lock: a tick that
// ends a stop's wait just as its time runs out may write back the flags as it had read them,
// WatchdogRunning included, after the disarming.
void EndWatchdog(UsbStreamRecord& stream) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  do {
    if (HasWaitFlag(stream, WatchdogRunning)) DisarmWatchdog(stream);
    WaitForTicks(stream);
  } while (HasWaitFlag(stream, WatchdogRunning));
}

// The ticks first: the last tick may schedule a recovery.
void WaitForRecovery(UsbDeviceRecord& device) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  KsAcquireDevice(device.KsDevice);
  KsReleaseDevice(device.KsDevice);
  UsbStreamRecord* const stream = device.Stream;
  if (stream != nullptr) WaitForTicks(*stream);
  while (InterlockedCompareExchange(&device.ResetGuard, 0, 0) >= 0) SleepOnePoll();
}

}  // namespace lidcam
