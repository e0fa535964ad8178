#include "driver/usb/requests/control_requests.h"

#include <cstring>

#include "driver/core/base/camera_memory.h"
#include "driver/core/record/timed_wait.h"

namespace lidcam {
namespace {

// The thread that waits for its turn is woken with a boost, so that a register write of the frame
// path comes between two of an application.
constexpr KPRIORITY kUrbLockIncrement = 16;

constexpr UCHAR kInvokeAlways = SL_INVOKE_ON_SUCCESS | SL_INVOKE_ON_ERROR | SL_INVOKE_ON_CANCEL;

void FillStackLocation(PIRP irp, void* urb, PIO_COMPLETION_ROUTINE routine, void* context) {
  IO_STACK_LOCATION& location = *IoGetNextIrpStackLocation(irp);
  location.MajorFunction = IRP_MJ_INTERNAL_DEVICE_CONTROL;
  location.Parameters.DeviceIoControl.IoControlCode = IOCTL_INTERNAL_USB_SUBMIT_URB;
  location.Parameters.Others.Argument1 = urb;
  location.CompletionRoutine = routine;
  location.Context = context;
  location.Control = kInvokeAlways;
}

// The IRP uses this thread's event: it must be completed before the event goes out of scope.
NTSTATUS AwaitUrb(PIRP irp, KEVENT& done) {
  LARGE_INTEGER limit = RelativeTime(kUrbTimeLimit);
  if (KeWaitForSingleObject(&done, Executive, KernelMode, FALSE, &limit) != STATUS_TIMEOUT) {
    return irp->IoStatus.Status;
  }
  IoCancelIrp(irp);
  KeWaitForSingleObject(&done, Executive, KernelMode, FALSE, nullptr);
  return STATUS_IO_TIMEOUT;
}

NTSTATUS SendUrbInTurn(UsbDeviceRecord& device, void* urb) {
  if (!IsDeviceUsable(device)) return STATUS_DEVICE_DATA_ERROR;
  KEVENT done;
  KeInitializeEvent(&done, SynchronizationEvent, FALSE);
  PIRP const irp = CreateUrbIrp(device, &done, urb, UrbDone);
  if (irp == nullptr) return STATUS_UNSUCCESSFUL;
  NTSTATUS status = IofCallDriver(device.KsDevice->NextDeviceObject, irp);
  if (status == STATUS_PENDING) status = AwaitUrb(irp, done);
  IoFreeIrp(irp);
  return status;
}

// Offset of the URB, at its own alignment, behind the data bytes in one allocation.
constexpr std::size_t UrbOffset(std::uint32_t size) {
  constexpr std::size_t kAlignment = alignof(_URB_CONTROL_VENDOR_OR_CLASS_REQUEST);
  return (std::size_t{size} + kAlignment - 1) & ~(kAlignment - 1);
}

struct VendorCall {
  std::uint8_t Request;
  std::uint16_t Value;
  std::uint16_t Index;
  bool Reads;
};

void FillVendorUrb(_URB_CONTROL_VENDOR_OR_CLASS_REQUEST& urb, const VendorCall& call, void* data,
                   std::uint32_t size) {
  urb.Hdr.Length = sizeof(urb);
  urb.Hdr.Function = URB_FUNCTION_VENDOR_DEVICE;
  urb.TransferFlags = call.Reads ? USBD_TRANSFER_DIRECTION_IN : 0;
  urb.TransferBufferLength = size;
  urb.TransferBuffer = data;
  urb.TransferBufferMDL = nullptr;
  urb.UrbLink = nullptr;
  urb.RequestTypeReservedBits = 0;
  urb.Request = call.Request;
  urb.Value = call.Value;
  urb.Index = call.Index;
}

Status CallbackRequest(void* transport, std::uint32_t request, std::uint32_t index,
                       std::uint32_t value, void* buffer, std::uint32_t* length,
                       std::uint8_t read) {
  auto& record = *static_cast<TransportRecord*>(transport);
  if (record.Device->Connected == 0) return -1;
  const NTSTATUS status =
      VendorRequest(record, static_cast<std::uint8_t>(request), static_cast<std::uint16_t>(value),
                    static_cast<std::uint16_t>(index), buffer, length, read);
  return NT_SUCCESS(status) ? 0 : -1;
}

NTSTATUS SendPipeRequest(UsbDeviceRecord& device, USBD_PIPE_HANDLE pipe, USHORT function) {
  auto* const urb =
      static_cast<_URB_PIPE_REQUEST*>(AllocateCameraMemory(sizeof(_URB_PIPE_REQUEST)));
  if (urb == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  ZeroCameraMemory(urb, sizeof(*urb));
  urb->Hdr.Length = sizeof(*urb);
  urb->Hdr.Function = function;
  urb->PipeHandle = pipe;
  const NTSTATUS status = SendUrb(device, urb);
  FreeCameraMemory(urb);
  return status;
}

}  // namespace

NTSTATUS NTAPI UrbDone(PDEVICE_OBJECT, PIRP, PVOID context) {
  KeSetEvent(static_cast<PKEVENT>(context), IO_NO_INCREMENT, FALSE);
  return STATUS_MORE_PROCESSING_REQUIRED;
}

PIRP CreateUrbIrp(UsbDeviceRecord& device, void* context, void* urb,
                  PIO_COMPLETION_ROUTINE completionRoutine) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  PIRP const irp = IoAllocateIrp(device.KsDevice->NextDeviceObject->StackSize, FALSE);
  if (irp != nullptr) FillStackLocation(irp, urb, completionRoutine, context);
  return irp;
}

void RearmIrp(void* context, PIRP irp, void* urb, PIO_COMPLETION_ROUTINE completionRoutine) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  irp->Cancel = FALSE;
  FillStackLocation(irp, urb, completionRoutine, context);
}

