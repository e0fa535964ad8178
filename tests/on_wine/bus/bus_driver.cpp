// The driver of a USB bus with a simulated camera, for kernels that are processes.

#include <exception>

#include "platform/kernel.h"
#include "tests/on_wine/bus/bus_device.h"

namespace lidcam::wine {
namespace {

template <NTSTATUS (DeviceRole::*Handle)(PIRP)>
NTSTATUS NTAPI Dispatch(PDEVICE_OBJECT device, PIRP irp) {
  return (DeviceRole::Of(device).*Handle)(irp);
}

NTSTATUS NTAPI AgreeToFile(PDEVICE_OBJECT, PIRP irp) {
  irp->IoStatus.Information = 0;
  return Complete(irp, STATUS_SUCCESS);
}

NTSTATUS NTAPI AddDevice(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice) {
  try {
    new BusDevice(driver, physicalDevice);  // deleted by its own removal
    return STATUS_SUCCESS;
  } catch (const std::exception& error) {
    DbgPrint("camera_bus: %s\n", error.what());
    return STATUS_INSUFFICIENT_RESOURCES;
  }
}

// All devices are removed before: nothing is left to do.
void NTAPI Unload(PDRIVER_OBJECT) {}

}  // namespace
}  // namespace lidcam::wine

using namespace lidcam::wine;

extern "C" NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING) {
  driver->MajorFunction[IRP_MJ_CREATE] = AgreeToFile;
  driver->MajorFunction[IRP_MJ_CLEANUP] = AgreeToFile;
  driver->MajorFunction[IRP_MJ_CLOSE] = AgreeToFile;
  driver->MajorFunction[IRP_MJ_PNP] = Dispatch<&DeviceRole::PlugAndPlay>;
  driver->MajorFunction[IRP_MJ_POWER] = Dispatch<&DeviceRole::Power>;
  driver->MajorFunction[IRP_MJ_SYSTEM_CONTROL] = Dispatch<&DeviceRole::SystemControl>;
  driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = Dispatch<&DeviceRole::DeviceControl>;
  driver->MajorFunction[IRP_MJ_INTERNAL_DEVICE_CONTROL] =
      Dispatch<&DeviceRole::InternalDeviceControl>;
  driver->DriverExtension->AddDevice = AddDevice;
  driver->DriverUnload = Unload;
  return STATUS_SUCCESS;
}
