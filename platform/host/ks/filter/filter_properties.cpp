#include "platform/host/ks/filter/filter_properties.h"

#include <cstring>

#include "platform/host/ks/declarations/guid_of.h"

namespace lidcam::host {
namespace {

/// Replies with a KSMULTIPLE_ITEM and `count` items, or with the size that it needs.
NTSTATUS ReplyMultipleItem(PIRP irp, PVOID data, const void* items, ULONG itemSize, ULONG count) {
  const ULONG length =
      IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl.OutputBufferLength;
  const KSMULTIPLE_ITEM header{static_cast<ULONG>(sizeof(KSMULTIPLE_ITEM)) + itemSize * count,
                               count};
  irp->IoStatus.Information = header.Size;
  if (length == 0) return STATUS_BUFFER_OVERFLOW;
  if (length < header.Size) return STATUS_BUFFER_TOO_SMALL;
  std::memcpy(data, &header, sizeof(header));
  if (count != 0) {
    std::memcpy(static_cast<UCHAR*>(data) + sizeof(header), items, header.Size - sizeof(header));
  }
  return STATUS_SUCCESS;
}

NTSTATUS NTAPI GetCategories(PIRP irp, PKSIDENTIFIER, PVOID data) {
  const KSFILTER_DESCRIPTOR& descriptor = *KsGetFilterFromIrp(irp)->Descriptor;
  return ReplyMultipleItem(irp, data, descriptor.Categories, sizeof(GUID),
                           descriptor.CategoriesCount);
}

/// Nodes and connections: factories refuse descriptors with any.
NTSTATUS NTAPI GetNone(PIRP irp, PKSIDENTIFIER, PVOID data) {
  return ReplyMultipleItem(irp, data, nullptr, 0, 0);
}

NTSTATUS NTAPI GetComponentId(PIRP irp, PKSIDENTIFIER, PVOID data) {
  const KSCOMPONENTID* const id = KsGetFilterFromIrp(irp)->Descriptor->ComponentId;
  if (id == nullptr) return STATUS_NOT_SUPPORTED;
  std::memcpy(data, id, sizeof(*id));
  irp->IoStatus.Information = sizeof(*id);
  return STATUS_SUCCESS;
}

constexpr KSPROPERTY_ITEM ReadOnly(ULONG id, PFNKSHANDLER get, ULONG minData) {
  KSPROPERTY_ITEM item{};
  item.PropertyId = id;
  item.GetPropertyHandler = get;
  item.MinProperty = sizeof(KSPROPERTY);
  item.MinData = minData;
  return item;
}

constexpr KSPROPERTY_ITEM kTopologyItems[] = {
    ReadOnly(KSPROPERTY_TOPOLOGY_CATEGORIES, GetCategories, 0),
    ReadOnly(KSPROPERTY_TOPOLOGY_NODES, GetNone, 0),
    ReadOnly(KSPROPERTY_TOPOLOGY_CONNECTIONS, GetNone, 0),
};

constexpr KSPROPERTY_ITEM kGeneralItems[] = {
    ReadOnly(KSPROPERTY_GENERAL_COMPONENTID, GetComponentId, sizeof(KSCOMPONENTID)),
};

constinit const GUID kTopologySetId = GuidOf(STATIC_KSPROPSETID_Topology);
constinit const GUID kGeneralSetId = GuidOf(STATIC_KSPROPSETID_General);

constexpr KSPROPERTY_SET kSets[] = {
    {&kTopologySetId, 3, kTopologyItems, 0, nullptr},
    {&kGeneralSetId, 1, kGeneralItems, 0, nullptr},
};

constexpr KSAUTOMATION_TABLE TableOf(const KSPROPERTY_SET* sets, ULONG count) {
  KSAUTOMATION_TABLE table{};
  table.PropertySetsCount = count;
  table.PropertyItemSize = sizeof(KSPROPERTY_ITEM);
  table.PropertySets = sets;
  return table;
}

}  // namespace

constinit const KSAUTOMATION_TABLE kFilterTable = TableOf(kSets, 2);
constinit const KSAUTOMATION_TABLE kFilterPinTable = TableOf(&kPinPropertySet, 1);

}  // namespace lidcam::host
