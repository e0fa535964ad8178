#include "tests/on_wine/ks/device_interfaces.h"

#include <cstring>

#include "platform/host/ks/device/device_block.h"
#include "platform/host/ks/objects/pool_object.h"
#include "tests/on_wine/ks/interface_state.h"

namespace lidcam::wine {
namespace {

constinit EnabledInterface* g_enabled = nullptr;  ///< requests of plug and play come one at a time

void Free(EnabledInterface* one) {
  RtlFreeUnicodeString(&one->Link);
  ExFreePool(one);
}

NTSTATUS Show(EnabledInterface& one, PDEVICE_OBJECT physicalDevice, const GUID& category,
              UNICODE_STRING& reference) {
  NTSTATUS status = IoRegisterDeviceInterface(physicalDevice, &category, &reference, &one.Link);
  if (!NT_SUCCESS(status)) return status;
  status = EnableInterface(one, physicalDevice);
  if (!NT_SUCCESS(status)) DisableInterface(one);
  return status;
}

void EnableCategory(const host::DeviceBlock& device, const GUID& category,
                    UNICODE_STRING& reference) {
  auto* const one = host::AllocateObject<EnabledInterface>();
  if (one == nullptr) return;
  one->Next = g_enabled;
  one->Device = device.FunctionalDeviceObject;
  const NTSTATUS status = Show(*one, device.PhysicalDeviceObject, category, reference);
  if (NT_SUCCESS(status)) {
    g_enabled = one;
  } else {
    DbgPrint("ks: the interface of a device can't be enabled: %08x\n", status);
    Free(one);
  }
}

void EnableCategories(const host::DeviceBlock& device, const host::FilterFactoryBlock& factory) {
  // The kernel expects a zero after the string.
  const USHORT length = factory.ReferenceString.Length;
  auto* const text = static_cast<PWSTR>(host::AllocateZeroed(length + sizeof(WCHAR)));
  if (text == nullptr) return;
  std::memcpy(text, factory.ReferenceString.Buffer, length);
  UNICODE_STRING reference = {length, length, text};
  const KSFILTER_DESCRIPTOR& descriptor = *factory.Factory.FilterDescriptor;
  for (ULONG i = 0; i < descriptor.CategoriesCount; ++i) {
    EnableCategory(device, descriptor.Categories[i], reference);
  }
  ExFreePool(text);
}

}  // namespace

void EnableInterfaces(PDEVICE_OBJECT functionalDevice) {
  host::DeviceBlock& device = host::BlockOf(functionalDevice);
  AcquireMutex(device);
  for (LIST_ENTRY* link = device.Factories.Flink; link != &device.Factories; link = link->Flink) {
    EnableCategories(device, *CONTAINING_RECORD(link, host::FilterFactoryBlock, Link));
  }
  ReleaseMutex(device);
}

void DisableInterfaces(PDEVICE_OBJECT functionalDevice) {
  EnabledInterface** link = &g_enabled;
  while (*link != nullptr) {
    EnabledInterface* const one = *link;
    if (one->Device == functionalDevice) {
      *link = one->Next;
      DisableInterface(*one);
      Free(one);
    } else {
      link = &one->Next;
    }
  }
}

}  // namespace lidcam::wine
