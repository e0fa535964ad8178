#pragma once

#include <cstdint>

#include "driver/usb/records/usb_records.h"
#include "platform/kernel.h"

namespace lidcam {

/// Time that the bus work of one synchronous request may take. Waiting for its turn has no limit.
inline constexpr Time100ns kUrbTimeLimit = 50'000'000;

/// Sends an URB and waits until it has been carried out. All of a device's requests go one at a time.
///
/// @return the USB stack's status; STATUS_DEVICE_DATA_ERROR if the device is not open or gone,
///         STATUS_UNSUCCESSFUL without an IRP, STATUS_IO_TIMEOUT after kUrbTimeLimit and the
///         cancel. The caller reads the URB's own status.
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS SendUrb(UsbDeviceRecord& device, void* urb);

/// One vendor request to the device.
///
/// @param buffer  data stage; touched only within `*length` bytes
/// @param length  in: bytes of the data stage; out: bytes moved, 0 on failure. Null for no data stage
/// @param read    nonzero: from the device
/// @return the status of SendUrb(), or STATUS_INSUFFICIENT_RESOURCES
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS VendorRequest(TransportRecord& transport, std::uint8_t request, std::uint16_t value,
                       std::uint16_t index, void* buffer, std::uint32_t* length, std::uint8_t read);

/// The camera core's two request callbacks; `transport` is a TransportRecord. 0, or -1 on failure.
_IRQL_requires_max_(PASSIVE_LEVEL)
Status UsbWriteRequest(void* transport, std::uint32_t request, std::uint32_t index,
                       std::uint32_t value, void* buffer, std::uint32_t* length);
_IRQL_requires_max_(PASSIVE_LEVEL)
Status UsbReadRequest(void* transport, std::uint32_t request, std::uint32_t index,
                      std::uint32_t value, void* buffer, std::uint32_t* length);

/// Aborts all requests of a pipe.
/// @return the status of SendUrb(), or STATUS_INSUFFICIENT_RESOURCES
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS AbortPipe(UsbDeviceRecord& device, USBD_PIPE_HANDLE pipeHandle);

/// The two requests for a pipe.
enum class PipeRequest : std::uint8_t { Reset = 0, Abort = 1 };

/// Resets or aborts the stream's pipe.
/// @return the status of SendUrb(); STATUS_INSUFFICIENT_RESOURCES; STATUS_DEVICE_DATA_ERROR if the
///         interface has no such pipe
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS ResetPipe(UsbDeviceRecord& device, const UsbStreamRecord& stream,
                   USBD_INTERFACE_INFORMATION* interfaceInformation, PipeRequest request);

/// The bus frame number; 0 on any failure.
_IRQL_requires_max_(PASSIVE_LEVEL)
std::uint32_t GetCurrentFrame(UsbDeviceRecord& device);

/// An IRP that will carry `urb` to the USB stack; null without memory.
_IRQL_requires_max_(DISPATCH_LEVEL)
PIRP CreateUrbIrp(UsbDeviceRecord& device, void* context, void* urb,
                  PIO_COMPLETION_ROUTINE completionRoutine);

/// Prepares a completed IRP for being sent again. Its status is unchanged.
_IRQL_requires_max_(DISPATCH_LEVEL)
void RearmIrp(void* context, PIRP irp, void* urb, PIO_COMPLETION_ROUTINE completionRoutine);

/// Completion routine of a synchronous request: keeps the IRP and sets the event that `context` is.
NTSTATUS NTAPI UrbDone(PDEVICE_OBJECT device, PIRP irp, PVOID context);

}  // namespace lidcam
