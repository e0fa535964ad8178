#include "platform/host/usbd/device/usb_request_server.h"

#include <optional>

#include "platform/host/usbd/requests/usb_request.h"

namespace lidcam::host {
namespace {

/// Minimum length of a URB of this function, without isochronous packets.
std::size_t SmallestLength(USHORT function) {
  switch (function) {
    case URB_FUNCTION_GET_DESCRIPTOR_FROM_DEVICE:
      return sizeof(_URB_CONTROL_DESCRIPTOR_REQUEST);
    case URB_FUNCTION_VENDOR_DEVICE:
      return sizeof(_URB_CONTROL_VENDOR_OR_CLASS_REQUEST);
    case URB_FUNCTION_SELECT_CONFIGURATION:
      return offsetof(_URB_SELECT_CONFIGURATION, Interface);
    case URB_FUNCTION_ABORT_PIPE:
    case URB_FUNCTION_RESET_PIPE:
      return sizeof(_URB_PIPE_REQUEST);
    case URB_FUNCTION_GET_CURRENT_FRAME_NUMBER:
      return sizeof(_URB_GET_CURRENT_FRAME_NUMBER);
    case URB_FUNCTION_BULK_OR_INTERRUPT_TRANSFER:
      return sizeof(_URB_BULK_OR_INTERRUPT_TRANSFER);
    default:  // some drivers leave the length of SELECT_INTERFACE unset
      return 0;
  }
}

/// Whether the stack supports the data stage of a control request.
template <typename Request>
bool HasDataStage(const Request& request) {
  return request.TransferBufferLength <= UINT16_MAX && request.TransferBufferMDL == nullptr &&
         request.UrbLink == nullptr &&
         (request.TransferBuffer != nullptr || request.TransferBufferLength == 0);
}

}  // namespace

UsbRequestServer::UsbRequestServer(bus::UsbBus& bus, const UsbStackOptions& options,
                                   PDRIVER_CANCEL cancel)
    : cancel_(cancel),
      state_(bus, options),
      schedule_(state_),
      requests_(state_, schedule_),
      queue_(state_, requests_) {}

void UsbRequestServer::Start() {
  controlThread_ = std::make_unique<ServiceThread>([this] { queue_.Run(); });
  try {
    scheduleThread_ = std::make_unique<ServiceThread>([this] { schedule_.Run(); });
  } catch (const std::runtime_error&) {
    Stop();
    throw;
  }
}

void UsbRequestServer::Stop() {
  {
    const SpinLockGuard guard(state_.Lock);
    state_.IsGone = true;
    state_.IsStopping = true;
  }
  state_.Wake();
  // These wait, and a world that stops ends a wait by an exception, which reset() can't pass on.
  delete controlThread_.release();
  delete scheduleThread_.release();
}

void UsbRequestServer::Unplug() {
  state_.Bus.Unplug();
  {
    const SpinLockGuard guard(state_.Lock);
    state_.IsGone = true;
  }
  state_.Wake();
}

NTSTATUS UsbRequestServer::Dispatch(PIRP irp) {
  const IO_STACK_LOCATION& location = *IoGetCurrentIrpStackLocation(irp);
  auto* const urb = static_cast<URB*>(location.Parameters.Others.Argument1);
  if (location.Parameters.DeviceIoControl.IoControlCode == IOCTL_INTERNAL_USB_SUBMIT_URB &&
      urb != nullptr) {
    return Submit(irp, *urb);
  }
  irp->IoStatus.Information = 0;
  irp->IoStatus.Status = STATUS_INVALID_DEVICE_REQUEST;
  IofCompleteRequest(irp, IO_NO_INCREMENT);
  return STATUS_INVALID_DEVICE_REQUEST;
}

void UsbRequestServer::Cancel(PIRP irp) {
  IoReleaseCancelSpinLock(irp->CancelIrql);
  {
    const SpinLockGuard guard(state_.Lock);
    if (!queue_.MarkCancelled(irp)) schedule_.MarkCancelled(irp);
  }
  state_.Wake();
}

NTSTATUS UsbRequestServer::Submit(PIRP irp, URB& urb) {
  // An accepted URB may be completed and freed as soon as the lock is released.
  const bool isAbort = urb.UrbHeader.Function == URB_FUNCTION_ABORT_PIPE;
  const bool isTransfer = urb.UrbHeader.Function == URB_FUNCTION_ISOCH_TRANSFER;
  const bool isOfSchedule =
      isAbort || isTransfer || urb.UrbHeader.Function == URB_FUNCTION_GET_CURRENT_FRAME_NUMBER;
  std::optional<std::uint8_t> abortedEndpoint;
  USBD_STATUS status = USBD_STATUS_DEVICE_GONE;
  bool isSeenInTime = false;
  UnderSpinLock(state_.Lock, [&] {
    if (state_.IsGone) return;
    if (isAbort) {
      const UsbPipe* pipe = state_.Configuration.FindPipe(urb.UrbPipeRequest.PipeHandle);
      if (pipe != nullptr) abortedEndpoint = pipe->Endpoint;
    }
    status = Route(irp, urb);
    isSeenInTime = isTransfer && status == USBD_STATUS_PENDING && schedule_.SeesLastInTime();
  });
  if (status != USBD_STATUS_PENDING) return CompleteUrb(irp, urb, status);
  if (abortedEndpoint.has_value()) state_.Bus.Abort(*abortedEndpoint);
  if (state_.Options.LooksAtEachRequest) {
    state_.Wake();
  } else if (!isSeenInTime) {
    KeSetEvent(isOfSchedule ? &state_.ScheduleWork : &state_.ControlWork, IO_NO_INCREMENT, FALSE);
  }
  return STATUS_PENDING;
}

USBD_STATUS UsbRequestServer::Route(PIRP irp, URB& urb) {
  const USHORT function = urb.UrbHeader.Function;
  if (urb.UrbHeader.Length < SmallestLength(function)) return USBD_STATUS_INVALID_PARAMETER;
  switch (function) {
    case URB_FUNCTION_GET_DESCRIPTOR_FROM_DEVICE:
      if (!HasDataStage(urb.UrbControlDescriptorRequest)) return USBD_STATUS_INVALID_PARAMETER;
      return queue_.Submit(irp, urb, cancel_);
    case URB_FUNCTION_VENDOR_DEVICE:
      if (!HasDataStage(urb.UrbControlVendorClassRequest)) return USBD_STATUS_INVALID_PARAMETER;
      return queue_.Submit(irp, urb, cancel_);
    case URB_FUNCTION_RESET_PIPE:
      if (state_.Configuration.FindPipe(urb.UrbPipeRequest.PipeHandle) == nullptr) {
        return USBD_STATUS_INVALID_PIPE_HANDLE;
      }
      return queue_.Submit(irp, urb, cancel_);
    case URB_FUNCTION_SELECT_CONFIGURATION:
    case URB_FUNCTION_SELECT_INTERFACE:
      return queue_.Submit(irp, urb, cancel_);
    case URB_FUNCTION_ISOCH_TRANSFER:
      return schedule_.SubmitTransfer(irp, urb, cancel_);
    case URB_FUNCTION_BULK_OR_INTERRUPT_TRANSFER:
      return RefuseBulkTransfer(urb.UrbBulkOrInterruptTransfer);
    case URB_FUNCTION_ABORT_PIPE:
      return schedule_.SubmitAbort(irp, urb);
    case URB_FUNCTION_GET_CURRENT_FRAME_NUMBER:
      return schedule_.SubmitFrameNumber(irp, urb);
    default:
      return USBD_STATUS_INVALID_URB_FUNCTION;
  }
}

USBD_STATUS UsbRequestServer::RefuseBulkTransfer(const _URB_BULK_OR_INTERRUPT_TRANSFER& urb) {
  const UsbPipe* const pipe = state_.Configuration.FindPipe(urb.PipeHandle);
  const bool isRightKind =
      pipe != nullptr && (pipe->Type == UsbdPipeTypeBulk || pipe->Type == UsbdPipeTypeInterrupt);
  // A UsbBus supports neither bulk nor interrupt transfers.
  return isRightKind ? USBD_STATUS_NOT_SUPPORTED : USBD_STATUS_INVALID_PIPE_HANDLE;
}

}  // namespace lidcam::host
