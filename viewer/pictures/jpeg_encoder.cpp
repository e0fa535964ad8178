#include "viewer/pictures/jpeg_encoder.h"

// The library's header uses what it doesn't include.
#include <cstddef>
#include <cstdio>
//
#include <jpeglib.h>

#include <algorithm>
#include <array>
#include <csetjmp>
#include <string>

namespace lidcam::viewer {
namespace {

// The eye can't tell it from the camera's own picture, at a tenth of its bytes.
constexpr int kQuality = 88;

constexpr std::size_t kBlock = 8;  // rows and columns that are transformed together

struct RangeTable {
  std::array<std::uint8_t, 256> Luma{};
  std::array<std::uint8_t, 256> Chroma{};
};

constexpr std::uint8_t Rounded(int value, int numerator, int denominator, int offset) {
  const int scaled = value * numerator;
  const int half = scaled < 0 ? -denominator / 2 : denominator / 2;
  return static_cast<std::uint8_t>(std::clamp((scaled + half) / denominator + offset, 0, 255));
}

// Luma from 16 to 235 and chroma from 16 to 240 become 0 to 255.
constexpr RangeTable MakeRangeTable() {
  RangeTable table;
  for (int i = 0; i < 256; ++i) {
    table.Luma[static_cast<std::size_t>(i)] = Rounded(i - 16, 255, 219, 0);
    table.Chroma[static_cast<std::size_t>(i)] = Rounded(i - 128, 255, 224, 128);
  }
  return table;
}

constexpr RangeTable kRange = MakeRangeTable();

constexpr std::size_t RoundUp(std::size_t value, std::size_t multiple) {
  return (value + multiple - 1) / multiple * multiple;
}

void SeparateRow(const std::uint8_t* yuy2, std::size_t pairs, std::uint8_t* y, std::uint8_t* u,
                 std::uint8_t* v) {
  for (std::size_t i = 0; i < pairs; ++i, yuy2 += 4) {
    y[2 * i] = kRange.Luma[yuy2[0]];
    y[2 * i + 1] = kRange.Luma[yuy2[2]];
    u[i] = kRange.Chroma[yuy2[1]];
    v[i] = kRange.Chroma[yuy2[3]];
  }
}

// The blocks at the right edge may be wider than the picture.
void PadRow(std::uint8_t* row, std::size_t used, std::size_t padded) {
  std::fill(row + used, row + padded, used == 0 ? std::uint8_t{0} : row[used - 1]);
}

// More than any picture takes: the library then allocates none of its own.
std::size_t MostBytes(app::PictureSize size) {
  constexpr std::size_t kHeaders = 4096;
  return 4 * size.Yuy2Bytes() + kHeaders;
}

}  // namespace

struct JpegEncoder::Library {
  jpeg_error_mgr Errors{};  ///< the library's own error handling ends the program
  jpeg_compress_struct Compress{};
  std::jmp_buf Back{};
  std::array<char, JMSG_LENGTH_MAX> Text{};
};

namespace {

extern "C" void LeaveJpegLibrary(j_common_ptr common) {
  auto* const back = static_cast<std::jmp_buf*>(common->client_data);
  std::longjmp(*back, 1);
}

void Describe(jpeg_compress_struct& compress, app::PictureSize size) {
  compress.image_width = static_cast<JDIMENSION>(size.Width);
  compress.image_height = static_cast<JDIMENSION>(size.Height);
  compress.input_components = 3;
  compress.in_color_space = JCS_YCbCr;
  jpeg_set_defaults(&compress);
  jpeg_set_quality(&compress, kQuality, TRUE);
  compress.comp_info[0].h_samp_factor = 2;
  compress.comp_info[0].v_samp_factor = 1;
  compress.raw_data_in = TRUE;
}

/// The rows of blocks of a picture, one after the other.
struct BlockRows {
  const std::uint8_t* Yuy2;
  std::size_t Width;
  std::size_t Height;
  std::uint8_t* Planes;

