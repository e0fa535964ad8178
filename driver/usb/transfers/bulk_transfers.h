#pragma once

#include <cstdint>

#include "driver/usb/records/usb_records.h"
#include "platform/kernel.h"

namespace lidcam {

using BulkCallback = void (*)(CameraContext* camera, void* context, NTSTATUS status);

/// Moves a buffer of any length over a bulk or interrupt pipe, in chunks.
///
/// @param stream    null for a standalone transfer: it is allocated, and frees itself
/// @param transfer  used with a stream; ignored without one
/// @param pipe      entry of the pipe table
/// @param callback  called when a standalone transfer is done; may be null
/// @param repeat    nonzero: restart the same transfer when it is done
_IRQL_requires_max_(DISPATCH_LEVEL)
NTSTATUS StartBulkTransfer(UsbDeviceRecord& device, UsbStreamRecord* stream, BulkTransfer* transfer,
                           std::uint8_t* buffer, std::uint32_t length, std::uint32_t pipe,
                           BulkCallback callback, std::uint8_t repeat);

/// Completion routine; `context` is the BulkTransfer.
/// @return STATUS_MORE_PROCESSING_REQUIRED always
NTSTATUS NTAPI BulkTransferCompleted(PDEVICE_OBJECT device, PIRP irp, PVOID context);

/// Restarts a transfer with the length of its last chunk; the old one is freed if standalone.
NTSTATUS RestartBulkTransfer(UsbDeviceRecord& device, std::uint32_t pipe, BulkTransfer& transfer);

/// Restarts the transfers in the pipes' pending lists.
/// @return the last restart's status, or 0
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS RestartPendingTransfers(UsbDeviceRecord& device);

}  // namespace lidcam
