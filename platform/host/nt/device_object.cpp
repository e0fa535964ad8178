#include "platform/host/nt/device_object.h"

#include <algorithm>
#include <utility>

namespace lidcam::host {
namespace {

NTSTATUS NTAPI RefuseRequest(PDEVICE_OBJECT, PIRP irp) {
  irp->IoStatus.Status = STATUS_INVALID_DEVICE_REQUEST;
  irp->IoStatus.Information = 0;
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  return STATUS_INVALID_DEVICE_REQUEST;
}

}  // namespace

HostDevice::HostDevice(std::u16string driverKey)
    : DEVICE_OBJECT{}, DriverKey(std::move(driverKey)) {
  Type = IO_TYPE_DEVICE;
  Size = sizeof(DEVICE_OBJECT);
  StackSize = 1;
  Extension = {IO_TYPE_DEVICE_OBJECT_EXTENSION, sizeof(Extension), this};
  DeviceObjectExtension = &Extension;
}

HostDevice* FindHostDevice(PDEVICE_OBJECT device) {
  if (device == nullptr || device->DeviceObjectExtension == nullptr) return nullptr;
  if (device->DeviceObjectExtension->DeviceObject != device) return nullptr;
  return static_cast<HostDevice*>(device);
}

void InitializeDriverObject(DRIVER_OBJECT& driver) {
  driver = {};
  driver.Type = IO_TYPE_DRIVER;
  driver.Size = sizeof(DRIVER_OBJECT);
  std::ranges::fill(driver.MajorFunction, RefuseRequest);
}

}  // namespace lidcam::host
