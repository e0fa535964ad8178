// Driver objects, and their extensions.

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/host/nt/io/device_object.h"
#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/verifier/kernel_faults.h"

namespace lidcam::host {
namespace {

using ClientMemory = std::vector<std::max_align_t>;

// The kernel's part of a driver object.
struct DriverRecord {
  DRIVER_EXTENSION Extension{};
  std::map<PVOID, ClientMemory> Clients;
};

// Never destroyed: a driver object is plain memory of its loader, and its end is not reported.
struct Drivers {
  std::mutex Lock;
  std::map<const DRIVER_OBJECT*, std::unique_ptr<DriverRecord>> Records;
};

Drivers& TheDrivers() {
  static auto* const drivers = new Drivers;
  return *drivers;
}

DriverRecord* Find(Drivers& drivers, const DRIVER_OBJECT* driver) {
  const auto found = drivers.Records.find(driver);
  return found != drivers.Records.end() ? found->second.get() : nullptr;
}

NTSTATUS NTAPI RefuseRequest(PDEVICE_OBJECT, PIRP irp) {
  irp->IoStatus.Status = STATUS_INVALID_DEVICE_REQUEST;
  irp->IoStatus.Information = 0;
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  return STATUS_INVALID_DEVICE_REQUEST;
}

}  // namespace

void InitializeDriverObject(DRIVER_OBJECT& driver) {
  auto record = std::make_unique<DriverRecord>();
  record->Extension.DriverObject = &driver;
  driver = {};
  driver.Type = IO_TYPE_DRIVER;
  driver.Size = sizeof(DRIVER_OBJECT);
  driver.DriverExtension = &record->Extension;
  std::ranges::fill(driver.MajorFunction, RefuseRequest);
  Drivers& drivers = TheDrivers();
  const std::lock_guard guard(drivers.Lock);
  drivers.Records[&driver] = std::move(record);
}

}  // namespace lidcam::host

using namespace lidcam::host;

NTSTATUS IoAllocateDriverObjectExtension(PDRIVER_OBJECT driver, PVOID id, ULONG size,
                                         PVOID* extension) {
  const CallRule& rule = calls::kIoAllocateDriverObjectExtension;
  EnterKernelCall(rule, driver);
  *extension = nullptr;
  if (const auto fault = KernelCallFault(rule.Name)) return *fault;
  Drivers& drivers = TheDrivers();
  std::unique_lock guard(drivers.Lock);
  DriverRecord* const record = Find(drivers, driver);
  if (record == nullptr) {
    guard.unlock();
    ReportViolation(rule.Name, DescribeObject("driver", driver) + " was never initialised");
  }
  const std::size_t units = size / sizeof(std::max_align_t) + 1;
  const auto [added, isNew] = record->Clients.try_emplace(id, units);
  if (!isNew) return STATUS_OBJECT_NAME_COLLISION;
  *extension = added->second.data();
  return STATUS_SUCCESS;
}

PVOID IoGetDriverObjectExtension(PDRIVER_OBJECT driver, PVOID id) {
  EnterKernelCall(calls::kIoGetDriverObjectExtension, driver);
  Drivers& drivers = TheDrivers();
  const std::lock_guard guard(drivers.Lock);
  DriverRecord* const record = Find(drivers, driver);
  if (record == nullptr) return nullptr;
  const auto found = record->Clients.find(id);
  return found != record->Clients.end() ? found->second.data() : nullptr;
}
