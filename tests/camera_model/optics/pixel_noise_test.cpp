#include "camera_model/optics/pixel_noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

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

}  // namespace
}  // namespace lidcam::camera_model
