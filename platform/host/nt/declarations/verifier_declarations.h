#pragma once

// What the driver tells the host's verifier, since no kernel call does. Nothing on Windows.

namespace lidcam {

/// This thread holds what a rundown protects: whoever runs it down waits for the release. Any level.
void NoteHoldTaken(const void* rundown);
void NoteHoldReleased(const void* rundown);

/// This thread is about to wait for all holds. An order that, with others seen before, can end with
/// everybody waiting is a violation.
void NoteHoldsAwaited(const void* rundown);

}  // namespace lidcam
