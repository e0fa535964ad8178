#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "library/base/units.h"

namespace lidcam::app {

/// The bytes of a JPEG file (quality 92, colours halved sideways as in YUY2) of a YUY2 picture.
///
/// @param path  names the output in errors
/// @param exif  an Exif block, "Exif\0\0" first, that the file contains; may be empty
/// Throws CommandError.
[[nodiscard]] std::vector<std::uint8_t> EncodeJpeg(const std::string& path, PictureSize size,
                                                   std::span<const std::uint8_t> yuy2,
                                                   std::span<const std::uint8_t> exif = {});

}  // namespace lidcam::app
