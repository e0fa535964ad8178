#pragma once

#include <cstddef>
#include <vector>

#include "platform/host/nt/scheduling/scheduler.h"

namespace lidcam::host {

/// Objects that drivers initialise in their own memory, or get from the kernel, and may misuse.
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

/// Notes that an object was initialised by the calling thread. Doing so again is allowed, but not
/// while the object is in use.
void RegisterObject(const char* call, ObjectKind kind, const void* object, std::size_t size);

/// Whether an object was initialised at this address, and neither forgotten nor freed since.
[[nodiscard]] bool IsRegisteredObject(const void* object);

/// Checks that `object` was initialised as one of `kind`, in the calling thread's world, and has
/// not been overwritten since.
void ExpectObject(const char* call, ObjectKind kind, const void* object);

/// An object that a call uses, checked as by ExpectObject(). No other call finds an object while this exists: for a few
/// instructions, without kernel calls.
class ObjectInCall {
 public:
  ObjectInCall(const char* call, ObjectKind kind, const void* object);
  ObjectInCall(const ObjectInCall&) = delete;
  ObjectInCall& operator=(const ObjectInCall&) = delete;
  ~ObjectInCall();

  /// As SetObjectInUse().
  void SetInUse(const char* why);

 private:
  struct ObjectRecord* record_;
};

/// As ExpectObject(), for any of the kinds that can be waited for.
///
/// @return the kind
ObjectKind ExpectDispatcherObject(const char* call, const void* object);

/// Sets why the object must not be freed now ("is still set"); null clears it. The text must
/// outlive the object.
void SetObjectInUse(const void* object, const char* why);

/// Changes the number of threads that wait for an object.
void CountWaiters(const void* object, int change);

/// Removes the object's record.
void ForgetObject(const void* object);

/// Memory is freed: no object in it may be in use. Removes their records.
void CheckFreedMemory(const char* call, const void* memory, std::size_t size);

/// Thread objects of a world that are still referenced.
[[nodiscard]] std::vector<const void*> ThreadObjectsOfWorld(const Scheduler& world);

/// Removes the records of all objects of a world that ends.
void ForgetWorld(const Scheduler& world);

/// A thread or work item of this world that was not released, with its kind; empty if none.
[[nodiscard]] std::string FindKeptObject(const Scheduler& world);

/// A timer, deferred call or work item of this world that still is to run; empty if none.
[[nodiscard]] std::string FindPendingObject(const Scheduler& world);

}  // namespace lidcam::host
