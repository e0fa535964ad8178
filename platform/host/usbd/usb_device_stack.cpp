#include "platform/host/usbd/usb_device_stack.h"

#include <optional>
#include <stdexcept>

namespace lidcam::host {
namespace {

UsbDeviceStack*& StackOf(PDEVICE_OBJECT device) {
  return *static_cast<UsbDeviceStack**>(device->DeviceExtension);
}

NTSTATUS CompleteWith(PIRP irp, NTSTATUS status) {
  irp->IoStatus.Status = status;
  IofCompleteRequest(irp, IO_NO_INCREMENT);
  return status;
}

/// Bytes that a URB of this function must have, isochronous packets aside.
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
    default:  // drivers are known that leave the length of SELECT_INTERFACE to chance
      return 0;
  }
}

/// Whether the data stage of a control request is one that the stack can move.
template <typename Request>
bool HasDataStage(const Request& request) {
  return request.TransferBufferLength <= UINT16_MAX && request.TransferBufferMDL == nullptr &&
         request.UrbLink == nullptr &&
         (request.TransferBuffer != nullptr || request.TransferBufferLength == 0);
}

}  // namespace

UsbDeviceStack::UsbDeviceStack(bus::UsbBus& bus, const UsbStackOptions& options)
    : state_(bus, options.FirstFrame),
      schedule_(state_),
      requests_(state_, schedule_),
      queue_(state_, requests_) {
  InitializeDriverObject(driver_);
  driver_.MajorFunction[IRP_MJ_INTERNAL_DEVICE_CONTROL] = Dispatch;
  driver_.MajorFunction[IRP_MJ_PNP] = AnswerPlugAndPlay;
  driver_.MajorFunction[IRP_MJ_POWER] = AnswerPower;
  if (!NT_SUCCESS(IoCreateDevice(&driver_, sizeof(UsbDeviceStack*), nullptr, FILE_DEVICE_UNKNOWN, 0,
                                 FALSE, &physicalDevice_))) {
    throw std::runtime_error("the kernel gives no device object for the USB device");
  }
  StackOf(physicalDevice_) = this;
  physicalDevice_->Flags &= ~DO_DEVICE_INITIALIZING;
  try {
    controlThread_ = std::make_unique<ServiceThread>([this] { queue_.Run(); });
    scheduleThread_ = std::make_unique<ServiceThread>([this] { schedule_.Run(); });
  } catch (const std::runtime_error&) {
    Stop();
    throw;
  }
}

UsbDeviceStack::~UsbDeviceStack() noexcept(false) {
  if (std::uncaught_exceptions() == 0) Stop();
}

void UsbDeviceStack::Stop() {
  {
    const SpinLockGuard guard(state_.Lock);
    state_.IsGone = true;
    state_.IsStopping = true;
  }
  state_.Wake();
  controlThread_.reset();
  scheduleThread_.reset();
  IoDeleteDevice(physicalDevice_);
}

void UsbDeviceStack::MarkGone() {
  {
    const SpinLockGuard guard(state_.Lock);
    state_.IsGone = true;
  }
  state_.Wake();
}

void UsbDeviceStack::Unplug() {
  state_.Bus.Unplug();
  MarkGone();
}

// The device comes and goes with the stack itself: there is nothing to do but to agree. What only a
// driver above can know is left as it came.
NTSTATUS UsbDeviceStack::AnswerPlugAndPlay(PDEVICE_OBJECT, PIRP irp) {
  switch (IoGetCurrentIrpStackLocation(irp)->MinorFunction) {
    case IRP_MN_START_DEVICE:
    case IRP_MN_QUERY_REMOVE_DEVICE:
    case IRP_MN_REMOVE_DEVICE:
    case IRP_MN_CANCEL_REMOVE_DEVICE:
    case IRP_MN_STOP_DEVICE:
    case IRP_MN_QUERY_STOP_DEVICE:
    case IRP_MN_CANCEL_STOP_DEVICE:
    case IRP_MN_QUERY_CAPABILITIES:
    case IRP_MN_SURPRISE_REMOVAL:
      return CompleteWith(irp, STATUS_SUCCESS);
    default:
      return CompleteWith(irp, irp->IoStatus.Status);
  }
}

NTSTATUS UsbDeviceStack::AnswerPower(PDEVICE_OBJECT, PIRP irp) {
  return CompleteWith(irp, STATUS_SUCCESS);
}

