// Basic support: a property's access, range and default from its table entry.

#include <cstring>

#include "platform/host/ks/properties/automation.h"

namespace lidcam::host {
namespace {

ULONG BytesOf(const KSPROPERTY_MEMBERSLIST& list) {
  return list.MembersHeader.MembersSize * list.MembersHeader.MembersCount;
}

ULONG ListsOf(const KSPROPERTY_ITEM& item) {
  return item.Values != nullptr ? item.Values->MembersListCount : 0;
}

KSPROPERTY_DESCRIPTION DescriptionOf(const KSPROPERTY_ITEM& item) {
  KSPROPERTY_DESCRIPTION description{};
  if (item.GetPropertyHandler != nullptr) description.AccessFlags |= KSPROPERTY_TYPE_GET;
  if (item.SetPropertyHandler != nullptr) description.AccessFlags |= KSPROPERTY_TYPE_SET;
  description.DescriptionSize = sizeof(description);
  if (item.Values != nullptr) description.PropTypeSet = item.Values->PropTypeSet;
  description.MembersListCount = ListsOf(item);
  for (ULONG i = 0; i < ListsOf(item); ++i) {
    description.DescriptionSize +=
        static_cast<ULONG>(sizeof(KSPROPERTY_MEMBERSHEADER)) + BytesOf(item.Values->MembersList[i]);
  }
  return description;
}

void CopyMembers(const KSPROPERTY_ITEM& item, UCHAR* at) {
  for (ULONG i = 0; i < ListsOf(item); ++i) {
    const KSPROPERTY_MEMBERSLIST& list = item.Values->MembersList[i];
    std::memcpy(at, &list.MembersHeader, sizeof(list.MembersHeader));
    at += sizeof(list.MembersHeader);
    if (BytesOf(list) != 0) std::memcpy(at, list.Members, BytesOf(list));
    at += BytesOf(list);
  }
}

}  // namespace

NTSTATUS AnswerBasicSupport(PIRP irp, const KSPROPERTY_ITEM& item, PVOID value) {
  const ULONG length =
      IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl.OutputBufferLength;
  const KSPROPERTY_DESCRIPTION description = DescriptionOf(item);
  ULONG_PTR& information = irp->IoStatus.Information;
  information = description.DescriptionSize;
  if (length == 0) return STATUS_BUFFER_OVERFLOW;
  information = 0;
  if (length < sizeof(ULONG)) return STATUS_BUFFER_TOO_SMALL;
  information = sizeof(ULONG);
  if (length >= sizeof(description)) information = sizeof(description);
  std::memcpy(value, &description, information);
  if (length < description.DescriptionSize) return STATUS_SUCCESS;
  CopyMembers(item, static_cast<UCHAR*>(value) + sizeof(description));
  information = description.DescriptionSize;
  return STATUS_SUCCESS;
}

}  // namespace lidcam::host
