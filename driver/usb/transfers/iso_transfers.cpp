#include "driver/usb/transfers/iso_transfers.h"

#include "driver/core/base/camera_memory.h"
#include "driver/core/base/camera_trace.h"
#include "driver/usb/requests/control_requests.h"
#include "driver/usb/transfers/frame_thread.h"
#include "driver/usb/transfers/stream_recovery.h"
#include "driver/usb/transfers/transfer_ownership.h"
#include "driver/usb/transfers/transfer_sizes.h"

namespace lidcam {
namespace {

constexpr char kIsochronousSignature[4] = {'I', 'S', 'Q', 'R'};

// The URB's pointers need their own alignment, which four packets of an odd size don't end at.
std::uint32_t DataSizeFor(std::uint32_t packets, std::uint32_t packetSize) {
  constexpr std::uint32_t kAlignment = alignof(_URB_ISOCH_TRANSFER);
  return (packets * packetSize + kAlignment - 1) & ~(kAlignment - 1);
}

_URB_ISOCH_TRANSFER* UrbOf(const IsoTransfer& transfer, const ReferenceCountedMemory& memory) {
  void* const urb = static_cast<std::uint8_t*>(memory.Block) + transfer.DataSize;
  return static_cast<_URB_ISOCH_TRANSFER*>(urb);
}

std::uint32_t NumberOf(const IsoTransfer& transfer) {
  return static_cast<std::uint32_t>(&transfer - transfer.Pipeline->Transfers);
}

LONG InFlightOf(IsoTransfer& transfer) {
  return InterlockedCompareExchange(&transfer.InFlight, 0, 0);
}

void Halt(const IsoTransfer& transfer, const char* reason, NTSTATUS status) {
  transfer.Stream->Halted = 1;
  TraceCamera(transfer.Stream->Device->Camera, "iso halted transfer=%u %s status=%08X",
              NumberOf(transfer), reason, static_cast<std::uint32_t>(status));
}

void BuildUrbOf(const IsoTransfer& transfer, const ReferenceCountedMemory& memory) {
  const USBD_PIPE_INFORMATION* const pipe = StreamPipe(*transfer.Stream);
  if (pipe == nullptr) return;
  BuildIsoUrb(*transfer.Pipeline, *UrbOf(transfer, memory), *pipe, memory.Block, transfer.DataSize);
}

void Rebuild(const IsoTransfer& transfer, ReferenceCountedMemory& memory) {
  RearmIrp(&memory, memory.Irp, UrbOf(transfer, memory), IsoTransferCompleted);
  BuildUrbOf(transfer, memory);
}

// The stack may be done with the memory, and the stream with the transfer, before the send returns:
// only the record is touched afterwards. A send that fails at once has lowered InFlight already,
// when it completed.
NTSTATUS Send(IsoTransfer& transfer, const ReferenceCountedMemory& memory) {
  InterlockedIncrement(&transfer.InFlight);
  const NTSTATUS status = IofCallDriver(transfer.Device->KsDevice->NextDeviceObject, memory.Irp);
  if (status != STATUS_PENDING) {
    Halt(transfer, "send", status);
    InterlockedDecrement(&transfer.InFlight);
  }
  return status;
}

NTSTATUS StartTransfer(IsoTransfer& transfer, bool rebuild) {
  if (transfer.OwnsMemory == 0 || transfer.Irp == nullptr) return STATUS_DEVICE_DATA_ERROR;
  if (!IsDeviceUsable(*transfer.Device)) return STATUS_DEVICE_DATA_ERROR;
  ReferenceCountedMemory& memory = *transfer.Memory;
  if (!TakeForStart(memory)) return STATUS_SUCCESS;
  if (rebuild) Rebuild(transfer, memory);
  _URB_ISOCH_TRANSFER& urb = *UrbOf(transfer, memory);
  urb.TransferFlags &= ~ULONG{USBD_START_ISO_TRANSFER_ASAP};
  urb.StartFrame = transfer.Stream->NextStartFrame;
  const NTSTATUS status = Send(transfer, memory);
  return status == STATUS_PENDING ? STATUS_SUCCESS : status;
}

// A transfer that completes while a stop or a recovery waits for all transfers, or after one has
// failed, is not resubmitted.
bool IsNotResubmitted(const UsbStreamRecord& stream) {
  return HasWaitFlag(stream, StopWaitArmed) || HasWaitFlag(stream, ResetWaitArmed) ||
         stream.Halted != 0;
}

void CompleteTransfer(IsoTransfer& transfer, ReferenceCountedMemory& memory) {
  UsbStreamRecord& stream = *transfer.Stream;
  const USBD_STATUS status = UrbOf(transfer, memory)->Hdr.Status;
  if (stream.StreamRunning == 0) Halt(transfer, "stopped", status);
  InterlockedDecrement(&transfer.InFlight);
  if (IsNotResubmitted(stream)) {
    PutAway(memory);
  } else if (status != USBD_STATUS_SUCCESS) {
    Halt(transfer, "urb", status);
    PutAway(memory);
    ScheduleStreamReset(*transfer.Device, stream);
  } else {
    QueueCompletedTransfer(transfer, memory);
  }
}

}  // namespace

NTSTATUS PrepareIsoTransfer(UsbStreamRecord& stream, IsoTransfer& transfer) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  ReleaseIsoTransfer(transfer);
  for (std::size_t i = 0; i < sizeof(kIsochronousSignature); ++i)
    transfer.Signature[i] = kIsochronousSignature[i];
  transfer.Device = stream.Device;
  transfer.Stream = &stream;
  transfer.Pipeline = stream.Pipeline;
  InterlockedExchange(&transfer.InFlight, 0);
  const USBD_PIPE_INFORMATION* const pipe = StreamPipe(stream);
  if (pipe == nullptr || pipe->MaximumPacketSize == 0) return STATUS_DEVICE_DATA_ERROR;

