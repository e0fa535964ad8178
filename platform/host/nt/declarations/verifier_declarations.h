#pragma once

// What the driver reports to the host's verifier, because no kernel call shows it. Nothing on
// Windows.

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam {

/// A caller above `level` is a violation of `operation`, the name of the calling function.
void RequireLevelAtMost(KIRQL level, const char* operation = __builtin_FUNCTION());

/// Reports an NT_ASSERT() that failed in `operation`, and ends the caller.
[[noreturn]] void ReportFailedAssertion(const char* condition,
                                        const char* operation = __builtin_FUNCTION());

/// This thread holds a reference of a rundown: closing the rundown waits for its release. Any
/// level.
void NoteHoldTaken(const void* rundown);
void NoteHoldReleased(const void* rundown);

/// This thread is about to wait for all holds. An order that, with others seen before, can end in a
/// deadlock is a violation.
void NoteHoldsAwaited(const void* rundown);

}  // namespace lidcam
