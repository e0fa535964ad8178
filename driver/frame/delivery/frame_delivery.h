#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"

namespace lidcam {

/// Time and number in a delivered frame's stream header.
struct FrameStamp {
  Time100ns Time;              ///< presentation time
  Time100ns LastTime;          ///< to be passed to the next call
  std::int64_t DropCount;      ///< frames due by the stream time that the client didn't get
  std::int64_t PictureNumber;  ///< number of the frame by the stream time
};

/// Stamps one frame. No side effects.
///
/// A frame is stamped with the clock's time if that is later than the previous frame's, else with
/// the previous frame's plus the interval. The frame with `counter` 2 is the first of a stream and
/// always gets the clock's time.
///
/// @param counter    delivered frames so far, the two skipped calls included
/// @param clockTime  stream time now
/// @param lastTime   time stamped on the frame before
/// @param interval   frame interval; 0, which an application can request, gives a drop count of 0.
///                   A sum beyond 64 bits wraps.
FrameStamp StampFrame(std::int64_t counter, Time100ns clockTime, Time100ns lastTime,
                      Time100ns interval);

/// Turns a raw frame into a delivered one.
///
/// Runs the exposure control on the frame first, whatever the format. The pixels then go straight
/// from the raw buffer to the destination: copied in the camera's native size, resampled to any
/// other. A requested still is taken before that, and marks the raw pixels. While the camera is in
/// a raw size that has no native format (1280 by 1024 among them) nothing is written and a still
/// stays requested; the same holds for a format other than YUY2.
///
/// @param destination       buffer of the negotiated format: RequestedWidth x RequestedHeight x 2
/// @param destinationSize   not used: the negotiated format is the only bound
/// @param rawFrame          header and YUY2 pixels; as large as the raw size has them
/// @param rawFrameSize      not used: a short frame ends with older bytes of the raw buffer
/// @param bytesWritten      bytes of the negotiated format, even if none were written; unchanged
///                          unless the format is YUY2
/// @return 0 always
/// @par Called on the frame path, one call at a time, at whatever level that runs on, raised ones
///      included: the exposure control blocks there for its vendor requests and a still for its
///      file; nothing tests the level or defers them
Status DeliverFrame(CameraContext& context, std::uint8_t* destination,
                    std::uint32_t destinationSize, std::uint8_t* rawFrame,
                    std::uint32_t rawFrameSize, std::uint32_t& bytesWritten);

/// An application's buffer for a frame.
struct DeliveryBuffer {
  std::uint8_t* Data;
  std::uint32_t Room;  ///< bytes at `Data`
};

/// As DeliverFrame(), for a buffer that an application chose. A picture that doesn't fit is not
/// written; all else is the same, bytesWritten included.
Status DeliverFrameWithin(CameraContext& context, const DeliveryBuffer& destination,
                          std::uint8_t* rawFrame, std::uint32_t& bytesWritten);

}  // namespace lidcam
