#include "apps/lidcam/output/pipeline/picture_stamp.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <ctime>

namespace lidcam::app {
namespace {

constexpr int kGlyphWidth = 5;
constexpr int kGlyphHeight = 7;
constexpr int kPixelsPerDot = 320;  // of the picture's width

constexpr std::uint8_t kInk = 235;
constexpr std::uint8_t kGround = 16;
constexpr std::uint8_t kNoColour = 128;

struct Glyph {
  char Letter;
  std::array<std::uint8_t, kGlyphHeight> Rows;  // the left dot is bit 4
};

constexpr std::array kGlyphs = {
    Glyph{'0', {0b01110, 0b10001, 0b10011, 0b10101, 0b11001, 0b10001, 0b01110}},
    Glyph{'1', {0b00100, 0b01100, 0b00100, 0b00100, 0b00100, 0b00100, 0b01110}},
    Glyph{'2', {0b01110, 0b10001, 0b00001, 0b00010, 0b00100, 0b01000, 0b11111}},
    Glyph{'3', {0b11111, 0b00010, 0b00100, 0b00010, 0b00001, 0b10001, 0b01110}},
    Glyph{'4', {0b00010, 0b00110, 0b01010, 0b10010, 0b11111, 0b00010, 0b00010}},
    Glyph{'5', {0b11111, 0b10000, 0b11110, 0b00001, 0b00001, 0b10001, 0b01110}},
    Glyph{'6', {0b00110, 0b01000, 0b10000, 0b11110, 0b10001, 0b10001, 0b01110}},
    Glyph{'7', {0b11111, 0b00001, 0b00010, 0b00100, 0b01000, 0b01000, 0b01000}},
    Glyph{'8', {0b01110, 0b10001, 0b10001, 0b01110, 0b10001, 0b10001, 0b01110}},
    Glyph{'9', {0b01110, 0b10001, 0b10001, 0b01111, 0b00001, 0b00010, 0b01100}},
    Glyph{':', {0b00000, 0b00100, 0b00100, 0b00000, 0b00100, 0b00100, 0b00000}},
    Glyph{'.', {0b00000, 0b00000, 0b00000, 0b00000, 0b00000, 0b01100, 0b01100}},
    Glyph{'-', {0b00000, 0b00000, 0b00000, 0b11111, 0b00000, 0b00000, 0b00000}},
    Glyph{'#', {0b01010, 0b01010, 0b11111, 0b01010, 0b11111, 0b01010, 0b01010}},
};

bool HasDot(char letter, int row, int column) {
  if (row < 0 || row >= kGlyphHeight || column < 0 || column >= kGlyphWidth) return false;
  const auto* const glyph = std::ranges::find(kGlyphs, letter, &Glyph::Letter);
  return glyph != kGlyphs.end() &&
         (glyph->Rows[static_cast<std::size_t>(row)] >> (kGlyphWidth - 1 - column) & 1) != 0;
}

// A dot's space lies around each letter, and around the block.
bool IsInk(std::span<const std::string> lines, int x, int y) {
  constexpr int kCellWidth = kGlyphWidth + 1;
  constexpr int kCellHeight = kGlyphHeight + 2;
  const auto line = static_cast<std::size_t>((y - 1) / kCellHeight);
  const auto at = static_cast<std::size_t>((x - 1) / kCellWidth);
  if (x < 1 || y < 1 || line >= lines.size() || at >= lines[line].size()) return false;
  return HasDot(lines[line][at], (y - 1) % kCellHeight, (x - 1) % kCellWidth);
}

int LongestOf(std::span<const std::string> lines) {
  std::size_t longest = 0;
  for (const std::string& line : lines) longest = std::max(longest, line.size());
  return static_cast<int>(longest);
}

}  // namespace

void DrawStamp(std::span<std::uint8_t> yuy2, PictureSize size, std::span<const std::string> lines) {
  const int dot = std::max(1, size.Width / kPixelsPerDot);
  const int width =
      std::min(size.Width, (LongestOf(lines) * (kGlyphWidth + 1) + 1) * dot + dot) & ~1;
  const int height =
      std::min(size.Height, (static_cast<int>(lines.size()) * (kGlyphHeight + 2) + 1) * dot);
  for (int y = 0; y < height; ++y) {
    std::uint8_t* const row = yuy2.data() + static_cast<std::size_t>(size.Height - height + y) * 2 *
                                                static_cast<std::size_t>(size.Width);
    for (int x = 0; x < width; ++x) {
      row[2 * x] = IsInk(lines, x / dot, y / dot) ? kInk : kGround;
      row[2 * x + 1] = kNoColour;
    }
  }
}

void StampedOutput::Write(const OutputFrame& frame) {
  if (tellsDate_ && !start_) {
    start_ = std::chrono::system_clock::now() -
             std::chrono::duration_cast<std::chrono::system_clock::duration>(frame.Time);
  }
  picture_.assign(frame.Yuy2.begin(), frame.Yuy2.end());
  const std::array<std::string, 2> lines = {TimeText(frame.Time),
                                            "#" + std::to_string(frame.Number)};
  DrawStamp(picture_, size_, lines);
  OutputFrame stamped = frame;
  stamped.Yuy2 = picture_;
  next_->Write(stamped);
}

std::string StampedOutput::TimeText(std::chrono::microseconds time) const {
  if (start_) {
    return DateText(*start_ +
                    std::chrono::duration_cast<std::chrono::system_clock::duration>(time));
  }
  constexpr std::int64_t kMinute = 60'000;  // ms
  const std::int64_t milliseconds = time.count() / 1000;
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%" PRId64 ":%02" PRId64 ":%02" PRId64 ".%03" PRId64,
                milliseconds / (60 * kMinute), milliseconds / kMinute % 60,
                milliseconds / 1000 % 60, milliseconds % 1000);
  return text.data();
}

std::string DateText(std::chrono::system_clock::time_point time) {
  const std::time_t seconds =
      std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(time));
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(
      time - std::chrono::floor<std::chrono::seconds>(time));
  std::tm local{};
  localtime_r(&seconds, &local);
  std::array<char, 40> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
  std::snprintf(text.data() + length, text.size() - length, ".%03d",
                static_cast<int>(milliseconds.count()));
  return text.data();
}

}  // namespace lidcam::app
