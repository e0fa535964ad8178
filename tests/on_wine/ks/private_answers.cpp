#include "tests/on_wine/ks/private_answers.h"

#include <cstring>

#include "platform/host/ks/device/ks_objects.h"
#include "platform/host/ks/objects/pool_object.h"
#include "tests/on_wine/ks/filter_file.h"
#include "tests/on_wine/ks/frame_read.h"
#include "tests/on_wine/ks/inner_request.h"

namespace lidcam::wine {
namespace {

/// A private request, decoded.
struct PrivateCall {
  PDEVICE_OBJECT Device;
  PIRP Irp;
  FilterFile& Filter;
  PUCHAR Buffer;  ///< of input and output
  ULONG InputLength;
  ULONG OutputLength;
};

NTSTATUS OpenPin(const PrivateCall& call) {
  FilterFile& filter = call.Filter;
  if (filter.Pin != nullptr) return STATUS_INVALID_DEVICE_STATE;
  return PinConnection::Open(call.Device, *filter.File, call.Buffer, call.InputLength, &filter.Pin);
}

NTSTATUS ClosePin(const PrivateCall& call) {
  FilterFile& filter = call.Filter;
  if (filter.Pin == nullptr) return STATUS_INVALID_DEVICE_STATE;
  filter.Pin->Close();
  filter.Pin = nullptr;
  return STATUS_SUCCESS;
}

NTSTATUS UseClock(const PrivateCall& call) {
  PinConnection* const pin = call.Filter.Pin;
  return pin != nullptr ? pin->UseClock() : STATUS_INVALID_DEVICE_STATE;
}

FILE_OBJECT* FileOf(const PrivateCall& call, Target target) {
  if (target == Target::Filter) return call.Filter.File;
  PinConnection* const pin = call.Filter.Pin;
  return pin != nullptr ? pin->FileOf(target) : nullptr;
}

bool IsWellFormed(const PrivateCall& call) {
  if (call.InputLength < sizeof(PropertyQuestion)) return false;
  const auto& question = *reinterpret_cast<const PropertyQuestion*>(call.Buffer);
  const ULONG left = call.InputLength - static_cast<ULONG>(sizeof(question));
  return question.Whom <= Target::Clock && question.RequestBytes <= left &&
         question.ValueBytes == left - question.RequestBytes &&
         call.OutputLength >= sizeof(PropertyAnswer) &&
         call.OutputLength - sizeof(PropertyAnswer) >= question.ValueBytes;
}

/// The request and the value are in the program's buffer; the class copies both.
NTSTATUS AskProperty(const PrivateCall& call) {
  if (!IsWellFormed(call)) return STATUS_INVALID_PARAMETER;
  const auto question = *reinterpret_cast<const PropertyQuestion*>(call.Buffer);
  FILE_OBJECT* const file = FileOf(call, question.Whom);
  if (file == nullptr) return STATUS_INVALID_DEVICE_STATE;
  InnerRequest inner(call.Device, *file, IRP_MJ_DEVICE_CONTROL);
  if (!inner.IsMade()) return STATUS_INSUFFICIENT_RESOURCES;
  PUCHAR const request = call.Buffer + sizeof(question);
  PUCHAR const value = request + question.RequestBytes;
  auto& control = inner.Location().Parameters.DeviceIoControl;
  control.IoControlCode = IOCTL_KS_PROPERTY;
  control.Type3InputBuffer = request;
  control.InputBufferLength = question.RequestBytes;
  control.OutputBufferLength = question.ValueBytes;
  inner.Packet().UserBuffer = value;
  const NTSTATUS status = inner.Send();

  const ULONG_PTR told = inner.Packet().IoStatus.Information;
  const ULONG_PTR given = told < question.ValueBytes ? told : question.ValueBytes;
  const PropertyAnswer answer{static_cast<ULONG>(status), static_cast<ULONG>(told)};
  RtlMoveMemory(call.Buffer + sizeof(answer), value, given);
  std::memcpy(call.Buffer, &answer, sizeof(answer));
  call.Irp->IoStatus.Information = sizeof(answer) + given;
  return STATUS_SUCCESS;
}

NTSTATUS Answer(const PrivateCall& call, ULONG code) {
  switch (code) {
    case kOpenPin:
      return OpenPin(call);
    case kClosePin:
      return ClosePin(call);
    case kUseClock:
      return UseClock(call);
    default:
      return AskProperty(call);
  }
}

ULONG CodeOf(PIRP irp) {
  return IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl.IoControlCode;
}

}  // namespace

bool IsPrivateRequest(PIRP irp) {
  const ULONG code = CodeOf(irp);
  return code == kOpenPin || code == kClosePin || code == kUseClock || code == kProperty ||
         code == kReadFrame;
}

NTSTATUS AnswerPrivateRequest(PDEVICE_OBJECT functionalDevice, PIRP irp) {
  FilterFile* const filter = FilterFileOf(irp);
  irp->IoStatus.Information = 0;
  if (filter == nullptr) return host::CompleteRequest(irp, STATUS_INVALID_DEVICE_REQUEST);
  const auto& control = IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl;
  const PrivateCall call{functionalDevice,
                         irp,
                         *filter,
                         static_cast<PUCHAR>(irp->AssociatedIrp.SystemBuffer),
                         control.InputBufferLength,
                         control.OutputBufferLength};
  if (control.IoControlCode != kReadFrame) {
    return host::CompleteRequest(irp, Answer(call, control.IoControlCode));
  }
  if (filter->Pin == nullptr) return host::CompleteRequest(irp, STATUS_INVALID_DEVICE_STATE);
  return ReadFrame(functionalDevice, *filter->Pin, irp);
}

}  // namespace lidcam::wine
