// The kernel's mutexes fail when threads compete for one: a waiter acquires it only when the owner
// thread ends. Its events work: the mutexes are built from these, in the mutexes' memory.

#include "platform/host/ks/objects/class_mutex.h"

namespace lidcam::host {
namespace {

struct EventMutex {
  KEVENT IsFree;
  volatile HANDLE Holder;  ///< a thread's id
  ULONG Depth;             ///< number of acquisitions by the holder
};
static_assert(sizeof(EventMutex) <= sizeof(KMUTEX));

EventMutex& EventMutexOf(KMUTEX& mutex) {
  return reinterpret_cast<EventMutex&>(mutex);
}

}  // namespace

void InitializeMutex(KMUTEX& mutex) {
  EventMutex& own = EventMutexOf(mutex);
  KeInitializeEvent(&own.IsFree, SynchronizationEvent, TRUE);
  own.Holder = nullptr;
  own.Depth = 0;
}

void AcquireMutex(KMUTEX& mutex) {
  EventMutex& own = EventMutexOf(mutex);
  HANDLE const self = PsGetCurrentThreadId();
  // No other thread writes this thread's id.
  if (own.Holder != self) {
    KeWaitForSingleObject(&own.IsFree, Executive, KernelMode, FALSE, nullptr);
    own.Holder = self;
  }
  ++own.Depth;
}

void ReleaseMutex(KMUTEX& mutex) {
  EventMutex& own = EventMutexOf(mutex);
  if (--own.Depth != 0) return;
  own.Holder = nullptr;
  KeSetEvent(&own.IsFree, IO_NO_INCREMENT, FALSE);
}

int Unwindings() {
  return 0;
}

}  // namespace lidcam::host
