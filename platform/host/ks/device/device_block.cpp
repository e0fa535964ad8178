#include "platform/host/ks/device/device_block.h"

#include "platform/host/ks/device/filter_factory.h"
#include "platform/host/ks/objects/pool_object.h"

namespace lidcam::host {
namespace {

constexpr KSDEVICE_DISPATCH kNoEntries{};

NTSTATUS NTAPI WakeSender(PDEVICE_OBJECT, PIRP, PVOID event) {
  KeSetEvent(static_cast<PKEVENT>(event), IO_NO_INCREMENT, FALSE);
  return STATUS_MORE_PROCESSING_REQUIRED;
}

}  // namespace

NTSTATUS InitializeDeviceBlock(DeviceBlock& device) {
  InitializeClassMutex(device.Device);
  InitializeClassRecord(device.Record);
  KeInitializeEvent(&device.RequestsEnded, NotificationEvent, FALSE);
  InitializeListHead(&device.Factories);
  InitializeListHead(&device.Pins);
  device.Users = 1;
  device.Requests = 1;
  device.SystemPowerState = PowerSystemWorking;
  device.DevicePowerState = PowerDeviceD0;
  device.Items = CreateObjectBag(device);
  device.Bag = device.Items;
  return device.Items != nullptr ? STATUS_SUCCESS : STATUS_INSUFFICIENT_RESOURCES;
}

void CleanUpDeviceBlock(DeviceBlock& device) {
  DropFactories(device, FactoriesDropped::All);
  DestroyObjectBag(device.Items);
  device.Items = nullptr;
}

ObjectBag* CreateObjectBag(DeviceBlock& device) {
  PVOID const memory = ExAllocatePoolWithTag(NonPagedPool, sizeof(ObjectBag), kStreamingPoolTag);
  return memory != nullptr ? ::new (memory) ObjectBag(device.Device.Mutex) : nullptr;
}

void DestroyObjectBag(ObjectBag* bag) {
  if (bag == nullptr) return;
  bag->Empty();
  ExFreePool(bag);
}

const KSDEVICE_DISPATCH& EntriesOf(const DeviceBlock& device) {
  const KSDEVICE_DESCRIPTOR* const descriptor = device.Descriptor;
  const bool hasEntries = descriptor != nullptr && descriptor->Dispatch != nullptr;
  return hasEntries ? *descriptor->Dispatch : kNoEntries;
}

void HoldDevice(DeviceBlock& device) {
  InterlockedIncrement(&device.Users);
}

void LetGoOfDevice(DeviceBlock& device) {
  if (InterlockedDecrement(&device.Users) != 0) return;
  PDEVICE_OBJECT const functionalDevice = device.FunctionalDeviceObject;
  CleanUpDeviceBlock(device);
  IoDeleteDevice(functionalDevice);
}

void BeginRequest(DeviceBlock& device) {
  HoldDevice(device);
  InterlockedIncrement(&device.Requests);
}

void EndRequest(DeviceBlock& device) {
  if (InterlockedDecrement(&device.Requests) == 0) {
    KeSetEvent(&device.RequestsEnded, IO_NO_INCREMENT, FALSE);
  }
  LetGoOfDevice(device);
}

void WaitForRequests(DeviceBlock& device) {
  if (InterlockedDecrement(&device.Requests) == 0) return;
  KeWaitForSingleObject(&device.RequestsEnded, Executive, KernelMode, FALSE, nullptr);
}

NTSTATUS ForwardAndWait(DeviceBlock& device, PIRP irp) {
  KEVENT done{};
  KeInitializeEvent(&done, NotificationEvent, FALSE);
  IoCopyCurrentIrpStackLocationToNext(irp);
  IoSetCompletionRoutine(irp, WakeSender, &done, TRUE, TRUE, TRUE);
  if (IoCallDriver(device.NextDeviceObject, irp) == STATUS_PENDING) {
    KeWaitForSingleObject(&done, Executive, KernelMode, FALSE, nullptr);
  }
  return irp->IoStatus.Status;
}

NTSTATUS Forward(DeviceBlock& device, PIRP irp) {
  IoSkipCurrentIrpStackLocation(irp);
  return IoCallDriver(device.NextDeviceObject, irp);
}

void ReturnFramesOfAllPins(DeviceBlock& device) {
  AcquireMutex(device);
  for (LIST_ENTRY* link = device.Pins.Flink; link != &device.Pins; link = link->Flink) {
    const PinLink& open = *CONTAINING_RECORD(link, PinLink, Entry);
    open.ReturnFrames(*open.Pin);
  }
  ReleaseMutex(device);
}

NTSTATUS CompleteRequest(PIRP irp, NTSTATUS status) {
  if (status == STATUS_PENDING) return status;
  irp->IoStatus.Status = status;
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  return status;
}

}  // namespace lidcam::host

using namespace lidcam::host;

void NTAPI KsAcquireDevice(PKSDEVICE device) {
  AcquireDeviceFor(*static_cast<DeviceBlock*>(device), ClassCall::None);
}

void NTAPI KsReleaseDevice(PKSDEVICE device) {
  ReleaseDeviceOf(*static_cast<DeviceBlock*>(device));
}

PKSDEVICE NTAPI KsGetDevice(PVOID object) {
  return HeadOf(object).Device;
}
