#include "tests/on_wine/ks/inner_request.h"

namespace lidcam::wine {
namespace {

NTSTATUS NTAPI WakeSender(PDEVICE_OBJECT, PIRP, PVOID event) {
  KeSetEvent(static_cast<PKEVENT>(event), IO_NO_INCREMENT, FALSE);
  return STATUS_MORE_PROCESSING_REQUIRED;
}

}  // namespace

InnerRequest::InnerRequest(PDEVICE_OBJECT device, FILE_OBJECT& file, UCHAR majorFunction)
    : device_(device), irp_(IoAllocateIrp(device->StackSize, FALSE)) {
  if (irp_ == nullptr) return;
  irp_->RequestorMode = KernelMode;
  irp_->Tail.Overlay.OriginalFileObject = &file;
  Location().MajorFunction = majorFunction;
  Location().FileObject = &file;
}

InnerRequest::~InnerRequest() {
  if (irp_ != nullptr) IoFreeIrp(irp_);
}

NTSTATUS InnerRequest::Send() {
  if (irp_ == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  KEVENT done{};
  KeInitializeEvent(&done, NotificationEvent, FALSE);
  Start(WakeSender, &done);
  KeWaitForSingleObject(&done, Executive, KernelMode, FALSE, nullptr);
  return irp_->IoStatus.Status;
}

void InnerRequest::Start(PIO_COMPLETION_ROUTINE completed, PVOID context) {
  IoSetCompletionRoutine(irp_, completed, context, TRUE, TRUE, TRUE);
  IoCallDriver(device_, irp_);
}

}  // namespace lidcam::wine
