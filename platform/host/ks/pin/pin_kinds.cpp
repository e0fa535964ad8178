// KSPROPSETID_Pin: properties of a filter that describe the pins that can be opened.

#include <cstring>

#include "platform/host/ks/declarations/guid_of.h"
#include "platform/host/ks/device/ks_objects.h"
#include "platform/host/ks/formats/data_format.h"
#include "platform/host/ks/formats/pin_intersection.h"
#include "platform/host/ks/pin/pin_answer.h"

namespace lidcam::host {
namespace {

struct RangeList {
  const PKSDATARANGE* Ranges;
  ULONG Count;
};

RangeList RangesOf(const KSPIN_DESCRIPTOR& pin) {
  return {pin.DataRanges, pin.DataRangesCount};
}

RangeList ConstrainedRangesOf(const KSPIN_DESCRIPTOR& pin) {
  if (pin.ConstrainedDataRangesCount == 0) return RangesOf(pin);
  return {pin.ConstrainedDataRanges, pin.ConstrainedDataRangesCount};
}

NTSTATUS AnswerWithRanges(PIRP irp, PVOID data, const RangeList& list) {
  ULONG size = 0;
  ULONG count = 0;
  for (ULONG i = 0; i < list.Count; ++i) {
    if (list.Ranges[i] == nullptr) continue;
    size += AlignedRangeSize(list.Ranges[i]->FormatSize);
    ++count;
  }
  PUCHAR items = nullptr;
  const NTSTATUS status = AnswerWithList(irp, data, size, count, &items);
  for (ULONG i = 0; items != nullptr && i < list.Count; ++i) {
    if (list.Ranges[i] == nullptr) continue;
    std::memcpy(items, list.Ranges[i], list.Ranges[i]->FormatSize);
    items += AlignedRangeSize(list.Ranges[i]->FormatSize);
  }
  return status;
}

NTSTATUS AnswerWithIdentifiers(PIRP irp, PVOID data, const KSIDENTIFIER* list, ULONG count) {
  const ULONG size = count * static_cast<ULONG>(sizeof(KSIDENTIFIER));
  PUCHAR items = nullptr;
  const NTSTATUS status = AnswerWithList(irp, data, size, count, &items);
  if (items != nullptr && size != 0) std::memcpy(items, list, size);
  return status;
}

NTSTATUS AnswerInstances(PIRP irp, const PinFactoryBlock& pin, PVOID data) {
  return AnswerWith(irp, data, KSPIN_CINSTANCES{pin.Descriptor.InstancesPossible, pin.CurrentPins});
}

NTSTATUS AnswerDataFlow(PIRP irp, const PinFactoryBlock& pin, PVOID data) {
  return AnswerWith(irp, data, pin.Descriptor.PinDescriptor.DataFlow);
}

NTSTATUS AnswerDataRanges(PIRP irp, const PinFactoryBlock& pin, PVOID data) {
  return AnswerWithRanges(irp, data, RangesOf(pin.Descriptor.PinDescriptor));
}

NTSTATUS AnswerConstrainedRanges(PIRP irp, const PinFactoryBlock& pin, PVOID data) {
  return AnswerWithRanges(irp, data, ConstrainedRangesOf(pin.Descriptor.PinDescriptor));
}

NTSTATUS AnswerInterfaces(PIRP irp, const PinFactoryBlock& pin, PVOID data) {
  const KSPIN_DESCRIPTOR& descriptor = pin.Descriptor.PinDescriptor;
  return AnswerWithIdentifiers(irp, data, descriptor.Interfaces, descriptor.InterfacesCount);
}

NTSTATUS AnswerMediums(PIRP irp, const PinFactoryBlock& pin, PVOID data) {
  const KSPIN_DESCRIPTOR& descriptor = pin.Descriptor.PinDescriptor;
  return AnswerWithIdentifiers(irp, data, descriptor.Mediums, descriptor.MediumsCount);
}

NTSTATUS AnswerCommunication(PIRP irp, const PinFactoryBlock& pin, PVOID data) {
  return AnswerWith(irp, data, pin.Descriptor.PinDescriptor.Communication);
}

NTSTATUS AnswerNecessaryInstances(PIRP irp, const PinFactoryBlock& pin, PVOID data) {
  return AnswerWith(irp, data, pin.Descriptor.InstancesNecessary);
}

NTSTATUS AnswerCategory(PIRP irp, const PinFactoryBlock& pin, PVOID data) {
  const GUID* const category = pin.Descriptor.PinDescriptor.Category;
  return category != nullptr ? AnswerWith(irp, data, *category) : STATUS_NOT_FOUND;
}

// Only the installation knows the text of a pin's name.
NTSTATUS AnswerName(PIRP, const PinFactoryBlock&, PVOID) {
  return STATUS_NOT_SUPPORTED;
}

FilterBlock& FilterOf(PIRP irp) {
  PVOID const head = IoGetCurrentIrpStackLocation(irp)->FileObject->FsContext;
  return *static_cast<FilterBlock*>(head);
}

NTSTATUS NTAPI GetKindsCount(PIRP irp, PKSIDENTIFIER, PVOID data) {
  return AnswerWith(irp, data, FilterOf(irp).PinFactoriesCount);
}

using PinAnswer = NTSTATUS (*)(PIRP irp, const PinFactoryBlock& pin, PVOID data);

/// Handles a property whose request names a pin.
template <PinAnswer kAnswer>
NTSTATUS NTAPI GetOfPin(PIRP irp, PKSIDENTIFIER request, PVOID data) {
  const auto& wanted = *reinterpret_cast<const KSP_PIN*>(request);
  const PinFactoryBlock* const pin = FindPinFactory(FilterOf(irp), wanted.PinId);
  return pin != nullptr ? kAnswer(irp, *pin, data) : STATUS_INVALID_PARAMETER;
}

NTSTATUS NTAPI GetIntersection(PIRP irp, PKSIDENTIFIER request, PVOID data) {
  FilterBlock& filter = FilterOf(irp);
  auto& wanted = *reinterpret_cast<PKSP_PIN>(request);
  const PinFactoryBlock* const pin = FindPinFactory(filter, wanted.PinId);
  if (pin == nullptr) return STATUS_INVALID_PARAMETER;
  return Intersect({.Filter = &filter.Filter, .Irp = irp, .Request = &wanted, .Data = data},
                   pin->Descriptor);
}

constexpr KSPROPERTY_ITEM Item(ULONG id, PFNKSHANDLER get, ULONG minimumData,
                               ULONG minimumRequest = sizeof(KSP_PIN)) {
  KSPROPERTY_ITEM item{};
  item.PropertyId = id;
  item.GetPropertyHandler = get;
  item.MinProperty = minimumRequest;
  item.MinData = minimumData;
  return item;
}

constexpr KSPROPERTY_ITEM kPinItems[] = {
    Item(KSPROPERTY_PIN_CINSTANCES, GetOfPin<AnswerInstances>, sizeof(KSPIN_CINSTANCES)),
    Item(KSPROPERTY_PIN_CTYPES, GetKindsCount, sizeof(ULONG), sizeof(KSPROPERTY)),
    Item(KSPROPERTY_PIN_DATAFLOW, GetOfPin<AnswerDataFlow>, sizeof(KSPIN_DATAFLOW)),
    Item(KSPROPERTY_PIN_DATARANGES, GetOfPin<AnswerDataRanges>, 0),
    Item(KSPROPERTY_PIN_DATAINTERSECTION, GetIntersection, 0,
         sizeof(KSP_PIN) + sizeof(KSMULTIPLE_ITEM)),
    Item(KSPROPERTY_PIN_INTERFACES, GetOfPin<AnswerInterfaces>, 0),
    Item(KSPROPERTY_PIN_MEDIUMS, GetOfPin<AnswerMediums>, 0),
    Item(KSPROPERTY_PIN_COMMUNICATION, GetOfPin<AnswerCommunication>, sizeof(KSPIN_COMMUNICATION)),
    Item(KSPROPERTY_PIN_NECESSARYINSTANCES, GetOfPin<AnswerNecessaryInstances>, sizeof(ULONG)),
    Item(KSPROPERTY_PIN_CATEGORY, GetOfPin<AnswerCategory>, sizeof(GUID)),
    Item(KSPROPERTY_PIN_NAME, GetOfPin<AnswerName>, 0),
    Item(KSPROPERTY_PIN_CONSTRAINEDDATARANGES, GetOfPin<AnswerConstrainedRanges>, 0),
};

constexpr GUID kPinSet = GuidOf(STATIC_KSPROPSETID_Pin);

}  // namespace

constinit const KSPROPERTY_SET kPinPropertySet = {
    .Set = &kPinSet,
    .PropertiesCount = static_cast<ULONG>(sizeof(kPinItems) / sizeof(KSPROPERTY_ITEM)),
    .PropertyItem = kPinItems,
    .FastIoCount = 0,
    .FastIoTable = nullptr,
};

}  // namespace lidcam::host
