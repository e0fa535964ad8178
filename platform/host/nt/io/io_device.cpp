// Devices, and their device stacks.

#include <cstring>
#include <memory>

#include "platform/host/nt/io/device_object.h"
#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/verifier/irp_tracker.h"
#include "platform/host/nt/verifier/kernel_faults.h"

namespace lidcam::host {
namespace {

constexpr ULONG kDeviceTag = 0x69766544;  // "Devi"

// At least one byte: the block shows a device that was not deleted.
void* AllocateExtension(ULONG size) {
  void* const extension = AllocatePoolBlock(NonPagedPool, size, kDeviceTag);
  if (extension != nullptr) std::memset(extension, 0, size);
  return extension;
}

void Unlink(DRIVER_OBJECT& driver, PDEVICE_OBJECT device) {
  PDEVICE_OBJECT* link = &driver.DeviceObject;
  while (*link != nullptr && *link != device) link = &(*link)->NextDevice;
  if (*link != nullptr) *link = device->NextDevice;
}

void CheckDeletion(const CallRule& rule, PDEVICE_OBJECT device) {
  const std::string name = DescribeObject("device", device);
  if (FindHostDevice(device) == nullptr || device->DriverObject == nullptr) {
    ReportViolation(rule.Name, name + " wasn't made by IoCreateDevice");
  }
  if (device->AttachedDevice != nullptr) {
    ReportViolation(rule.Name, name + " still has " +
                                   DescribeObject("device", device->AttachedDevice) +
                                   " attached to it");
  }
  if (device->ReferenceCount != 0) {
    ReportViolation(
        rule.Name, name + " still has " + std::to_string(device->ReferenceCount) + " open file(s)");
  }
  const std::size_t requests = IrpsInFlightAt(device);
  if (requests != 0) {
    ReportViolation(rule.Name, name + " still has " + std::to_string(requests) + " IRP(s)");
  }
}

}  // namespace
}  // namespace lidcam::host

using namespace lidcam::host;

NTSTATUS IoCreateDevice(PDRIVER_OBJECT driver, ULONG extensionSize, PUNICODE_STRING, ULONG type,
                        ULONG characteristics, BOOLEAN, PDEVICE_OBJECT* device) {
  const CallRule& rule = calls::kIoCreateDevice;
  Thread& self = EnterKernelCall(rule, driver);
  if (const auto fault = KernelCallFault(rule.Name)) return *fault;
  void* const extension = AllocateExtension(extensionSize);
  if (extension == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  auto made = std::make_unique<HostDevice>();
  made->DriverObject = driver;
  made->NextDevice = driver->DeviceObject;
  made->Flags = DO_DEVICE_INITIALIZING;
  made->Characteristics = characteristics;
  made->DeviceType = type;
  made->DeviceExtension = extension;
  driver->DeviceObject = made.get();
  self.World.NoteObject(made.get(), [](void* left) { delete static_cast<HostDevice*>(left); });
  *device = made.release();
  return STATUS_SUCCESS;
}

void IoDeleteDevice(PDEVICE_OBJECT device) {
  const CallRule& rule = calls::kIoDeleteDevice;
  Thread& self = EnterKernelCall(rule, device);
  CheckDeletion(rule, device);
  Unlink(*device->DriverObject, device);
  FreePoolBlock(rule.Name, device->DeviceExtension);
  HostDevice* const host = FindHostDevice(device);
  self.World.ForgetObject(host);
  delete host;
}

PDEVICE_OBJECT IoAttachDeviceToDeviceStack(PDEVICE_OBJECT source, PDEVICE_OBJECT target) {
  EnterKernelCall(calls::kIoAttachDeviceToDeviceStack, source);
  PDEVICE_OBJECT top = target;
  while (top->AttachedDevice != nullptr) top = top->AttachedDevice;
  top->AttachedDevice = source;
  source->StackSize = static_cast<CCHAR>(top->StackSize + 1);
  source->AlignmentRequirement = top->AlignmentRequirement;
  return top;
}

void IoDetachDevice(PDEVICE_OBJECT target) {
  const CallRule& rule = calls::kIoDetachDevice;
  EnterKernelCall(rule, target);
  if (target->AttachedDevice == nullptr) {
    ReportViolation(rule.Name, DescribeObject("device", target) + " has nothing attached to it");
  }
  target->AttachedDevice = nullptr;
}
