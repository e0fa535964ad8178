#include "camera_model/scene/test_card.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <string>
#include <string_view>

namespace lidcam::camera_model {

void RgbImage::Resize(std::uint32_t width, std::uint32_t height) {
  Width = width;
  Height = height;
  Pixels.resize(std::size_t{width} * height * 3);
}

namespace {

struct Colour {
  std::uint8_t R = 0;
  std::uint8_t G = 0;
  std::uint8_t B = 0;
};

/// A part of the card, in thousandths of its width and height.
struct Area {
  int Left = 0;
  int Top = 0;
  int Right = 0;
  int Bottom = 0;
};

struct Rectangle {
  int Left = 0;
  int Top = 0;
  int Right = 0;
  int Bottom = 0;

  [[nodiscard]] int Width() const { return Right - Left; }
  [[nodiscard]] int Height() const { return Bottom - Top; }
};

constexpr std::uint8_t kBright = 138;
constexpr std::array<Colour, 8> kBars{{{kBright, kBright, kBright},
                                       {kBright, kBright, 0},
                                       {0, kBright, kBright},
                                       {0, kBright, 0},
                                       {kBright, 0, kBright},
                                       {kBright, 0, 0},
                                       {0, 0, kBright},
                                       {6, 6, 6}}};
constexpr Colour kGround{30, 34, 42};
constexpr Colour kInk{215, 215, 215};
constexpr Colour kBall{220, 130, 40};

constexpr Area kBarsArea{0, 0, 1000, 520};
constexpr Area kRampArea{0, 520, 1000, 620};
constexpr Area kZonePlateArea{0, 620, 220, 1000};
constexpr Area kCounterArea{260, 800, 740, 960};
constexpr Area kTrackArea{220, 640, 780, 780};
constexpr Area kUpArea{800, 660, 980, 960};

constexpr int kGlyphWidth = 5;
constexpr int kGlyphHeight = 7;
using Glyph = std::array<std::uint8_t, kGlyphHeight>;

constexpr std::array<Glyph, 10> kDigits{{
    {0b01110, 0b10001, 0b10011, 0b10101, 0b11001, 0b10001, 0b01110},
    {0b00100, 0b01100, 0b00100, 0b00100, 0b00100, 0b00100, 0b01110},
    {0b01110, 0b10001, 0b00001, 0b00110, 0b01000, 0b10000, 0b11111},
    {0b11111, 0b00010, 0b00100, 0b00010, 0b00001, 0b10001, 0b01110},
    {0b00010, 0b00110, 0b01010, 0b10010, 0b11111, 0b00010, 0b00010},
    {0b11111, 0b10000, 0b11110, 0b00001, 0b00001, 0b10001, 0b01110},
    {0b00110, 0b01000, 0b10000, 0b11110, 0b10001, 0b10001, 0b01110},
    {0b11111, 0b00001, 0b00010, 0b00100, 0b01000, 0b01000, 0b01000},
    {0b01110, 0b10001, 0b10001, 0b01110, 0b10001, 0b10001, 0b01110},
    {0b01110, 0b10001, 0b10001, 0b01111, 0b00001, 0b00010, 0b01100},
}};
constexpr Glyph kLetterU{0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b01110};
constexpr Glyph kLetterP{0b11110, 0b10001, 0b10001, 0b11110, 0b10000, 0b10000, 0b10000};
constexpr Glyph kArrowUp{0b00100, 0b01110, 0b11111, 0b00100, 0b00100, 0b00100, 0b00100};

Rectangle Place(const Area& area, const RgbImage& image) {
  const auto x = [&image](int part) { return part * static_cast<int>(image.Width) / 1000; };
  const auto y = [&image](int part) { return part * static_cast<int>(image.Height) / 1000; };
  return {x(area.Left), y(area.Top), x(area.Right), y(area.Bottom)};
}

void PutPixel(RgbImage& image, int x, int y, Colour colour) {
  std::uint8_t* pixel = image.Row(static_cast<std::uint32_t>(y)) + 3 * x;
  pixel[0] = colour.R;
  pixel[1] = colour.G;
  pixel[2] = colour.B;
}

template <typename ColourAt>
void Paint(RgbImage& image, const Rectangle& at, const ColourAt& colourAt) {
  for (int y = at.Top; y < at.Bottom; ++y) {
    for (int x = at.Left; x < at.Right; ++x)
      PutPixel(image, x, y, colourAt(x - at.Left, y - at.Top));
  }
}

void DrawGlyph(RgbImage& image, const Glyph& glyph, const Rectangle& at, Colour ink) {
  for (int y = at.Top; y < at.Bottom; ++y) {
    const int row = (y - at.Top) * kGlyphHeight / at.Height();
    for (int x = at.Left; x < at.Right; ++x) {
      const int column = (x - at.Left) * kGlyphWidth / at.Width();
      const bool isInk =
          (glyph[static_cast<std::size_t>(row)] >> (kGlyphWidth - 1 - column) & 1) != 0;
      if (isInk) PutPixel(image, x, y, ink);
    }
  }
}

Colour Grey(double value) {
  const auto level = static_cast<std::uint8_t>(std::clamp(std::lround(value), 0L, 255L));
  return {level, level, level};
}

void DrawZonePlate(RgbImage& image, const Rectangle& at) {
  const double span = std::max(at.Width(), at.Height());
  Paint(image, at, [&](int x, int y) {
    const double dx = x - at.Width() / 2.0;
    const double dy = y - at.Height() / 2.0;
    return Grey(72 + 54 * std::cos((dx * dx + dy * dy) * std::numbers::pi * 0.8 / span));
  });
}

void DrawCounter(RgbImage& image, std::uint64_t frame) {
  constexpr int kPlaces = 6;
  std::string text = std::to_string(frame % 1'000'000);
  text.insert(0, kPlaces - text.size(), '0');
  const Rectangle area = Place(kCounterArea, image);
  for (int place = 0; place < kPlaces; ++place) {
    const int left = area.Left + place * area.Width() / kPlaces;
    const int right = area.Left + (place + 1) * area.Width() / kPlaces;
    const auto digit = static_cast<std::size_t>(text[static_cast<std::size_t>(place)] - '0');
    DrawGlyph(image, kDigits[digit], {left, area.Top, right - (right - left) / 5, area.Bottom},
              kInk);
  }
}

void DrawBall(RgbImage& image, std::uint64_t frame) {
  constexpr std::uint64_t kFramesForTheTrack = 120;
  const Rectangle track = Place(kTrackArea, image);
  const int radius = track.Height() / 2;
  const int way = track.Width() - 2 * radius;
  const int step = static_cast<int>(frame % kFramesForTheTrack);
  const int centre = track.Left + radius + way * step / static_cast<int>(kFramesForTheTrack);
  const int middle = track.Top + radius;
  for (int y = track.Top; y < track.Bottom; ++y) {
    for (int x = centre - radius; x < centre + radius; ++x) {
      const int dx = x - centre;
      const int dy = y - middle;
      if (dx * dx + dy * dy < radius * radius) PutPixel(image, x, y, kBall);
    }
  }
}

void DrawUp(RgbImage& image) {
  const Rectangle area = Place(kUpArea, image);
  const int half = area.Top + area.Height() / 2;
  const int middle = area.Left + area.Width() / 2;
  const int gap = area.Width() / 12;
  DrawGlyph(image, kArrowUp,
            {area.Left + area.Width() / 4, area.Top, area.Right - area.Width() / 4, half - gap},
            kInk);
  DrawGlyph(image, kLetterU, {area.Left, half, middle - gap, area.Bottom}, kInk);
  DrawGlyph(image, kLetterP, {middle + gap, half, area.Right, area.Bottom}, kInk);
}

}  // namespace

void TestCard::DrawBackground(std::uint32_t width, std::uint32_t height) {
  background_.Resize(width, height);
  Paint(background_, Place({0, 0, 1000, 1000}, background_), [](int, int) { return kGround; });
  const Rectangle bars = Place(kBarsArea, background_);
  Paint(background_, bars,
        [&bars](int x, int) { return kBars[static_cast<std::size_t>(x * 8 / bars.Width())]; });
  const Rectangle ramp = Place(kRampArea, background_);
  Paint(background_, ramp, [&ramp](int x, int) { return Grey(230.0 * x / (ramp.Width() - 1)); });
  DrawZonePlate(background_, Place(kZonePlateArea, background_));
  DrawUp(background_);
}

void TestCard::Render(std::uint64_t frame, RgbImage& image) {
  if (background_.Width != image.Width || background_.Height != image.Height) {
    DrawBackground(image.Width, image.Height);
  }
  image.Pixels = background_.Pixels;
  DrawBall(image, frame);
  DrawCounter(image, frame);
}

}  // namespace lidcam::camera_model
