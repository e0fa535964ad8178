#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"

namespace lidcam {

/// Writes a raw frame's picture to the still file if an application has requested one, and marks
/// that picture. The application is not notified; only debug messages report the end.
///
/// Does nothing unless `StillRequested` is exactly 1; otherwise the request is used up, whether the
/// file could be written or not. One trace line reports the result, with the status that
/// WriteStillFile() returned: "still 640x480 index=3 value=0 status=00000000".
///
/// @param pixels  YUY2 pixels of the size that RawSizeMode gives. Its last four bytes become the
///                size index and the value of the request. A mode without a size of its own takes
///                the request's value for width and height: such a mode needs a buffer as large.
/// @par Called on the frame path at whatever level that runs on, and waits there for the file:
///      nothing tests the level or defers the file
void CaptureStill(CameraContext& context, std::uint8_t* pixels);

/// Replaces the contents of the still file, SnapFile.dat in the system's drivers folder, by a
/// picture, marked in its last four bytes: low 16 bits of the size index, then of the value, both
/// little-endian.
///
/// On the first driver model levels the result of the open is not checked: the status is then that
/// of the write. On an unknown level no file is written.
///
/// @param pixels  `width` x `height` x 2 bytes, counted in 32 bits; marked in place. A picture of
///                one pixel has room for the value only, an empty one for neither mark.
/// @return 0, also when no file was attempted; or the status of the failed open or write
/// @par Called as CaptureStill() is
Status WriteStillFile(CameraContext& context, std::uint8_t* pixels, std::uint32_t width,
                      std::uint32_t height, std::uint32_t value, std::uint32_t sizeIndex);

}  // namespace lidcam