NTSTATUS SendUrb(UsbDeviceRecord& device, void* urb) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  KeWaitForSingleObject(&device.UrbLock, Executive, KernelMode, FALSE, nullptr);
  const NTSTATUS status = SendUrbInTurn(device, urb);
  KeReleaseSemaphore(&device.UrbLock, kUrbLockIncrement, 1, FALSE);
  return status;
}

NTSTATUS VendorRequest(TransportRecord& transport, std::uint8_t request, std::uint16_t value,
                       std::uint16_t index, void* buffer, std::uint32_t* length,
                       std::uint8_t read) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  const std::uint32_t size = length != nullptr ? *length : 0;
  const std::size_t urbAt = UrbOffset(size);
  const std::size_t whole = urbAt + sizeof(_URB_CONTROL_VENDOR_OR_CLASS_REQUEST);
  if (whole < size) return STATUS_INSUFFICIENT_RESOURCES;
  auto* const block = static_cast<std::uint8_t*>(AllocateCameraMemory(whole));
  if (block == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  ZeroCameraMemory(block, whole);
  std::uint8_t* const data = size != 0 ? block : nullptr;
  if (data != nullptr && read == 0) std::memcpy(data, buffer, size);
  void* const urbPlace = block + urbAt;
  auto* const urb = static_cast<_URB_CONTROL_VENDOR_OR_CLASS_REQUEST*>(urbPlace);
  FillVendorUrb(*urb, {request, value, index, read != 0}, data, size);
  const NTSTATUS status = SendUrb(*transport.Device, urb);
  if (length != nullptr) {
    // A reply that claims more than there was room for is cut to the room.
    const std::uint32_t moved = urb->TransferBufferLength < size ? urb->TransferBufferLength : size;
    *length = NT_SUCCESS(status) ? moved : 0;
    if (read != 0 && *length != 0) std::memcpy(buffer, data, *length);
  }
  FreeCameraMemory(block);
  return status;
}

Status UsbWriteRequest(void* transport, std::uint32_t request, std::uint32_t index,
                       std::uint32_t value, void* buffer, std::uint32_t* length) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  return CallbackRequest(transport, request, index, value, buffer, length, 0);
}

Status UsbReadRequest(void* transport, std::uint32_t request, std::uint32_t index,
                      std::uint32_t value, void* buffer, std::uint32_t* length) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  return CallbackRequest(transport, request, index, value, buffer, length, 1);
}

NTSTATUS AbortPipe(UsbDeviceRecord& device, USBD_PIPE_HANDLE pipeHandle) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  return SendPipeRequest(device, pipeHandle, URB_FUNCTION_ABORT_PIPE);
}

NTSTATUS ResetPipe(UsbDeviceRecord& device, const UsbStreamRecord& stream,
                   USBD_INTERFACE_INFORMATION* interfaceInformation, PipeRequest request) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  const USBD_PIPE_INFORMATION* const pipe =
      PipeInformationOf(interfaceInformation, stream.PipeIndex);
  if (pipe == nullptr) return STATUS_DEVICE_DATA_ERROR;
  return SendPipeRequest(
      device, pipe->PipeHandle,
      request != PipeRequest::Reset ? URB_FUNCTION_ABORT_PIPE : URB_FUNCTION_RESET_PIPE);
}

std::uint32_t GetCurrentFrame(UsbDeviceRecord& device) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  auto* const urb = static_cast<_URB_GET_CURRENT_FRAME_NUMBER*>(
      AllocateCameraMemory(sizeof(_URB_GET_CURRENT_FRAME_NUMBER)));
  if (urb == nullptr) return 0;
  ZeroCameraMemory(urb, sizeof(*urb));
  urb->Hdr.Length = sizeof(*urb);
  urb->Hdr.Function = URB_FUNCTION_GET_CURRENT_FRAME_NUMBER;
  const NTSTATUS status = SendUrb(device, urb);
  const bool succeeded = NT_SUCCESS(status) && USBD_SUCCESS(urb->Hdr.Status);
  const std::uint32_t frame = succeeded ? urb->FrameNumber : 0;
  FreeCameraMemory(urb);
  return frame;
}

}  // namespace lidcam