NTSTATUS UsbDeviceStack::Dispatch(PDEVICE_OBJECT device, PIRP irp) {
  const IO_STACK_LOCATION& location = *IoGetCurrentIrpStackLocation(irp);
  auto* const urb = static_cast<URB*>(location.Parameters.Others.Argument1);
  if (location.Parameters.DeviceIoControl.IoControlCode != IOCTL_INTERNAL_USB_SUBMIT_URB ||
      urb == nullptr) {
    irp->IoStatus.Information = 0;
    return CompleteWith(irp, STATUS_INVALID_DEVICE_REQUEST);
  }
  return StackOf(device)->Submit(irp, *urb);
}

void UsbDeviceStack::Cancel(PDEVICE_OBJECT device, PIRP irp) {
  IoReleaseCancelSpinLock(irp->CancelIrql);
  UsbDeviceStack& stack = *StackOf(device);
  {
    const SpinLockGuard guard(stack.state_.Lock);
    if (!stack.queue_.MarkCancelled(irp)) stack.schedule_.MarkCancelled(irp);
  }
  stack.state_.Wake();
}

NTSTATUS UsbDeviceStack::Submit(PIRP irp, URB& urb) {
  // An accepted URB may be gone as soon as the lock is free.
  const bool isAbort = urb.UrbHeader.Function == URB_FUNCTION_ABORT_PIPE;
  std::optional<std::uint8_t> abortedEndpoint;
  USBD_STATUS status = USBD_STATUS_DEVICE_GONE;
  {
    const SpinLockGuard guard(state_.Lock);
    if (!state_.IsGone) {
      if (isAbort) {
        const UsbPipe* pipe = state_.Configuration.FindPipe(urb.UrbPipeRequest.PipeHandle);
        if (pipe != nullptr) abortedEndpoint = pipe->Endpoint;
      }
      status = Route(irp, urb);
    }
  }
  if (status != USBD_STATUS_PENDING) return CompleteUrb(irp, urb, status);
  if (abortedEndpoint.has_value()) state_.Bus.Abort(*abortedEndpoint);
  state_.Wake();
  return STATUS_PENDING;
}

USBD_STATUS UsbDeviceStack::Route(PIRP irp, URB& urb) {
  const USHORT function = urb.UrbHeader.Function;
  if (urb.UrbHeader.Length < SmallestLength(function)) return USBD_STATUS_INVALID_PARAMETER;
  switch (function) {
    case URB_FUNCTION_GET_DESCRIPTOR_FROM_DEVICE:
      if (!HasDataStage(urb.UrbControlDescriptorRequest)) return USBD_STATUS_INVALID_PARAMETER;
      return queue_.Submit(irp, urb, Cancel);
    case URB_FUNCTION_VENDOR_DEVICE:
      if (!HasDataStage(urb.UrbControlVendorClassRequest)) return USBD_STATUS_INVALID_PARAMETER;
      return queue_.Submit(irp, urb, Cancel);
    case URB_FUNCTION_RESET_PIPE:
      if (state_.Configuration.FindPipe(urb.UrbPipeRequest.PipeHandle) == nullptr) {
        return USBD_STATUS_INVALID_PIPE_HANDLE;
      }
      return queue_.Submit(irp, urb, Cancel);
    case URB_FUNCTION_SELECT_CONFIGURATION:
    case URB_FUNCTION_SELECT_INTERFACE:
      return queue_.Submit(irp, urb, Cancel);
    case URB_FUNCTION_ISOCH_TRANSFER:
      return schedule_.SubmitTransfer(irp, urb, Cancel);
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

USBD_STATUS UsbDeviceStack::RefuseBulkTransfer(const _URB_BULK_OR_INTERRUPT_TRANSFER& urb) {
  const UsbPipe* const pipe = state_.Configuration.FindPipe(urb.PipeHandle);
  const bool isRightKind =
      pipe != nullptr && (pipe->Type == UsbdPipeTypeBulk || pipe->Type == UsbdPipeTypeInterrupt);
  // No UsbBus moves bulk or interrupt data.
  return isRightKind ? USBD_STATUS_NOT_SUPPORTED : USBD_STATUS_INVALID_PIPE_HANDLE;
}

}  // namespace lidcam::host
