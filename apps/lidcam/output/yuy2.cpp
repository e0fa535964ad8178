#include "apps/lidcam/output/yuy2.h"

#include <algorithm>
#include <cstddef>

namespace lidcam::app {
namespace {

std::uint8_t Clamp(int value) {
  return static_cast<std::uint8_t>(std::clamp(value, 0, 255));
}

// BT.601 studio range in 8 fraction bits.
void AppendRgb(int luma, int u, int v, std::vector<std::uint8_t>& rgb) {
  const int c = 298 * (luma - 16) + 128;
  const int d = u - 128;
  const int e = v - 128;
  rgb.push_back(Clamp((c + 409 * e) >> 8));
  rgb.push_back(Clamp((c - 100 * d - 208 * e) >> 8));
  rgb.push_back(Clamp((c + 516 * d) >> 8));
}

}  // namespace

void SeparatePlanes(std::span<const std::uint8_t> yuy2, PictureSize size,
                    std::vector<std::uint8_t>& planar) {
  const std::size_t pixels = size.Yuy2Bytes() / 2;
  planar.resize(pixels * 2);
  // One loop for each stride: the compiler makes vectors of them.
  const std::uint8_t* const packed = yuy2.data();
  std::uint8_t* __restrict const y = planar.data();
  for (std::size_t pixel = 0; pixel < pixels; ++pixel) y[pixel] = packed[2 * pixel];
  std::uint8_t* __restrict const u = y + pixels;
  std::uint8_t* __restrict const v = u + pixels / 2;
  for (std::size_t pair = 0; pair < pixels / 2; ++pair) {
    u[pair] = packed[4 * pair + 1];
    v[pair] = packed[4 * pair + 3];
  }
}

void ConvertToRgb(std::span<const std::uint8_t> yuy2, PictureSize size,
                  std::vector<std::uint8_t>& rgb) {
  rgb.clear();
  rgb.reserve(size.Yuy2Bytes() / 2 * 3);
  for (std::size_t at = 0; at + 3 < size.Yuy2Bytes(); at += 4) {
    AppendRgb(yuy2[at], yuy2[at + 1], yuy2[at + 3], rgb);
    AppendRgb(yuy2[at + 2], yuy2[at + 1], yuy2[at + 3], rgb);
  }
}

}  // namespace lidcam::app
