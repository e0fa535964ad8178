#include "platform/host/ks/filter/filter_requests.h"

#include "platform/host/ks/device/device_block.h"
#include "platform/host/ks/device/filter_factory.h"
#include "platform/host/ks/filter/filter_properties.h"
#include "platform/host/ks/objects/pool_object.h"

namespace lidcam::host {
namespace {

FilterBlock& BlockOfFilter(PKSFILTER filter) {
  return *CONTAINING_RECORD(filter, FilterBlock, Filter);
}

FilterBlock* NewFilter(FilterFactoryBlock& factory, PFILE_OBJECT file) {
  auto* const filter = AllocateObject<FilterBlock>();
  if (filter == nullptr) return nullptr;
  DeviceBlock& device = *factory.Head.Device;
  filter->Items = CreateObjectBag(device);
  if (filter->Items == nullptr) {
    ExFreePool(filter);
    return nullptr;
  }
  filter->Head = {KsObjectKind::Filter, &device};
  filter->Filter = {factory.Factory.FilterDescriptor, filter->Items, nullptr};
  InitializeClassMutex(filter->Control);
  InitializeListHead(&filter->PinFactories);
  filter->Factory = &factory;
  filter->File = file;
  filter->References = 1;
  return filter;
}

const KSFILTER_DISPATCH* EntriesOf(const FilterBlock& filter) {
  return filter.Filter.Descriptor->Dispatch;
}

ObjectHead* HeadOfRequest(PIRP irp) {
  const PFILE_OBJECT file = IoGetCurrentIrpStackLocation(irp)->FileObject;
  return file != nullptr ? static_cast<ObjectHead*>(file->FsContext) : nullptr;
}

FilterBlock* FilterOfObject(ObjectHead& head) {
  switch (head.Kind) {
    case KsObjectKind::Filter:
      return CONTAINING_RECORD(&head, FilterBlock, Head);
    case KsObjectKind::Pin:
      return &FilterOfPin(head);
    case KsObjectKind::FilterFactory:
    case KsObjectKind::Clock:
      break;
  }
  return nullptr;
}

}  // namespace

NTSTATUS CreateFilter(DeviceBlock& device, PIRP irp, const UNICODE_STRING& reference) {
  const PFILE_OBJECT file = IoGetCurrentIrpStackLocation(irp)->FileObject;
  FilterFactoryBlock* factory = nullptr;
  NTSTATUS status = FindFactory(device, reference, factory);
  if (!NT_SUCCESS(status)) return status;
  FilterBlock* const filter = NewFilter(*factory, file);
  if (filter == nullptr) {
    ReleaseFactory(*factory);
    return STATUS_INSUFFICIENT_RESOURCES;
  }
  file->FsContext = &filter->Head;
  const KSFILTER_DISPATCH* const entries = EntriesOf(*filter);
  if (entries != nullptr && entries->Create != nullptr) {
    const ControlCall control(*filter, ClassCall::FilterCreate);
    status = entries->Create(&filter->Filter, irp);
  }
  if (!NT_SUCCESS(status)) {
    file->FsContext = nullptr;
    ReleaseFilter(*filter);
  }
  return status;
}

void CloseFilter(FilterBlock& filter, PIRP irp) {
  const KSFILTER_DISPATCH* const entries = EntriesOf(filter);
  if (entries != nullptr && entries->Close != nullptr) {
    const ControlCall control(filter, ClassCall::FilterClose);
    entries->Close(&filter.Filter, irp);
  }
  filter.File = nullptr;
  ReleaseFilter(filter);
}

NTSTATUS DispatchFilterControl(FilterBlock& filter, PIRP irp) {
  const ULONG code = IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl.IoControlCode;
  const KSAUTOMATION_TABLE* const tables[] = {filter.Filter.Descriptor->AutomationTable,
                                              &kFilterTable, &kFilterPinTable};
  NTSTATUS status = STATUS_INVALID_DEVICE_REQUEST;
  {
    const ControlCall control(filter, ClassCall::FilterRequest);
    if (code == IOCTL_KS_PROPERTY) {
      status = AnswerProperty(irp, tables, 3);
    } else if (code == IOCTL_KS_ENABLE_EVENT) {
      status = AnswerEnableEvent(irp, tables, 3);
    }
  }
  return CompleteRequest(irp, status);
}

}  // namespace lidcam::host

using namespace lidcam::host;

void NTAPI KsAcquireControl(PVOID object) {
  FilterBlock* const filter = FilterOfObject(HeadOf(object));
  if (filter == nullptr) return;
  AcquireControlFor(*filter->Head.Device, filter->Control, ClassCall::None);
}

void NTAPI KsReleaseControl(PVOID object) {
  FilterBlock* const filter = FilterOfObject(HeadOf(object));
  if (filter != nullptr) ReleaseControlOf(*filter->Head.Device, filter->Control);
}

NTSTATUS NTAPI KsFilterCreatePinFactory(PKSFILTER filter, const KSPIN_DESCRIPTOR_EX* descriptor,
                                        PULONG pinId) {
  FilterBlock& block = BlockOfFilter(filter);
  auto* const factory = AllocateObject<PinFactoryBlock>();
  if (factory == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  factory->Descriptor = *descriptor;
  factory->Id = block.PinFactoriesCount++;
  InsertTailList(&block.PinFactories, &factory->Link);
  if (pinId != nullptr) *pinId = factory->Id;
  return STATUS_SUCCESS;
}

PKSFILTER NTAPI KsGetFilterFromIrp(PIRP irp) {
  ObjectHead* const head = HeadOfRequest(irp);
  FilterBlock* const filter = head != nullptr ? FilterOfObject(*head) : nullptr;
  return filter != nullptr ? &filter->Filter : nullptr;
}

PKSPIN NTAPI KsGetPinFromIrp(PIRP irp) {
  ObjectHead* const head = HeadOfRequest(irp);
  if (head == nullptr || head->Kind != KsObjectKind::Pin) return nullptr;
  return reinterpret_cast<PKSPIN>(head + 1);
}
