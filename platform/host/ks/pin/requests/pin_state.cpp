#include "platform/host/ks/pin/requests/pin_state.h"

namespace lidcam::host {
namespace {

NTSTATUS TellDriver(PinBlock& pin, KSSTATE to, KSSTATE from) {
  const KSPIN_DISPATCH* const dispatch = DispatchOf(pin);
  if (dispatch == nullptr || dispatch->SetDeviceState == nullptr) return STATUS_SUCCESS;
  return dispatch->SetDeviceState(&pin, to, from);
}

void Reach(PinBlock& pin, KSSTATE state) {
  pin.DeviceState = state;
  if (pin.Clock != nullptr) pin.Clock->SetState(state);
}

NTSTATUS StepUp(PinBlock& pin) {
  const KSSTATE from = pin.DeviceState;
  const auto to = static_cast<KSSTATE>(from + 1);
  const NTSTATUS status = TellDriver(pin, to, from);
  if (!NT_SUCCESS(status)) {
    if (from == KSSTATE_STOP) TellDriver(pin, KSSTATE_STOP, KSSTATE_ACQUIRE);
    return status;
  }
  Reach(pin, to);
  if (to == pin.ProcessesFrom) pin.Worker.Allow();
  return STATUS_SUCCESS;
}

NTSTATUS StepDown(PinBlock& pin) {
  const KSSTATE from = pin.DeviceState;
  const auto to = static_cast<KSSTATE>(from - 1);
  if (from == pin.ProcessesFrom) pin.Worker.Forbid();
  // The last process call may still use what a stop frees.
  if (to == KSSTATE_STOP) pin.Worker.WaitUntilIdle();
  const NTSTATUS status = TellDriver(pin, to, from);
  Reach(pin, to);
  if (to == KSSTATE_STOP) pin.Frames.HandBack(true);
  return status;
}

}  // namespace

NTSTATUS SetPinState(PinBlock& pin, KSSTATE target) {
  NTSTATUS result = STATUS_SUCCESS;
  while (pin.DeviceState < target && NT_SUCCESS(result)) result = StepUp(pin);
  while (pin.DeviceState > target) {
    const NTSTATUS status = StepDown(pin);
    if (NT_SUCCESS(result)) result = status;
  }
  return result;
}

void StopPin(PinBlock& pin) {
  SetPinState(pin, KSSTATE_STOP);
  pin.Frames.HandBack(true);
}

}  // namespace lidcam::host
