#include "platform/host/usbd/requests/usb_request.h"

#include "platform/host/usbd/requests/usb_status.h"

namespace lidcam::host {

bool AcceptRequest(UsbRequest& request, PDRIVER_CANCEL cancel) {
  if (cancel != nullptr) {
    request.IsCancellable = true;
    IoSetCancelRoutine(request.Irp, cancel);
    // A cancellation before the routine was set only sets the request's Cancel.
    if (__atomic_load_n(&request.Irp->Cancel, __ATOMIC_RELAXED) != FALSE &&
        IoSetCancelRoutine(request.Irp, nullptr) != nullptr) {
      return false;
    }
  }
  request.Urb->UrbHeader.Status = USBD_STATUS_PENDING;
  IoMarkIrpPending(request.Irp);
  return true;
}

bool TakeFromCanceller(const UsbRequest& request) {
  return !request.IsCancellable || request.IsCancelled ||
         IoSetCancelRoutine(request.Irp, nullptr) != nullptr;
}

NTSTATUS CompleteUrb(PIRP irp, URB& urb, USBD_STATUS status) {
  const NTSTATUS result = ToNtStatus(status);
  urb.UrbHeader.Status = status;
  irp->IoStatus.Status = result;
  irp->IoStatus.Information = 0;
  IofCompleteRequest(irp, IO_NO_INCREMENT);
  return result;
}

}  // namespace lidcam::host
