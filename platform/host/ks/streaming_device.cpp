#include "platform/host/ks/streaming_device.h"

#include <exception>
#include <stdexcept>

namespace lidcam::host {

StreamingDevice::StreamingDevice(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice)
    : KSDEVICE{}, bag_(mutex_) {
  KeInitializeMutex(&mutex_, 0);
  if (!NT_SUCCESS(IoCreateDevice(driver, 0, nullptr, FILE_DEVICE_UNKNOWN, 0, FALSE,
                                 &FunctionalDeviceObject))) {
    throw std::runtime_error("the kernel gives no functional device object");
  }
  NextDeviceObject = IoAttachDeviceToDeviceStack(FunctionalDeviceObject, physicalDevice);
  if (NextDeviceObject == nullptr) {
    IoDeleteDevice(FunctionalDeviceObject);
    throw std::runtime_error("the device stack takes no further device object");
  }
  FunctionalDeviceObject->Flags &= ~DO_DEVICE_INITIALIZING;
  Bag = &bag_;
  PhysicalDeviceObject = physicalDevice;
  SystemPowerState = PowerSystemWorking;
  DevicePowerState = PowerDeviceD0;
}

StreamingDevice::~StreamingDevice() noexcept(false) {
  if (std::uncaught_exceptions() != 0) return;
  KsAcquireDevice(this);
  bag_.Empty();
  KsReleaseDevice(this);
  IoDetachDevice(NextDeviceObject);
  IoDeleteDevice(FunctionalDeviceObject);
}

}  // namespace lidcam::host

using lidcam::host::StreamingDevice;

void KsAcquireDevice(PKSDEVICE device) {
  KeWaitForSingleObject(&static_cast<StreamingDevice*>(device)->Mutex(), Executive, KernelMode,
                        FALSE, nullptr);
}

void KsReleaseDevice(PKSDEVICE device) {
  KeReleaseMutex(&static_cast<StreamingDevice*>(device)->Mutex(), FALSE);
}
