#pragma once

#include <cstdint>
#include <vector>

#include "bus/usb_bus.h"
#include "platform/host/usbd/configuration/usb_configuration.h"
#include "platform/host/usbd/requests/usb_request.h"

namespace lidcam::host {

/// Times of the frame clock, in 100 ns of interrupt time.
inline constexpr LONGLONG kMicroframeTime = 1250;
inline constexpr LONGLONG kFrameTime = 8 * kMicroframeTime;

/// An isochronous URB in its place on the bus.
struct IsochronousTransfer : UsbRequest {
  USBD_PIPE_HANDLE Pipe = nullptr;
  std::uint8_t Endpoint = 0;
  ULONG BytesPerMicroframe = 0;
  LONGLONG EndTime = 0;    ///< interrupt time at which the last microframe is over
  bool IsAborted = false;  ///< an abort has taken its pipe's transfers back
};

/// Checks what a URB says about itself, without the bus: length, buffer and packets.
///
/// @return USBD_STATUS_SUCCESS, or why the URB is refused
[[nodiscard]] USBD_STATUS CheckIsochronousUrb(const _URB_ISOCH_TRANSFER& urb);

/// Reads the transfer's microframes from the bus into its buffer and tells every packet's length
/// and end. Blocks as the bus does.
///
/// @return how the URB ends; USBD_STATUS_PENDING if the bus stays silent
[[nodiscard]] USBD_STATUS ReadTransfer(bus::UsbBus& bus, const IsochronousTransfer& transfer,
                                       _URB_ISOCH_TRANSFER& urb);

/// Empties all packets of a transfer that never was on the bus.
void MarkNotAccessed(_URB_ISOCH_TRANSFER& urb);

}  // namespace lidcam::host
