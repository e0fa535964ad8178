// Additions to the class for the drivers that use it: their devices' interfaces, the private
// requests, and functions that the kernel lacks.

#include "platform/host/ks/device/device_requests.h"
#include "platform/host/ks/device/ks_objects.h"
#include "platform/host/ks/entry/file_requests.h"
#include "tests/on_wine/ks/device_interfaces.h"
#include "tests/on_wine/ks/filter_file.h"
#include "tests/on_wine/ks/kernel_gaps.h"
#include "tests/on_wine/ks/private_answers.h"

namespace lidcam::wine {
namespace {

constinit PDRIVER_UNLOAD g_unload = nullptr;  ///< the class's own, equal for every driver

NTSTATUS NTAPI PlugAndPlay(PDEVICE_OBJECT functionalDevice, PIRP irp) {
  const UCHAR request = IoGetCurrentIrpStackLocation(irp)->MinorFunction;
  const bool ends = request == IRP_MN_STOP_DEVICE || request == IRP_MN_SURPRISE_REMOVAL ||
                    request == IRP_MN_REMOVE_DEVICE;
  if (ends) DisableInterfaces(functionalDevice);
  if (request == IRP_MN_START_DEVICE) ServeDevice(functionalDevice);
  if (request == IRP_MN_REMOVE_DEVICE) EndService(functionalDevice);
  const NTSTATUS status = host::DispatchPlugAndPlay(functionalDevice, irp);
  if (request == IRP_MN_START_DEVICE && NT_SUCCESS(status)) EnableInterfaces(functionalDevice);
  return status;
}

NTSTATUS NTAPI DeviceControl(PDEVICE_OBJECT functionalDevice, PIRP irp) {
  const FilterFilesLock lock;
  if (!IsServed(functionalDevice)) return host::CompleteRequest(irp, STATUS_DELETE_PENDING);
  if (IsPrivateRequest(irp)) return AnswerPrivateRequest(functionalDevice, irp);
  return host::DispatchDeviceControl(functionalDevice, irp);
}

void NTAPI Unload(PDRIVER_OBJECT driver) {
  g_unload(driver);
  FreeDriverExtensions(driver);
}

}  // namespace
}  // namespace lidcam::wine

using namespace lidcam::wine;

extern "C" {

/// Drivers import it as KsInitializeDriver.
NTSTATUS NTAPI InitializeDriver(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath,
                                const KSDEVICE_DESCRIPTOR* descriptor) {
  FillKernelGaps(driver);
  InitializeFilterFiles();
  const NTSTATUS status = KsInitializeDriver(driver, registryPath, descriptor);
  if (!NT_SUCCESS(status)) {
    FreeDriverExtensions(driver);
    return status;
  }
  g_unload = driver->DriverUnload;
  driver->DriverUnload = Unload;
  driver->MajorFunction[IRP_MJ_CREATE] = CreateFilterFile;
  driver->MajorFunction[IRP_MJ_PNP] = PlugAndPlay;
  driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = DeviceControl;
  driver->MajorFunction[IRP_MJ_CLEANUP] = CleanUpFilterFile;
  driver->MajorFunction[IRP_MJ_CLOSE] = CloseFilterFile;
  return status;
}

/// The image has no device of its own: other drivers import it.
NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT, PUNICODE_STRING) {
  return STATUS_SUCCESS;
}

}  // extern "C"
