#pragma once

#include "platform/kernel.h"

namespace lidcam::host {

class FrameQueue;
struct StreamRequest;

/// One buffer of an application, from its arrival to its completion.
struct StreamFrame {
  LIST_ENTRY Link;  ///< in the pin's queue
  StreamRequest* Request;
  PKSSTREAM_HEADER Header;  ///< in the request's copy
  bool IsQueued;
};

/// An IOCTL_KS_READ_STREAM with the class's own copy of its headers: the application may change its
/// own while the driver works. All but the first three fields are under the queue's lock.
struct StreamRequest {
  PIRP Irp;
  PUCHAR Headers;
  ULONG HeaderBytes;
  LIST_ENTRY Link;
  FrameQueue* Queue;
  NTSTATUS Status;       ///< STATUS_CANCELLED after a frame was returned unfilled
  bool IsAborted;        ///< a locked frame is returned when it is unlocked
  bool IsCancelHandled;  ///< the cancel routine has run, or will not run
  ULONG FramesLeft;
  ULONG FramesCount;
  StreamFrame Frames[1];
};

/// A pin's requirements on frames.
struct FrameLimits {
  ULONG HeaderSize;     ///< minimum bytes of a header including its extension
  ULONG MinimumExtent;  ///< bytes of a buffer
};

/// Checks the headers of a request and copies them.
///
/// @return STATUS_INVALID_BUFFER_SIZE for a header that is too short, isn't a multiple of 8 bytes or
///         reaches beyond the request, STATUS_BUFFER_TOO_SMALL for a buffer below the minimum,
///         STATUS_INVALID_PARAMETER for a missing one, STATUS_INSUFFICIENT_RESOURCES
NTSTATUS MakeStreamRequest(PIRP irp, const FrameLimits& limits, StreamRequest** request);

/// Frees a request that was never queued.
void DropStreamRequest(StreamRequest* request);

/// Frees the request and completes its packet with the request's status. The application's headers
/// are written only if all its frames were filled.
/// @par Up to DISPATCH_LEVEL, with no lock held
void CompleteStreamRequest(StreamRequest* request);

}  // namespace lidcam::host