  const std::uint32_t packets = stream.Pipeline->PacketsPerTransfer;
  const std::uint32_t dataSize = DataSizeFor(packets, pipe->MaximumPacketSize);
  ReferenceCountedMemory* const memory =
      AllocateReferenceCountedMemory(dataSize + IsoUrbSize(packets));
  if (memory == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  memory->Owner = &transfer;
  transfer.Memory = memory;
  transfer.OwnsMemory = 1;
  transfer.DataSize = dataSize;
  transfer.Buffer = memory->Block;
  transfer.Urb = UrbOf(transfer, *memory);

  memory->Irp = CreateUrbIrp(*stream.Device, memory, transfer.Urb, IsoTransferCompleted);
  transfer.Irp = memory->Irp;
  if (memory->Irp == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  BuildUrbOf(transfer, *memory);
  return STATUS_SUCCESS;
}

void ReleaseIsoTransfer(IsoTransfer& transfer) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  if (transfer.OwnsMemory == 0) return;
  transfer.OwnsMemory = 0;
  transfer.Irp = nullptr;
  transfer.Urb = nullptr;
  GiveUpTransfer(*transfer.Memory);
}

NTSTATUS BuildIsoUrb(const IsoPipeline& pipeline, _URB_ISOCH_TRANSFER& urb,
                     const USBD_PIPE_INFORMATION& pipeInformation, void* buffer,
                     std::uint32_t bufferSize) {
  const std::uint32_t packets = pipeline.PacketsPerTransfer;
  const std::uint32_t packetSize = pipeInformation.MaximumPacketSize;
  ZeroCameraMemory(&urb, IsoUrbSize(packets));
  urb.Hdr.Length = static_cast<USHORT>(IsoUrbSize(packets));
  urb.Hdr.Function = URB_FUNCTION_ISOCH_TRANSFER;
  urb.PipeHandle = pipeInformation.PipeHandle;
  urb.TransferFlags = USBD_TRANSFER_DIRECTION_IN | USBD_START_ISO_TRANSFER_ASAP;
  urb.TransferBufferLength = SmallerOf(packets * packetSize, bufferSize);
  urb.TransferBuffer = buffer;
  urb.NumberOfPackets = packets;
  for (std::uint32_t i = 0; i < packets; ++i) {
    urb.IsoPacket[i].Offset = SmallerOf(i * packetSize, bufferSize);
  }
  return STATUS_SUCCESS;
}

NTSTATUS StartTransfers(UsbStreamRecord& stream) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  UsbDeviceRecord& device = *stream.Device;
  const bool rebuild = stream.RestartPending != 0 || stream.StreamRunning != 0;
  if (stream.StreamRunning == 0) {
    const NTSTATUS reset =
        ResetPipe(device, stream, device.InterfaceInformation, PipeRequest::Reset);
    if (!NT_SUCCESS(reset)) return reset;
  }
  stream.NextStartFrame = GetCurrentFrame(device) + kStartFrameLead;
  TraceCamera(device.Camera, "iso start frame=%u pipe=%u", stream.NextStartFrame,
              static_cast<std::uint32_t>(stream.PipeIndex));
  NTSTATUS status = STATUS_SUCCESS;
  for (IsoTransfer& transfer : TransfersOf(stream)) {
    if (InFlightOf(transfer) > 0) continue;
    status = StartTransfer(transfer, rebuild);
    stream.NextStartFrame += stream.Pipeline->PacketsPerTransfer;
  }
  TraceCamera(device.Camera, "iso started status=%08X", static_cast<std::uint32_t>(status));
  return status;
}

void ResubmitTransfer(IsoTransfer& transfer, ReferenceCountedMemory& memory) {
  if (memory.GivenUp != 0) {
    PutAway(memory);
    return;
  }
  ForgetStart(memory);
  Rebuild(transfer, memory);
  if (!IsDeviceUsable(*transfer.Device)) {
    PutAway(memory);
    return;
  }
  UrbOf(transfer, memory)->TransferFlags |= USBD_START_ISO_TRANSFER_ASAP;
  Send(transfer, memory);
}

NTSTATUS NTAPI IsoTransferCompleted(PDEVICE_OBJECT, PIRP, PVOID context) {
  auto& memory = *static_cast<ReferenceCountedMemory*>(context);
  if (BeginCompletion(memory)) {
    CompleteTransfer(*static_cast<IsoTransfer*>(memory.Owner), memory);
    EndCompletion(memory);
  } else {
    PutAway(memory);
  }
  return STATUS_MORE_PROCESSING_REQUIRED;
}

std::uint8_t AnyTransferInFlight(const UsbStreamRecord& stream) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  for (IsoTransfer& transfer : TransfersOf(stream)) {
    if (InFlightOf(transfer) > 0) return 1;
  }
  return 0;
}

}  // namespace lidcam
