#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "apps/lidcam/units.h"

namespace lidcam::app {

/// Writes one picture of packed RGB as a PNG file, whole or not at all. Throws CommandError.
void WritePng(const std::string& path, PictureSize size, std::span<const std::uint8_t> rgb);

}  // namespace lidcam::app
