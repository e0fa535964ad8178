#pragma once

// What the driver tells the host's verifier, since no kernel call does. Nothing on Windows.

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam {

/// A caller above `level` is a violation of `operation`, which is the name of the function that asks.
void RequireLevelAtMost(KIRQL level, const char* operation = __builtin_FUNCTION());

/// The end of an NT_ASSERT() that failed in `operation`.
[[noreturn]] void ReportFailedAssertion(const char* condition,
                                        const char* operation = __builtin_FUNCTION());

/// This thread holds what a rundown protects: whoever runs it down waits for the release. Any level.
void NoteHoldTaken(const void* rundown);
void NoteHoldReleased(const void* rundown);

/// This thread is about to wait for all holds. An order that, with others seen before, can end with
/// everybody waiting is a violation.
void NoteHoldsAwaited(const void* rundown);

}  // namespace lidcam
