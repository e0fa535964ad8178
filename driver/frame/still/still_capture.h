#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"

namespace lidcam {

/// Writes a raw frame's picture to the still file if an application has asked for one, and marks
/// that picture: fire and forget, with no notification but the debug messages.
///
/// Does nothing unless `StillRequested` is exactly 1; otherwise the request is used up, whether the
/// file could be written or not. One trace line tells what became of it, with the status that
/// WriteStillFile() returned: "still 640x480 index=3 value=0 status=00000000".
///
/// @param pixels  YUY2 pixels of the size that RawSizeMode gives. Its last four bytes become the
///                size index and the value of the request. A mode without a size of its own takes
///                the request's value for width and height: such a mode needs a buffer as large.
/// @par Called on the frame path at whatever level that runs on, and waits there for the file:
///      nothing tests the level or puts the file off
void CaptureStill(CameraContext& context, std::uint8_t* pixels);

/// Replaces the contents of the still file, SnapFile.dat in the system's drivers folder, by a
/// picture, marked in its last four bytes: low 16 bits of the size index, then of the value, both
/// little-endian.
///
/// A platform of one of the first driver model levels is not asked how the open went: what it
/// reports is then the status of the write. A platform of no known level gets no file.
///
/// @param pixels  `width` x `height` x 2 bytes, counted in 32 bits; marked in place. A picture of
///                one pixel has room for the value only, one of none for neither mark.
/// @return 0, also when no file was attempted; or the status of the failed open or write
/// @par Called as CaptureStill() is
Status WriteStillFile(CameraContext& context, std::uint8_t* pixels, std::uint32_t width,
                      std::uint32_t height, std::uint32_t value, std::uint32_t sizeIndex);

}  // namespace lidcam
