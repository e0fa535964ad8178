#pragma once

#include "platform/kernel.h"

namespace lidcam::host {

/// A URB submitted to the stack, until its completion.
struct UsbRequest {
  PIRP Irp = nullptr;
  URB* Urb = nullptr;

  /// The request's status; USBD_STATUS_PENDING until it has ended.
  USBD_STATUS Status = USBD_STATUS_PENDING;
  bool IsCancellable = false;
  bool IsCancelled = false;  ///< its cancel routine has run
  bool IsSilent = false;     ///< the device received the request and never answers
};

/// Accepts a request: it is pending from here on, and `cancel` may cancel it; with null it can't be
/// cancelled. Under the stack's lock.
///
/// @return false if it is cancelled already; the caller completes it then
[[nodiscard]] bool AcceptRequest(UsbRequest& request, PDRIVER_CANCEL cancel);

/// Whether a request that has ended can be completed now. If not, its cancel routine is running and
/// must finish with the request before that may be freed. Under the stack's lock.
[[nodiscard]] bool TakeFromCanceller(const UsbRequest& request);

/// Completes the request with `status` in it and in the URB. Neither may be touched afterwards.
/// Without the stack's lock.
///
/// @return the packet's status
NTSTATUS CompleteUrb(PIRP irp, URB& urb, USBD_STATUS status);

}  // namespace lidcam::host
