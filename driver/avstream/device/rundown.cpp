#include "driver/avstream/device/rundown.h"

namespace lidcam {
namespace {

// Layout of the state: the low bits count the users, the bits above those users that have stopped.
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

// Adds `change` to `state` atomically; returns the value before. The sum wraps: a second close, which
// the caller asserts against, is no undefined behaviour.
LONG Add(volatile LONG& state, LONG change) {
  for (LONG seen = Read(state);;) {
    const auto sum = static_cast<LONG>(static_cast<ULONG>(seen) + static_cast<ULONG>(change));
    const LONG before = InterlockedCompareExchange(&state, sum, seen);
    if (before == seen) return before;
    seen = before;
  }
}

}  // namespace

Rundown::Rundown() {
  KeInitializeEvent(&empty_, SynchronizationEvent, FALSE);
}

bool Rundown::Enter() {
  RequireLevelAtMost(DISPATCH_LEVEL);
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

// Called after the step that made `state`. The memory may be freed already, unless Close() waits
// for this very step: exactly one of the users that leave or stop finds no other one left.
void Rundown::WakeCloser(LONG state) {
  const bool isClosed = (state & kClosed) != 0;
  if (isClosed && Awaited(state) == 0) KeSetEvent(&empty_, IO_NO_INCREMENT, FALSE);
}

void Rundown::Leave() {
  RequireLevelAtMost(DISPATCH_LEVEL);
  NoteHoldReleased(this);
  WakeCloser(InterlockedDecrement(&state_));
}

void Rundown::Abandon() {
  RequireLevelAtMost(DISPATCH_LEVEL);
  NoteHoldReleased(this);
  WakeCloser(Add(state_, kStopped) + kStopped);
}

// No user enters after the close, so there is exactly one last user, which sets the event.
void Rundown::Close() {
  RequireLevelAtMost(PASSIVE_LEVEL);
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
