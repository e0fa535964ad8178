#include "driver/avstream/filter/capture_filter.h"

#include <new>

#include "driver/avstream/descriptors/filter_descriptors.h"
#include "driver/avstream/pin/capture_pin.h"
#include "driver/avstream/properties/property_sets.h"
#include "driver/core/base/camera_trace.h"

namespace lidcam {
namespace {

constexpr ULONG kFilterTag = 0x774E434B;  // "KCNw"

void NTAPI DestroyCaptureFilter(PVOID object) {
  ExFreePool(object);
}

// The bag frees the object once it owns it.
NTSTATUS NTAPI CreateFilter(PKSFILTER filter, PIRP irp) {
  void* const memory = ExAllocatePoolWithTag(NonPagedPool, sizeof(CaptureFilter), kFilterTag);
  if (memory == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  auto* const object = ::new (memory) CaptureFilter(filter);
  const NTSTATUS status = object->Create(filter, irp);
  if (!NT_SUCCESS(status) && filter->Context != object) DestroyCaptureFilter(object);
  TraceCamera(nullptr, "filter create -> %08X", static_cast<unsigned>(status));
  return status;
}

CaptureDevice* DeviceOfRequest(PIRP irp) {
  PKSFILTER const filter = KsGetFilterFromIrp(irp);
  if (filter == nullptr) return nullptr;
  PKSDEVICE const device = KsGetDevice(filter);
  return device != nullptr ? CaptureDeviceOf(device) : nullptr;
}

NTSTATUS NTAPI GetFilterProperty(PIRP irp, PKSIDENTIFIER request, PVOID data) {
  CaptureDevice* const device = DeviceOfRequest(irp);
  return device != nullptr ? device->GetCameraProperty(irp, request, data) : STATUS_UNSUCCESSFUL;
}

NTSTATUS NTAPI SetFilterProperty(PIRP irp, PKSIDENTIFIER request, PVOID data) {
  CaptureDevice* const device = DeviceOfRequest(irp);
  return device != nullptr ? device->SetCameraProperty(irp, request, data) : STATUS_UNSUCCESSFUL;
}

constexpr KSFILTER_DISPATCH CaptureFilterDispatch = FilterDispatchOf(CreateFilter);
constexpr CameraPropertySets kPropertySets{GetFilterProperty, SetFilterProperty};
constexpr KSAUTOMATION_TABLE kFilterAutomation = FilterAutomationOf(kPropertySets.Sets);

}  // namespace

constinit const FilterEntries kFilterEntries{&CaptureFilterDispatch, &kFilterAutomation};

NTSTATUS CaptureFilter::Create(PKSFILTER filter, PIRP) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  NTSTATUS status = KsAddItemToObjectBag(filter->Bag, this, DestroyCaptureFilter);
  if (!NT_SUCCESS(status)) return status;
  filter->Context = this;
  CaptureDevice& device = *CaptureDeviceOf(KsGetDevice(filter));
  const std::int32_t list = device.GetFormatListIndex();
  const std::int32_t count = device.GetFormatCount();
  KsAcquireControl(filter);
  KSPIN_DESCRIPTOR_EX descriptor{};
  FillPinDescriptor(kPinEntries, list, count, descriptor);
  ULONG pinId = 0;
  status = KsFilterCreatePinFactory(filter, &descriptor, &pinId);
  KsReleaseControl(filter);
  return status;
}

}  // namespace lidcam
