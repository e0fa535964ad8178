#include "driver/avstream/device/rundown.h"

namespace lidcam {
namespace {

// Of the state: users count in its low bits, those of them that have stopped above.
constexpr LONG kStopped = 0x8000;
constexpr LONG kUsers = kStopped - 1;
constexpr LONG kClosed = 0x40000000;

// Users that will leave.
LONG Awaited(LONG state) {
  return (state & kUsers) - (state & ~kClosed) / kStopped;
}

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

Rundown::Rundown() {
  KeInitializeEvent(&empty_, SynchronizationEvent, FALSE);
}

bool Rundown::Enter() {
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

// Behind the step that made `state`. The memory may be gone unless Close() waits for this very step:
// exactly one of the users that leave or stop finds no other one left.
void Rundown::WakeCloser(LONG state) {
  const bool isClosed = (state & kClosed) != 0;
  if (isClosed && Awaited(state) == 0) KeSetEvent(&empty_, IO_NO_INCREMENT, FALSE);
}

void Rundown::Leave() {
  NoteHoldReleased(this);
  WakeCloser(InterlockedDecrement(&state_));
}

void Rundown::Abandon() {
  NoteHoldReleased(this);
  WakeCloser(Add(state_, kStopped) + kStopped);
}

// No user comes in once it is closed, so that the last one leaves once: exactly then the event is set.
void Rundown::Close() {
  NoteHoldsAwaited(this);
  const LONG before = Add(state_, kClosed);
  NT_ASSERT((before & kClosed) == 0);
  if (Awaited(before) <= 0) return;
  KeWaitForSingleObject(&empty_, Executive, KernelMode, FALSE, nullptr);
}

void Rundown::Open() {
  [[maybe_unused]] const LONG before = Add(state_, -kClosed);
  NT_ASSERT((before & kClosed) != 0);
}

}  // namespace lidcam
