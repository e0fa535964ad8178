#pragma once

#include "driver/core/base/reference_counted_memory.h"
#include "platform/kernel.h"

namespace lidcam {

// Who has a transfer. Its memory is held by the stream that owns it and, while the transfer is on its
// way round, once more: that hold goes from the sender to the USB stack, the queue, the frame thread
// and the USB stack again. Whoever takes it has the transfer for himself. A start may find a transfer
// that the frame thread still walks, because its InFlight is 0 by then: it leaves a wish, and the
// thread sends the transfer instead of putting it away.

/// Takes a transfer that is at home. The caller keeps the owner from giving the memory up meanwhile.
///
/// @return false if it is in use; the user resubmits it for the start
_IRQL_requires_max_(DISPATCH_LEVEL)
[[nodiscard]] bool TakeForStart(ReferenceCountedMemory& memory);

/// Takes back a start's wish. The caller holds the memory or keeps the owner from giving it up.
_IRQL_requires_max_(DISPATCH_LEVEL)
void ForgetStart(ReferenceCountedMemory& memory);

/// Puts the transfer away, unless a start wants it.
///
/// @return true if the caller still has it and is to send it
_IRQL_requires_max_(DISPATCH_LEVEL)
[[nodiscard]] bool PutAwayUnlessWanted(ReferenceCountedMemory& memory);

/// A completion routine asks whether it may work on the owner's records. The caller holds the memory.
///
/// @return false if the owner has given the memory up: the records may serve another stream by now, or
///         be gone. Otherwise EndCompletion() has to follow, and the owner keeps the records till then.
_IRQL_requires_max_(DISPATCH_LEVEL)
[[nodiscard]] bool BeginCompletion(ReferenceCountedMemory& memory);

/// The owner keeps the memory till this, whatever became of the caller's own hold meanwhile.
_IRQL_requires_max_(DISPATCH_LEVEL)
void EndCompletion(ReferenceCountedMemory& memory);

/// The owner gives the transfer up: completion routines that have begun with it have ended when this
/// returns, and later ones only let go of it.
_IRQL_requires_max_(PASSIVE_LEVEL)
void GiveUpTransfer(ReferenceCountedMemory& memory);

/// Puts the transfer away, whoever wants it. The memory goes if the owner has given it up.
_IRQL_requires_max_(DISPATCH_LEVEL)
void PutAway(ReferenceCountedMemory& memory);

}  // namespace lidcam
