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

/// Allocates one transfer for the pipe as it is now and makes it ready to send. A block left by a
/// failed acquisition is released first.
///
/// @return 0; STATUS_DEVICE_DATA_ERROR if the pipe is absent or has packet size 0;
///         STATUS_INSUFFICIENT_RESOURCES; the block, if it was allocated, stays until the release
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS PrepareIsoTransfer(UsbStreamRecord& stream, IsoTransfer& transfer);

/// Releases the stream's hold on one transfer: without other holders its IRP and then its memory
/// are freed, else by the last holder. `Irp` and `Urb` become null. Completion routines that have
/// begun with the transfer have ended when this returns. Does nothing to a transfer that owns no
/// memory.
_IRQL_requires_max_(PASSIVE_LEVEL)
void ReleaseIsoTransfer(IsoTransfer& transfer);

/// Fills the URB for the next submission, to start as soon as possible. The number of packets is
/// unchanged; if the pipe's packets have grown beyond `bufferSize` since the transfer was made,
/// they are cut at the buffer's end.
///
/// @return 0 always
NTSTATUS BuildIsoUrb(const IsoPipeline& pipeline, _URB_ISOCH_TRANSFER& urb,
                     const USBD_PIPE_INFORMATION& pipeInformation, void* buffer,
                     std::uint32_t bufferSize);

/// Sends all transfers that are not in use, back to back from a frame ahead of the current one.
///
/// @return the status of a pipe reset that failed, or the result of the last transfer: 0,
///         STATUS_DEVICE_DATA_ERROR if the device is gone or the transfer was released, or the
///         status of the send
/// @par Under the device's mutex
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS StartTransfers(UsbStreamRecord& stream);

/// Rebuilds and resubmits one transfer after the walk of its packets, to start as soon as possible;
/// not if the device is gone or the stream has given the memory up.
///
/// @param memory  the transfer's, held by the caller; the hold is passed on with the transfer or
///                released
/// @par Callable on the frame thread only
void ResubmitTransfer(IsoTransfer& transfer, ReferenceCountedMemory& memory);

/// Completion routine. `context` is the transfer's ReferenceCountedMemory, whose Owner is the
/// IsoTransfer; a memory that is given up is only released. Neither allocates nor waits.
/// @return STATUS_MORE_PROCESSING_REQUIRED always
NTSTATUS NTAPI IsoTransferCompleted(PDEVICE_OBJECT device, PIRP irp, PVOID context);

/// 1 if InFlight of any transfer is above 0, else 0.
_IRQL_requires_max_(DISPATCH_LEVEL)
std::uint8_t AnyTransferInFlight(const UsbStreamRecord& stream);

}  // namespace lidcam
