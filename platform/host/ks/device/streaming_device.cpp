#include "platform/host/ks/device/streaming_device.h"

#include <exception>
#include <stdexcept>

namespace lidcam::host {

StreamingDevice::StreamingDevice(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice)
    : DeviceBlock{} {
  if (!NT_SUCCESS(IoCreateDevice(driver, sizeof(DeviceBlock*), nullptr, FILE_DEVICE_KS, 0, FALSE,
                                 &FunctionalDeviceObject))) {
    throw std::runtime_error("the kernel gives no functional device object");
  }
  *static_cast<DeviceBlock**>(FunctionalDeviceObject->DeviceExtension) = this;
  NextDeviceObject = IoAttachDeviceToDeviceStack(FunctionalDeviceObject, physicalDevice);
  if (NextDeviceObject == nullptr) {
    IoDeleteDevice(FunctionalDeviceObject);
    throw std::runtime_error("the device stack takes no further device object");
  }
  FunctionalDeviceObject->Flags &= ~DO_DEVICE_INITIALIZING;
  PhysicalDeviceObject = physicalDevice;
  if (!NT_SUCCESS(InitializeDeviceBlock(*this))) {
    TakeOffTheStack();
    throw std::runtime_error("there is no memory for the device's object bag");
  }
}

StreamingDevice::~StreamingDevice() noexcept(false) {
  if (std::uncaught_exceptions() != 0) return;
  CleanUpDeviceBlock(*this);
  TakeOffTheStack();
}

void StreamingDevice::TakeOffTheStack() {
  IoDetachDevice(NextDeviceObject);
  IoDeleteDevice(FunctionalDeviceObject);
}

}  // namespace lidcam::host
