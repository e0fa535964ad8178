#pragma once

#include "platform/host/ks/ks_declarations.h"

namespace lidcam::host {

/// What stands behind a KSOBJECT_BAG: items that go with the object that has the bag, the youngest
/// first. All under `mutex`, the device's: a caller that doesn't hold it is a violation.
class ObjectBag {
 public:
  explicit ObjectBag(KMUTEX& mutex) : mutex_(mutex) { InitializeListHead(&items_); }
  ObjectBag(const ObjectBag&) = delete;
  ObjectBag& operator=(const ObjectBag&) = delete;

  /// @param free  null frees to the pool
  /// @return STATUS_INSUFFICIENT_RESOURCES if there is no memory for the entry
  NTSTATUS Add(PVOID item, PFNKSFREE free);

  /// @return how often the item was in the bag
  ULONG Remove(PVOID item, bool free);

  /// Frees all that is in the bag.
  void Empty();

 private:
  void ExpectMutex(const char* call) const;

  KMUTEX& mutex_;
  LIST_ENTRY items_{};  ///< the youngest first
};

}  // namespace lidcam::host
