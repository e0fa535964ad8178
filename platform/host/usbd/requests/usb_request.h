#pragma once

#include "platform/kernel.h"

namespace lidcam::host {

/// A URB that a driver has handed to the stack, from its submission to its completion.
struct UsbRequest {
  PIRP Irp = nullptr;
  URB* Urb = nullptr;

  /// How the request has ended; USBD_STATUS_PENDING until then.
  USBD_STATUS Status = USBD_STATUS_PENDING;
  bool IsCancellable = false;
  bool IsCancelled = false;  ///< its cancel routine has run
  bool IsSilent = false;     ///< the device was asked and never answers
};

/// Takes a request in: its packet is pending from here on and may be cancelled by `cancel`, or not
/// at all if that is null. Under the stack's lock.
///
/// @return false if it has been cancelled already; it is the caller's to complete then
[[nodiscard]] bool AcceptRequest(UsbRequest& request, PDRIVER_CANCEL cancel);

/// Whether a request that has ended can be completed now. If not, its cancel routine is on its way
/// and must have seen the packet before that is gone. Under the stack's lock.
[[nodiscard]] bool TakeFromCanceller(const UsbRequest& request);

/// Gives the packet back to its driver with `status` in it and in the URB. Neither may be touched
/// after that. Without the stack's lock.
///
/// @return the packet's status
NTSTATUS CompleteUrb(PIRP irp, URB& urb, USBD_STATUS status);

}  // namespace lidcam::host
