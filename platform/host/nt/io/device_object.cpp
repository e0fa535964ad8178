#include "platform/host/nt/io/device_object.h"

#include <utility>

namespace lidcam::host {

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

}  // namespace lidcam::host
