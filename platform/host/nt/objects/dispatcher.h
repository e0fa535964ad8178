#pragma once

#include <cstddef>
#include <mutex>
#include <span>

#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/verifier/calls/call_rules.h"

namespace lidcam::host {

/// The platform's numbers of the kinds of dispatcher objects in DISPATCHER_HEADER.Type.
enum DispatcherType : UCHAR {
  kNotificationEventType = 0,
  kSynchronizationEventType = 1,
  kMutexType = 2,
  kSemaphoreType = 5,
  kThreadType = 6,
  kNotificationTimerType = 8,
  kSynchronizationTimerType = 9,
};

struct Wait;

/// A thread's entry in the queue of one object that it waits for. Without initialisers: a wait has room for 64 of them,
/// and uses one.
struct WaitEntry {
  LIST_ENTRY Link;
  Wait* Owner;
  DISPATCHER_HEADER* Object;
};

/// One wait of one thread, on the thread's stack; other threads access it under the world's lock.
struct Wait {
  Thread& Self;
  WAIT_TYPE Type;
  std::span<WaitEntry> Entries;
  bool IsQueued = false;
  bool IsDone = false;
  NTSTATUS Status = STATUS_UNSUCCESSFUL;
  bool HasLimit = false;
};

/// Fills the header of a fresh object.
void InitializeHeader(DISPATCHER_HEADER& header, UCHAR type, std::size_t size, LONG state);

/// A semaphore with a count and a limit of 1 is used as a lock: its order with other locks is
/// checked, and the thread that takes it releases it.
inline void MarkAsLock(KSEMAPHORE& semaphore, bool isLock) {
  semaphore.Header.Absolute = isLock ? 1 : 0;
}
inline bool IsLock(const DISPATCHER_HEADER& header) {
  return header.Type == kSemaphoreType && header.Absolute != 0;
}

/// Passes the object's signal to its waiters, first come first served, as long as it is signalled.
/// Under the world's lock.
void WakeWaiters(DISPATCHER_HEADER& header);

/// The interrupt time of a time limit or a timer's time: negative ones count from now, others are
/// system times. Limited to a hundred years.
[[nodiscard]] LONGLONG DueTime(const Scheduler& world, const LARGE_INTEGER& time);

/// Waits for one or all of `objects`; without objects, for the time limit only.
NTSTATUS WaitForObjects(const CallRule& rule, std::span<const PVOID> objects, WAIT_TYPE type,
                        const LARGE_INTEGER* limit);

/// Starts a timer, or restarts it. Under the lock.
///
/// @return whether it was set before
bool SetTimer(Scheduler& world, PKTIMER timer, LONGLONG due);

/// Queues a deferred call. Under the lock.
///
/// @return false if it is queued already
bool QueueDeferredCall(Scheduler& world, PKDPC dpc, PVOID argument1, PVOID argument2);
}  // namespace lidcam::host
