#include "camera_model/optics/line_filter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "base/split_mix.h"

namespace lidcam::camera_model {
namespace {

using Line = std::vector<std::uint8_t>;

Line RandomLine(std::size_t width, std::uint64_t seed) {
  auto numbers = base::SplitMix::Behind(seed);
  Line line(width);
  for (std::uint8_t& luma : line) luma = static_cast<std::uint8_t>(numbers.Next() >> 56);
  return line;
}

// The reference: one sample after the other, in whole numbers of any size.
Line FilteredBySamples(const LineFilter& filter, const Line& luma) {
  Line out(luma.size());
  for (std::size_t x = 0; x < luma.size(); ++x) {
    const int left = luma[x == 0 ? 0 : x - 1];
    const int here = luma[x];
    const int right = luma[x + 1 == luma.size() ? x : x + 1];
    int value = here + (2 * here - left - right) * filter.Amount / 16;
    if (filter.Kind == LineFilterKind::Relief) value = 128 + (right - left) * 2;
    if (filter.Kind == LineFilterKind::Sketch) value = 235 - std::abs(right - left) * 4;
    out[x] = static_cast<std::uint8_t>(std::clamp(value, 0, 255));
  }
  return out;
}

Line Filtered(const LineFilter& filter, const Line& luma) {
  Line out(luma.size());
  FilterLine(filter, luma, out);
  return out;
}

TEST(LineFilter, SharpensByAnyAmountAsTheReferenceDoes) {
  for (int amount = 0; amount <= 63; ++amount) {
    const LineFilter filter{.Amount = amount};
    for (const std::size_t width : {1U, 2U, 3U, 16U, 17U, 31U, 32U, 33U, 638U, 640U}) {
      const Line line = RandomLine(width, width);
      ASSERT_EQ(Filtered(filter, line), FilteredBySamples(filter, line)) << amount << ", " << width;
    }
    // The largest differences of either sign.
    Line stripes(64);
    for (std::size_t x = 0; x < stripes.size(); ++x) stripes[x] = x % 2 == 0 ? 0 : 255;
    ASSERT_EQ(Filtered(filter, stripes), FilteredBySamples(filter, stripes)) << amount;
  }
}

TEST(LineFilter, MakesReliefAndSketchAsTheReferenceDoes) {
  for (const LineFilterKind kind : {LineFilterKind::Relief, LineFilterKind::Sketch}) {
    const LineFilter filter{.Kind = kind};
    for (const std::size_t width : {1U, 2U, 3U, 17U, 33U, 640U}) {
      const Line line = RandomLine(width, width);
      ASSERT_EQ(Filtered(filter, line), FilteredBySamples(filter, line)) << width;
    }
  }
}

}  // namespace
}  // namespace lidcam::camera_model
