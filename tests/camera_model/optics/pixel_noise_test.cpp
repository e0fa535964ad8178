#include "camera_model/optics/pixel_noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "base/split_mix.h"

namespace lidcam::camera_model {
namespace {

LumaNoise EvenNoise(double deviation) {
  LumaNoise::Deviations deviations;
  deviations.fill(deviation);
  return LumaNoise{deviations};
}

std::vector<std::uint8_t> Sample(const LumaNoise& noise, std::uint8_t luma, std::uint64_t seed) {
  std::vector<std::uint8_t> line(60000, luma);
  noise.AddTo(line, seed);
  return line;
}

TEST(PixelNoise, ShotNoiseIsTheRootOfTheElectrons) {
  const PixelNoise noise{.LightOfElectron = 1.0 / 10000, .ReadVariance = 0};
  EXPECT_NEAR(std::sqrt(noise.Variance(1.0)) * 10000, 100, 1e-9);
  EXPECT_NEAR(std::sqrt(noise.Variance(0.25)) * 10000, 50, 1e-9);
  const PixelNoise read{.LightOfElectron = 1.0 / 10000, .ReadVariance = 36.0 / 1e8};
  EXPECT_NEAR(std::sqrt(read.Variance(0)) * 10000, 6, 1e-9);
}

TEST(LumaNoise, HasTheAskedDeviationAroundTheSameMean) {
  for (const double deviation : {4.0, 8.0, 16.0}) {
    double sum = 0;
    double squares = 0;
    const auto line = Sample(EvenNoise(deviation), 128, 7);
    for (const int luma : line) {
      sum += luma - 128;
      squares += (luma - 128) * (luma - 128);
    }
    const double count = static_cast<double>(line.size());
    EXPECT_NEAR(sum / count, 0, deviation * 0.02);
    // Coring reduces each deviation by half a step on average.
    EXPECT_NEAR(std::sqrt(squares / count), deviation, 0.6);
  }
}

TEST(LumaNoise, LessThanAWholeStepIsCoredAway) {
  EXPECT_TRUE(LumaNoise{}.IsSilent());
  EXPECT_TRUE(EvenNoise(0.25).IsSilent());
  EXPECT_FALSE(EvenNoise(0.4).IsSilent());
  const auto line = Sample(EvenNoise(0.25), 128, 7);
  EXPECT_EQ(std::count(line.begin(), line.end(), 128), 60000);
}

TEST(LumaNoise, StaysBetweenBlackAndWhite) {
  for (const int luma : {16, 20, 230, 235}) {
    const auto line = Sample(EvenNoise(20), static_cast<std::uint8_t>(luma), 7);
    const auto [least, most] = std::minmax_element(line.begin(), line.end());
    EXPECT_GE(*least, 16);
    EXPECT_LE(*most, 235);
  }
}

TEST(LumaNoise, TheSeedAloneMakesIt) {
  const LumaNoise noise = EvenNoise(4);
  EXPECT_EQ(Sample(noise, 100, 1), Sample(noise, 100, 1));
  EXPECT_NE(Sample(noise, 100, 1), Sample(noise, 100, 2));
}

// The reference: the quantile of each draw, times the deviation, sample by sample.
void AddBySamples(const LumaNoise::Deviations& deviations, std::vector<std::uint8_t>& line,
                  std::uint64_t seed) {
  const auto quantile = [](std::uint64_t draw) {
    double low = -8;
    double high = 8;
    for (int halving = 0; halving < 50; ++halving) {
      const double middle = (low + high) / 2;
      const double below = 0.5 * std::erfc(-middle / std::sqrt(2.0));
      (below < (static_cast<double>(draw) + 0.5) / 1024 ? low : high) = middle;
    }
    return std::lround(low * 1024);
  };
  auto numbers = base::SplitMix::Behind(base::SplitMix::Behind(seed - 1).Next());
  std::uint64_t bits = 0;
  for (std::size_t x = 0; x < line.size(); ++x) {
    bits = x % 6 == 0 ? numbers.Next() : bits >> 10;
    const long scale = std::lround(std::clamp(deviations[line[x]], 0.0, 64.0) * 256);
    const long moved = line[x] + quantile(bits & 1023) * scale / (1024 * 256);
    line[x] = static_cast<std::uint8_t>(std::clamp(moved, 16L, 235L));
  }
}

TEST(LumaNoise, MovesEachSampleByItsDrawTimesTheDeviationOfItsLuma) {
  LumaNoise::Deviations deviations;
  for (std::size_t luma = 0; luma < deviations.size(); ++luma) {
    deviations[luma] = static_cast<double>(luma * 37 % 256) / 3.7;
  }
  std::vector<std::uint8_t> line(2003);
  for (std::size_t x = 0; x < line.size(); ++x) line[x] = static_cast<std::uint8_t>(16 + x % 220);
  std::vector<std::uint8_t> expected = line;
  AddBySamples(deviations, expected, 77);
  LumaNoise{deviations}.AddTo(line, 77);
  EXPECT_EQ(line, expected);
}

}  // namespace
}  // namespace lidcam::camera_model
