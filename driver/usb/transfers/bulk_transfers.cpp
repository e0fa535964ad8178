#include "driver/usb/transfers/bulk_transfers.h"

#include <cstring>

#include "driver/core/base/camera_memory.h"
#include "driver/core/base/camera_trace.h"
#include "driver/usb/requests/control_requests.h"
#include "driver/usb/transfers/transfer_sizes.h"

namespace lidcam {
namespace {

constexpr char kBulkSignature[4] = {'B', 'U', 'Q', 'R'};
constexpr std::uint8_t kWaiterWantsEvent = 8;  // in BulkTransfer::Flags

// Work after a stream's transfer is done. The third word points to the queued item, which is stored
// here, so that queueing it needs no memory.
struct BulkDoneWork {
  BulkTransfer* Transfer;
  UsbStreamRecord* Stream;
  WORK_QUEUE_ITEM* Item;
  WORK_QUEUE_ITEM ItemStorage;
};

void NTAPI FreeBulkDoneWork(PVOID work) {
  FreeCameraMemory(work);
}

void QueueDoneWork(BulkTransfer& transfer) {
  auto* const work = static_cast<BulkDoneWork*>(AllocateCameraMemory(sizeof(BulkDoneWork)));
  if (work == nullptr) return;
  *work = {&transfer, transfer.Stream, &work->ItemStorage, {}};
  ExInitializeWorkItem(work->Item, FreeBulkDoneWork, work);
  ExQueueWorkItem(work->Item, DelayedWorkQueue);
}

void* AllocateZeroed(std::size_t size) {
  void* const memory = AllocateCameraMemory(size);
  if (memory != nullptr) ZeroCameraMemory(memory, size);
  return memory;
}

// The table has the pipes of the first setting. A device whose later setting has more of them must not lead behind it.
PipeRecord* PipeRecordOf(const UsbDeviceRecord& device, std::uint32_t pipe) {
  const bool isThere = device.PipeTable != nullptr && pipe < device.PipeCount &&
                       PipeInformationOf(device.InterfaceInformation, pipe) != nullptr;
  return isThere ? device.PipeTable + pipe : nullptr;
}

void FreeParts(BulkTransfer& transfer) {
  if (transfer.Irp != nullptr) IoFreeIrp(transfer.Irp);
  FreeCameraMemory(transfer.BounceBuffer);
  FreeCameraMemory(transfer.Urb);
  transfer.Irp = nullptr;
  transfer.BounceBuffer = nullptr;
  transfer.Urb = nullptr;
}

void FreeStandalone(BulkTransfer& transfer) {
  if (transfer.Stream != nullptr) return;
  FreeParts(transfer);
  FreeCameraMemory(&transfer);
}

// URB and IRP are made once and serve every chunk.
bool MakeParts(BulkTransfer& transfer) {
  if (transfer.Urb == nullptr) {
    transfer.Urb = static_cast<_URB_BULK_OR_INTERRUPT_TRANSFER*>(
        AllocateZeroed(sizeof(_URB_BULK_OR_INTERRUPT_TRANSFER)));
  }
  if (transfer.Urb != nullptr && transfer.Irp == nullptr) {
    transfer.Irp = CreateUrbIrp(*transfer.Device, &transfer, transfer.Urb, BulkTransferCompleted);
  }
  return transfer.Irp != nullptr;
}

bool IsIn(const USBD_PIPE_INFORMATION& pipe) {
  return (pipe.EndpointAddress & USB_ENDPOINT_DIRECTION_MASK) != 0;
}

// A device may send a whole packet where less was requested: such a read ends in a packet of our
// own. So does a restarted one with the length of such a packet, which is more than its caller has
// room for.
bool ChooseBounce(BulkTransfer& transfer, const USBD_PIPE_INFORMATION& pipe) {
  const std::uint32_t packet = pipe.MaximumPacketSize;
  transfer.Bounced =
      IsIn(pipe) && (transfer.ChunkSize < packet || transfer.ChunkSize > transfer.Room);
  transfer.UserBuffer = transfer.Cursor;
  if (transfer.Bounced != 0) transfer.ChunkSize = packet;
  transfer.ChunkSize -= transfer.ChunkSize % packet;
  if (transfer.Bounced == 0 || transfer.BounceBuffer != nullptr) return true;
  transfer.BounceBuffer = static_cast<std::uint8_t*>(AllocateZeroed(packet));
  return transfer.BounceBuffer != nullptr;
}

void FillUrb(BulkTransfer& transfer, const USBD_PIPE_INFORMATION& pipe) {
  _URB_BULK_OR_INTERRUPT_TRANSFER& urb = *transfer.Urb;
  urb.Hdr.Length = sizeof(_URB_BULK_OR_INTERRUPT_TRANSFER);
  urb.Hdr.Function = URB_FUNCTION_BULK_OR_INTERRUPT_TRANSFER;
  urb.PipeHandle = pipe.PipeHandle;
  urb.TransferBufferLength = transfer.ChunkSize;
  urb.TransferBuffer = transfer.Bounced != 0 ? transfer.BounceBuffer : transfer.Cursor;
  urb.TransferFlags = USBD_SHORT_TRANSFER_OK;
  urb.TransferBufferMDL = nullptr;
  urb.UrbLink = nullptr;
}

void AppendActive(PipeRecord& pipe, BulkTransfer& transfer) {
  KIRQL before{};
  KeAcquireSpinLock(&pipe.Lock, &before);
  InsertTailList(&pipe.ActiveList, &transfer.Link);
  KeReleaseSpinLock(&pipe.Lock, before);
}

void RemoveActive(PipeRecord& pipe, BulkTransfer& transfer) {
  KIRQL before{};
  KeAcquireSpinLock(&pipe.Lock, &before);
  RemoveEntryList(&transfer.Link);
  KeReleaseSpinLock(&pipe.Lock, before);
}

void Halt(UsbStreamRecord& stream, const char* reason, NTSTATUS status) {
  stream.Halted = 1;
  TraceCamera(stream.Device->Camera, "bulk halted %s status=%08X", reason,
              static_cast<unsigned>(status));
}

// The transfer may be done, and gone, before the send returns.
NTSTATUS SendChunk(BulkTransfer& transfer, const USBD_PIPE_INFORMATION& pipe) {
  UsbStreamRecord* const stream = transfer.Stream;
  UsbDeviceRecord& device = *transfer.Device;
  FillUrb(transfer, pipe);
  ++transfer.Outstanding;
  RearmIrp(&transfer, transfer.Irp, transfer.Urb, BulkTransferCompleted);
  AppendActive(device.PipeTable[transfer.PipeNumber], transfer);
  const NTSTATUS status = IofCallDriver(device.KsDevice->NextDeviceObject, transfer.Irp);
  if (status != STATUS_PENDING && stream != nullptr) Halt(*stream, "send", status);
  return status;
}

/// What a transfer is to move, and `Room` bytes of memory at `Buffer` for it.
struct BulkRequest {
  std::uint8_t* Buffer;
  std::uint32_t Length;
  std::uint32_t Room;
  std::uint32_t Pipe;
  BulkCallback Callback;
  std::uint8_t Repeat;
};

void FillTransfer(BulkTransfer& transfer, UsbDeviceRecord& device, UsbStreamRecord* stream,
                  const BulkRequest& request) {
  for (std::size_t i = 0; i < sizeof(kBulkSignature); ++i)
    transfer.Signature[i] = kBulkSignature[i];
  transfer.Device = &device;
  transfer.Stream = stream;
  transfer.Remaining = request.Length;
  transfer.Room = request.Room;
  transfer.Transferred = 0;
  transfer.Cursor = request.Buffer;
  transfer.PipeNumber = request.Pipe;
  transfer.Callback = request.Callback;
  transfer.Repeat = request.Repeat;
}

BulkTransfer* MakeStandalone() {
  auto* const transfer = static_cast<BulkTransfer*>(AllocateZeroed(sizeof(BulkTransfer)));
  if (transfer != nullptr) KeInitializeEvent(&transfer->DoneEvent, SynchronizationEvent, FALSE);
  return transfer;
}

NTSTATUS Begin(UsbDeviceRecord& device, UsbStreamRecord* stream, BulkTransfer* given,
               const BulkRequest& request) {
  const USBD_PIPE_INFORMATION* const pipe =
      PipeInformationOf(device.InterfaceInformation, request.Pipe);
  if (pipe == nullptr || pipe->MaximumPacketSize == 0 ||
      PipeRecordOf(device, request.Pipe) == nullptr) {
    return STATUS_DEVICE_DATA_ERROR;
  }
  BulkTransfer* const transfer = stream != nullptr ? given : MakeStandalone();
  if (transfer == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  FillTransfer(*transfer, device, stream, request);
  transfer->ChunkSize = SmallerOf(request.Length, pipe->MaximumTransferSize);
  if (!MakeParts(*transfer) || !ChooseBounce(*transfer, *pipe)) {
    FreeStandalone(*transfer);
    return STATUS_INSUFFICIENT_RESOURCES;
  }
  return SendChunk(*transfer, *pipe);
}

// Takes over the data of a chunk. The caller never gets more than was requested.
// @return whether the chunk ended the transfer by being short
bool TakeChunk(BulkTransfer& transfer) {
  const std::uint32_t moved = SmallerOf(transfer.Urb->TransferBufferLength, transfer.ChunkSize);
  const bool wasShort = moved < transfer.ChunkSize;
  const std::uint32_t kept = SmallerOf(moved, transfer.Remaining);
  const std::uint32_t room = SmallerOf(kept, transfer.Room);
  if (transfer.Bounced != 0 && room != 0) {
    std::memcpy(transfer.UserBuffer, transfer.BounceBuffer, room);
  }
  transfer.Transferred += kept;
  transfer.Remaining -= kept;
  transfer.Cursor += room;
  return wasShort;
}

bool WakeWaiter(BulkTransfer& transfer) {
  if ((transfer.Flags & kWaiterWantsEvent) == 0) return false;
  KeSetEvent(&transfer.DoneEvent, IO_NO_INCREMENT, FALSE);
  return true;
}

void FinishTransfer(BulkTransfer& transfer) {
  if (transfer.Stream != nullptr) {
    QueueDoneWork(transfer);
    return;
  }
  if (transfer.Callback != nullptr) {
    transfer.Callback(transfer.Device->Camera, transfer.CallbackContext,
                      STATUS_MORE_PROCESSING_REQUIRED);
  }
  if ((transfer.Flags & kWaiterWantsEvent) != 0) {
    // Cleared before the event is set: the waiter may free the transfer as soon as it wakes.
    transfer.Flags &= static_cast<std::uint8_t>(~kWaiterWantsEvent);
    KeSetEvent(&transfer.DoneEvent, IO_NO_INCREMENT, FALSE);
  } else if (transfer.Repeat != 0) {
    RestartBulkTransfer(*transfer.Device, transfer.PipeNumber, transfer);
  } else {
    FreeStandalone(transfer);
  }
}

void ContinueTransfer(BulkTransfer& transfer) {
  const USBD_PIPE_INFORMATION* const pipe =
      PipeInformationOf(transfer.Device->InterfaceInformation, transfer.PipeNumber);
  const bool wasShort = TakeChunk(transfer);
  // An empty chunk, such as that of a write of less than a packet, would repeat for ever.
  if (wasShort || transfer.Remaining == 0 || transfer.ChunkSize == 0 || pipe == nullptr) {
    FinishTransfer(transfer);
    return;
  }
  transfer.Room -= static_cast<std::uint32_t>(transfer.Cursor - transfer.UserBuffer);
  transfer.ChunkSize = SmallerOf(transfer.ChunkSize, transfer.Remaining);
  if (ChooseBounce(transfer, *pipe)) {
    SendChunk(transfer, *pipe);
  } else {
    FinishTransfer(transfer);
  }
}

// With a waiter the transfer stays allocated, however it ended.
void EndUnfinished(BulkTransfer& transfer, NTSTATUS irpStatus) {
  const USBD_STATUS status = transfer.Urb->Hdr.Status;
  const bool isCleanEnd = status == USBD_STATUS_CANCELED || irpStatus == STATUS_CANCELLED;
  if (!isCleanEnd && transfer.Stream != nullptr) {
    Halt(*transfer.Stream, "urb", status);
    return;
  }
  if (!WakeWaiter(transfer)) FreeStandalone(transfer);
}

void HandleCompletion(BulkTransfer& transfer, NTSTATUS irpStatus) {
  UsbStreamRecord* const stream = transfer.Stream;
  if (stream != nullptr) {
    if (stream->StreamRunning == 0) {
      Halt(*stream, "stopped", transfer.Urb->Hdr.Status);
      return;
    }
    if (HasWaitFlag(*stream, StopWaitArmed)) return;
  }
  if (transfer.Urb->Hdr.Status == USBD_STATUS_SUCCESS) {
    ContinueTransfer(transfer);
  } else {
    EndUnfinished(transfer, irpStatus);
  }
}

std::uint32_t CountPending(PipeRecord& pipe) {
  std::uint32_t count = 0;
  KIRQL before{};
  KeAcquireSpinLock(&pipe.Lock, &before);
  for (LIST_ENTRY* link = pipe.PendingList.Flink; link != &pipe.PendingList; link = link->Flink) {
    ++count;
  }
  KeReleaseSpinLock(&pipe.Lock, before);
  return count;
}

BulkTransfer* TakePending(PipeRecord& pipe) {
  KIRQL before{};
  KeAcquireSpinLock(&pipe.Lock, &before);
  LIST_ENTRY* const link =
      IsListEmpty(&pipe.PendingList) != FALSE ? nullptr : RemoveHeadList(&pipe.PendingList);
  KeReleaseSpinLock(&pipe.Lock, before);
  return link == nullptr ? nullptr : CONTAINING_RECORD(link, BulkTransfer, Link);
}

}  // namespace

NTSTATUS StartBulkTransfer(UsbDeviceRecord& device, UsbStreamRecord* stream, BulkTransfer* transfer,
                           std::uint8_t* buffer, std::uint32_t length, std::uint32_t pipe,
                           BulkCallback callback, std::uint8_t repeat) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  return Begin(device, stream, transfer, {buffer, length, length, pipe, callback, repeat});
}

NTSTATUS NTAPI BulkTransferCompleted(PDEVICE_OBJECT, PIRP irp, PVOID context) {
  auto& transfer = *static_cast<BulkTransfer*>(context);
  --transfer.Outstanding;
  RemoveActive(transfer.Device->PipeTable[transfer.PipeNumber], transfer);
  HandleCompletion(transfer, irp->IoStatus.Status);
  return STATUS_MORE_PROCESSING_REQUIRED;
}

NTSTATUS RestartBulkTransfer(UsbDeviceRecord& device, std::uint32_t pipe, BulkTransfer& transfer) {
  UsbStreamRecord* const stream = transfer.Stream;
  const BulkRequest request = {transfer.UserBuffer, transfer.ChunkSize, transfer.Room, pipe,
                               transfer.Callback,   transfer.Repeat};
  FreeParts(transfer);
  FreeStandalone(transfer);
  return Begin(device, stream, stream != nullptr ? &transfer : nullptr, request);
}

NTSTATUS RestartPendingTransfers(UsbDeviceRecord& device) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  NTSTATUS status = STATUS_SUCCESS;
  for (std::uint32_t pipe = 0;; ++pipe) {
    PipeRecord* const record = PipeRecordOf(device, pipe);
    if (record == nullptr) return status;
    for (std::uint32_t left = CountPending(*record); left != 0; --left) {
      BulkTransfer* const transfer = TakePending(*record);
      if (transfer == nullptr) break;
      status = RestartBulkTransfer(device, pipe, *transfer);
    }
  }
}

}  // namespace lidcam
