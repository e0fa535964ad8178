#include "driver/avstream/request_gate.h"

namespace lidcam {
namespace {

constexpr LONG kClosed = 0x40000000;

LONG Read(volatile LONG& state) {
  return InterlockedCompareExchange(&state, 0, 0);
}

// One atomic step from what `state` is to `change` more of it; what it was before.
LONG Add(volatile LONG& state, LONG change) {
  for (LONG seen = Read(state);;) {
    const LONG before = InterlockedCompareExchange(&state, seen + change, seen);
    if (before == seen) return before;
    seen = before;
  }
}

}  // namespace

RequestGate::RequestGate() {
  KeInitializeEvent(&empty_, SynchronizationEvent, FALSE);
}

bool RequestGate::Enter() {
  LONG seen = Read(state_);
  while ((seen & kClosed) == 0) {
    const LONG before = InterlockedCompareExchange(&state_, seen + 1, seen);
    if (before == seen) {
      NoteHoldTaken(this);
      return true;
    }
    seen = before;
  }
  return false;
}

void RequestGate::Leave() {
  NoteHoldReleased(this);
  if (InterlockedDecrement(&state_) == kClosed) KeSetEvent(&empty_, IO_NO_INCREMENT, FALSE);
}

// Nobody comes in once the gate is closed, so that the last one leaves once: exactly then is there
// something to wait for.
void RequestGate::Close() {
  NoteHoldsAwaited(this);
  if (Add(state_, kClosed) == 0) return;
  KeWaitForSingleObject(&empty_, Executive, KernelMode, FALSE, nullptr);
}

void RequestGate::Open() {
  Add(state_, -kClosed);
}

}  // namespace lidcam
