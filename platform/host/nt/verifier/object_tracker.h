#pragma once

#include <cstddef>
#include <vector>

#include "platform/host/nt/scheduling/scheduler.h"

namespace lidcam::host {

/// What drivers make out of memory of their own, or get from the kernel, and may misuse.
enum class ObjectKind {
  Event,
  Semaphore,
  Mutex,
  Timer,
  Dpc,
  SpinLock,
  Thread,
  WorkItem,
  QueueItem
};

/// Writes down that an object was initialised by the calling thread. Doing so again is allowed, but
/// not while somebody uses the object.
void RegisterObject(const char* call, ObjectKind kind, const void* object, std::size_t size);

/// Checks that `object` was initialised as one of `kind`, in the world that uses it now, and wasn't
/// overwritten since.
void ExpectObject(const char* call, ObjectKind kind, const void* object);

/// As ExpectObject(), for any of the kinds that can be waited for.
///
/// @return the kind
ObjectKind ExpectDispatcherObject(const char* call, const void* object);

/// Says why the object must stay as it is for now ("is still set"); null ends that. The text is kept
/// by its address.
void SetObjectInUse(const void* object, const char* why);

/// Counts the threads that wait for an object.
void CountWaiters(const void* object, int change);

/// The object is no more.
void ForgetObject(const void* object);

/// Memory goes: no object in it may be in use. They are forgotten.
void CheckFreedMemory(const char* call, const void* memory, std::size_t size);

/// Thread objects of a world that somebody still refers to.
[[nodiscard]] std::vector<const void*> ThreadObjectsOfWorld(const Scheduler& world);

/// All objects of a world that goes.
void ForgetWorld(const Scheduler& world);

/// A thread or work item of this world that nobody has let go of, with its kind; empty if none.
[[nodiscard]] std::string FindKeptObject(const Scheduler& world);

/// A timer, deferred call or work item of this world that still is to run; empty if none.
[[nodiscard]] std::string FindPendingObject(const Scheduler& world);

}  // namespace lidcam::host
