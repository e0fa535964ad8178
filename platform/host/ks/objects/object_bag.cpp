#include "platform/host/ks/objects/object_bag.h"

#include <cstring>

#include "platform/host/ks/objects/class_mutex.h"

namespace lidcam::host {
namespace {

constexpr ULONG kPoolTag = 0x6742534B;  // "KSBg"

/// One item of a bag, however often it was put in.
struct BagItem {
  LIST_ENTRY Link;
  PVOID Item;
  PFNKSFREE Free;
  ULONG Count;
};

BagItem* Find(LIST_ENTRY& items, PVOID item) {
  for (LIST_ENTRY* link = items.Flink; link != &items; link = link->Flink) {
    auto* const entry = CONTAINING_RECORD(link, BagItem, Link);
    if (entry->Item == item) return entry;
  }
  return nullptr;
}

/// Frees an entry that has left the list. The bag holds no mutex: the driver's free routine may be
/// called.
void Drop(BagItem* entry, bool free) {
  const BagItem dropped = *entry;
  ExFreePool(entry);
  if (!free) return;
  if (dropped.Free == nullptr) {
    ExFreePool(dropped.Item);
  } else {
    dropped.Free(dropped.Item);
  }
}

}  // namespace

void ObjectBag::Acquire() {
  AcquireMutex(mutex_);
}

void ObjectBag::Release() {
  ReleaseMutex(mutex_);
}

NTSTATUS ObjectBag::Add(PVOID item, PFNKSFREE free) {
  Acquire();
  const NTSTATUS status = AddUnderMutex(item, free);
  Release();
  return status;
}

NTSTATUS ObjectBag::AddUnderMutex(PVOID item, PFNKSFREE free) {
  if (BagItem* const known = Find(items_, item)) {
    ++known->Count;
    return STATUS_SUCCESS;
  }
  auto* const entry =
      static_cast<BagItem*>(ExAllocatePoolWithTag(NonPagedPool, sizeof(BagItem), kPoolTag));
  if (entry == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  *entry = {{}, item, free, 1};
  LIST_ENTRY* const first = items_.Flink;
  entry->Link = {first, &items_};
  first->Blink = &entry->Link;
  items_.Flink = &entry->Link;
  return STATUS_SUCCESS;
}

ULONG ObjectBag::Remove(PVOID item, bool free) {
  Acquire();
  BagItem* const entry = Find(items_, item);
  const ULONG count = entry != nullptr ? entry->Count-- : 0;
  if (count == 1) RemoveEntryList(&entry->Link);
  Release();
  if (count == 1) Drop(entry, free);
  return count;
}

NTSTATUS ObjectBag::Edit(PVOID& item, ULONG newSize, ULONG oldSize, ULONG tag) {
  Acquire();
  const bool isOwned = Find(items_, item) != nullptr;
  Release();
  if (isOwned && newSize <= oldSize) return STATUS_SUCCESS;
  PVOID const copy = ExAllocatePoolWithTag(NonPagedPool, newSize, tag);
  if (copy == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  const NTSTATUS status = Add(copy, nullptr);
  if (!NT_SUCCESS(status)) {
    ExFreePool(copy);
    return status;
  }
  std::memset(copy, 0, newSize);
  std::memcpy(copy, item, oldSize < newSize ? oldSize : newSize);
  if (isOwned) Remove(item, true);
  item = copy;
  return STATUS_SUCCESS;
}

void ObjectBag::Empty() {
  while (true) {
    Acquire();
    LIST_ENTRY* const first = IsListEmpty(&items_) == FALSE ? RemoveHeadList(&items_) : nullptr;
    Release();
    if (first == nullptr) return;
    Drop(CONTAINING_RECORD(first, BagItem, Link), true);
  }
}

}  // namespace lidcam::host

using lidcam::host::ObjectBag;

NTSTATUS NTAPI KsAddItemToObjectBag(KSOBJECT_BAG bag, PVOID item, PFNKSFREE free) {
  return static_cast<ObjectBag*>(bag)->Add(item, free);
}

ULONG NTAPI KsRemoveItemFromObjectBag(KSOBJECT_BAG bag, PVOID item, BOOLEAN free) {
  return static_cast<ObjectBag*>(bag)->Remove(item, free != FALSE);
}

NTSTATUS NTAPI _KsEdit(KSOBJECT_BAG bag, PVOID* item, ULONG newSize, ULONG oldSize, ULONG tag) {
  return static_cast<ObjectBag*>(bag)->Edit(*item, newSize, oldSize, tag);
}
