#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"

namespace lidcam {

/// What a delivered frame's stream header says about time and number.
struct FrameStamp {
  Time100ns Time;              ///< presentation time
  Time100ns LastTime;          ///< to be handed to the next call
  std::int64_t DropCount;      ///< frames that the stream time has and the client has not
  std::int64_t PictureNumber;  ///< place of the frame among those the stream time has
};

/// Stamps one frame. No side effects.
///
/// A frame carries the clock's time, but never one that is not later than the frame before: a clock
/// that stands still or steps back makes times rise by the interval. The frame with `counter` 2 is
/// the first of a stream and takes the clock as it is.
///
/// @param counter    delivered frames so far, the two skipped calls included
/// @param clockTime  stream time now
/// @param lastTime   time stamped on the frame before
/// @param interval   frame interval; 0, which an application can ask for, gives a drop count of 0.
///                   A sum beyond 64 bits wraps.
FrameStamp StampFrame(std::int64_t counter, Time100ns clockTime, Time100ns lastTime,
                      Time100ns interval);

/// Turns a raw frame into a delivered one.
///
/// Runs the exposure control on the frame first, whatever the format. The pixels then go straight
/// from the raw buffer to the destination: copied in the camera's native size, resampled to any
/// other; a still that was asked for is taken, and marks the raw pixels, ahead of that. While the
/// camera is in a raw size that has no native format (1280 by 1024 among them) nothing is written
/// and a still stays asked for, and so it is with a format other than YUY2.
///
/// @param destination       buffer of the negotiated format: RequestedWidth x RequestedHeight x 2
/// @param destinationSize   not used: the negotiated format is the only bound
/// @param rawFrame          header and YUY2 pixels; as large as the raw size has them
/// @param rawFrameSize      not used: what a short frame lacks is what the raw buffer held before
/// @param bytesWritten      bytes of the negotiated format, whether any were written or not; left
///                          alone unless the format is YUY2
/// @return 0 always
/// @par Called on the frame path, one call at a time, at whatever level that runs on, raised ones
///      included: the exposure control blocks there for its vendor requests and a still for its
///      file; nothing tests the level or defers them
Status DeliverFrame(CameraContext& context, std::uint8_t* destination,
                    std::uint32_t destinationSize, std::uint8_t* rawFrame,
                    std::uint32_t rawFrameSize, std::uint32_t& bytesWritten);

/// Where a frame goes.
struct DeliveryBuffer {
  std::uint8_t* Data;
  std::uint32_t Room;  ///< bytes at `Data`
};

/// As DeliverFrame(), for a buffer of an application's choice. A picture that doesn't fit is not
/// written; all the rest is as ever, bytesWritten too.
Status DeliverFrameWithin(CameraContext& context, const DeliveryBuffer& destination,
                          std::uint8_t* rawFrame, std::uint32_t& bytesWritten);

}  // namespace lidcam
