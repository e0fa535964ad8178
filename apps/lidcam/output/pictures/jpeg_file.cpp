#include "apps/lidcam/output/pictures/jpeg_file.h"

// The library's header uses what it doesn't include.
#include <cstddef>
#include <cstdio>
//
#include <jpeglib.h>

#include <array>
#include <csetjmp>
#include <cstdlib>

#include "apps/lidcam/output/yuy2.h"
#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

constexpr int kQuality = 92;

/// The library's own error handling ends the program.
struct ErrorExit {
  jpeg_error_mgr Manager{};  // first: the library knows this part only
  std::jmp_buf Back{};
  std::array<char, JMSG_LENGTH_MAX> Text{};
};

extern "C" void LeaveWithError(j_common_ptr common) {
  auto* const exit = reinterpret_cast<ErrorExit*>(common->err);
  exit->Manager.format_message(common, exit->Text.data());
  std::longjmp(exit->Back, 1);
}

struct EncodedJpeg {
  unsigned char* Bytes = nullptr;  ///< of malloc
  unsigned long Size = 0;
};

void Describe(jpeg_compress_struct& compress, PictureSize size) {
  compress.image_width = static_cast<JDIMENSION>(size.Width);
  compress.image_height = static_cast<JDIMENSION>(size.Height);
  compress.input_components = 3;
  compress.in_color_space = JCS_RGB;
  jpeg_set_defaults(&compress);
  jpeg_set_quality(&compress, kQuality, TRUE);
  compress.comp_info[0].h_samp_factor = 2;
  compress.comp_info[0].v_samp_factor = 1;
}

// No object with a destructor may live here: an error jumps over its end.
bool Compress(ErrorExit& exit, PictureSize size, const std::uint8_t* rgb,
              std::span<const std::uint8_t> exif, EncodedJpeg& encoded) {
  jpeg_compress_struct compress;
  compress.err = jpeg_std_error(&exit.Manager);
  exit.Manager.error_exit = LeaveWithError;
  jpeg_create_compress(&compress);
  if (setjmp(exit.Back) != 0) {
    jpeg_destroy_compress(&compress);
    return false;
  }
  jpeg_mem_dest(&compress, &encoded.Bytes, &encoded.Size);
  Describe(compress, size);
  // An Exif block takes the place of the other header, which would have to be first, too.
  if (!exif.empty()) compress.write_JFIF_header = FALSE;
  jpeg_start_compress(&compress, TRUE);
  if (!exif.empty()) {
    jpeg_write_marker(&compress, JPEG_APP0 + 1, exif.data(), static_cast<unsigned>(exif.size()));
  }
  while (compress.next_scanline < compress.image_height) {
    JSAMPROW row =
        const_cast<JSAMPROW>(rgb + std::size_t{compress.next_scanline} * 3 * compress.image_width);
    jpeg_write_scanlines(&compress, &row, 1);
  }
  jpeg_finish_compress(&compress);
  jpeg_destroy_compress(&compress);
  return true;
}

}  // namespace

std::vector<std::uint8_t> EncodeJpeg(const std::string& path, PictureSize size,
                                     std::span<const std::uint8_t> yuy2,
                                     std::span<const std::uint8_t> exif) {
  std::vector<std::uint8_t> rgb;
  ConvertToRgb(yuy2, size, rgb);
  ErrorExit exit;
  EncodedJpeg encoded;
  const bool isDone = Compress(exit, size, rgb.data(), exif, encoded);
  std::vector<std::uint8_t> bytes;
  if (isDone) bytes.assign(encoded.Bytes, encoded.Bytes + encoded.Size);
  std::free(encoded.Bytes);
  if (!isDone) throw CommandError("output '" + path + "' can't be encoded: " + exit.Text.data());
  return bytes;
}

}  // namespace lidcam::app
