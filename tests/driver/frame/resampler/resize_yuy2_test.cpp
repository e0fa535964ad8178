#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "driver/frame/resampler/image_resampler.h"
#include "tests/driver/frame/resampler/support/literal_resize.h"

namespace lidcam {
namespace {

ResizeStatus Resize(const ResizeArguments& a) {
  return ResizeYuy2(a.Source, a.SourceSize, a.SourceStep, a.Region, a.Destination,
                    a.DestinationStep, a.DestinationSize, a.XFactor, a.YFactor, a.Interpolation);
}

struct Picture {
  ImageSize Size;
  std::vector<std::uint8_t> Bytes;

  [[nodiscard]] std::uint8_t Luma(std::int32_t x, std::int32_t y) const { return At(y, 2 * x); }
  [[nodiscard]] std::uint8_t U(std::int32_t pair, std::int32_t y) const {
    return At(y, 4 * pair + 1);
  }
  [[nodiscard]] std::uint8_t V(std::int32_t pair, std::int32_t y) const {
    return At(y, 4 * pair + 3);
  }

 private:
  [[nodiscard]] std::uint8_t At(std::int32_t row, std::int32_t byte) const {
    return Bytes.at(static_cast<std::size_t>(row * Size.Width * 2 + byte));
  }
};

Picture RandomYuy2(std::int32_t width, std::int32_t height, std::uint32_t seed) {
  return {{width, height}, RandomPicture(static_cast<std::size_t>(width * height * 2), seed)};
}

Picture Scaled(const Picture& source, std::int32_t width, std::int32_t height) {
  Picture result{{width, height},
                 std::vector<std::uint8_t>(static_cast<std::size_t>(width * height * 2))};
  EXPECT_EQ(ResampleFrame(result.Bytes.data(), source.Bytes.data(), source.Size.Width,
                          source.Size.Height, width, height, 1),
            1U);
  return result;
}

TEST(ResizeYuy2, ReproducesTheSourceAtTheSameSize) {
  for (const ImageSize size : {ImageSize{4, 2}, {6, 3}, {160, 120}, {320, 240}, {640, 480}}) {
    const Picture source = RandomYuy2(size.Width, size.Height, 1);
    EXPECT_EQ(Scaled(source, size.Width, size.Height).Bytes, source.Bytes) << size.Width;
  }
}

TEST(ResizeYuy2, CopiesTheFirstAndLastColumnOfTheSourceExactly) {
  const Picture source = RandomYuy2(640, 480, 2);
  const Picture scaled = Scaled(source, 352, 480);
  for (std::int32_t y = 0; y < 480; ++y) {
    ASSERT_EQ(scaled.Luma(0, y), source.Luma(0, y));
    ASSERT_EQ(scaled.U(0, y), source.U(0, y));
    ASSERT_EQ(scaled.V(0, y), source.V(0, y));
    ASSERT_EQ(scaled.Luma(351, y), source.Luma(639, y));
    ASSERT_EQ(scaled.U(175, y), source.U(319, y));
    ASSERT_EQ(scaled.V(175, y), source.V(319, y));
  }
}

TEST(ResizeYuy2, CopiesTheFirstAndLastRowOfTheSourceExactly) {
  const Picture source = RandomYuy2(640, 480, 3);
  const Picture scaled = Scaled(source, 640, 288);
  for (std::int32_t x = 0; x < 640; ++x) {
    ASSERT_EQ(scaled.Luma(x, 0), source.Luma(x, 0));
    ASSERT_EQ(scaled.Luma(x, 287), source.Luma(x, 479));
  }
}

TEST(ResizeYuy2, CopiesTheCornersOfA640By480FrameInto352By288) {
  const Picture source = RandomYuy2(640, 480, 4);
  const Picture scaled = Scaled(source, 352, 288);
  EXPECT_EQ(scaled.Luma(0, 0), source.Luma(0, 0));
  EXPECT_EQ(scaled.Luma(351, 0), source.Luma(639, 0));
  EXPECT_EQ(scaled.Luma(0, 287), source.Luma(0, 479));
  EXPECT_EQ(scaled.Luma(351, 287), source.Luma(639, 479));
  EXPECT_EQ(scaled.V(175, 287), source.V(319, 479));
}

// Luma 0 to 3 and chroma 0 to 1 over the width: the two grids have steps of their own, 3/7 and 1/3.
TEST(ResizeYuy2, ScalesChromaOnAGridOfItsOwn) {
  Picture source{{4, 2}, {0, 0, 70, 0, 140, 210, 210, 210, 0, 0, 70, 0, 140, 210, 210, 210}};
  const Picture scaled = Scaled(source, 8, 2);
  for (std::int32_t x = 0; x < 8; ++x) EXPECT_EQ(scaled.Luma(x, 0), 30 * x) << x;
  for (std::int32_t pair = 0; pair < 4; ++pair) EXPECT_EQ(scaled.U(pair, 0), 70 * pair) << pair;
}

// 0 1 over 0 0: a quarter is 0, but a half rounded up and then halved again would be 1.
TEST(ResizeYuy2, KeepsFourteenBitsBetweenThePasses) {
  const std::vector<std::uint8_t> source = {0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  std::vector<std::uint8_t> destination(12 * 3, kUntouched);
  ASSERT_EQ(ResizeYuy2(source.data(), {4, 2}, 8, {0, 0, 4, 2}, destination.data(), 12, {6, 3}, 1.75,
                       1.5, 2),
            0);
  EXPECT_EQ(destination[2], 1);       // half way along the row: a half, rounded up
  EXPECT_EQ(destination[12 + 2], 0);  // half way down from there
  EXPECT_EQ(destination[24 + 2], 0);
}

TEST(ResizeYuy2, CutsARegionThatSticksOutOfTheSource) {
  const Picture source = RandomYuy2(16, 8, 5);
  std::vector<std::uint8_t> exact(std::size_t{24} * 12 * 2, kUntouched);
  std::vector<std::uint8_t> cut = exact;
  const auto resize = [&source](std::vector<std::uint8_t>& destination, std::int32_t width,
                                std::int32_t height) {
    return ResizeYuy2(source.Bytes.data(), {16, 8}, 32, {0, 2, width, height}, destination.data(),
                      48, {24, 12}, 1.5, 1.5, 2);
  };
  EXPECT_EQ(resize(exact, 16, 6), 0);
  EXPECT_EQ(resize(cut, 2147483646, 2147483647), 0);
  EXPECT_EQ(cut, exact);
  EXPECT_NE(exact[0], kUntouched);
}

// Four bytes a column where a pixel has two.
TEST(ResizeYuy2, StartsARegionTwiceAsFarRightAsItsPixels) {
  const Picture source = RandomYuy2(16, 8, 6);
  std::vector<std::uint8_t> destination(8, kUntouched);
  ASSERT_EQ(ResizeYuy2(source.Bytes.data(), {16, 8}, 32, {2, 3, 4, 1}, destination.data(), 8,
                       {4, 1}, 1.0, 1.0, 2),
            0);
  const auto start = source.Bytes.begin() + 3 * 32 + 2 * 4;
  EXPECT_EQ(destination, std::vector<std::uint8_t>(start, start + 8));
}

// The start of region column 12 of 16 lies 48 bytes into a row of 32: of the last row nothing is
// left but the nearest byte.
TEST(ResizeYuy2, ReadsTheLastByteInPlaceOfThoseBehindTheSource) {
  const Picture source = RandomYuy2(16, 8, 7);
  std::vector<std::uint8_t> destination(16, kUntouched);
  ASSERT_EQ(ResizeYuy2(source.Bytes.data(), {16, 8}, 32, {12, 6, 4, 2}, destination.data(), 8,
                       {4, 2}, 1.0, 1.0, 2),
            0);
  const auto seen = source.Bytes.begin() + 7 * 32 + 16;
  EXPECT_EQ(std::vector<std::uint8_t>(destination.begin(), destination.begin() + 8),
            std::vector<std::uint8_t>(seen, seen + 8));
  EXPECT_EQ(std::vector<std::uint8_t>(destination.begin() + 8, destination.end()),
            std::vector<std::uint8_t>(8, source.Bytes.back()));
}

TEST(ResizeYuy2, WritesTheSizeThatTheFactorsAskForIfThatIsLess) {
  const Picture source{{16, 8}, std::vector<std::uint8_t>(256, 0x33)};
  std::vector<std::uint8_t> destination(std::size_t{64} * 20, kUntouched);
  ASSERT_EQ(ResizeYuy2(source.Bytes.data(), {16, 8}, 32, {0, 0, 16, 8}, destination.data(), 64,
                       {32, 20}, 0.7, 0.7, 2),
            0);
  // 11.2 by 5.6: five pairs and five rows.
  for (std::size_t at = 0; at < destination.size(); ++at) {
    const bool isWritten = at % 64 < 20 && at / 64 < 5;
    ASSERT_EQ(destination[at] == kUntouched, !isWritten) << at;
  }
}

struct SizeCase {
  double Scaled;
  int Status;
  std::size_t Samples;
};

TEST(ResizeYuy2, RoundsAWidthUpToAPairFromOneAndAHalf) {
  for (const SizeCase& size : {SizeCase{1.4, -201, 0},
                               {1.49999, -201, 0},
                               {1.5, 0, 2},
                               {1.9, 0, 2},
                               {2.0, 0, 2},
                               {3.9, 0, 2},
                               {4.0, 0, 4}}) {
    const Picture source = RandomYuy2(16, 8, 9);
    std::vector<std::uint8_t> destination(64, kUntouched);
    EXPECT_EQ(ResizeYuy2(source.Bytes.data(), {16, 8}, 32, {0, 0, 16, 8}, destination.data(), 64,
                         {32, 1}, size.Scaled / 16, 1.0, 2),
              size.Status)
        << size.Scaled;
    for (std::size_t at = 2 * size.Samples; at < 64; ++at) {
      EXPECT_EQ(destination[at], kUntouched) << size.Scaled;
    }
    EXPECT_EQ(destination[0], size.Status == 0 ? source.Bytes[0] : kUntouched) << size.Scaled;
  }
}

TEST(ResizeYuy2, RoundsAHeightUpToOneFromAHalf) {
  for (const SizeCase& size : {SizeCase{0.4, -201, 0},
                               {0.49999, -201, 0},
                               {0.5, 0, 1},
                               {0.9, 0, 1},
                               {1.0, 0, 1},
                               {1.9, 0, 1},
                               {2.0, 0, 2}}) {
    const Picture source = RandomYuy2(16, 8, 10);
    std::vector<std::uint8_t> destination(32 * 8, kUntouched);
    EXPECT_EQ(ResizeYuy2(source.Bytes.data(), {16, 8}, 32, {0, 0, 16, 8}, destination.data(), 32,
                         {16, 8}, 1.0, size.Scaled / 8, 2),
              size.Status)
        << size.Scaled;
    for (std::size_t at = 32 * size.Samples; at < destination.size(); ++at) {
      EXPECT_EQ(destination[at], kUntouched) << size.Scaled;
    }
  }
}

TEST(ResizeYuy2, TakesTheNearestSampleOfSourcesUnderFourByTwo) {
  const std::vector<std::uint8_t> source = {10, 20, 30, 40};
  std::vector<std::uint8_t> destination(16, kUntouched);
  ASSERT_EQ(ResizeYuy2(source.data(), {2, 1}, 4, {0, 0, 2, 1}, destination.data(), 8, {4, 2}, 2.0,
                       2.0, 2),
            0);
  EXPECT_EQ(destination, (std::vector<std::uint8_t>{10, 20, 10, 40, 30, 20, 30, 40,  //
                                                    10, 20, 10, 40, 30, 20, 30, 40}));
}

// A region of one and a half samples rounds up to two: the second is the region's last column and not
// the one behind it.
TEST(ResizeYuy2, TakesTheNearestSampleNoFurtherThanARegionsLastRowAndColumn) {
  const std::vector<std::uint8_t> source = RandomPicture(std::size_t{32} * 8, 14);
  std::vector<std::uint8_t> destination(4, kUntouched);
  ASSERT_EQ(ResizeYuy2(source.data(), {8, 8}, 32, {4, 4, 4, 4}, destination.data(), 4, {2, 1},
                       0.375, 0.125, 1),
            0);
  const std::uint8_t* const row = source.data() + 7 * 32 + 4 * 4;
  EXPECT_EQ(destination, (std::vector<std::uint8_t>{row[2], row[5], row[6], row[7]}));
}

// Codes 4 and 8 select filters that no frame needs.
TEST(ResizeYuy2, ScalesCodes4And8LinearlyAndCode1ByNearestNeighbour) {
  const Picture source = RandomYuy2(16, 8, 11);
  const auto result = [&source](std::int32_t code) {
    std::vector<std::uint8_t> destination(48 * 12, kUntouched);
    EXPECT_EQ(ResizeYuy2(source.Bytes.data(), {16, 8}, 32, {0, 0, 16, 8}, destination.data(), 48,
                         {24, 12}, 1.5, 1.5, code),
              0);
    return destination;
  };
  EXPECT_EQ(result(4), result(2));
  EXPECT_EQ(result(8), result(2));
  EXPECT_NE(result(1), result(2));
}

// Rows that overlap in the destination leave what the last writer of each byte wrote.
TEST(ResizeYuy2, CutsRowsToANarrowDestinationStep) {
  const Picture source = RandomYuy2(16, 8, 12);
  const Picture whole = Scaled(source, 24, 12);
  std::vector<std::uint8_t> destination(21 * 12 + 48, kUntouched);
  ASSERT_EQ(ResizeYuy2(source.Bytes.data(), {16, 8}, 32, {0, 0, 16, 8}, destination.data(), 21,
                       {24, 12}, 1.5, 1.5, 2),
            0);
  for (std::size_t at = 0; at < destination.size(); ++at) {
    const std::uint8_t expected = at < 21 * 12 ? whole.Bytes[at / 21 * 48 + at % 21] : kUntouched;
    ASSERT_EQ(destination[at], expected) << at;
  }
}

TEST(ResizeYuy2, ReadsNoFurtherThanTheRowsOfANarrowStep) {
  const Picture source = RandomYuy2(16, 4, 13);
  std::vector<std::uint8_t> packed(source.Bytes.begin(), source.Bytes.begin() + 4 * 20);
  std::vector<std::uint8_t> destination(32 * 4, kUntouched);
  ASSERT_EQ(ResizeYuy2(packed.data(), {16, 4}, 20, {0, 0, 16, 4}, destination.data(), 32, {16, 4},
                       1.0, 1.0, 2),
            0);
  for (std::size_t at = 0; at < destination.size(); ++at) {
    const std::size_t place = at / 32 * 20 + at % 32;
    ASSERT_EQ(destination[at], packed[std::min(place, packed.size() - 1)]) << at;
  }
}

TEST(ResizeYuy2, WorksInPlaceRowByRow) {
  Picture source = RandomYuy2(32, 16, 14);
  const Picture expected = Scaled(source, 32, 16);
  ASSERT_EQ(ResampleFrame(source.Bytes.data(), source.Bytes.data(), 32, 16, 32, 16, 1), 1U);
  EXPECT_EQ(source.Bytes, expected.Bytes);
}

std::string Described(const ResizeArguments& a) {
  std::ostringstream text;
  text << a.SourceSize.Width << "x" << a.SourceSize.Height << " step " << a.SourceStep << " region "
       << a.Region.X << "," << a.Region.Y << " " << a.Region.Width << "x" << a.Region.Height
       << " to " << a.DestinationSize.Width << "x" << a.DestinationSize.Height << " factors "
       << a.XFactor << "," << a.YFactor << " code " << a.Interpolation;
  return text.str();
}

// Runs both and compares the whole destination.
void ExpectLikeLiterally(ResizeArguments arguments) {
  const auto sourceBytes =
      static_cast<std::size_t>(std::max(1, arguments.SourceStep * arguments.SourceSize.Height));
  const std::vector<std::uint8_t> source =
      RandomPicture(sourceBytes, static_cast<std::uint32_t>(sourceBytes));
  std::vector<std::uint8_t> actual(
      static_cast<std::size_t>(arguments.DestinationStep * arguments.DestinationSize.Height + 8),
      kUntouched);
  std::vector<std::uint8_t> expected = actual;
  arguments.Source = source.data();
  arguments.Destination = actual.data();
  const ResizeStatus status = LiteralResizeYuy2(arguments, expected);
  ASSERT_EQ(Resize(arguments), status) << Described(arguments);
  ASSERT_EQ(actual, expected) << Described(arguments);
}

TEST(ResizeYuy2, IsLikeTheLiteralScaleForEverySizeUpTo24) {
  for (std::int32_t width = 1; width <= 24; ++width) {
    for (std::int32_t to = 1; to <= 24; ++to) {
      const std::int32_t height = 1 + (width * 7 + to) % 9;
      const std::int32_t toHeight = 1 + (width + to * 5) % 11;
      ExpectLikeLiterally({nullptr,
                           {width, height},
                           2 * width,
                           {0, 0, width, height},
                           nullptr,
                           2 * to,
                           {to, toHeight},
                           static_cast<double>(to) / width,
                           static_cast<double>(toHeight) / height,
                           2});
      if (HasFatalFailure()) return;
    }
  }
  for (std::int32_t height = 1; height <= 24; ++height) {
    for (std::int32_t to = 1; to <= 24; ++to) {
      ExpectLikeLiterally({nullptr,
                           {8, height},
                           16,
                           {0, 0, 8, height},
                           nullptr,
                           12,
                           {6, to},
                           6.0 / 8,
                           static_cast<double>(to) / height,
                           2});
      if (HasFatalFailure()) return;
    }
  }
}

// 20,000 calls with regions, padded rows, factors apart from the sizes and all interpolation codes.
TEST(ResizeYuy2, IsLikeTheLiteralScaleForRandomRegionsAndFactors) {
  std::mt19937 random(20090701);
  const auto below = [&random](std::int32_t bound) {
    return static_cast<std::int32_t>(random() % static_cast<std::uint32_t>(bound));
  };
  const auto factor = [&below] { return (1 + below(3000)) / 1000.0; };
  for (int call = 0; call < 20000; ++call) {
    const ImageSize size{2 + 2 * below(10), 1 + below(12)};
    const ImageSize to{2 + below(24), 1 + below(16)};
    const bool isWhole = below(2) == 0;
    ImageRegion region{0, 0, size.Width, size.Height};
    if (!isWhole) {
      region = {2 * below(size.Width / 2), below(size.Height), 2 + 2 * below(12), 1 + below(14)};
    }
    // The literal scale's rows end with their pixels.
    ExpectLikeLiterally({nullptr, size, 2 * size.Width + 4 * below(3), region, nullptr,
                         2 * to.Width + below(5), to, factor(), factor(), 1 << below(4)});
    if (HasFatalFailure()) return;
  }
}

}  // namespace
}  // namespace lidcam
