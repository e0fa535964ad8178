#include "platform/host/ks/stream/stream_request.h"

#include <cstring>

namespace lidcam::host {
namespace {

constexpr ULONG kStreamRequestTag = 0x7246534B;  // "KSFr"
constexpr ULONG kHeaderAlignment = 8;

NTSTATUS CheckHeader(const KSSTREAM_HEADER& header, ULONG bytesLeft, const FrameLimits& limits) {
  if (header.Size < limits.HeaderSize || header.Size < sizeof(KSSTREAM_HEADER) ||
      header.Size > bytesLeft || header.Size % kHeaderAlignment != 0) {
    return STATUS_INVALID_BUFFER_SIZE;
  }
  if (header.Data == nullptr) return STATUS_INVALID_PARAMETER;
  return header.FrameExtent < limits.MinimumExtent ? STATUS_BUFFER_TOO_SMALL : STATUS_SUCCESS;
}

NTSTATUS CheckHeaders(const UCHAR* headers, ULONG bytes, const FrameLimits& limits, ULONG& count) {
  count = 0;
  for (ULONG offset = 0; offset != bytes; ++count) {
    if (bytes - offset < sizeof(KSSTREAM_HEADER)) return STATUS_INVALID_BUFFER_SIZE;
    const auto& header = *reinterpret_cast<const KSSTREAM_HEADER*>(headers + offset);
    const NTSTATUS status = CheckHeader(header, bytes - offset, limits);
    if (!NT_SUCCESS(status)) return status;
    offset += header.Size;
  }
  return STATUS_SUCCESS;
}

void FillFrames(StreamRequest& request) {
  PUCHAR header = request.Headers;
  for (ULONG i = 0; i < request.FramesCount; ++i) {
    StreamFrame& frame = request.Frames[i];
    frame = {{}, &request, reinterpret_cast<PKSSTREAM_HEADER>(header), false};
    header += frame.Header->Size;
  }
}

}  // namespace

NTSTATUS MakeStreamRequest(PIRP irp, const FrameLimits& limits, StreamRequest** request) {
  const ULONG bytes =
      IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl.OutputBufferLength;
  if (irp->UserBuffer == nullptr || bytes == 0) return STATUS_INVALID_BUFFER_SIZE;
  auto* const headers =
      static_cast<PUCHAR>(ExAllocatePoolWithTag(NonPagedPool, bytes, kStreamRequestTag));
  if (headers == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  std::memcpy(headers, irp->UserBuffer, bytes);

  ULONG count = 0;
  NTSTATUS status = CheckHeaders(headers, bytes, limits, count);
  StreamRequest* made = nullptr;
  if (NT_SUCCESS(status)) {
    const SIZE_T size = sizeof(StreamRequest) + SIZE_T{count - 1} * sizeof(StreamFrame);
    made =
        static_cast<StreamRequest*>(ExAllocatePoolWithTag(NonPagedPool, size, kStreamRequestTag));
    if (made == nullptr) status = STATUS_INSUFFICIENT_RESOURCES;
  }
  if (!NT_SUCCESS(status)) {
    ExFreePool(headers);
    return status;
  }
  *made = {irp, headers, bytes, {}, nullptr, STATUS_SUCCESS, false, false, count, count, {}};
  FillFrames(*made);
  *request = made;
  return STATUS_SUCCESS;
}

void DropStreamRequest(StreamRequest* request) {
  ExFreePool(request->Headers);
  ExFreePool(request);
}

void CompleteStreamRequest(StreamRequest* request) {
  PIRP const irp = request->Irp;
  const bool isFilled = NT_SUCCESS(request->Status);
  if (isFilled) std::memcpy(irp->UserBuffer, request->Headers, request->HeaderBytes);
  irp->IoStatus.Status = request->Status;
  irp->IoStatus.Information = isFilled ? request->HeaderBytes : 0;
  DropStreamRequest(request);
  IoCompleteRequest(irp, IO_NO_INCREMENT);
}

}  // namespace lidcam::host
