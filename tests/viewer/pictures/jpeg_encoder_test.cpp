#include "viewer/pictures/jpeg_encoder.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
//
#include <jpeglib.h>

#include <array>
#include <cstdlib>

namespace lidcam::viewer {
namespace {

struct Decoded {
  app::PictureSize Size{};
  std::vector<std::uint8_t> Rgb{};

  [[nodiscard]] std::array<int, 3> At(int x, int y) const {
    const std::size_t at = 3 * static_cast<std::size_t>(y * Size.Width + x);
    return {Rgb[at], Rgb[at + 1], Rgb[at + 2]};
  }
};

// As a browser does.
Decoded Decode(const std::vector<std::uint8_t>& jpeg) {
  jpeg_decompress_struct decompress{};
  jpeg_error_mgr errors{};
  decompress.err = jpeg_std_error(&errors);
  jpeg_create_decompress(&decompress);
  jpeg_mem_src(&decompress, jpeg.data(), jpeg.size());
  jpeg_read_header(&decompress, TRUE);
  jpeg_start_decompress(&decompress);
  Decoded decoded{.Size = {static_cast<std::int32_t>(decompress.output_width),
                           static_cast<std::int32_t>(decompress.output_height)}};
  decoded.Rgb.resize(std::size_t{3} * decompress.output_width * decompress.output_height);
  while (decompress.output_scanline < decompress.output_height) {
    JSAMPROW row =
        decoded.Rgb.data() + std::size_t{3} * decompress.output_width * decompress.output_scanline;
    jpeg_read_scanlines(&decompress, &row, 1);
  }
  jpeg_finish_decompress(&decompress);
  jpeg_destroy_decompress(&decompress);
  return decoded;
}

std::vector<std::uint8_t> Plain(app::PictureSize size, std::array<std::uint8_t, 4> pair) {
  std::vector<std::uint8_t> yuy2;
  for (std::size_t i = 0; i < size.Yuy2Bytes(); ++i) yuy2.push_back(pair[i % 4]);
  return yuy2;
}

void ExpectNear(const std::array<int, 3>& colour, const std::array<int, 3>& expected) {
  for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(colour[i], expected[i], 3) << i;
}

struct Colour {
  std::array<std::uint8_t, 4> Pair;
  std::array<int, 3> Rgb;
};

// By ITU-R BT.601, studio range.
TEST(JpegEncoder, TheCamerasColoursAreThoseThatABrowserShows) {
  constexpr app::PictureSize kSize{32, 16};
  const Colour colours[] = {
      {{16, 128, 16, 128}, {0, 0, 0}},         {{235, 128, 235, 128}, {255, 255, 255}},
      {{126, 128, 126, 128}, {128, 128, 128}}, {{81, 90, 81, 240}, {254, 0, 0}},
      {{145, 54, 145, 34}, {0, 255, 1}},       {{41, 240, 41, 110}, {0, 0, 255}},
      {{0, 128, 0, 128}, {0, 0, 0}},           {{255, 128, 255, 128}, {255, 255, 255}},
  };
  JpegEncoder encoder;
  for (const Colour& colour : colours) {
    const Decoded decoded = Decode(encoder.Encode(Plain(kSize, colour.Pair), kSize));
    ExpectNear(decoded.At(5, 5), colour.Rgb);
  }
}

// Also of sizes that are no whole number of blocks.
TEST(JpegEncoder, LeftAndRightAndTopAndBottomStayWhereTheyAre) {
  for (const app::PictureSize size :
       {app::PictureSize{640, 480}, {176, 144}, {160, 120}, {34, 21}, {2, 1}, {16, 8}}) {
    std::vector<std::uint8_t> yuy2 = Plain(size, {16, 128, 16, 128});
    // The last pair of the last row is white.
    yuy2[yuy2.size() - 4] = 235;
    yuy2[yuy2.size() - 2] = 235;
    JpegEncoder encoder;
    const Decoded decoded = Decode(encoder.Encode(yuy2, size));
    ASSERT_EQ(decoded.Size, size);
    EXPECT_GT(decoded.At(size.Width - 1, size.Height - 1)[1], 200);
    if (size.Width <= 16) continue;
    EXPECT_LT(decoded.At(0, size.Height - 1)[1], 40);
  }
}

TEST(JpegEncoder, OneEncoderTakesPicturesOfAnySizes) {
  JpegEncoder encoder;
  for (const app::PictureSize size : {app::PictureSize{160, 120}, {640, 480}, {320, 240}}) {
    EXPECT_EQ(Decode(encoder.Encode(Plain(size, {100, 128, 100, 128}), size)).Size, size);
  }
}

// Noise is the worst that can be: its JPEG is larger than most.
TEST(JpegEncoder, NoiseFitsToo) {
  constexpr app::PictureSize kSize{640, 480};
  std::vector<std::uint8_t> yuy2(kSize.Yuy2Bytes());
  std::uint32_t state = 1;
  for (std::uint8_t& byte : yuy2) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<std::uint8_t>(state >> 24);
  }
  JpegEncoder encoder;
  EXPECT_EQ(Decode(encoder.Encode(yuy2, kSize)).Size, kSize);
}

TEST(JpegEncoder, APictureWithTooFewBytesIsRefusedAndTheNextOneIsEncoded) {
  constexpr app::PictureSize kSize{160, 120};
  JpegEncoder encoder;
  const std::vector<std::uint8_t> yuy2 = Plain(kSize, {100, 128, 100, 128});
  EXPECT_THROW(static_cast<void>(encoder.Encode(std::span(yuy2).first(100), kSize)),
               std::runtime_error);
  EXPECT_THROW(static_cast<void>(encoder.Encode(yuy2, {0, 0})), std::runtime_error);
  EXPECT_THROW(static_cast<void>(encoder.Encode(yuy2, {3, 2})), std::runtime_error);
  EXPECT_FALSE(encoder.Encode(yuy2, kSize).empty());
}

}  // namespace
}  // namespace lidcam::viewer
