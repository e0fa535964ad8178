#pragma once

#include <cstdint>

#include "driver/usb/records/usb_records.h"
#include "platform/kernel.h"

namespace lidcam {

/// Frames between the current one and the first start frame.
inline constexpr std::uint32_t kStartFrameLead = 10;

/// Bytes of the URB of an isochronous transfer: one packet descriptor more than its packets need.
constexpr std::uint32_t IsoUrbSize(std::uint32_t packets) {
  return static_cast<std::uint32_t>(sizeof(_URB_ISOCH_TRANSFER)) +
         packets * static_cast<std::uint32_t>(sizeof(USBD_ISO_PACKET_DESCRIPTOR));
}

/// Allocates one transfer for the pipe as it stands and makes it ready to go. A block that an
/// acquisition which failed has left is let go of first.
///
/// @return 0; STATUS_DEVICE_DATA_ERROR if the pipe is absent or has packet size 0;
///         STATUS_INSUFFICIENT_RESOURCES, when the block, if it was had, stays until the release
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS PrepareIsoTransfer(UsbStreamRecord& stream, IsoTransfer& transfer);

/// Lets go of one transfer: what nobody else holds is freed, the IRP first. `Irp` and `Urb` become
/// null; who still holds the memory frees it later. Completion routines that have begun with the
/// transfer have ended when this returns. Does nothing to a transfer that owns no memory.
_IRQL_requires_max_(PASSIVE_LEVEL)
void ReleaseIsoTransfer(IsoTransfer& transfer);

/// Fills the URB for the next trip, to start as soon as possible. The packets keep their number; where
/// the pipe has grown beyond `bufferSize` since the transfer was made, lengths end with the buffer.
///
/// @return 0 always
NTSTATUS BuildIsoUrb(const IsoPipeline& pipeline, _URB_ISOCH_TRANSFER& urb,
                     const USBD_PIPE_INFORMATION& pipeInformation, void* buffer,
                     std::uint32_t bufferSize);

/// Sends all transfers that are at home, back to back from a frame ahead of the current one.
///
/// @return the status of a pipe reset that failed, or what came of the last transfer: 0,
///         STATUS_DEVICE_DATA_ERROR if the device is gone or the transfer was released, or what the
///         send gave
/// @par Under the device's mutex
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS StartTransfers(UsbStreamRecord& stream);

/// Rebuilds and sends one transfer after the walk of its packets, as soon as possible; nothing if the
/// device is gone or the stream has given the memory up.
///
/// @param memory  the transfer's, held by the caller; the hold goes on with the transfer or is let go
/// @par Callable on the frame thread only
void ResubmitTransfer(IsoTransfer& transfer, ReferenceCountedMemory& memory);

/// Completion routine. `context` is the transfer's ReferenceCountedMemory, whose Owner is the IsoTransfer; one
/// that is given up is only let go of. Neither allocates nor waits.
/// @return STATUS_MORE_PROCESSING_REQUIRED always
NTSTATUS NTAPI IsoTransferCompleted(PDEVICE_OBJECT device, PIRP irp, PVOID context);

/// 1 if InFlight of any transfer is above 0, else 0.
_IRQL_requires_max_(DISPATCH_LEVEL)
std::uint8_t AnyTransferInFlight(const UsbStreamRecord& stream);

}  // namespace lidcam
