#include "platform/host/ks/properties/automation.h"

#include "platform/host/ks/objects/pool_object.h"

namespace lidcam::host {
namespace {

/// A request, copied so that changes by the application meanwhile have no effect.
struct ControlCall {
  PIRP Irp;
  PKSIDENTIFIER Request;
  ULONG RequestLength;
  ULONG ValueLength;  ///< of the application's buffer
};

using Tables = const KSAUTOMATION_TABLE* const*;

NTSTATUS CopyRequest(PIRP irp, ControlCall& call) {
  const auto& control = IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl;
  call = {irp, nullptr, control.InputBufferLength, control.OutputBufferLength};
  irp->IoStatus.Information = 0;
  if (call.RequestLength < sizeof(KSIDENTIFIER) || call.RequestLength > kLongestBuffer ||
      call.ValueLength > kLongestBuffer) {
    return STATUS_INVALID_BUFFER_SIZE;
  }
  const bool hasValue = call.ValueLength == 0 || irp->UserBuffer != nullptr;
  if (control.Type3InputBuffer == nullptr || !hasValue) return STATUS_INVALID_PARAMETER;
  PVOID const copy = ExAllocatePoolWithTag(NonPagedPool, call.RequestLength, kStreamingPoolTag);
  if (copy == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  std::memcpy(copy, control.Type3InputBuffer, call.RequestLength);
  call.Request = static_cast<PKSIDENTIFIER>(copy);
  return STATUS_SUCCESS;
}

bool IsError(NTSTATUS status) {
  return (static_cast<ULONG>(status) >> 30) == 3;
}

/// The application's value is copied in for every direction: a get may depend on it.
NTSTATUS CopyValue(const ControlCall& call, PVOID& value) {
  value = nullptr;
  if (call.ValueLength == 0) return STATUS_SUCCESS;
  value = ExAllocatePoolWithTag(NonPagedPool, call.ValueLength, kStreamingPoolTag);
  if (value == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  std::memcpy(value, call.Irp->UserBuffer, call.ValueLength);
  return STATUS_SUCCESS;
}

/// Copies the answer to the application's buffer, and frees the copy.
void ReturnValue(const ControlCall& call, NTSTATUS status, PVOID value) {
  if (value == nullptr) return;
  const ULONG_PTR told = call.Irp->IoStatus.Information;
  const ULONG_PTR length = told < call.ValueLength ? told : call.ValueLength;
  if (!IsError(status)) std::memcpy(call.Irp->UserBuffer, value, length);
  ExFreePool(value);
}

template <typename Set>
const Set* FindSet(const Set* sets, ULONG count, const GUID& id) {
  for (ULONG i = 0; i < count; ++i) {
    if (std::memcmp(sets[i].Set, &id, sizeof(GUID)) == 0) return &sets[i];
  }
  return nullptr;
}

/// @param stride  of the items, from the table; drivers' items may be longer than ours
template <typename Item>
const Item* FindItem(const Item* items, ULONG count, ULONG stride, ULONG Item::*id, ULONG wanted) {
  if (stride < sizeof(Item)) stride = sizeof(Item);
  const auto* at = reinterpret_cast<const UCHAR*>(items);
  for (ULONG i = 0; i < count; ++i, at += stride) {
    const auto* const item = reinterpret_cast<const Item*>(at);
    if (item->*id == wanted) return item;
  }
  return nullptr;
}

struct FoundProperty {
  const KSPROPERTY_SET* Set = nullptr;
  const KSPROPERTY_ITEM* Item = nullptr;
};

FoundProperty FindProperty(Tables tables, ULONG count, const KSIDENTIFIER& request) {
  FoundProperty found;
  for (ULONG i = 0; i < count && found.Set == nullptr; ++i) {
    if (tables[i] == nullptr) continue;
    const KSAUTOMATION_TABLE& table = *tables[i];
    found.Set = FindSet(table.PropertySets, table.PropertySetsCount, request.Set);
    if (found.Set == nullptr) continue;
    found.Item = FindItem(found.Set->PropertyItem, found.Set->PropertiesCount,
                          table.PropertyItemSize, &KSPROPERTY_ITEM::PropertyId, request.Id);
  }
  return found;
}

/// @param isGet  the result's length is the buffer's unless the handler sets another
NTSTATUS CallHandler(const ControlCall& call, PFNKSHANDLER handler, bool isGet) {
  PVOID value = nullptr;
  NTSTATUS status = CopyValue(call, value);
  if (!NT_SUCCESS(status)) return status;
  ULONG_PTR& information = call.Irp->IoStatus.Information;
  const ULONG_PTR preset = isGet ? call.ValueLength : 0;
  information = preset;
  status = handler(call.Irp, call.Request, value);
  // A failed handler that set no size has given no data.
  if (IsError(status) && information == preset) information = 0;
  ReturnValue(call, status, value);
  return status;
}

NTSTATUS CallChecked(const ControlCall& call, const KSPROPERTY_ITEM& item, bool isGet) {
  const PFNKSHANDLER handler = isGet ? item.GetPropertyHandler : item.SetPropertyHandler;
  if (handler == nullptr) return STATUS_INVALID_DEVICE_REQUEST;
  if (call.RequestLength < item.MinProperty) return STATUS_INVALID_BUFFER_SIZE;
  if (call.ValueLength < item.MinData) {
    if (call.ValueLength != 0 || !isGet) return STATUS_BUFFER_TOO_SMALL;
    call.Irp->IoStatus.Information = item.MinData;
    return STATUS_BUFFER_OVERFLOW;
  }
  return CallHandler(call, handler, isGet);
}

NTSTATUS DescribeProperty(const ControlCall& call, const KSPROPERTY_ITEM& item) {
  if (item.SupportHandler != nullptr) return CallHandler(call, item.SupportHandler, true);
  PVOID value = nullptr;
  NTSTATUS status = CopyValue(call, value);
  if (!NT_SUCCESS(status)) return status;
  status = AnswerBasicSupport(call.Irp, item, value);
  ReturnValue(call, status, value);
  return status;
}

/// Exactly one of the request types must be set. Filters here have no nodes.
NTSTATUS CheckPropertyType(ULONG flags) {
  constexpr ULONG kUnsupported = KSPROPERTY_TYPE_RELATIONS | KSPROPERTY_TYPE_SERIALIZESET |
                                 KSPROPERTY_TYPE_UNSERIALIZESET | KSPROPERTY_TYPE_SERIALIZERAW |
                                 KSPROPERTY_TYPE_UNSERIALIZERAW | KSPROPERTY_TYPE_SERIALIZESIZE |
                                 KSPROPERTY_TYPE_DEFAULTVALUES;
  switch (flags) {
    case KSPROPERTY_TYPE_GET:
    case KSPROPERTY_TYPE_SET:
    case KSPROPERTY_TYPE_SETSUPPORT:
    case KSPROPERTY_TYPE_BASICSUPPORT:
      return STATUS_SUCCESS;
    default:
      break;
  }
  const bool isSingle = flags != 0 && (flags & (flags - 1)) == 0;
  const bool isUnsupported = isSingle && (flags & kUnsupported) != 0;
  const bool isOfNode = (flags & KSPROPERTY_TYPE_TOPOLOGY) != 0;
  return isUnsupported || isOfNode ? STATUS_NOT_SUPPORTED : STATUS_INVALID_PARAMETER;
}

NTSTATUS AnswerCopiedProperty(const ControlCall& call, Tables tables, ULONG count) {
  const ULONG flags = call.Request->Flags;
  const NTSTATUS status = CheckPropertyType(flags);
  if (!NT_SUCCESS(status)) return status;
  const FoundProperty found = FindProperty(tables, count, *call.Request);
  if (found.Set == nullptr) return STATUS_PROPSET_NOT_FOUND;
  if (flags == KSPROPERTY_TYPE_SETSUPPORT) return STATUS_SUCCESS;
  if (found.Item == nullptr) return STATUS_NOT_FOUND;
  if (flags == KSPROPERTY_TYPE_BASICSUPPORT) return DescribeProperty(call, *found.Item);
  return CallChecked(call, *found.Item, flags == KSPROPERTY_TYPE_GET);
}

struct FoundEvent {
  const KSEVENT_SET* Set = nullptr;
  const KSEVENT_ITEM* Item = nullptr;
};

FoundEvent FindEvent(Tables tables, ULONG count, const KSIDENTIFIER& request) {
  FoundEvent found;
  for (ULONG i = 0; i < count && found.Set == nullptr; ++i) {
    if (tables[i] == nullptr) continue;
    const KSAUTOMATION_TABLE& table = *tables[i];
    found.Set = FindSet(table.EventSets, table.EventSetsCount, request.Set);
    if (found.Set == nullptr) continue;
    found.Item = FindItem(found.Set->EventItem, found.Set->EventsCount, table.EventItemSize,
                          &KSEVENT_ITEM::EventId, request.Id);
  }
  return found;
}

/// The class keeps no entries of events: handlers are called with a null entry.
NTSTATUS AddEvent(const ControlCall& call, const KSEVENT_ITEM& item) {
  if (item.AddHandler == nullptr) return STATUS_INVALID_DEVICE_REQUEST;
  if (call.ValueLength < item.DataInput) return STATUS_BUFFER_TOO_SMALL;
  PVOID value = nullptr;
  NTSTATUS status = CopyValue(call, value);
  if (!NT_SUCCESS(status)) return status;
  status = item.AddHandler(call.Irp, static_cast<PKSEVENTDATA>(value), nullptr);
  if (value != nullptr) ExFreePool(value);
  return status;
}

NTSTATUS AnswerCopiedEvent(const ControlCall& call, Tables tables, ULONG count) {
  const ULONG flags = call.Request->Flags;
  const bool isEnable = flags == KSEVENT_TYPE_ENABLE || flags == KSEVENT_TYPE_ONESHOT ||
                        flags == (KSEVENT_TYPE_ENABLE | KSEVENT_TYPE_ONESHOT);
  const bool isQuery = flags == KSEVENT_TYPE_SETSUPPORT || flags == KSEVENT_TYPE_BASICSUPPORT;
  if (!isEnable && !isQuery) return STATUS_INVALID_PARAMETER;
  const FoundEvent found = FindEvent(tables, count, *call.Request);
  if (found.Set == nullptr) return STATUS_PROPSET_NOT_FOUND;
  if (flags == KSEVENT_TYPE_SETSUPPORT) return STATUS_SUCCESS;
  if (found.Item == nullptr) return STATUS_NOT_FOUND;
  return isEnable ? AddEvent(call, *found.Item) : STATUS_SUCCESS;
}

using Answer = NTSTATUS (*)(const ControlCall& call, Tables tables, ULONG count);

NTSTATUS AnswerCopy(PIRP irp, Tables tables, ULONG count, Answer answer) {
  ControlCall call{};
  NTSTATUS status = CopyRequest(irp, call);
  if (!NT_SUCCESS(status)) return status;
  status = answer(call, tables, count);
  ExFreePool(call.Request);
  return status;
}

}  // namespace

NTSTATUS AnswerProperty(PIRP irp, const KSAUTOMATION_TABLE* const* tables, ULONG tablesCount) {
  return AnswerCopy(irp, tables, tablesCount, AnswerCopiedProperty);
}

NTSTATUS AnswerEnableEvent(PIRP irp, const KSAUTOMATION_TABLE* const* tables, ULONG tablesCount) {
  return AnswerCopy(irp, tables, tablesCount, AnswerCopiedEvent);
}

}  // namespace lidcam::host
