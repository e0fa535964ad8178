#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "library/base/units.h"

namespace lidcam::app {

/// The bytes of a PNG file of packed RGB. Throws CommandError, naming the path.
[[nodiscard]] std::vector<std::uint8_t> EncodePng(const std::string& path, PictureSize size,
                                                  std::span<const std::uint8_t> rgb);

/// Writes one picture of packed RGB as a PNG file, whole or not at all. Throws CommandError.
void WritePng(const std::string& path, PictureSize size, std::span<const std::uint8_t> rgb);

}  // namespace lidcam::app
