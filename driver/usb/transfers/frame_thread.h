#pragma once

#include <cstdint>

#include "driver/usb/records/usb_records.h"
#include "platform/kernel.h"

namespace lidcam {

/// Start routine of the one thread that assembles frames; `context` is the UsbDeviceRecord. Takes
/// completed transfers from the queue, walks their packets and resubmits them.
void NTAPI RawFrameThread(PVOID context);

/// Hands a completed transfer to the frame thread, with its hold on `memory`. Nothing is queued
/// once the thread is to end, the stream has given the memory up, or the transfer has another
/// memory: the hold is released then. Neither allocates nor waits.
///
/// @param memory  that of the completed request
/// @return 0 always
_IRQL_requires_max_(DISPATCH_LEVEL)
NTSTATUS QueueCompletedTransfer(IsoTransfer& transfer, ReferenceCountedMemory& memory);

/// Creates queue and thread.
/// @return the status of the thread's creation
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS StartFrameThread(UsbStreamRecord& stream);

/// Ends the thread and waits for its end, without a limit; not for a thread that was never created.
/// The queue is empty afterwards.
/// @par Waits, at whatever level it is called: from WDM level 3 on a raised one is possible
void StopFrameThread(UsbStreamRecord& stream);

}  // namespace lidcam
