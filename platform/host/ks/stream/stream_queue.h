#pragma once

#include "platform/host/ks/stream/stream_request.h"

namespace lidcam::host {

/// The buffers that wait at a pin, the oldest first, and the one stream pointer that its driver has:
/// the leading edge. A spin lock guards it all; requests are completed outside of it.
///
/// A locked frame is the driver's: neither its application nor a reset takes it back, only a stop,
/// which comes when the driver doesn't process any more.
class FrameQueue {
 public:
  explicit FrameQueue(PKSPIN pin);
  FrameQueue(const FrameQueue&) = delete;
  FrameQueue& operator=(const FrameQueue&) = delete;

  /// Takes the request over and marks it pending; one that was cancelled before goes back at once.
  void Add(StreamRequest* request);

  /// There is a frame to work on.
  bool HasFrame();

  /// KsPinGetLeadingEdgeStreamPointer(). A pointer to an unlocked frame tells no header: it may go at
  /// any time. An edge that is locked already stays so.
  PKSSTREAM_POINTER LeadingEdge(KSSTREAM_POINTER_STATE state);

  /// KsStreamPointerUnlock(). Nothing if the edge isn't locked, as after a stop.
  void Unlock(bool eject);

  /// Gives all requests back; those with a locked frame as soon as that is unlocked, unless locked
  /// frames go too.
  void HandBack(bool lockedToo);

  /// The cancel routine's way in.
  void Cancel(StreamRequest& request);

 private:
  void DropFrame(StreamFrame& frame);
  void Abort(StreamRequest& request, bool lockedToo);
  bool IsOver(StreamRequest& request);
  void PointEdgeAt(StreamFrame* frame);

  KSPIN_LOCK lock_{};
  LIST_ENTRY frames_{};    ///< of StreamFrame
  LIST_ENTRY requests_{};  ///< of StreamRequest that still have frames here
  StreamFrame* locked_ = nullptr;
  KSSTREAM_POINTER edge_{};
};

}  // namespace lidcam::host
