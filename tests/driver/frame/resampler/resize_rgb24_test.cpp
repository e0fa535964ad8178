#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "driver/frame/resampler/image_resampler.h"
#include "tests/driver/frame/resampler/support/literal_resize.h"

namespace lidcam {
namespace {

using Bytes = std::vector<std::uint8_t>;

ResizeStatus Resize(const Bytes& source, ImageSize size, ImageRegion region, Bytes& destination,
                    ImageSize to, std::int32_t interpolation) {
  return ResizeRgb24(source.data(), size, 3 * size.Width, region, destination.data(), 3 * to.Width,
                     to, static_cast<double>(to.Width) / region.Width,
                     static_cast<double>(to.Height) / region.Height, interpolation);
}

TEST(ResizeRgb24, ReproducesTheSourceAtTheSameSizeOddOnesToo) {
  for (const std::int32_t width : {1, 2, 3, 7, 16, 33}) {
    const Bytes source = RandomPicture(static_cast<std::size_t>(width) * 5 * 3, 1);
    Bytes destination(source.size(), kUntouched);
    ASSERT_EQ(Resize(source, {width, 5}, {0, 0, width, 5}, destination, {width, 5}, 2), 0);
    EXPECT_EQ(destination, source) << width;
  }
}

TEST(ResizeRgb24, BlendsTheThreeBytesOfAPixelAlike) {
  const Bytes source = {0, 10, 20, 80, 90, 100, 40, 50, 60, 120, 130, 140};
  Bytes destination(27, kUntouched);
  ASSERT_EQ(Resize(source, {2, 2}, {0, 0, 2, 2}, destination, {3, 3}, 2), 0);
  EXPECT_EQ(destination, (Bytes{0,  10, 20, 40, 50, 60,  80,  90,  100,  //
                                20, 30, 40, 60, 70, 80,  100, 110, 120,  //
                                40, 50, 60, 80, 90, 100, 120, 130, 140}));
}

TEST(ResizeRgb24, StartsARegionAtItsPixels) {
  const Bytes source = RandomPicture(std::size_t{9} * 6 * 3, 2);
  Bytes destination(std::size_t{3} * 2 * 3, kUntouched);
  ASSERT_EQ(Resize(source, {9, 6}, {5, 3, 3, 2}, destination, {3, 2}, 2), 0);
  for (std::size_t row = 0; row < 2; ++row) {
    for (std::size_t byte = 0; byte < 9; ++byte) {
      EXPECT_EQ(destination[row * 9 + byte], source[(row + 3) * 27 + 15 + byte]);
    }
  }
}

TEST(ResizeRgb24, BlendsTheLastColumnAndRowOfARegionOfOnePixel) {
  const Bytes source = RandomPicture(std::size_t{9} * 6 * 3, 3);
  Bytes destination(3, kUntouched);
  ASSERT_EQ(Resize(source, {9, 6}, {8, 5, 1, 1}, destination, {1, 1}, 2), 0);
  EXPECT_EQ(destination, Bytes(source.end() - 3, source.end()));
}

TEST(ResizeRgb24, CutsARegionThatSticksOutOfTheSource) {
  const Bytes source = RandomPicture(std::size_t{9} * 6 * 3, 4);
  Bytes exact(std::size_t{8} * 8 * 3, kUntouched);
  Bytes cut = exact;
  const auto resize = [&source](Bytes& destination, ImageRegion region) {
    return ResizeRgb24(source.data(), {9, 6}, 27, region, destination.data(), 24, {8, 8}, 2.0, 2.0,
                       2);
  };
  EXPECT_EQ(resize(exact, {5, 2, 4, 4}), 0);
  EXPECT_EQ(resize(cut, {5, 2, 2147483647, 2147483647}), 0);
  EXPECT_EQ(cut, exact);
}

TEST(ResizeRgb24, TakesTheNearestPixelForCode1AndForSourcesOfOneRowOrColumn) {
  const Bytes source = {1, 2, 3, 4, 5, 6};
  Bytes destination(12, kUntouched);
  ASSERT_EQ(Resize(source, {2, 1}, {0, 0, 2, 1}, destination, {4, 1}, 2), 0);
  EXPECT_EQ(destination, (Bytes{1, 2, 3, 1, 2, 3, 4, 5, 6, 4, 5, 6}));
  const Bytes square = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  Bytes nearest(std::size_t{4} * 2 * 3, kUntouched);
  ASSERT_EQ(Resize(square, {2, 2}, {0, 0, 2, 2}, nearest, {4, 2}, 1), 0);
  EXPECT_EQ(nearest, (Bytes{1, 2, 3, 1, 2, 3, 4,  5,  6,  4,  5,  6,  //
                            7, 8, 9, 7, 8, 9, 10, 11, 12, 10, 11, 12}));
}

// A region of half a pixel rounds up to one: its last, and not the one behind it.
TEST(ResizeRgb24, TakesTheNearestPixelNoFurtherThanARegionsLastRowAndColumn) {
  const Bytes source = RandomPicture(std::size_t{8} * 8 * 3, 6);
  Bytes destination(3, kUntouched);
  ASSERT_EQ(ResizeRgb24(source.data(), {8, 8}, 24, {4, 4, 4, 4}, destination.data(), 3, {1, 1},
                        0.125, 0.125, 1),
            0);
  EXPECT_EQ(destination, Bytes(source.end() - 3, source.end()));
}

TEST(ResizeRgb24, WritesWithinItsRowsWhateverTheirStep) {
  const Bytes source = RandomPicture(std::size_t{8} * 4 * 3, 5);
  for (const std::int32_t step : {1, 5, 12, 15}) {
    Bytes destination(static_cast<std::size_t>(step) * 2 + 16, kUntouched);
    ASSERT_EQ(ResizeRgb24(source.data(), {8, 4}, 24, {0, 0, 8, 4}, destination.data(), step, {4, 2},
                          0.5, 0.5, 2),
              0);
    for (std::size_t at = static_cast<std::size_t>(step) * 2; at < destination.size(); ++at) {
      EXPECT_EQ(destination[at], kUntouched) << step;
    }
  }
}

}  // namespace
}  // namespace lidcam
