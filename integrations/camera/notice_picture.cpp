#include "integrations/camera/notice_picture.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace lidcam::integrations {
namespace {

constexpr std::uint32_t kGlyphWidth = 5;
constexpr std::uint32_t kGlyphHeight = 7;
constexpr std::uint32_t kAdvance = kGlyphWidth + 1;
constexpr std::uint8_t kInk = 235;
constexpr std::uint8_t kGround = 40;
constexpr std::uint8_t kNoColour = 128;

/// Rows from the top, the left pixel in bit 4.
using Glyph = std::array<std::uint8_t, kGlyphHeight>;

constexpr Glyph kLetters[] = {
    {0x00, 0x00, 0x0E, 0x01, 0x0F, 0x11, 0x0F},  // a
    {0x10, 0x10, 0x1E, 0x11, 0x11, 0x11, 0x1E},  // b
    {0x00, 0x00, 0x0E, 0x10, 0x10, 0x11, 0x0E},  // c
    {0x01, 0x01, 0x0F, 0x11, 0x11, 0x11, 0x0F},  // d
    {0x00, 0x00, 0x0E, 0x11, 0x1F, 0x10, 0x0E},  // e
    {0x06, 0x09, 0x08, 0x1C, 0x08, 0x08, 0x08},  // f
    {0x00, 0x0F, 0x11, 0x11, 0x0F, 0x01, 0x0E},  // g
    {0x10, 0x10, 0x16, 0x19, 0x11, 0x11, 0x11},  // h
    {0x04, 0x00, 0x0C, 0x04, 0x04, 0x04, 0x0E},  // i
    {0x02, 0x00, 0x06, 0x02, 0x02, 0x12, 0x0C},  // j
    {0x10, 0x10, 0x12, 0x14, 0x18, 0x14, 0x12},  // k
    {0x0C, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0E},  // l
    {0x00, 0x00, 0x1A, 0x15, 0x15, 0x11, 0x11},  // m
    {0x00, 0x00, 0x16, 0x19, 0x11, 0x11, 0x11},  // n
    {0x00, 0x00, 0x0E, 0x11, 0x11, 0x11, 0x0E},  // o
    {0x00, 0x00, 0x1E, 0x11, 0x1E, 0x10, 0x10},  // p
    {0x00, 0x00, 0x0D, 0x13, 0x0F, 0x01, 0x01},  // q
    {0x00, 0x00, 0x16, 0x19, 0x10, 0x10, 0x10},  // r
    {0x00, 0x00, 0x0E, 0x10, 0x0E, 0x01, 0x1E},  // s
    {0x08, 0x08, 0x1C, 0x08, 0x08, 0x09, 0x06},  // t
    {0x00, 0x00, 0x11, 0x11, 0x11, 0x13, 0x0D},  // u
    {0x00, 0x00, 0x11, 0x11, 0x11, 0x0A, 0x04},  // v
    {0x00, 0x00, 0x11, 0x11, 0x15, 0x15, 0x0A},  // w
    {0x00, 0x00, 0x11, 0x0A, 0x04, 0x0A, 0x11},  // x
    {0x00, 0x00, 0x11, 0x11, 0x0F, 0x01, 0x0E},  // y
    {0x00, 0x00, 0x1F, 0x02, 0x04, 0x08, 0x1F},  // z
};
static_assert(std::size(kLetters) == 'z' - 'a' + 1);

class Canvas {
 public:
  Canvas(std::uint32_t width, std::uint32_t height)
      : width_(width), height_(height), bytes_(std::size_t{2} * width * height) {
    for (std::size_t at = 0; at < bytes_.size(); at += 2) {
      bytes_[at] = kGround;
      bytes_[at + 1] = kNoColour;
    }
  }

  void FillSquare(std::uint32_t left, std::uint32_t top, std::uint32_t side) {
    for (std::uint32_t y = top; y < std::min(top + side, height_); ++y) {
      for (std::uint32_t x = left; x < std::min(left + side, width_); ++x) {
        bytes_[std::size_t{2} * (std::size_t{y} * width_ + x)] = kInk;
      }
    }
  }

  void DrawLetter(char letter, std::uint32_t left, std::uint32_t top, std::uint32_t scale) {
    if (letter < 'a' || letter > 'z') return;
    const Glyph& glyph = kLetters[letter - 'a'];
    for (std::uint32_t row = 0; row < kGlyphHeight; ++row) {
      for (std::uint32_t column = 0; column < kGlyphWidth; ++column) {
        if ((glyph[row] >> (kGlyphWidth - 1 - column) & 1) == 0) continue;
        FillSquare(left + column * scale, top + row * scale, scale);
      }
    }
  }

  std::vector<std::uint8_t> Take() { return std::move(bytes_); }

 private:
  const std::uint32_t width_;
  const std::uint32_t height_;
  std::vector<std::uint8_t> bytes_;
};

}  // namespace

std::vector<std::uint8_t> DrawNotice(std::uint32_t width, std::uint32_t height,
                                     std::string_view text) {
  Canvas canvas(width, height);
  // With a letter's width of margin on each side.
  const auto columns = static_cast<std::uint32_t>((text.size() + 2) * kAdvance);
  const std::uint32_t scale = std::max(1U, width / columns);
  const auto textWidth = static_cast<std::uint32_t>(text.size()) * kAdvance * scale;
  std::uint32_t left = width > textWidth ? (width - textWidth) / 2 : 0;
  const std::uint32_t textHeight = kGlyphHeight * scale;
  const std::uint32_t top = height > textHeight ? (height - textHeight) / 2 : 0;
  for (const char letter : text) {
    canvas.DrawLetter(letter, left, top, scale);
    left += kAdvance * scale;
  }
  return canvas.Take();
}

}  // namespace lidcam::integrations
