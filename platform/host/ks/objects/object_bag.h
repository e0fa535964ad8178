#pragma once

#include "platform/kernel.h"

namespace lidcam::host {

/// The object behind a KSOBJECT_BAG: items that are freed with the bag's owner, the youngest first.
/// Each operation takes `mutex`, the device's, itself; callers may hold it. Items are freed without
/// it, unless the caller holds it. Passive level.
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

  /// _KsEdit().
  NTSTATUS Edit(PVOID& item, ULONG newSize, ULONG oldSize, ULONG tag);

  /// Frees all items.
  void Empty();

 private:
  NTSTATUS AddUnderMutex(PVOID item, PFNKSFREE free);
  void Acquire();
  void Release();

  KMUTEX& mutex_;
  LIST_ENTRY items_{};  ///< the youngest first
};

}  // namespace lidcam::host
