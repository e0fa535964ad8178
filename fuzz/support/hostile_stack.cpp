#include "fuzz/support/hostile_stack.h"

#include <algorithm>
#include <iterator>

#include "platform/host/nt/io/device_object.h"
#include "platform/host/nt/processor/kernel_guards.h"

namespace lidcam::fuzz {
namespace {

constexpr NTSTATUS kStatuses[] = {STATUS_SUCCESS,
                                  STATUS_CANCELLED,
                                  STATUS_UNSUCCESSFUL,
                                  STATUS_DEVICE_DATA_ERROR,
                                  STATUS_INVALID_PARAMETER,
                                  STATUS_IO_TIMEOUT,
                                  STATUS_DEVICE_NOT_CONNECTED,
                                  STATUS_TIMEOUT};

constexpr USBD_STATUS kUrbStatuses[] = {USBD_STATUS_SUCCESS,     USBD_STATUS_CANCELED,
                                        USBD_STATUS_STALL_PID,   USBD_STATUS_BAD_START_FRAME,
                                        USBD_STATUS_DEVICE_GONE, USBD_STATUS_ISOCH_REQUEST_FAILED,
                                        USBD_STATUS_PENDING,     USBD_STATUS_NO_BANDWIDTH};

URB& UrbOf(PIRP irp) {
  return *static_cast<URB*>(IoGetCurrentIrpStackLocation(irp)->Parameters.Others.Argument1);
}

NTSTATUS AnyStatus(Input& input) {
  return kStatuses[input.Take<std::uint8_t>() % std::size(kStatuses)];
}

USBD_STATUS AnyUrbStatus(Input& input) {
  const auto chosen = input.Take<std::uint8_t>();
  return chosen % 16 == 15 ? input.Take<USBD_STATUS>()
                           : kUrbStatuses[chosen % std::size(kUrbStatuses)];
}

// As the USB stack does.
void CompleteAtDispatch(PIRP irp) {
  const host::DispatchLevelGuard level;
  IofCompleteRequest(irp, IO_NO_INCREMENT);
}

}  // namespace

HostileStack::HostileStack() {
  host::InitializeDriverObject(driver_);
  for (PDRIVER_DISPATCH& entry : driver_.MajorFunction) entry = PassOn;
  driver_.MajorFunction[IRP_MJ_INTERNAL_DEVICE_CONTROL] = Enter;
}

void HostileStack::Attach(PDEVICE_OBJECT below) {
  Require(NT_SUCCESS(IoCreateDevice(&driver_, sizeof(HostileStack*), nullptr, FILE_DEVICE_UNKNOWN,
                                    0, FALSE, &device_)));
  *static_cast<HostileStack**>(device_->DeviceExtension) = this;
  below_ = IoAttachDeviceToDeviceStack(device_, below);
  device_->Flags &= ~DO_DEVICE_INITIALIZING;
}

void HostileStack::Detach() {
  if (device_ == nullptr) return;
  IoDetachDevice(below_);
  IoDeleteDevice(device_);
  device_ = nullptr;
}

NTSTATUS HostileStack::PassOn(PDEVICE_OBJECT device, PIRP irp) {
  return (*static_cast<HostileStack**>(device->DeviceExtension))->Forward(irp);
}

NTSTATUS HostileStack::Enter(PDEVICE_OBJECT device, PIRP irp) {
  return (*static_cast<HostileStack**>(device->DeviceExtension))->Dispatch(irp);
}

NTSTATUS HostileStack::Forward(PIRP irp) {
  IoSkipCurrentIrpStackLocation(irp);
  return IofCallDriver(below_, irp);
}

NTSTATUS HostileStack::Dispatch(PIRP irp) {
  if (decisions_ == nullptr || decisions_->IsEmpty()) return Forward(irp);
  URB& urb = UrbOf(irp);
  switch (urb.UrbHeader.Function) {
    case URB_FUNCTION_ISOCH_TRANSFER:
      return DispatchTransfer(irp, urb);
    case URB_FUNCTION_BULK_OR_INTERRUPT_TRANSFER:
      return DispatchBulk(irp, urb);
    case URB_FUNCTION_ABORT_PIPE:
      return DispatchAbort(irp, urb);
    default:
      return DispatchRequest(irp, urb);
  }
}

NTSTATUS HostileStack::DispatchTransfer(PIRP irp, URB& urb) {
  switch (decisions_->Take<std::uint8_t>() % 8) {
    case 0:
    case 1:
      return Watch(irp);
    case 2:
      return Keep(irp);
    case 3:
      return CompleteNow(irp, urb, AnyStatus(*decisions_), false);
    case 4:
      return CompleteNow(irp, urb, AnyStatus(*decisions_), true);
    default:
      return Forward(irp);
  }
}

// If a bulk chunk succeeded within the call, the next one would be sent within that call, and so
// on, each deeper on the stack: the USB stack never does that.
NTSTATUS HostileStack::DispatchBulk(PIRP irp, URB& urb) {
  if (decisions_->OneIn(8)) return CompleteNow(irp, urb, STATUS_UNSUCCESSFUL, false);
  return decisions_->OneIn(8) ? Forward(irp) : Keep(irp);
}

NTSTATUS HostileStack::DispatchAbort(PIRP irp, URB& urb) {
  switch (decisions_->Take<std::uint8_t>() % 4) {
    case 1:  // reports success without any data
      urb.UrbHeader.Status = USBD_STATUS_SUCCESS;
      irp->IoStatus.Status = STATUS_SUCCESS;
      return Finish(irp);
    case 2:
      CompleteAll(AnyUrbStatus(*decisions_));
      return Forward(irp);
    case 3:
      return DispatchRequest(irp, urb);
    default:
      return Forward(irp);
  }
}

NTSTATUS HostileStack::DispatchRequest(PIRP irp, URB& urb) {
  switch (decisions_->Take<std::uint8_t>() % 16) {
    case 11:
    case 12:
      return Watch(irp);
    case 13:
      return KeepUntilCancelled(irp);
    case 14:
      return CompleteNow(irp, urb, AnyStatus(*decisions_), true);
    case 15:
      return CompleteNow(irp, urb, AnyStatus(*decisions_), false);
    default:
      return Forward(irp);
  }
}

NTSTATUS HostileStack::Watch(PIRP irp) {
  IoCopyCurrentIrpStackLocationToNext(irp);
  IoSetCompletionRoutine(irp, CameUp, this, TRUE, TRUE, TRUE);
  IoMarkIrpPending(irp);
  IofCallDriver(below_, irp);
  return STATUS_PENDING;
}

NTSTATUS HostileStack::CameUp(PDEVICE_OBJECT, PIRP irp, PVOID context) {
  HostileStack& self = *static_cast<HostileStack*>(context);
  if (self.decisions_ == nullptr) return STATUS_CONTINUE_COMPLETION;
  URB& urb = UrbOf(irp);
  self.Tamper(urb, irp);
  // A request that the driver waits for may be completed late, but must be completed.
  const bool isTransfer = urb.UrbHeader.Function == URB_FUNCTION_ISOCH_TRANSFER;
  if (!isTransfer || !self.decisions_->OneIn(4)) return STATUS_CONTINUE_COMPLETION;
  self.waiting_.push_back({.Irp = irp, .IsDone = true});
  return STATUS_MORE_PROCESSING_REQUIRED;
}

NTSTATUS HostileStack::Keep(PIRP irp) {
  IoMarkIrpPending(irp);
  waiting_.push_back({.Irp = irp});
  return STATUS_PENDING;
}

NTSTATUS HostileStack::KeepUntilCancelled(PIRP irp) {
  IoMarkIrpPending(irp);
  waiting_.push_back({.Irp = irp, .CanBeCancelled = true});
  IoSetCancelRoutine(irp, Cancel);
  return STATUS_PENDING;
}

void HostileStack::Cancel(PDEVICE_OBJECT device, PIRP irp) {
  IoReleaseCancelSpinLock(irp->CancelIrql);
  HostileStack& self = **static_cast<HostileStack**>(device->DeviceExtension);
  std::erase_if(self.waiting_, [irp](const Waiting& waiting) { return waiting.Irp == irp; });
  irp->IoStatus.Status = STATUS_CANCELLED;
  IofCompleteRequest(irp, IO_NO_INCREMENT);
}

NTSTATUS HostileStack::CompleteNow(PIRP irp, URB& urb, NTSTATUS status, bool saysPending) {
  urb.UrbHeader.Status = AnyUrbStatus(*decisions_);
  irp->IoStatus.Status = status;
  if (saysPending) IoMarkIrpPending(irp);
  Finish(irp);
  return saysPending ? STATUS_PENDING : status;
}

NTSTATUS HostileStack::Finish(PIRP irp) {
  const NTSTATUS status = irp->IoStatus.Status;
  irp->IoStatus.Information = 0;
  CompleteAtDispatch(irp);
  return status;
}

void HostileStack::Complete(std::size_t index, USBD_STATUS urbStatus, NTSTATUS status) {
  const Waiting waiting = waiting_[index];
  waiting_.erase(waiting_.begin() + static_cast<std::ptrdiff_t>(index));
  // If the cancel routine was taken already, it runs and completes the request.
  if (waiting.CanBeCancelled && IoSetCancelRoutine(waiting.Irp, nullptr) == nullptr) return;
  if (!waiting.IsDone) {
    UrbOf(waiting.Irp).UrbHeader.Status = urbStatus;
    waiting.Irp->IoStatus.Status = status;
    waiting.Irp->IoStatus.Information = 0;
  }
  CompleteAtDispatch(waiting.Irp);
}

// Requests that arrive meanwhile are left for later.
void HostileStack::CompleteAll(USBD_STATUS status) {
  for (std::size_t left = waiting_.size(); left != 0 && !waiting_.empty(); --left) {
    const bool takesLast = decisions_ != nullptr && decisions_->OneIn(2);
    Complete(takesLast ? waiting_.size() - 1 : 0, status, STATUS_CANCELLED);
  }
}

void HostileStack::CompleteOne(Input& choice) {
  const auto chosen = choice.Take<std::uint8_t>();
  if (waiting_.empty()) return;
  const std::size_t index = chosen % waiting_.size();
  if (!waiting_[index].IsDone) Tamper(UrbOf(waiting_[index].Irp), waiting_[index].Irp);
  const USBD_STATUS urbStatus = AnyUrbStatus(choice);
  Complete(index, urbStatus, AnyStatus(choice));
}

void HostileStack::TurnHarmless() {
  decisions_ = nullptr;
  while (!waiting_.empty()) CompleteAll(USBD_STATUS_CANCELED);
}

void HostileStack::Tamper(URB& urb, PIRP irp) {
  if (decisions_ == nullptr || !decisions_->OneIn(2)) return;
  Input& input = *decisions_;
  if (input.OneIn(4)) urb.UrbHeader.Status = AnyUrbStatus(input);
  if (input.OneIn(8)) irp->IoStatus.Status = AnyStatus(input);
  switch (urb.UrbHeader.Function) {
    case URB_FUNCTION_ISOCH_TRANSFER:
      TamperWithPackets(urb.UrbIsochronousTransfer);
      break;
    case URB_FUNCTION_SELECT_INTERFACE:
      TamperWithInterface(urb.UrbSelectInterface.Interface);
      break;
    case URB_FUNCTION_SELECT_CONFIGURATION:
      TamperWithInterface(urb.UrbSelectConfiguration.Interface);
      break;
    case URB_FUNCTION_VENDOR_DEVICE:
      urb.UrbControlVendorClassRequest.TransferBufferLength = input.Take<ULONG>();
      break;
    case URB_FUNCTION_GET_DESCRIPTOR_FROM_DEVICE:
      urb.UrbControlDescriptorRequest.TransferBufferLength = input.Take<ULONG>();
      break;
    case URB_FUNCTION_BULK_OR_INTERRUPT_TRANSFER:
      urb.UrbBulkOrInterruptTransfer.TransferBufferLength =
          input.OneIn(4) ? input.Take<ULONG>()
                         : input.UpTo(urb.UrbBulkOrInterruptTransfer.TransferBufferLength);
      break;
    case URB_FUNCTION_GET_CURRENT_FRAME_NUMBER:
      urb.UrbGetCurrentFrameNumber.FrameNumber = input.Take<ULONG>();
      break;
    default:
      break;
  }
}

// The input determines the positions of packets that begin a frame, so that frames of any length
// end.
void HostileStack::TamperWithPackets(_URB_ISOCH_TRANSFER& urb) {
  if (urb.NumberOfPackets == 0) return;
  auto* const data = static_cast<std::uint8_t*>(urb.TransferBuffer);
  const std::uint32_t changes = decisions_->UpTo(7);
  for (std::uint32_t i = 0; i < changes; ++i) {
    USBD_ISO_PACKET_DESCRIPTOR& packet =
        (&urb.IsoPacket[0])[decisions_->UpTo(urb.NumberOfPackets - 1)];
    if (decisions_->OneIn(8)) packet.Offset = decisions_->Take<ULONG>();
    if (decisions_->OneIn(8)) packet.Status = AnyUrbStatus(*decisions_);
    packet.Length = decisions_->OneIn(8) ? decisions_->Take<ULONG>() : decisions_->UpTo(5120);
    const bool hasRoom =
        urb.TransferBufferLength >= 2 && packet.Offset < urb.TransferBufferLength - 1;
    if (!hasRoom || !decisions_->OneIn(2)) continue;
    data[packet.Offset] = 0xFF;
    data[packet.Offset + 1] = 0xD8;
  }
}

void HostileStack::TamperWithInterface(USBD_INTERFACE_INFORMATION& information) {
  constexpr std::size_t kHead = offsetof(USBD_INTERFACE_INFORMATION, Pipes);
  const std::size_t room =
      information.Length < kHead ? 0 : (information.Length - kHead) / sizeof(USBD_PIPE_INFORMATION);
  if (room != 0 && decisions_->OneIn(2)) {
    USBD_PIPE_INFORMATION& pipe =
        information.Pipes[decisions_->UpTo(static_cast<std::uint32_t>(room - 1))];
    if (decisions_->OneIn(4)) {
      decisions_->TakeInto(&pipe, sizeof(pipe));
    } else {
      pipe.MaximumPacketSize = decisions_->Take<USHORT>();
    }
  }
  if (decisions_->OneIn(4)) information.NumberOfPipes = decisions_->Take<ULONG>();
  if (decisions_->OneIn(8)) information.Length = decisions_->Take<USHORT>();
}

}  // namespace lidcam::fuzz
