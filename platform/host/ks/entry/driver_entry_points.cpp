// The entries that the class sets in a driver object, and how it adds devices for the driver.

#include "platform/host/ks/device/device_block.h"
#include "platform/host/ks/device/device_requests.h"
#include "platform/host/ks/entry/file_requests.h"

namespace lidcam::host {
namespace {

/// The class's data about a driver.
struct DriverRecord {
  const KSDEVICE_DESCRIPTOR* Descriptor;
};

UCHAR g_driverRecordId = 0;  ///< only its address is used

NTSTATUS NTAPI PassOn(PDEVICE_OBJECT functionalDevice, PIRP irp) {
  return Forward(BlockOf(functionalDevice), irp);
}

void NTAPI Unload(PDRIVER_OBJECT) {}  // the record is freed with the driver object

/// The class's own part, then the driver's.
NTSTATUS Add(DeviceBlock& device) {
  const NTSTATUS status = InitializeDeviceBlock(device);
  if (!NT_SUCCESS(status)) return status;
  const PFNKSDEVICECREATE add = EntriesOf(device).Add;
  return add != nullptr ? add(&device) : STATUS_SUCCESS;
}

NTSTATUS NTAPI AddDevice(PDRIVER_OBJECT driver, PDEVICE_OBJECT physicalDevice) {
  const auto* const record =
      static_cast<DriverRecord*>(IoGetDriverObjectExtension(driver, &g_driverRecordId));
  PDEVICE_OBJECT made = nullptr;
  NTSTATUS status =
      IoCreateDevice(driver, sizeof(DeviceExtension), nullptr, FILE_DEVICE_KS, 0, FALSE, &made);
  if (!NT_SUCCESS(status)) return status;
  auto& extension = *static_cast<DeviceExtension*>(made->DeviceExtension);
  extension.Block = &extension.Own;
  DeviceBlock& device = extension.Own;
  device.Descriptor = record->Descriptor;
  device.FunctionalDeviceObject = made;
  device.PhysicalDeviceObject = physicalDevice;
  device.NextDeviceObject = IoAttachDeviceToDeviceStack(made, physicalDevice);
  if (device.NextDeviceObject == nullptr) {
    IoDeleteDevice(made);
    return STATUS_NO_SUCH_DEVICE;
  }
  status = Add(device);
  if (!NT_SUCCESS(status)) {
    IoDetachDevice(device.NextDeviceObject);
    CleanUpDeviceBlock(device);
    IoDeleteDevice(made);
    return status;
  }
  // Power requests wait for the device below, which needs passive level.
  made->Flags |= DO_POWER_PAGABLE;
  made->Flags &= ~ULONG{DO_DEVICE_INITIALIZING};
  return status;
}

}  // namespace
}  // namespace lidcam::host

using namespace lidcam::host;

NTSTATUS NTAPI KsInitializeDriver(PDRIVER_OBJECT driver, PUNICODE_STRING,
                                  const KSDEVICE_DESCRIPTOR* descriptor) {
  if (descriptor == nullptr || driver->DriverExtension == nullptr) return STATUS_INVALID_PARAMETER;
  // Filters are made by KsCreateFilterFactory() only.
  if (descriptor->FilterDescriptorsCount != 0) return STATUS_NOT_SUPPORTED;
  PVOID memory = nullptr;
  const NTSTATUS status =
      IoAllocateDriverObjectExtension(driver, &g_driverRecordId, sizeof(DriverRecord), &memory);
  if (!NT_SUCCESS(status)) return status;
  static_cast<DriverRecord*>(memory)->Descriptor = descriptor;
  driver->DriverExtension->AddDevice = AddDevice;
  driver->DriverUnload = Unload;
  driver->MajorFunction[IRP_MJ_CREATE] = DispatchCreate;
  driver->MajorFunction[IRP_MJ_CLEANUP] = DispatchCleanup;
  driver->MajorFunction[IRP_MJ_CLOSE] = DispatchClose;
  driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = DispatchDeviceControl;
  driver->MajorFunction[IRP_MJ_PNP] = DispatchPlugAndPlay;
  driver->MajorFunction[IRP_MJ_POWER] = DispatchPower;
  driver->MajorFunction[IRP_MJ_SYSTEM_CONTROL] = PassOn;
  return STATUS_SUCCESS;
}
