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

/// An isochronous URB with its place in the schedule.
struct IsochronousTransfer : UsbRequest {
  USBD_PIPE_HANDLE Pipe = nullptr;
  std::uint8_t Endpoint = 0;
  ULONG BytesPerMicroframe = 0;
  LONGLONG EndTime = 0;    ///< interrupt time of the end of the last microframe
  bool IsAborted = false;  ///< an abort has cancelled its pipe's transfers
};

/// Checks a URB's own fields, without the bus: length, buffer and packets.
///
/// @return USBD_STATUS_SUCCESS, or why the URB is refused
[[nodiscard]] USBD_STATUS CheckIsochronousUrb(const _URB_ISOCH_TRANSFER& urb);

/// Reads the transfer's microframes from the bus into its buffer and sets every packet's length and
/// status. Blocks as long as the bus does.
///
/// @param packets  memory for the work, kept from one transfer to the next
/// @return the URB's status; USBD_STATUS_PENDING if the bus stays silent
[[nodiscard]] USBD_STATUS ReadTransfer(bus::UsbBus& bus, const IsochronousTransfer& transfer,
                                       _URB_ISOCH_TRANSFER& urb,
                                       std::vector<bus::IsochronousPacket>& packets);

/// Marks all packets of a transfer that never reached the bus as not accessed.
void MarkNotAccessed(_URB_ISOCH_TRANSFER& urb);

}  // namespace lidcam::host
