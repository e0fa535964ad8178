#include "tests/on_wine/ks/filter_file.h"

#include "platform/host/ks/device/ks_objects.h"
#include "platform/host/ks/entry/file_requests.h"
#include "platform/host/ks/objects/class_mutex.h"
#include "platform/host/ks/objects/pool_object.h"
#include "tests/on_wine/ks/inner_request.h"

namespace lidcam::wine {
namespace {

struct FilterFiles {
  KMUTEX Lock;
  LIST_ENTRY All;      ///< of FilterFile
  LIST_ENTRY Devices;  ///< of ServedDevice
};

struct ServedDevice {
  LIST_ENTRY Link;
  PDEVICE_OBJECT Object;
};

constinit FilterFiles g_files{};

FILE_OBJECT& FileOf(PIRP irp) {
  return *IoGetCurrentIrpStackLocation(irp)->FileObject;
}

void ClosePin(FilterFile& filter) {
  if (filter.Pin != nullptr) filter.Pin->Close();
  filter.Pin = nullptr;
}

FilterFile* FindFileOf(PDEVICE_OBJECT device) {
  for (LIST_ENTRY* link = g_files.All.Flink; link != &g_files.All; link = link->Flink) {
    auto* const filter = CONTAINING_RECORD(link, FilterFile, Link);
    if (filter->Device == device) return filter;
  }
  return nullptr;
}

ServedDevice* FindServed(PDEVICE_OBJECT device) {
  LIST_ENTRY* const end = &g_files.Devices;
  for (LIST_ENTRY* link = end->Flink; link != end; link = link->Flink) {
    auto* const served = CONTAINING_RECORD(link, ServedDevice, Link);
    if (served->Object == device) return served;
  }
  return nullptr;
}

void CloseAllOf(PDEVICE_OBJECT device) {
  while (FilterFile* const filter = FindFileOf(device)) {
    FILE_OBJECT& file = *filter->File;
    InnerRequest(device, file, IRP_MJ_CLEANUP).Send();
    InnerRequest(device, file, IRP_MJ_CLOSE).Send();
  }
}

}  // namespace

FilterFilesLock::FilterFilesLock() {
  host::AcquireMutex(g_files.Lock);
}

FilterFilesLock::~FilterFilesLock() {
  host::ReleaseMutex(g_files.Lock);
}

void InitializeFilterFiles() {
  host::InitializeMutex(g_files.Lock);
  InitializeListHead(&g_files.All);
  InitializeListHead(&g_files.Devices);
}

void ServeDevice(PDEVICE_OBJECT functionalDevice) {
  const FilterFilesLock lock;
  if (IsServed(functionalDevice)) return;
  auto* const served = host::AllocateObject<ServedDevice>();
  if (served == nullptr) return;
  served->Object = functionalDevice;
  InsertTailList(&g_files.Devices, &served->Link);
}

void EndService(PDEVICE_OBJECT functionalDevice) {
  const FilterFilesLock lock;
  CloseAllOf(functionalDevice);
  ServedDevice* const served = FindServed(functionalDevice);
  if (served == nullptr) return;
  RemoveEntryList(&served->Link);
  ExFreePool(served);
}

bool IsServed(PDEVICE_OBJECT functionalDevice) {
  return FindServed(functionalDevice) != nullptr;
}

FilterFile* FilterFileOf(PIRP irp) {
  return static_cast<FilterFile*>(FileOf(irp).FsContext2);
}

NTSTATUS NTAPI CreateFilterFile(PDEVICE_OBJECT functionalDevice, PIRP irp) {
  const FilterFilesLock lock;
  if (!IsServed(functionalDevice)) return host::CompleteRequest(irp, STATUS_DELETE_PENDING);
  if (FileOf(irp).RelatedFileObject != nullptr) return host::DispatchCreate(functionalDevice, irp);
  auto* const filter = host::AllocateObject<FilterFile>();
  if (filter == nullptr) return host::CompleteRequest(irp, STATUS_INSUFFICIENT_RESOURCES);
  filter->Device = functionalDevice;
  filter->File = &FileOf(irp);
  filter->File->FsContext2 = filter;
  const NTSTATUS status = host::DispatchCreate(functionalDevice, irp);
  if (NT_SUCCESS(status)) {
    InsertTailList(&g_files.All, &filter->Link);
  } else {
    ExFreePool(filter);  // its file is closed separately
  }
  return status;
}

NTSTATUS NTAPI CleanUpFilterFile(PDEVICE_OBJECT functionalDevice, PIRP irp) {
  const FilterFilesLock lock;
  if (!IsServed(functionalDevice)) return host::CompleteRequest(irp, STATUS_SUCCESS);
  FilterFile* const filter = FilterFileOf(irp);
  if (filter != nullptr) ClosePin(*filter);
  return host::DispatchCleanup(functionalDevice, irp);
}

NTSTATUS NTAPI CloseFilterFile(PDEVICE_OBJECT functionalDevice, PIRP irp) {
  const FilterFilesLock lock;
  if (!IsServed(functionalDevice)) return host::CompleteRequest(irp, STATUS_SUCCESS);
  FilterFile* const filter = FilterFileOf(irp);
  if (filter != nullptr) {
    ClosePin(*filter);
    RemoveEntryList(&filter->Link);
    filter->File->FsContext2 = nullptr;
    ExFreePool(filter);
  }
  return host::DispatchClose(functionalDevice, irp);
}

}  // namespace lidcam::wine
