#include "driver/avstream/entry/driver_entry.h"

#include "driver/avstream/descriptors/filter_descriptors.h"
#include "driver/avstream/filter/capture_filter.h"
#include "driver/avstream/pin/capture_pin.h"
#include "driver/usb/stream/camera_usb_device.h"

namespace lidcam {
namespace {

NTSTATUS NTAPI AddDevice(PKSDEVICE device) {
  const NTSTATUS status = AddCameraDevice(device);
  if (!NT_SUCCESS(status)) return status;
  CaptureDevice& object = *CaptureDeviceOf(device);
  object.Pins = &kPinOperations;
  object.Filter = &kFilterEntries;
  return status;
}

NTSTATUS NTAPI StartDevice(PKSDEVICE device, PIRP irp, PCM_RESOURCE_LIST translated,
                           PCM_RESOURCE_LIST untranslated) {
  return CaptureDeviceOf(device)->PnpStart(device, irp, translated, untranslated);
}

NTSTATUS NTAPI PostStartDevice(PKSDEVICE device) {
  return CaptureDeviceOf(device)->PnpPostStart(device);
}

void NTAPI RemoveDevice(PKSDEVICE device, PIRP irp) {
  CaptureDeviceOf(device)->PnpRemove(device, irp);
}

NTSTATUS NTAPI QueryDeviceCapabilities(PKSDEVICE device, PIRP irp,
                                       PDEVICE_CAPABILITIES capabilities) {
  return CaptureDeviceOf(device)->PnpQueryCapabilities(device, irp, capabilities);
}

void NTAPI DeviceRemovedBySurprise(PKSDEVICE device, PIRP irp) {
  CaptureDeviceOf(device)->PnpSurpriseRemoval(device, irp);
}

void NTAPI SetDevicePower(PKSDEVICE device, PIRP irp, DEVICE_POWER_STATE to,
                          DEVICE_POWER_STATE from) {
  CaptureDeviceOf(device)->PowerSet(device, irp, to, from);
}

// Null entries get the platform's default handling.
constexpr KSDEVICE_DISPATCH CaptureDeviceDispatch{
    AddDevice,
    StartDevice,
    PostStartDevice,
    nullptr,  // QueryStop
    nullptr,  // CancelStop
    nullptr,  // Stop
    nullptr,  // QueryRemove
    nullptr,  // CancelRemove
    RemoveDevice,
    QueryDeviceCapabilities,
    DeviceRemovedBySurprise,
    nullptr,  // QueryPower
    SetDevicePower,
    nullptr,  // QueryInterface
};

constexpr KSDEVICE_DESCRIPTOR CaptureDeviceDescriptor = DeviceDescriptorOf(CaptureDeviceDispatch);

}  // namespace
}  // namespace lidcam

extern "C" NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) {
  lidcam::RequireLevelAtMost(PASSIVE_LEVEL);
  DbgPrint(" The USB2.0 Notebook Camera Driver version is 1.3.19.50612 VGA adjdummy\n");
  return KsInitializeDriver(driver, registryPath, &lidcam::CaptureDeviceDescriptor);
}
