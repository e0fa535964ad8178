#include "apps/lidcam/output/png_file.h"

#include <png.h>

#include <cstring>
#include <vector>

#include "apps/lidcam/output/output_file.h"
#include "library/base/command_error.h"

namespace lidcam::app {

std::vector<std::uint8_t> EncodePng(const std::string& path, PictureSize size,
                                    std::span<const std::uint8_t> rgb) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(size.Width);
  image.height = static_cast<png_uint_32>(size.Height);
  image.format = PNG_FORMAT_RGB;
  image.flags = PNG_IMAGE_FLAG_FAST;

  std::vector<std::uint8_t> encoded(PNG_IMAGE_PNG_SIZE_MAX(image));
  png_alloc_size_t length = encoded.size();
  if (png_image_write_to_memory(&image, encoded.data(), &length, 0, rgb.data(), 0, nullptr) == 0) {
    throw CommandError("output '" + path + "' can't be encoded: " + image.message);
  }
  encoded.resize(length);
  return encoded;
}

// In memory first: all files are then written by the same code, which handles the errors.
void WritePng(const std::string& path, PictureSize size, std::span<const std::uint8_t> rgb) {
  const std::vector<std::uint8_t> encoded = EncodePng(path, size, rgb);
  OutputFile file(path);
  file.Write(encoded);
  file.Commit();
}

}  // namespace lidcam::app
