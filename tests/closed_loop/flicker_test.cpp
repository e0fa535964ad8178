// Bands of mains light in the delivered picture, through the whole chain: lamps, sensor lines, bus,
// driver, delivered frame.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "tests/closed_loop/closed_loop.h"
#include "tests/driver/support/shared_exposure.h"

namespace lidcam::app {
namespace {

constexpr PictureSize kSize{640, 480};

// A uniform wall: differences between rows are caused by the light only.
class GreyWall final : public camera_model::Scene {
 public:
  void Render(std::uint64_t, camera_model::RgbImage& image) override {
    std::ranges::fill(image.Pixels, kGrey);
  }

 private:
  static constexpr std::uint8_t kGrey = 100;
};

std::vector<double> RowMeans(std::span<const std::uint8_t> yuy2) {
  const auto width = static_cast<std::size_t>(kSize.Width);
  std::vector<double> means;
  for (std::size_t row = 0; row < static_cast<std::size_t>(kSize.Height); ++row) {
    double sum = 0;
    for (std::size_t x = 0; x < width; ++x) sum += yuy2[(row * width + x) * 2];
    means.push_back(sum / static_cast<double>(width));
  }
  return means;
}

// Difference of the darkest and the brightest row, as a fraction of the picture's mean luminance.
double Ripple(std::span<const std::uint8_t> yuy2) {
  const std::vector<double> means = RowMeans(yuy2);
  double sum = 0;
  for (const double mean : means) sum += mean;
  const auto [darkest, brightest] = std::ranges::minmax(means);
  return (brightest - darkest) / (sum / static_cast<double>(means.size()));
}

// A light, and the flicker periods for which the loop exposes the wall in it.
struct WallLight {
  double Lux;
  std::uint32_t Periods;
};

// The strongest ripple of the last frames of a stream, long after the exposure has settled.
double RippleOf(unsigned hertz, std::int32_t flicker, const WallLight& light) {
  constexpr std::size_t kFrames = 90;
  constexpr std::size_t kJudged = 15;
  const LoopEnvironment environment;
  test::ResetSharedExposure();
  std::vector<double> ripples;
  ClosedLoop loop({.Light = {{0, light.Lux}},
                   .MainsHertz = hertz,
                   .Flicker = flicker,
                   .Size = kSize,
                   .View = std::make_shared<GreyWall>()},
                  [&](const DeliveredFrame& frame) { ripples.push_back(Ripple(frame.Yuy2)); });
  loop.RunFrames(kFrames);
  EXPECT_EQ(loop.Rows().back().Exposure, light.Periods);
  return *std::max_element(ripples.end() - kJudged, ripples.end());
}

// Slow bands become visible at about 1 % of the luminance.
constexpr double kInvisible = 0.005;
constexpr double kPlain = 0.015;

constexpr WallLight kLights[] = {{450, 1}, {180, 3}};

class MainsLight : public ::testing::TestWithParam<unsigned> {};

TEST_P(MainsLight, LeavesNoBandsWithTheMatchingFlickerSetting) {
  for (const WallLight& light : kLights) {
    EXPECT_LT(RippleOf(GetParam(), MatchingFlicker(GetParam()), light), kInvisible)
        << light.Lux << " lx";
  }
}

TEST_P(MainsLight, LeavesBandsWithTheOtherFlickerSetting) {
  for (const WallLight& light : kLights) {
    EXPECT_GT(RippleOf(GetParam(), 3 - MatchingFlicker(GetParam()), light), kPlain)
        << light.Lux << " lx";
  }
}

INSTANTIATE_TEST_SUITE_P(BothMains, MainsLight, ::testing::Values(50U, 60U));

TEST(SteadyLight, LeavesNoBandsWithEitherFlickerSetting) {
  for (const std::int32_t flicker : {1, 2}) EXPECT_LT(RippleOf(0, flicker, kLights[0]), kInvisible);
}

}  // namespace
}  // namespace lidcam::app
