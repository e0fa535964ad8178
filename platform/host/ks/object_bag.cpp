#include "platform/host/ks/object_bag.h"

#include "platform/host/nt/verifier.h"

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

void Drop(BagItem* entry, bool free) {
  RemoveEntryList(&entry->Link);
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

void ObjectBag::ExpectMutex(const char* call) const {
  if (mutex_.OwnerThread != KeGetCurrentThread()) {
    ReportViolation(call, "the caller doesn't hold the device's mutex");
  }
}

NTSTATUS ObjectBag::Add(PVOID item, PFNKSFREE free) {
  ExpectMutex("KsAddItemToObjectBag");
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
  ExpectMutex("KsRemoveItemFromObjectBag");
  BagItem* const entry = Find(items_, item);
  if (entry == nullptr) return 0;
  const ULONG count = entry->Count--;
  if (count == 1) Drop(entry, free);
  return count;
}

void ObjectBag::Empty() {
  while (IsListEmpty(&items_) == FALSE) {
    Drop(CONTAINING_RECORD(items_.Flink, BagItem, Link), true);
  }
}

}  // namespace lidcam::host

using lidcam::host::ObjectBag;

NTSTATUS KsAddItemToObjectBag(KSOBJECT_BAG bag, PVOID item, PFNKSFREE free) {
  return static_cast<ObjectBag*>(bag)->Add(item, free);
}

ULONG KsRemoveItemFromObjectBag(KSOBJECT_BAG bag, PVOID item, BOOLEAN free) {
  return static_cast<ObjectBag*>(bag)->Remove(item, free != FALSE);
}
