#pragma once

#include "bus/usb_bus.h"
#include "platform/kernel.h"

namespace lidcam::host {

/// The URB status of a request that ended on the bus with `status`. A silent bus gives
/// USBD_STATUS_PENDING: the request hasn't ended.
[[nodiscard]] USBD_STATUS FromBus(bus::UsbStatus status);

/// The status of the request packet that corresponds to a URB's.
[[nodiscard]] NTSTATUS ToNtStatus(USBD_STATUS status);

}  // namespace lidcam::host
