#include "scenarios/camera/interposer.h"

#include <stdexcept>
#include <utility>

#include "platform/host/nt/io/device_object.h"

namespace lidcam::scenarios {
namespace {

URB& UrbOf(PIRP irp) {
  return *static_cast<URB*>(IoGetCurrentIrpStackLocation(irp)->Parameters.Others.Argument1);
}

NTSTATUS Refuse(PIRP irp, URB& urb, USBD_STATUS urbStatus) {
  urb.UrbHeader.Status = urbStatus;
  irp->IoStatus.Status = STATUS_INVALID_PARAMETER;
  irp->IoStatus.Information = 0;
  IofCompleteRequest(irp, IO_NO_INCREMENT);
  return STATUS_INVALID_PARAMETER;
}

}  // namespace

Interposer::Interposer() {
  host::InitializeDriverObject(driver_);
  for (PDRIVER_DISPATCH& entry : driver_.MajorFunction) entry = PassOn;
  driver_.MajorFunction[IRP_MJ_INTERNAL_DEVICE_CONTROL] = Enter;
  KeInitializeDpc(&completer_, CompleteDone, this);
  KeInitializeEvent(&completed_, SynchronizationEvent, FALSE);
}

void Interposer::Attach(PDEVICE_OBJECT below) {
  if (!NT_SUCCESS(IoCreateDevice(&driver_, sizeof(Interposer*), nullptr, FILE_DEVICE_UNKNOWN, 0,
                                 FALSE, &device_))) {
    throw std::runtime_error("the kernel gives no device object to stand between");
  }
  *static_cast<Interposer**>(device_->DeviceExtension) = this;
  below_ = IoAttachDeviceToDeviceStack(device_, below);
  device_->Flags &= ~DO_DEVICE_INITIALIZING;
}

void Interposer::Detach() {
  if (device_ == nullptr) return;
  if (isOut_) KeWaitForSingleObject(&completed_, Executive, KernelMode, FALSE, nullptr);
  IoDetachDevice(below_);
  IoDeleteDevice(device_);
  device_ = nullptr;
}

NTSTATUS Interposer::PassOn(PDEVICE_OBJECT device, PIRP irp) {
  IoSkipCurrentIrpStackLocation(irp);
  return IofCallDriver((*static_cast<Interposer**>(device->DeviceExtension))->below_, irp);
}

NTSTATUS Interposer::Enter(PDEVICE_OBJECT device, PIRP irp) {
  return (*static_cast<Interposer**>(device->DeviceExtension))->Dispatch(irp);
}

NTSTATUS Interposer::SendToComplete(PIRP irp) {
  isOut_ = true;
  IoMarkIrpPending(irp);
  IoCopyCurrentIrpStackLocationToNext(irp);
  IoSetCompletionRoutine(irp, Done, this, TRUE, TRUE, TRUE);
  IofCallDriver(below_, irp);
  return STATUS_PENDING;
}

NTSTATUS Interposer::Done(PDEVICE_OBJECT, PIRP irp, PVOID context) {
  auto& self = *static_cast<Interposer*>(context);
  if (self.elsewhere_->Fails) UrbOf(irp).UrbHeader.Status = USBD_STATUS_ISOCH_REQUEST_FAILED;
  KeInsertQueueDpc(&self.completer_, irp, nullptr);
  return STATUS_MORE_PROCESSING_REQUIRED;
}

void Interposer::CompleteDone(PKDPC, PVOID context, PVOID irp, PVOID) {
  auto& self = *static_cast<Interposer*>(context);
  const CompletionElsewhere completion = *std::exchange(self.elsewhere_, std::nullopt);
  completion.Ahead();
  IofCompleteRequest(static_cast<PIRP>(irp), IO_NO_INCREMENT);
  completion.Behind();
  self.isOut_ = false;
  KeSetEvent(&self.completed_, IO_NO_INCREMENT, FALSE);
}

NTSTATUS Interposer::Dispatch(PIRP irp) {
  URB& urb = UrbOf(irp);
  if (look_) look_(irp, urb);
  const USHORT function = urb.UrbHeader.Function;
  if (function == URB_FUNCTION_ISOCH_TRANSFER && refusedTransfers_ != 0) {
    --refusedTransfers_;
    return Refuse(irp, urb, urbStatus_);
  }
  if (function == URB_FUNCTION_ISOCH_TRANSFER && elsewhere_ && !isOut_) return SendToComplete(irp);
  if (function == URB_FUNCTION_VENDOR_DEVICE && keptRequests_ != 0) {
    --keptRequests_;
    hasKept_ = true;
    IoMarkIrpPending(irp);
    return STATUS_PENDING;
  }
  IoSkipCurrentIrpStackLocation(irp);
  return IofCallDriver(below_, irp);
}

}  // namespace lidcam::scenarios
