#pragma once

#include "driver/core/base/reference_counted_memory.h"
#include "platform/kernel.h"

namespace lidcam {

// Ownership of transfers. The stream that owns a transfer holds its memory; while the transfer is
// in use, there is a second hold, which is passed from the sender to the USB stack, the queue, the
// frame thread and the USB stack again. Its holder has the transfer alone. A start may find a
// transfer that the frame thread still walks, because its InFlight is 0 by then: it sets a request
// flag, and the thread resubmits the transfer instead of ending its use.

/// Takes a transfer that is not in use. The caller keeps the owner from giving the memory up
/// meanwhile.
///
/// @return false if it is in use; the user resubmits it for the start
_IRQL_requires_max_(DISPATCH_LEVEL)
[[nodiscard]] bool TakeForStart(ReferenceCountedMemory& memory);

/// Clears a start's request. The caller holds the memory or keeps the owner from giving it up.
_IRQL_requires_max_(DISPATCH_LEVEL)
void ForgetStart(ReferenceCountedMemory& memory);

/// Ends the use of the transfer, unless a start has requested it.
///
/// @return true if the caller still has it and is to send it
_IRQL_requires_max_(DISPATCH_LEVEL)
[[nodiscard]] bool ReleaseUnlessRequested(ReferenceCountedMemory& memory);

/// Begins a completion routine's work on the owner's records. The caller holds the memory.
///
/// @return false if the owner has given the memory up: the records may serve another stream by now, or
///         be gone. Otherwise EndCompletion() has to follow, and the owner keeps the records till then.
_IRQL_requires_max_(DISPATCH_LEVEL)
[[nodiscard]] bool BeginCompletion(ReferenceCountedMemory& memory);

/// Ends it. The owner keeps the memory until then, even if the caller's own hold is gone.
_IRQL_requires_max_(DISPATCH_LEVEL)
void EndCompletion(ReferenceCountedMemory& memory);

/// Releases the owner's hold: completion routines that have begun with the transfer have ended when
/// this returns, and later ones only release it.
_IRQL_requires_max_(PASSIVE_LEVEL)
void GiveUpTransfer(ReferenceCountedMemory& memory);

/// Ends the use of the transfer, even if a start has requested it. The memory is freed if the owner
/// has given it up.
_IRQL_requires_max_(DISPATCH_LEVEL)
void PutAway(ReferenceCountedMemory& memory);

}  // namespace lidcam
