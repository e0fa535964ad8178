#include "driver/usb/transfers/transfer_ownership.h"

#include "driver/core/record/timed_wait.h"

namespace lidcam {
namespace {

// ReferenceCountedMemory::Holds of a transfer, with the flag of a start's request above the count.
constexpr LONG kIdle = 1;
constexpr LONG kInFlight = 2;
constexpr LONG kStartRequested = 0x10000;

LONG HoldsOf(ReferenceCountedMemory& memory) {
  return InterlockedCompareExchange(&memory.Holds, 0, 0);
}

bool Exchange(ReferenceCountedMemory& memory, LONG expected, LONG wanted) {
  return InterlockedCompareExchange(&memory.Holds, wanted, expected) == expected;
}

}  // namespace

bool TakeForStart(ReferenceCountedMemory& memory) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  for (;;) {
    const LONG holds = HoldsOf(memory);
    if (holds == kIdle) {
      if (Exchange(memory, kIdle, kInFlight)) return true;
    } else if (Exchange(memory, holds, holds | kStartRequested)) {
      return false;
    }
  }
}

void ForgetStart(ReferenceCountedMemory& memory) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  for (;;) {
    const LONG holds = HoldsOf(memory);
    if ((holds & kStartRequested) == 0) return;
    if (Exchange(memory, holds, holds & ~kStartRequested)) return;
  }
}

bool ReleaseUnlessRequested(ReferenceCountedMemory& memory) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  if (Exchange(memory, kInFlight, kIdle)) return false;
  if (memory.GivenUp == 0) {
    // The owner has not given it up, so the flag of a start made the exchange fail.
    ForgetStart(memory);
    return true;
  }
  PutAway(memory);
  return false;
}

// Counted before the test: an owner that gives the memory up is either seen here or sees the count.
bool BeginCompletion(ReferenceCountedMemory& memory) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  InterlockedIncrement(&memory.Completions);
  if (memory.GivenUp == 0) return true;
  EndCompletion(memory);
  return false;
}

void EndCompletion(ReferenceCountedMemory& memory) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  [[maybe_unused]] const LONG left = InterlockedDecrement(&memory.Completions);
  NT_ASSERT(left >= 0);
}

void GiveUpTransfer(ReferenceCountedMemory& memory) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  memory.GivenUp = 1;
  while (InterlockedCompareExchange(&memory.Completions, 0, 0) != 0) SleepOnePoll();
  LetGo(memory);
}

void PutAway(ReferenceCountedMemory& memory) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  for (;;) {
    const LONG holds = HoldsOf(memory);
    if ((holds & ~kStartRequested) == kIdle) break;
    if (Exchange(memory, holds, (holds & ~kStartRequested) - 1)) return;
  }
  // The owner has given it up: no start can need it any more.
  ForgetStart(memory);
  LetGo(memory);
}

}  // namespace lidcam
