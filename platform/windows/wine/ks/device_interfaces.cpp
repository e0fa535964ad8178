#include "platform/windows/wine/ks/device_interfaces.h"

#include "platform/host/ks/device_block.h"
#include "platform/host/ks/pool_object.h"

namespace lidcam::wine {
namespace {

struct EnabledInterface {
  EnabledInterface* Next;
  PDEVICE_OBJECT Device;
  UNICODE_STRING Link;  ///< the kernel's memory
};

constinit EnabledInterface* g_enabled = nullptr;  ///< plug and play asks one thing at a time

void Free(EnabledInterface* one) {
  RtlFreeUnicodeString(&one->Link);
  ExFreePool(one);
}

NTSTATUS Enable(EnabledInterface& one, PDEVICE_OBJECT physicalDevice, const GUID& category) {
  const NTSTATUS status = IoRegisterDeviceInterface(physicalDevice, &category, nullptr, &one.Link);
  return NT_SUCCESS(status) ? IoSetDeviceInterfaceState(&one.Link, TRUE) : status;
}

void EnableCategory(const host::DeviceBlock& device, const GUID& category) {
  auto* const one = host::AllocateObject<EnabledInterface>();
  if (one == nullptr) return;
  *one = {g_enabled, device.FunctionalDeviceObject, {}};
  const NTSTATUS status = Enable(*one, device.PhysicalDeviceObject, category);
  if (NT_SUCCESS(status)) {
    g_enabled = one;
  } else {
    DbgPrint("ks: the interface of a device can't be enabled: %08x\n", status);
    Free(one);
  }
}

}  // namespace

void EnableInterfaces(PDEVICE_OBJECT functionalDevice) {
  host::DeviceBlock& device = host::BlockOf(functionalDevice);
  AcquireMutex(device);
  for (LIST_ENTRY* link = device.Factories.Flink; link != &device.Factories; link = link->Flink) {
    const auto* const factory = CONTAINING_RECORD(link, host::FilterFactoryBlock, Link);
    const KSFILTER_DESCRIPTOR& descriptor = *factory->Factory.FilterDescriptor;
    for (ULONG i = 0; i < descriptor.CategoriesCount; ++i) {
      EnableCategory(device, descriptor.Categories[i]);
    }
  }
  ReleaseMutex(device);
}

void DisableInterfaces(PDEVICE_OBJECT functionalDevice) {
  EnabledInterface** link = &g_enabled;
  while (*link != nullptr) {
    EnabledInterface* const one = *link;
    if (one->Device == functionalDevice) {
      *link = one->Next;
      IoSetDeviceInterfaceState(&one->Link, FALSE);
      Free(one);
    } else {
      link = &one->Next;
    }
  }
}

}  // namespace lidcam::wine