  [[nodiscard]] std::size_t LumaWidth() const { return RoundUp(Width, 2 * kBlock); }

  /// Separates the rows from `first` on; those below the picture repeat its last one.
  void Fill(std::size_t first, std::array<std::array<JSAMPROW, kBlock>, 3>& rows) const {
    const std::size_t luma = LumaWidth();
    const std::size_t chroma = luma / 2;
    for (std::size_t i = 0; i < kBlock; ++i) {
      std::uint8_t* const y = Planes + i * 2 * luma;
      std::uint8_t* const u = y + luma;
      std::uint8_t* const v = u + chroma;
      const std::size_t row = std::min(first + i, Height - 1);
      SeparateRow(Yuy2 + row * Width * 2, Width / 2, y, u, v);
      PadRow(y, Width, luma);
      PadRow(u, Width / 2, chroma);
      PadRow(v, Width / 2, chroma);
      rows[0][i] = y;
      rows[1][i] = u;
      rows[2][i] = v;
    }
  }
};

// No object with a destructor may live here: an error jumps over its end.
bool CompressRows(std::jmp_buf& back, jpeg_compress_struct& compress, unsigned char* bytes,
                  unsigned long* count, app::PictureSize size, const BlockRows& picture) {
  if (setjmp(back) != 0) return false;
  jpeg_mem_dest(&compress, &bytes, count);
  Describe(compress, size);
  jpeg_start_compress(&compress, TRUE);
  std::array<std::array<JSAMPROW, kBlock>, 3> rows;
  std::array<JSAMPARRAY, 3> planes{rows[0].data(), rows[1].data(), rows[2].data()};
  while (compress.next_scanline < compress.image_height) {
    picture.Fill(compress.next_scanline, rows);
    jpeg_write_raw_data(&compress, planes.data(), kBlock);
  }
  jpeg_finish_compress(&compress);
  return true;
}

}  // namespace

JpegEncoder::JpegEncoder() : library_(std::make_unique<Library>()) {
  Library& library = *library_;
  library.Compress.err = jpeg_std_error(&library.Errors);
  library.Errors.error_exit = LeaveJpegLibrary;
  jpeg_create_compress(&library.Compress);
  library.Compress.client_data = &library.Back;
}

JpegEncoder::~JpegEncoder() {
  jpeg_destroy_compress(&library_->Compress);
}

std::vector<std::uint8_t> JpegEncoder::Encode(std::span<const std::uint8_t> yuy2,
                                              app::PictureSize size) {
  if (size.Width <= 0 || size.Height <= 0 || size.Width % 2 != 0 ||
      yuy2.size() < size.Yuy2Bytes()) {
    throw std::runtime_error("picture of " + app::ToString(size) + " with " +
                             std::to_string(yuy2.size()) + " bytes can't be encoded");
  }
  Library& library = *library_;
  BlockRows picture{.Yuy2 = yuy2.data(),
                    .Width = static_cast<std::size_t>(size.Width),
                    .Height = static_cast<std::size_t>(size.Height),
                    .Planes = nullptr};
  planes_.resize(2 * picture.LumaWidth() * kBlock);
  picture.Planes = planes_.data();
  encoded_.resize(MostBytes(size));
  unsigned long count = encoded_.size();
  const bool isDone =
      CompressRows(library.Back, library.Compress, encoded_.data(), &count, size, picture);
  if (!isDone) {
    library.Errors.format_message(reinterpret_cast<j_common_ptr>(&library.Compress),
                                  library.Text.data());
    jpeg_abort_compress(&library.Compress);
    throw std::runtime_error("picture of " + app::ToString(size) +
                             " can't be encoded: " + library.Text.data());
  }
  return {encoded_.begin(), encoded_.begin() + static_cast<std::ptrdiff_t>(count)};
}

}  // namespace lidcam::viewer
