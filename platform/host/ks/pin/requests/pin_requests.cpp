// Requests of applications to an open pin.

#include "platform/host/ks/device/device_block.h"
#include "platform/host/ks/pin/pin_block.h"
#include "platform/host/ks/pin/requests/pin_properties.h"
#include "platform/host/ks/pin/requests/pin_state.h"

namespace lidcam::host {
namespace {

FrameLimits LimitsOf(const PinBlock& pin) {
  const KSALLOCATOR_FRAMING_EX* const framing = pin.Descriptor->AllocatorFraming;
  const bool hasMinimum = framing != nullptr && framing->CountItems != 0;
  return {
      .HeaderSize = pin.StreamHeaderSize,
      .MinimumExtent = hasMinimum ? framing->FramingItem[0].FramingRange.Range.MinFrameSize : 0};
}

bool IsDeviceGone(PinBlock& pin) {
  return InterlockedCompareExchange(&pin.Device->IsGone, 0, 0) != 0;
}

NTSTATUS ReadStream(PinBlock& pin, PIRP irp) {
  if (IsDeviceGone(pin)) return STATUS_DEVICE_NOT_CONNECTED;
  if (pin.ResetState == KSRESET_BEGIN) return STATUS_DEVICE_NOT_READY;
  StreamRequest* request = nullptr;
  const NTSTATUS status = MakeStreamRequest(irp, LimitsOf(pin), &request);
  if (!NT_SUCCESS(status)) return status;
  pin.Frames.Add(request);
  if ((pin.Descriptor->Flags & KSPIN_FLAG_DO_NOT_INITIATE_PROCESSING) == 0) pin.Worker.Attempt();
  // The device may have been removed while the frames were being queued.
  if (IsDeviceGone(pin)) pin.Frames.HandBack(false);
  return STATUS_PENDING;
}

NTSTATUS ResetStream(PinBlock& pin, PIRP irp) {
  const IO_STACK_LOCATION& location = *IoGetCurrentIrpStackLocation(irp);
  const auto& control = location.Parameters.DeviceIoControl;
  if (control.Type3InputBuffer == nullptr || control.InputBufferLength < sizeof(KSRESET)) {
    return STATUS_INVALID_BUFFER_SIZE;
  }
  const ULONG reset = *static_cast<const ULONG*>(control.Type3InputBuffer);
  if (reset > KSRESET_END) return STATUS_INVALID_PARAMETER;
  pin.ResetState = static_cast<KSRESET>(reset);
  if (pin.ResetState == KSRESET_END) return STATUS_SUCCESS;
  pin.Frames.HandBack(false);
  const KSPIN_DISPATCH* const dispatch = DispatchOf(pin);
  if (dispatch != nullptr && dispatch->Reset != nullptr) dispatch->Reset(&pin);
  return STATUS_SUCCESS;
}

NTSTATUS Answer(PinBlock& pin, PIRP irp) {
  const KSAUTOMATION_TABLE* const tables[] = {pin.Descriptor->AutomationTable, &kPinAutomation};
  switch (IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl.IoControlCode) {
    case IOCTL_KS_PROPERTY:
      return AnswerProperty(irp, tables, 2);
    case IOCTL_KS_ENABLE_EVENT:
      return AnswerEnableEvent(irp, tables, 2);
    case IOCTL_KS_READ_STREAM:
      return ReadStream(pin, irp);
    case IOCTL_KS_RESET_STATE:
      return ResetStream(pin, irp);
    default:
      return STATUS_INVALID_DEVICE_REQUEST;
  }
}

}  // namespace

NTSTATUS DispatchPinControl(ObjectHead& head, PIRP irp) {
  PinBlock& pin = PinOf(head);
  irp->IoStatus.Information = 0;
  NTSTATUS status = STATUS_SUCCESS;
  {
    const ControlCall control(*pin.Filter, ClassCall::PinRequest);
    status = Answer(pin, irp);
  }
  // The queue owns a pending request, or has completed it already.
  return status == STATUS_PENDING ? status : CompleteRequest(irp, status);
}

}  // namespace lidcam::host
