#include "platform/host/ks/device/filter_factory.h"

#include "platform/host/ks/device/device_block.h"
#include "platform/host/ks/objects/file_names.h"
#include "platform/host/ks/objects/pool_object.h"

namespace lidcam::host {
namespace {

constexpr ULONG kLongestReference = 512;  // bytes

/// Pins are made by KsFilterCreatePinFactory() only, and a filter has no nodes.
bool IsSupported(const KSFILTER_DESCRIPTOR& descriptor) {
  return descriptor.PinDescriptorsCount == 0 && descriptor.NodeDescriptorsCount == 0 &&
         descriptor.ConnectionsCount == 0;
}

FilterFactoryBlock* NewFactory(DeviceBlock& device, const KSFILTER_DESCRIPTOR& descriptor,
                               const UNICODE_STRING& reference, ULONG flags) {
  auto* const factory = AllocateObject<FilterFactoryBlock>(reference.Length);
  if (factory == nullptr) return nullptr;
  factory->Items = CreateObjectBag(device);
  if (factory->Items == nullptr) {
    ExFreePool(factory);
    return nullptr;
  }
  factory->Head = {KsObjectKind::FilterFactory, &device};
  factory->Factory = {&descriptor, factory->Items, nullptr};
  auto* const text = reinterpret_cast<PWSTR>(factory + 1);
  std::memcpy(text, reference.Buffer, reference.Length);
  factory->ReferenceString = {reference.Length, reference.Length, text};
  factory->CreateItemFlags = flags;
  return factory;
}

void FreeFactory(FilterFactoryBlock* factory) {
  DestroyObjectBag(factory->Items);
  ExFreePool(factory);
}

FilterFactoryBlock* BlockOfLink(LIST_ENTRY* link) {
  return CONTAINING_RECORD(link, FilterFactoryBlock, Link);
}

FilterFactoryBlock* FindByName(DeviceBlock& device, const UNICODE_STRING& reference) {
  for (LIST_ENTRY* link = device.Factories.Flink; link != &device.Factories; link = link->Flink) {
    FilterFactoryBlock* const factory = BlockOfLink(link);
    if (IsSameName(factory->ReferenceString, reference)) return factory;
  }
  return nullptr;
}

NTSTATUS Register(DeviceBlock& device, FilterFactoryBlock& factory) {
  AcquireMutex(device);
  NTSTATUS status = STATUS_SUCCESS;
  if (IsSet(device.IsGone)) {
    status = STATUS_DELETE_PENDING;
  } else if (FindByName(device, factory.ReferenceString) != nullptr) {
    status = STATUS_OBJECT_NAME_COLLISION;
  } else {
    factory.IsEnabled = device.Started;
    InsertTailList(&device.Factories, &factory.Link);
  }
  ReleaseMutex(device);
  return status;
}

NTSTATUS CreateFactory(DeviceBlock& device, const KSFILTER_DESCRIPTOR& descriptor,
                       const UNICODE_STRING& reference, ULONG flags, PKSFILTERFACTORY* factory) {
  if (reference.Length == 0 || reference.Length > kLongestReference) {
    return STATUS_OBJECT_NAME_INVALID;
  }
  FilterFactoryBlock* const made = NewFactory(device, descriptor, reference, flags);
  if (made == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  const NTSTATUS status = Register(device, *made);
  if (!NT_SUCCESS(status)) {
    FreeFactory(made);
  } else if (factory != nullptr) {
    *factory = &made->Factory;
  }
  return status;
}

/// Removes the first factory to be dropped from the list; null if none is left. `isUnused` says
/// whether it can be freed.
FilterFactoryBlock* DropOne(DeviceBlock& device, FactoriesDropped which, bool& isUnused) {
  for (LIST_ENTRY* link = device.Factories.Flink; link != &device.Factories; link = link->Flink) {
    FilterFactoryBlock* const factory = BlockOfLink(link);
    const bool goesAtStop = (factory->CreateItemFlags & KSCREATE_ITEM_FREEONSTOP) != 0;
    if (which == FactoriesDropped::OfAStoppedDevice && !goesAtStop) continue;
    RemoveEntryList(&factory->Link);
    factory->IsDropped = TRUE;
    factory->IsEnabled = FALSE;
    isUnused = factory->OpenFilters == 0;
    return factory;
  }
  return nullptr;
}

}  // namespace

void EnableFactories(DeviceBlock& device, BOOLEAN isEnabled) {
  AcquireMutex(device);
  for (LIST_ENTRY* link = device.Factories.Flink; link != &device.Factories; link = link->Flink) {
    BlockOfLink(link)->IsEnabled = isEnabled;
  }
  ReleaseMutex(device);
}

void DropFactories(DeviceBlock& device, FactoriesDropped which) {
  FilterFactoryBlock* factory = nullptr;
  do {
    bool isUnused = false;
    AcquireMutex(device);
    factory = DropOne(device, which, isUnused);
    ReleaseMutex(device);
    if (isUnused) FreeFactory(factory);
  } while (factory != nullptr);
}

NTSTATUS FindFactory(DeviceBlock& device, const UNICODE_STRING& name,
                     FilterFactoryBlock*& factory) {
  AcquireMutex(device);
  factory = nullptr;
  NTSTATUS status = STATUS_DELETE_PENDING;
  if (!IsSet(device.IsGone)) {
    const bool isAny = name.Length == 0 && IsListEmpty(&device.Factories) == FALSE;
    factory = isAny ? BlockOfLink(device.Factories.Flink) : FindByName(device, name);
    status = factory != nullptr ? STATUS_SUCCESS : STATUS_OBJECT_NAME_NOT_FOUND;
  }
  if (factory != nullptr) ++factory->OpenFilters;
  ReleaseMutex(device);
  return status;
}

void ReleaseFactory(FilterFactoryBlock& factory) {
  DeviceBlock& device = *factory.Head.Device;
  AcquireMutex(device);
  const bool isLast = --factory.OpenFilters == 0 && factory.IsDropped != FALSE;
  ReleaseMutex(device);
  if (isLast) FreeFactory(&factory);
}

}  // namespace lidcam::host

using namespace lidcam::host;

NTSTATUS NTAPI KsCreateFilterFactory(PDEVICE_OBJECT device, const KSFILTER_DESCRIPTOR* descriptor,
                                     PWSTR referenceString, PVOID, ULONG flags,
                                     PFNKSFILTERFACTORYPOWER sleepCallback,
                                     PFNKSFILTERFACTORYPOWER wakeCallback,
                                     PKSFILTERFACTORY* factory) {
  if (descriptor == nullptr) return STATUS_INVALID_PARAMETER;
  const bool hasCallbacks = sleepCallback != nullptr || wakeCallback != nullptr;
  if (hasCallbacks || !IsSupported(*descriptor)) return STATUS_NOT_SUPPORTED;
  DeviceBlock& block = BlockOf(device);
  if (referenceString != nullptr) {
    UNICODE_STRING reference{};
    RtlInitUnicodeString(&reference, referenceString);
    return CreateFactory(block, *descriptor, reference, flags, factory);
  }
  if (descriptor->ReferenceGuid == nullptr) return STATUS_OBJECT_NAME_INVALID;
  GuidText reference(*descriptor->ReferenceGuid);
  return CreateFactory(block, *descriptor, reference.AsString(), flags, factory);
}
