#include "tests/on_wine/ks/frame_read.h"

#include <cstring>

#include "platform/host/ks/objects/pool_object.h"
#include "tests/on_wine/ks/inner_request.h"

namespace lidcam::wine {
namespace {

/// A program's request and the class's corresponding one.
struct FrameRead {
  FrameRead(PDEVICE_OBJECT device, PinConnection& connection, PIRP irp)
      : Connection(connection),
        Outer(irp),
        Inner(device, *connection.FileOf(Target::Pin), IRP_MJ_DEVICE_CONTROL) {}

  PinConnection& Connection;
  PIRP Outer;
  InnerRequest Inner;
  volatile LONG Ends = 0;  ///< see EndHalf()
  struct {
    KSSTREAM_HEADER Header;
    KS_FRAME_INFO Info;
  } Frame{};
};

ULONG OutputLength(PIRP irp) {
  return IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl.OutputBufferLength;
}

FrameAnswer AnswerOf(const FrameRead& read) {
  FrameAnswer answer{};
  answer.OptionsFlags = read.Frame.Header.OptionsFlags;
  answer.PresentationTime = read.Frame.Header.PresentationTime.Time;
  answer.Duration = read.Frame.Header.Duration;
  answer.PictureNumber = read.Frame.Info.PictureNumber;
  answer.DropCount = read.Frame.Info.DropCount;
  answer.DataUsed = read.Frame.Header.DataUsed;
  return answer;
}

void CompleteRead(FrameRead* read) {
  PIRP const irp = read->Outer;
  PinConnection& connection = read->Connection;
  irp->IoStatus.Status = read->Inner.Packet().IoStatus.Status;
  irp->IoStatus.Information = 0;
  if (NT_SUCCESS(irp->IoStatus.Status)) {
    const FrameAnswer answer = AnswerOf(*read);
    std::memcpy(irp->AssociatedIrp.SystemBuffer, &answer, sizeof(answer));
    irp->IoStatus.Information = sizeof(answer) + answer.DataUsed;
  }
  read->~FrameRead();
  ExFreePool(read);
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  connection.EndFrame();
}

/// If the cancel routine of a request was called, both that routine and the end of the frame use
/// the record: the second of them completes the request.
void EndHalf(FrameRead* read) {
  if (InterlockedIncrement(&read->Ends) == 2) CompleteRead(read);
}

NTSTATUS NTAPI FrameIsBack(PDEVICE_OBJECT, PIRP, PVOID context) {
  auto* const read = static_cast<FrameRead*>(context);
  if (IoSetCancelRoutine(read->Outer, nullptr) != nullptr) {
    CompleteRead(read);
  } else {
    EndHalf(read);
  }
  return STATUS_MORE_PROCESSING_REQUIRED;
}

void NTAPI CancelRead(PDEVICE_OBJECT, PIRP irp) {
  IoReleaseCancelSpinLock(irp->CancelIrql);
  auto* const read = static_cast<FrameRead*>(irp->Tail.Overlay.DriverContext[0]);
  IoCancelIrp(&read->Inner.Packet());
  EndHalf(read);
}

FrameRead* MakeRead(PDEVICE_OBJECT device, PinConnection& connection, PIRP irp) {
  PVOID const memory = host::AllocateZeroed(sizeof(FrameRead));
  if (memory == nullptr) return nullptr;
  auto* const read = ::new (memory) FrameRead(device, connection, irp);
  if (read->Inner.IsMade()) return read;
  read->~FrameRead();
  ExFreePool(read);
  return nullptr;
}

void Fill(FrameRead& read) {
  KSSTREAM_HEADER& header = read.Frame.Header;
  header.Size = sizeof(read.Frame);
  header.FrameExtent = OutputLength(read.Outer) - static_cast<ULONG>(sizeof(FrameAnswer));
  header.Data = static_cast<PUCHAR>(read.Outer->AssociatedIrp.SystemBuffer) + sizeof(FrameAnswer);
  read.Frame.Info.ExtendedHeaderSize = sizeof(read.Frame.Info);
  read.Inner.Packet().UserBuffer = &read.Frame;
  auto& control = read.Inner.Location().Parameters.DeviceIoControl;
  control.IoControlCode = IOCTL_KS_READ_STREAM;
  control.OutputBufferLength = sizeof(read.Frame);
}

}  // namespace

NTSTATUS ReadFrame(PDEVICE_OBJECT device, PinConnection& connection, PIRP irp) {
  if (OutputLength(irp) < sizeof(FrameAnswer)) {
    irp->IoStatus.Status = STATUS_BUFFER_TOO_SMALL;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return STATUS_BUFFER_TOO_SMALL;
  }
  FrameRead* const read = MakeRead(device, connection, irp);
  if (read == nullptr) {
    irp->IoStatus.Status = STATUS_INSUFFICIENT_RESOURCES;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return STATUS_INSUFFICIENT_RESOURCES;
  }
  Fill(*read);
  connection.BeginFrame();
  IoMarkIrpPending(irp);
  irp->Tail.Overlay.DriverContext[0] = read;
  IoSetCancelRoutine(irp, CancelRead);
  // Cancelled before a cancel routine was set: the class sees the cancelled request at once.
  if (irp->Cancel != FALSE) IoCancelIrp(&read->Inner.Packet());
  read->Inner.Start(FrameIsBack, read);
  return STATUS_PENDING;
}

}  // namespace lidcam::wine
