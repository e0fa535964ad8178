#include "platform/host/ks/stream/stream_queue.h"

namespace lidcam::host {
namespace {

void NTAPI CancelStreamRequest(PDEVICE_OBJECT, PIRP irp) {
  IoReleaseCancelSpinLock(irp->CancelIrql);
  auto& request = *static_cast<StreamRequest*>(irp->Tail.Overlay.DriverContext[0]);
  request.Queue->Cancel(request);
}

// Another thread may be cancelling the packet.
bool WasCancelled(PIRP irp) {
  return __atomic_load_n(&irp->Cancel, __ATOMIC_RELAXED) != FALSE;
}

}  // namespace

FrameQueue::FrameQueue(PKSPIN pin) {
  KeInitializeSpinLock(&lock_);
  InitializeListHead(&frames_);
  InitializeListHead(&requests_);
  edge_.Pin = pin;
}

void FrameQueue::Add(StreamRequest* request) {
  PIRP const irp = request->Irp;
  IoMarkIrpPending(irp);
  irp->Tail.Overlay.DriverContext[0] = request;
  request->Queue = this;
  bool isOver = false;
  KIRQL before = PASSIVE_LEVEL;
  KeAcquireSpinLock(&lock_, &before);
  InsertTailList(&requests_, &request->Link);
  for (ULONG i = 0; i < request->FramesCount; ++i) {
    request->Frames[i].IsQueued = true;
    InsertTailList(&frames_, &request->Frames[i].Link);
  }
  IoSetCancelRoutine(irp, CancelStreamRequest);
  // Cancelled before a cancel routine was set: complete it here.
  if (WasCancelled(irp) && IoSetCancelRoutine(irp, nullptr) != nullptr) {
    request->IsCancelHandled = true;
    Abort(*request, false);
    isOver = IsOver(*request);
  }
  KeReleaseSpinLock(&lock_, before);
  if (isOver) CompleteStreamRequest(request);
}

bool FrameQueue::HasFrame() {
  KIRQL before = PASSIVE_LEVEL;
  KeAcquireSpinLock(&lock_, &before);
  const bool hasFrame = IsListEmpty(&frames_) == FALSE;
  KeReleaseSpinLock(&lock_, before);
  return hasFrame;
}

PKSSTREAM_POINTER FrameQueue::LeadingEdge(KSSTREAM_POINTER_STATE state) {
  PKSSTREAM_POINTER edge = nullptr;
  KIRQL before = PASSIVE_LEVEL;
  KeAcquireSpinLock(&lock_, &before);
  if (IsListEmpty(&frames_) == FALSE) {
    edge = &edge_;
    if (state == KSSTREAM_POINTER_STATE_LOCKED && locked_ == nullptr) {
      locked_ = CONTAINING_RECORD(frames_.Flink, StreamFrame, Link);
      PointEdgeAt(locked_);
    }
  }
  KeReleaseSpinLock(&lock_, before);
  return edge;
}

void FrameQueue::Unlock(bool eject) {
  StreamRequest* over = nullptr;
  KIRQL before = PASSIVE_LEVEL;
  KeAcquireSpinLock(&lock_, &before);
  if (StreamFrame* const frame = locked_) {
    StreamRequest& request = *frame->Request;
    locked_ = nullptr;
    PointEdgeAt(nullptr);
    if (eject || request.IsAborted) {
      if (!eject) request.Status = STATUS_CANCELLED;
      DropFrame(*frame);
      if (IsOver(request)) over = &request;
    }
  }
  KeReleaseSpinLock(&lock_, before);
  if (over != nullptr) CompleteStreamRequest(over);
}

void FrameQueue::HandBack(bool lockedToo) {
  LIST_ENTRY over;
  InitializeListHead(&over);
  KIRQL before = PASSIVE_LEVEL;
  KeAcquireSpinLock(&lock_, &before);
  for (LIST_ENTRY* link = requests_.Flink; link != &requests_;) {
    StreamRequest& request = *CONTAINING_RECORD(link, StreamRequest, Link);
    link = link->Flink;
    Abort(request, lockedToo);
    if (IsOver(request)) InsertTailList(&over, &request.Link);
  }
  KeReleaseSpinLock(&lock_, before);
  while (IsListEmpty(&over) == FALSE) {
    CompleteStreamRequest(CONTAINING_RECORD(RemoveHeadList(&over), StreamRequest, Link));
  }
}

void FrameQueue::Cancel(StreamRequest& request) {
  bool isOver = false;
  KIRQL before = PASSIVE_LEVEL;
  KeAcquireSpinLock(&lock_, &before);
  request.IsCancelHandled = true;
  if (request.FramesLeft == 0) {
    isOver = true;  // its last frame is completed; the request was left to this call
  } else {
    Abort(request, false);
    isOver = IsOver(request);
  }
  KeReleaseSpinLock(&lock_, before);
  if (isOver) CompleteStreamRequest(&request);
}

void FrameQueue::DropFrame(StreamFrame& frame) {
  RemoveEntryList(&frame.Link);
  frame.IsQueued = false;
  --frame.Request->FramesLeft;
}

void FrameQueue::Abort(StreamRequest& request, bool lockedToo) {
  request.IsAborted = true;
  for (ULONG i = 0; i < request.FramesCount; ++i) {
    StreamFrame& frame = request.Frames[i];
    if (!frame.IsQueued || (&frame == locked_ && !lockedToo)) continue;
    if (&frame == locked_) {
      locked_ = nullptr;
      PointEdgeAt(nullptr);
    }
    request.Status = STATUS_CANCELLED;
    DropFrame(frame);
  }
}

// Removes a request without frames from the queue. True if the caller completes it: otherwise its
// cancel routine is running, and does.
bool FrameQueue::IsOver(StreamRequest& request) {
  if (request.FramesLeft != 0) return false;
  RemoveEntryList(&request.Link);
  return request.IsCancelHandled || IoSetCancelRoutine(request.Irp, nullptr) != nullptr;
}

void FrameQueue::PointEdgeAt(StreamFrame* frame) {
  PKSPIN const pin = edge_.Pin;
  edge_ = {};
  edge_.Pin = pin;
  if (frame == nullptr) return;
  edge_.StreamHeader = frame->Header;
  edge_.Offset = &edge_.OffsetOut;
  edge_.OffsetOut.Data = static_cast<PUCHAR>(frame->Header->Data);
  edge_.OffsetOut.Count = frame->Header->FrameExtent;
  edge_.OffsetOut.Remaining = frame->Header->FrameExtent;
}

}  // namespace lidcam::host
