#include "driver/usb/transfers/frame_thread.h"

#include "driver/core/base/camera_trace.h"
#include "driver/frame/assembly/packet_walk.h"
#include "driver/usb/transfers/iso_transfers.h"
#include "driver/usb/transfers/transfer_ownership.h"

namespace lidcam {
namespace {

// The rights known to all platforms: THREAD_ALL_ACCESS of a newer one has more than an old one
// knows.
constexpr ACCESS_MASK kThreadAccess = 0x1F03FF;

IsoTransfer& TransferAt(LIST_ENTRY& link) {
  return *CONTAINING_RECORD(&link, IsoTransfer, Link);
}

// Counted under the lock: the count includes every transfer queued before the thread is stopped.
// The thread finds the memory by the transfer, so it has to be the one that was completed.
bool Append(IsoPipeline& pipeline, IsoTransfer& transfer, const ReferenceCountedMemory& memory) {
  KIRQL before{};
  KeAcquireSpinLock(&pipeline.CompletedLock, &before);
  const bool isOpen =
      pipeline.StopRequested == 0 && transfer.Memory == &memory && memory.GivenUp == 0;
  if (isOpen) {
    InsertTailList(&pipeline.CompletedList, &transfer.Link);
    InterlockedIncrement(&pipeline.CompletedCount);
  }
  KeReleaseSpinLock(&pipeline.CompletedLock, before);
  return isOpen;
}

IsoTransfer* TakeOldest(IsoPipeline& pipeline) {
  KIRQL before{};
  KeAcquireSpinLock(&pipeline.CompletedLock, &before);
  LIST_ENTRY* const link = IsListEmpty(&pipeline.CompletedList) != FALSE
                               ? nullptr
                               : RemoveHeadList(&pipeline.CompletedList);
  KeReleaseSpinLock(&pipeline.CompletedLock, before);
  if (link == nullptr) return nullptr;
  InterlockedDecrement(&pipeline.CompletedCount);
  return &TransferAt(*link);
}

// Nothing is parsed or resubmitted: the stream is over.
void DropQueue(const UsbDeviceRecord& device, IsoPipeline& pipeline) {
  std::uint32_t dropped = 0;
  while (InterlockedCompareExchange(&pipeline.CompletedCount, 0, 0) > 0) {
    IsoTransfer* const transfer = TakeOldest(pipeline);
    if (transfer == nullptr) break;
    PutAway(*transfer->Memory);
    ++dropped;
  }
  TraceCamera(device.Camera, "frame thread ends dropped=%u", dropped);
}

void WalkPackets(UsbStreamRecord& stream, CameraContext& camera, const IsoTransfer& transfer,
                 const ReferenceCountedMemory& memory) {
  const auto* const data = static_cast<const std::uint8_t*>(memory.Block);
  const void* const behindData = data + transfer.DataSize;
  const auto* const urb = static_cast<const _URB_ISOCH_TRANSFER*>(behindData);
  PacketWalk<> walk(stream.Assembly, camera);
  TakeTransfer(walk, data, transfer.DataSize, urb->IsoPacket,
               transfer.Pipeline->PacketsPerTransfer);
}

// After it has released the semaphore the thread still runs a few instructions of this image, which
// may be unloaded as soon as the device is gone. The thread object is signalled after those.
void WaitForThread(IsoPipeline& pipeline) {
  KeWaitForSingleObject(&pipeline.DoneSemaphore, Executive, KernelMode, FALSE, nullptr);
  if (pipeline.Thread == nullptr) return;
  KeWaitForSingleObject(pipeline.Thread, Executive, KernelMode, FALSE, nullptr);
}

void HandleTransfer(UsbStreamRecord& stream, CameraContext& camera, IsoTransfer& transfer) {
  ReferenceCountedMemory& memory = *transfer.Memory;
  WalkPackets(stream, camera, transfer, memory);
  const bool goesOn = stream.StreamRunning != 0 || ReleaseUnlessRequested(memory);
  if (goesOn) ResubmitTransfer(transfer, memory);
}

}  // namespace

void NTAPI RawFrameThread(PVOID context) {
  UsbDeviceRecord& device = *static_cast<UsbDeviceRecord*>(context);
  UsbStreamRecord& stream = *device.Stream;
  IsoPipeline& pipeline = *stream.Pipeline;
  KeSetPriorityThread(KeGetCurrentThread(), LOW_REALTIME_PRIORITY);
  TraceCamera(device.Camera, "frame thread runs");
  for (;;) {
    KeWaitForSingleObject(&pipeline.WakeSemaphore, Executive, KernelMode, FALSE, nullptr);
    if (pipeline.StopRequested != 0) break;
    IsoTransfer* const transfer = TakeOldest(pipeline);
    if (transfer != nullptr) HandleTransfer(stream, *device.Camera, *transfer);
  }
  DropQueue(device, pipeline);
  KeReleaseSemaphore(&pipeline.DoneSemaphore, IO_NO_INCREMENT, 1, FALSE);
  PsTerminateSystemThread(STATUS_SUCCESS);
}

NTSTATUS QueueCompletedTransfer(IsoTransfer& transfer, ReferenceCountedMemory& memory) {
  RequireLevelAtMost(DISPATCH_LEVEL);
  IsoPipeline& pipeline = *transfer.Pipeline;
  if (Append(pipeline, transfer, memory)) {
    KeReleaseSemaphore(&pipeline.WakeSemaphore, IO_NO_INCREMENT, 1, FALSE);
  } else {
    PutAway(memory);
  }
  return STATUS_SUCCESS;
}

NTSTATUS StartFrameThread(UsbStreamRecord& stream) {
  RequireLevelAtMost(PASSIVE_LEVEL);
  IsoPipeline& pipeline = *stream.Pipeline;
  InitializeListHead(&pipeline.CompletedList);
  KeInitializeSpinLock(&pipeline.CompletedLock);
  KeInitializeSemaphore(&pipeline.WakeSemaphore, 0, 0x7FFFFFFF);
  KeInitializeSemaphore(&pipeline.DoneSemaphore, 0, 1);
  InterlockedExchange(&pipeline.CompletedCount, 0);
  pipeline.StopRequested = 0;
  pipeline.ThreadStarted = 0;
  pipeline.Thread = nullptr;

  HANDLE handle = nullptr;
  const NTSTATUS status =
      PsCreateSystemThread(&handle, 0, nullptr, nullptr, nullptr, RawFrameThread, stream.Device);
  if (!NT_SUCCESS(status)) return status;
  pipeline.ThreadStarted = 1;
  ObReferenceObjectByHandle(handle, kThreadAccess, nullptr, KernelMode, &pipeline.Thread, nullptr);
  ZwClose(handle);
  return status;
}

void StopFrameThread(UsbStreamRecord& stream) {
  IsoPipeline& pipeline = *stream.Pipeline;
  if (pipeline.StopRequested != 0) return;
  KIRQL before{};
  KeAcquireSpinLock(&pipeline.CompletedLock, &before);
  pipeline.StopRequested = 1;
  KeReleaseSpinLock(&pipeline.CompletedLock, before);
  KeReleaseSemaphore(&pipeline.WakeSemaphore, IO_NO_INCREMENT, 1, FALSE);
  if (pipeline.ThreadStarted == 0) return;
  // Old platforms at a raised level can't wait, and don't.
  const bool canWait = KeGetCurrentIrql() < DISPATCH_LEVEL || stream.Device->WdmLevel >= 3;
  if (canWait) WaitForThread(pipeline);
  if (pipeline.Thread != nullptr) ObfDereferenceObject(pipeline.Thread);
  pipeline.Thread = nullptr;
}

}  // namespace lidcam
