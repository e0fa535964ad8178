#include "driver/avstream/pin/capture_pin_states.h"

#include "driver/avstream/pin/capture_pin.h"
#include "driver/avstream/pin/capture_pin_locks.h"
#include "driver/core/base/camera_trace.h"

namespace lidcam {
namespace {

PinStep RunStep(KSSTATE streamState, DEVICE_POWER_STATE power) {
  if (power != PowerDeviceD0) return PinStep::Nothing;
  return streamState == KSSTATE_PAUSE ? PinStep::Resume : PinStep::Start;
}

}  // namespace

PinStep StepFor(KSSTATE to, KSSTATE from, KSSTATE streamState, DEVICE_POWER_STATE power) {
  switch (to) {
    case KSSTATE_STOP:
      return PinStep::Stop;
    case KSSTATE_ACQUIRE:
      return from == KSSTATE_STOP ? PinStep::Acquire : PinStep::Nothing;
    case KSSTATE_PAUSE:
      return from == KSSTATE_RUN ? PinStep::Pause : PinStep::Nothing;
    case KSSTATE_RUN:
      return RunStep(streamState, power);
    default:
      return PinStep::Refuse;
  }
}

void CapturePin::TakeClock() {
  if (HasClock != 0) return;
  IKsReferenceClock* clock = nullptr;
  if (!NT_SUCCESS(KsPinGetReferenceClockInterface(Pin, &clock)) || clock == nullptr) return;
  clockUse_.Close();
  Clock = clock;
  HasClock = 1;
  clockUse_.Open();
}

void CapturePin::ReleaseClock() {
  if (HasClock == 0) return;
  clockUse_.Close();
  Clock->Release();
  HasClock = 0;
  clockUse_.Open();
}

void CapturePin::GiveUpStream() {
  RequireLevelAtMost(PASSIVE_LEVEL);
  if (Acquired != 0) {
    Device->ReleaseStreamSlot();
    Acquired = 0;
  }
  ReleaseClock();
}

// A stream that never ran is not released: it stays prepared until the device is removed.
NTSTATUS CapturePin::StopStream() {
  NTSTATUS result = STATUS_SUCCESS;
  if (StreamState != KSSTATE_STOP) {
    result = Device->ReleaseStream();
    StreamState = KSSTATE_STOP;
  }
  GiveUpStream();
  return result;
}

// A clock that is assigned later is not noticed until the next acquire.
NTSTATUS CapturePin::AcquireStream() {
  NTSTATUS result = STATUS_SUCCESS;
  if (Acquired == 0) {
    result = Device->AcquireStreamSlot(Pin, VideoInfo);
    Acquired = NT_SUCCESS(result) ? 1 : 0;
  }
  if (NT_SUCCESS(result)) result = Device->AcquireStream(Pin, VideoInfo);
  if (NT_SUCCESS(result)) TakeClock();
  const NumbersLock lock(*this);
  FrameInfo.dwFrameFlags = 0;
  FrameInfo.PictureNumber = 0;
  FrameInfo.DropCount = 0;
  return result;
}

NTSTATUS CapturePin::PauseStream() {
  const NTSTATUS result = Device->PauseStream();
  if (NT_SUCCESS(result)) StreamState = KSSTATE_PAUSE;
  return result;
}

NTSTATUS CapturePin::RunStream(NTSTATUS result) {
  if (!NT_SUCCESS(result)) return result;
  {
    const NumbersLock lock(*this);
    ExpectedFrameTime = 0;
  }
  StreamState = KSSTATE_RUN;
  return result;
}

NTSTATUS CapturePin::SetDeviceState(PKSPIN, KSSTATE to, KSSTATE from) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  NTSTATUS result = STATUS_SUCCESS;
  switch (StepFor(to, from, StreamState, Device->DevicePowerState)) {
    case PinStep::Refuse:
      result = STATUS_NOT_IMPLEMENTED;
      break;
    case PinStep::Nothing:
      break;
    case PinStep::Stop:
      result = StopStream();
      break;
    case PinStep::Acquire:
      result = AcquireStream();
      break;
    case PinStep::Pause:
      result = PauseStream();
      break;
    case PinStep::Resume:
      result = RunStream(Device->ResumeStream());
      break;
    case PinStep::Start: {
      {
        // Before the first frame, which is one of those to be skipped.
        const NumbersLock lock(*this);
        *FrameCounter = 0;
      }
      result = RunStream(Device->RunStream());
      break;
    }
  }
  TraceCamera(nullptr, "pin state %d -> %d status=%08X", static_cast<int>(from),
              static_cast<int>(to), static_cast<unsigned>(result));
  return result;
}

}  // namespace lidcam
