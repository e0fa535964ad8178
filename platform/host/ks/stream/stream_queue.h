#pragma once

#include "platform/host/ks/stream/stream_request.h"

namespace lidcam::host {

/// The buffers queued at a pin, the oldest first, and the driver's only stream pointer: the leading
/// edge. A spin lock guards all of it; requests are completed outside of it.
///
/// The driver owns a locked frame: neither its application nor a reset takes it back, only a stop,
/// which comes when the driver no longer processes.
class FrameQueue {
 public:
  explicit FrameQueue(PKSPIN pin);
  FrameQueue(const FrameQueue&) = delete;
  FrameQueue& operator=(const FrameQueue&) = delete;

  /// Takes the request over and marks it pending; one that is cancelled already is completed at
  /// once.
  void Add(StreamRequest* request);

  /// Whether a frame is queued.
  bool HasFrame();

  /// KsPinGetLeadingEdgeStreamPointer(). A pointer to an unlocked frame has no header: the frame
  /// may be cancelled at any time. A locked edge stays locked.
  PKSSTREAM_POINTER LeadingEdge(KSSTREAM_POINTER_STATE state);

  /// KsStreamPointerUnlock(). No effect if the edge isn't locked, as after a stop.
  void Unlock(bool eject);

  /// Completes all requests; those with a locked frame when that is unlocked, unless `lockedToo`.
  void HandBack(bool lockedToo);

  /// Called by the cancel routine.
  void Cancel(StreamRequest& request);

 private:
  void DropFrame(StreamFrame& frame);
  void Abort(StreamRequest& request, bool lockedToo);
  bool IsOver(StreamRequest& request);
  void PointEdgeAt(StreamFrame* frame);

  KSPIN_LOCK lock_{};
  LIST_ENTRY frames_{};    ///< of StreamFrame
  LIST_ENTRY requests_{};  ///< of StreamRequest with frames left in the queue
  StreamFrame* locked_ = nullptr;
  KSSTREAM_POINTER edge_{};
};

}  // namespace lidcam::host
