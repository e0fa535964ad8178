// Plug and play of a device: the driver's entries that are called, and their order relative to the
// device below.

#include "platform/host/ks/device/device_requests.h"

#include "platform/host/ks/device/device_block.h"
#include "platform/host/ks/device/filter_factory.h"

namespace lidcam::host {
namespace {

using DeviceRequest = NTSTATUS (*)(DeviceBlock& device, PIRP irp);

NTSTATUS ForwardWith(DeviceBlock& device, PIRP irp, NTSTATUS status) {
  irp->IoStatus.Status = status;
  return Forward(device, irp);
}

NTSTATUS AskDriver(DeviceBlock& device, PIRP irp, PFNKSDEVICEIRP entry, ClassCall which) {
  if (entry == nullptr) return STATUS_SUCCESS;
  const DeviceCall call(device, which);
  return entry(&device, irp);
}

void TellDriver(DeviceBlock& device, PIRP irp, PFNKSDEVICEIRPVOID entry, ClassCall which) {
  if (entry == nullptr) return;
  const DeviceCall call(device, which);
  entry(&device, irp);
}

// The manual names no mutex for removals. Under the mutex, a driver that waits for a thread that
// needs the mutex would deadlock.
void TellOfRemoval(DeviceBlock& device, PIRP irp, PFNKSDEVICEIRPVOID entry) {
  if (entry != nullptr) entry(&device, irp);
}

NTSTATUS StartDriver(DeviceBlock& device, PIRP irp) {
  const PFNKSDEVICEPNPSTART start = EntriesOf(device).Start;
  if (start == nullptr) return STATUS_SUCCESS;
  const auto& resources = IoGetCurrentIrpStackLocation(irp)->Parameters.StartDevice;
  const DeviceCall call(device, ClassCall::Start);
  return start(&device, irp, resources.AllocatedResourcesTranslated, resources.AllocatedResources);
}

// The platform leaves the end of a start to a worker that runs after the start. Here it runs at
// once, so that after a start the hardware is either up or has failed.
NTSTATUS StartDriverToEnd(DeviceBlock& device, PIRP irp) {
  const NTSTATUS status = StartDriver(device, irp);
  if (!NT_SUCCESS(status)) return status;
  device.Started = TRUE;
  EnableFactories(device, TRUE);
  const PFNKSDEVICE postStart = EntriesOf(device).PostStart;
  if (postStart == nullptr) return STATUS_SUCCESS;
  const DeviceCall call(device, ClassCall::PostStart);
  postStart(&device);
  return STATUS_SUCCESS;
}

/// A failed start keeps the factories that the driver has made: their filters can be opened and
/// report the failure. During the start nothing can be opened.
NTSTATUS Start(DeviceBlock& device, PIRP irp) {
  NTSTATUS status = ForwardAndWait(device, irp);
  if (!NT_SUCCESS(status)) return CompleteRequest(irp, status);
  InterlockedExchange(&device.IsStarting, 1);
  status = StartDriverToEnd(device, irp);
  InterlockedExchange(&device.IsStarting, 0);
  return CompleteRequest(irp, status);
}

NTSTATUS AskAndForward(DeviceBlock& device, PIRP irp, PFNKSDEVICEIRP entry, ClassCall which) {
  const NTSTATUS status = AskDriver(device, irp, entry, which);
  if (!NT_SUCCESS(status)) return CompleteRequest(irp, status);
  return ForwardWith(device, irp, STATUS_SUCCESS);
}

NTSTATUS QueryStop(DeviceBlock& device, PIRP irp) {
  return AskAndForward(device, irp, EntriesOf(device).QueryStop, ClassCall::Stop);
}

NTSTATUS QueryRemove(DeviceBlock& device, PIRP irp) {
  return AskAndForward(device, irp, EntriesOf(device).QueryRemove, ClassCall::RemoveQuery);
}

/// The driver is called only if the devices below have succeeded.
NTSTATUS ForwardAndTell(DeviceBlock& device, PIRP irp, PFNKSDEVICEIRPVOID entry, ClassCall which) {
  irp->IoStatus.Status = STATUS_SUCCESS;
  const NTSTATUS status = ForwardAndWait(device, irp);
  TellDriver(device, irp, entry, which);
  return CompleteRequest(irp, status);
}

NTSTATUS CancelStop(DeviceBlock& device, PIRP irp) {
  return ForwardAndTell(device, irp, EntriesOf(device).CancelStop, ClassCall::Stop);
}

NTSTATUS CancelRemove(DeviceBlock& device, PIRP irp) {
  return ForwardAndTell(device, irp, EntriesOf(device).CancelRemove, ClassCall::RemoveQuery);
}

NTSTATUS Stop(DeviceBlock& device, PIRP irp) {
  TellDriver(device, irp, EntriesOf(device).Stop, ClassCall::Stop);
  device.Started = FALSE;
  EnableFactories(device, FALSE);
  DropFactories(device, FactoriesDropped::OfAStoppedDevice);
  return ForwardWith(device, irp, STATUS_SUCCESS);
}

/// Openings check it under the mutex: all fail from here on.
void RefuseOpenings(DeviceBlock& device) {
  AcquireMutex(device);
  InterlockedExchange(&device.IsGone, 1);
  ReleaseMutex(device);
}

NTSTATUS SurpriseRemoval(DeviceBlock& device, PIRP irp) {
  RefuseOpenings(device);
  EnableFactories(device, FALSE);
  TellOfRemoval(device, irp, EntriesOf(device).SurpriseRemoval);
  ReturnFramesOfAllPins(device);
  return ForwardWith(device, irp, STATUS_SUCCESS);
}

/// The device object and the bag stay until the last open file is closed.
NTSTATUS Remove(DeviceBlock& device, PIRP irp) {
  RefuseOpenings(device);
  TellOfRemoval(device, irp, EntriesOf(device).Remove);
  InterlockedExchange(&device.IsRemoved, 1);
  WaitForRequests(device);
  ReturnFramesOfAllPins(device);
  device.Started = FALSE;
  DropFactories(device, FactoriesDropped::All);
  PDEVICE_OBJECT const below = device.NextDeviceObject;
  const NTSTATUS status = ForwardWith(device, irp, STATUS_SUCCESS);
  IoDetachDevice(below);
  LetGoOfDevice(device);
  return status;
}

NTSTATUS QueryCapabilities(DeviceBlock& device, PIRP irp) {
  NTSTATUS status = ForwardAndWait(device, irp);
  const PFNKSDEVICEQUERYCAPABILITIES query = EntriesOf(device).QueryCapabilities;
  if (NT_SUCCESS(status) && query != nullptr) {
    const auto& parameters = IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceCapabilities;
    status = query(&device, irp, parameters.Capabilities);
  }
  return CompleteRequest(irp, status);
}

/// A query for an interface that the driver does not know is sent on to the devices below.
NTSTATUS QueryInterface(DeviceBlock& device, PIRP irp) {
  const PFNKSDEVICEIRP query = EntriesOf(device).QueryInterface;
  if (query == nullptr) return Forward(device, irp);
  const NTSTATUS status = query(&device, irp);
  if (status == STATUS_NOT_SUPPORTED) return Forward(device, irp);
  if (!NT_SUCCESS(status)) return CompleteRequest(irp, status);
  return ForwardWith(device, irp, status);
}

struct MinorFunction {
  UCHAR Code;
  DeviceRequest Handler;
};

constexpr MinorFunction kMinorFunctions[] = {
    {IRP_MN_START_DEVICE, Start},
    {IRP_MN_QUERY_STOP_DEVICE, QueryStop},
    {IRP_MN_CANCEL_STOP_DEVICE, CancelStop},
    {IRP_MN_STOP_DEVICE, Stop},
    {IRP_MN_QUERY_REMOVE_DEVICE, QueryRemove},
    {IRP_MN_CANCEL_REMOVE_DEVICE, CancelRemove},
    {IRP_MN_SURPRISE_REMOVAL, SurpriseRemoval},
    {IRP_MN_REMOVE_DEVICE, Remove},
    {IRP_MN_QUERY_CAPABILITIES, QueryCapabilities},
    {IRP_MN_QUERY_INTERFACE, QueryInterface},
};

}  // namespace

NTSTATUS NTAPI DispatchPlugAndPlay(PDEVICE_OBJECT functionalDevice, PIRP irp) {
  DeviceBlock& device = BlockOf(functionalDevice);
  const UCHAR code = IoGetCurrentIrpStackLocation(irp)->MinorFunction;
  for (const MinorFunction& minor : kMinorFunctions) {
    if (minor.Code == code) return minor.Handler(device, irp);
  }
  return Forward(device, irp);
}

}  // namespace lidcam::host
