#pragma once

#include <cstdint>
#include <string>

#include "platform/image/file/image_file.h"

namespace lidcam::image {

/// The function and the line of an address of the image, "PacketWalk::Take (driver/frame/packet_walk.cpp:52)", with the
/// functions that it is inlined in, by the debug symbols that the package has beside its folder. Runs a program.
///
/// @return empty without symbols, or without the program that reads them
[[nodiscard]] std::string SourcePlace(const ImageFile& file, std::uint32_t address);

}  // namespace lidcam::image
