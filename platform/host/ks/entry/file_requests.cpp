#include "platform/host/ks/entry/file_requests.h"

#include "platform/host/ks/declarations/guid_of.h"
#include "platform/host/ks/device/device_block.h"
#include "platform/host/ks/filter/filter_requests.h"
#include "platform/host/ks/objects/file_names.h"
#include "platform/host/ks/objects/pool_object.h"

namespace lidcam::host {
namespace {

constexpr GUID kPinName = GuidOf(STATIC_KSNAME_Pin);
constexpr GUID kClockName = GuidOf(STATIC_KSNAME_Clock);

ObjectHead* HeadOfFile(PFILE_OBJECT file) {
  return file != nullptr ? static_cast<ObjectHead*>(file->FsContext) : nullptr;
}

FilterBlock& FilterOf(ObjectHead& head) {
  return *CONTAINING_RECORD(&head, FilterBlock, Head);
}

/// A name of no other kind of object: a filter by its factory, "\" and the reference string, or an
/// empty name.
NTSTATUS OpenFilter(DeviceBlock& device, PIRP irp, const UNICODE_STRING& name) {
  UNICODE_STRING reference = name;
  if (reference.Length != 0) {
    if (reference.Buffer[0] != '\\') return STATUS_OBJECT_NAME_NOT_FOUND;
    ++reference.Buffer;
    reference.Length = static_cast<USHORT>(reference.Length - sizeof(WCHAR));
    if (reference.Length == 0) return STATUS_OBJECT_NAME_NOT_FOUND;
  }
  return CreateFilter(device, irp, reference);
}

/// The connection follows the name in place and may be unaligned.
NTSTATUS OpenPin(FilterBlock& filter, PIRP irp, const RelativeName& name) {
  if (name.ParametersLength < sizeof(KSPIN_CONNECT) + sizeof(KSDATAFORMAT)) {
    return STATUS_INVALID_BUFFER_SIZE;
  }
  PVOID const connect = AllocateZeroed(name.ParametersLength);
  if (connect == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  std::memcpy(connect, name.Parameters, name.ParametersLength);
  const NTSTATUS status =
      CreatePin(filter, irp, *static_cast<KSPIN_CONNECT*>(connect), name.ParametersLength);
  ExFreePool(connect);
  return status;
}

NTSTATUS OpenRelative(ObjectHead& related, PIRP irp, const UNICODE_STRING& name) {
  RelativeName parsed{};
  if (related.Kind == KsObjectKind::Filter && ParseRelativeName(name, kPinName, parsed)) {
    return OpenPin(FilterOf(related), irp, parsed);
  }
  if (related.Kind == KsObjectKind::Pin && ParseRelativeName(name, kClockName, parsed)) {
    return CreateClock(related, irp);
  }
  return STATUS_OBJECT_NAME_NOT_FOUND;
}

NTSTATUS Open(DeviceBlock& device, PIRP irp) {
  const PFILE_OBJECT file = IoGetCurrentIrpStackLocation(irp)->FileObject;
  if (file == nullptr) return STATUS_INVALID_PARAMETER;
  if (IsSet(device.IsGone)) return STATUS_DELETE_PENDING;
  if (IsSet(device.IsStarting)) return STATUS_DEVICE_NOT_READY;
  if (file->RelatedFileObject == nullptr) return OpenFilter(device, irp, file->FileName);
  ObjectHead* const related = HeadOfFile(file->RelatedFileObject);
  if (related == nullptr || related->Device != &device) return STATUS_INVALID_PARAMETER;
  return OpenRelative(*related, irp, file->FileName);
}

/// Detaches the object from its file: no request reaches it any more.
void Close(ObjectHead& head, PIRP irp) {
  switch (head.Kind) {
    case KsObjectKind::Filter:
      CloseFilter(FilterOf(head), irp);
      break;
    case KsObjectKind::Pin:
      ClosePin(head, irp);
      break;
    case KsObjectKind::Clock:
      CloseClock(head);
      break;
    case KsObjectKind::FilterFactory:
      break;  // has no file
  }
}

NTSTATUS Control(ObjectHead& head, PIRP irp) {
  switch (head.Kind) {
    case KsObjectKind::Filter:
      return DispatchFilterControl(FilterOf(head), irp);
    case KsObjectKind::Pin:
      return DispatchPinControl(head, irp);
    case KsObjectKind::Clock:
      return DispatchClockControl(head, irp);
    case KsObjectKind::FilterFactory:
      break;  // has no file
  }
  return CompleteRequest(irp, STATUS_INVALID_DEVICE_REQUEST);
}

}  // namespace

NTSTATUS NTAPI DispatchCreate(PDEVICE_OBJECT functionalDevice, PIRP irp) {
  DeviceBlock& device = BlockOf(functionalDevice);
  BeginRequest(device);
  irp->IoStatus.Information = 0;
  const NTSTATUS opened = Open(device, irp);
  if (NT_SUCCESS(opened)) HoldDevice(device);  // for the file
  const NTSTATUS status = CompleteRequest(irp, opened);
  EndRequest(device);
  return status;
}

NTSTATUS NTAPI DispatchCleanup(PDEVICE_OBJECT functionalDevice, PIRP irp) {
  DeviceBlock& device = BlockOf(functionalDevice);
  BeginRequest(device);
  ObjectHead* const head = HeadOfFile(IoGetCurrentIrpStackLocation(irp)->FileObject);
  if (head != nullptr && head->Kind == KsObjectKind::Pin) CleanUpPin(*head);
  const NTSTATUS status = CompleteRequest(irp, STATUS_SUCCESS);
  EndRequest(device);
  return status;
}

NTSTATUS NTAPI DispatchClose(PDEVICE_OBJECT functionalDevice, PIRP irp) {
  DeviceBlock& device = BlockOf(functionalDevice);
  BeginRequest(device);
  const PFILE_OBJECT file = IoGetCurrentIrpStackLocation(irp)->FileObject;
  ObjectHead* const head = HeadOfFile(file);
  if (head != nullptr) {
    Close(*head, irp);
    file->FsContext = nullptr;
    LetGoOfDevice(device);  // the file's reference
  }
  const NTSTATUS status = CompleteRequest(irp, STATUS_SUCCESS);
  EndRequest(device);
  return status;
}

NTSTATUS NTAPI DispatchDeviceControl(PDEVICE_OBJECT functionalDevice, PIRP irp) {
  DeviceBlock& device = BlockOf(functionalDevice);
  BeginRequest(device);
  irp->IoStatus.Information = 0;
  ObjectHead* const head = HeadOfFile(IoGetCurrentIrpStackLocation(irp)->FileObject);
  NTSTATUS status = STATUS_SUCCESS;
  if (IsSet(device.IsRemoved)) {
    status = CompleteRequest(irp, STATUS_DELETE_PENDING);
  } else if (head == nullptr) {
    status = CompleteRequest(irp, STATUS_INVALID_DEVICE_REQUEST);
  } else {
    status = Control(*head, irp);
  }
  EndRequest(device);
  return status;
}

}  // namespace lidcam::host
