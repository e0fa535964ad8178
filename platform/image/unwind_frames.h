#pragma once

#include <cstdint>
#include <vector>

#include "platform/image/file/image_file.h"

namespace lidcam::image {

/// The image's unwind information in the form that the run-time library of Linux reads, so that an exception of the
/// host kernel passes the driver's functions: a thread that ends, or a world that stops.
///
/// Vector registers are left out: only the image's own functions rely on them, and none of those runs again.
///
/// @param place  address of the result in memory, relative to the image's begin
/// @throws ImageError for a function with unwind information of an unknown kind
[[nodiscard]] std::vector<std::uint8_t> MakeUnwindFrames(const ImageFile& file,
                                                         std::uint32_t place);

}  // namespace lidcam::image
