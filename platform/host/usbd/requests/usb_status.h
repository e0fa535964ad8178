#pragma once

#include "bus/usb_bus.h"
#include "platform/kernel.h"

namespace lidcam::host {

/// What a driver is told about a request that ended on the bus with `status`. A silent bus gives
/// USBD_STATUS_PENDING: the request hasn't ended.
[[nodiscard]] USBD_STATUS FromBus(bus::UsbStatus status);

/// The request packet's status that goes with a URB's.
[[nodiscard]] NTSTATUS ToNtStatus(USBD_STATUS status);

}  // namespace lidcam::host
