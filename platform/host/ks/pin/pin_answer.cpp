#include "platform/host/ks/pin/pin_answer.h"

#include <cstring>

namespace lidcam::host {
namespace {

ULONG OutputLength(PIRP irp) {
  return IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl.OutputBufferLength;
}

NTSTATUS CheckRoom(PIRP irp, ULONG size) {
  const ULONG length = OutputLength(irp);
  irp->IoStatus.Information = length != 0 && length < size ? 0 : size;
  if (length >= size) return STATUS_SUCCESS;
  return length == 0 ? STATUS_BUFFER_OVERFLOW : STATUS_BUFFER_TOO_SMALL;
}

}  // namespace

NTSTATUS AnswerWithBytes(PIRP irp, PVOID data, const VOID* bytes, ULONG size) {
  const NTSTATUS status = CheckRoom(irp, size);
  if (status == STATUS_SUCCESS) std::memcpy(data, bytes, size);
  return status;
}

NTSTATUS AnswerWithList(PIRP irp, PVOID data, ULONG itemsSize, ULONG count, PUCHAR* items) {
  *items = nullptr;
  const KSMULTIPLE_ITEM head{static_cast<ULONG>(sizeof(KSMULTIPLE_ITEM)) + itemsSize, count};
  const bool isHeadOnly = OutputLength(irp) == sizeof(head);
  const NTSTATUS status = CheckRoom(irp, isHeadOnly ? static_cast<ULONG>(sizeof(head)) : head.Size);
  if (status != STATUS_SUCCESS) return status;
  std::memcpy(data, &head, sizeof(head));
  if (isHeadOnly) return status;
  *items = static_cast<PUCHAR>(data) + sizeof(head);
  std::memset(*items, 0, itemsSize);
  return status;
}

}  // namespace lidcam::host
