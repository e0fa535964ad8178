#include "camera_model/optics/pixel_noise.h"

#include <algorithm>
#include <cmath>

#include "base/split_mix.h"

namespace lidcam::camera_model {
namespace {

constexpr int kBlack = 16;
constexpr int kWhite = 235;

constexpr std::size_t kDraws = 1024;
constexpr int kBitsOfDraw = 10;
constexpr std::size_t kDrawsOfWord = 6;
constexpr std::int32_t kDrawUnit = 1024;
constexpr std::int32_t kScaleUnit = 256;
constexpr double kLargestDeviation = 64;

double BellBelow(double x) {
  return 0.5 * std::erfc(-x / std::sqrt(2.0));
}

// Quantiles of the normal distribution at equal probabilities, so that a uniform draw from the
// table is a normal one.
const std::array<std::int32_t, kDraws>& BellDraws() {
  static const auto table = [] {
    std::array<std::int32_t, kDraws> draws{};
    for (std::size_t i = 0; i < kDraws; ++i) {
      const double share = (static_cast<double>(i) + 0.5) / kDraws;
      double low = -8;
      double high = 8;
      for (int halving = 0; halving < 50; ++halving) {
        const double middle = (low + high) / 2;
        (BellBelow(middle) < share ? low : high) = middle;
      }
      draws[i] = static_cast<std::int32_t>(std::lround(low * kDrawUnit));
    }
    return draws;
  }();
  return table;
}

}  // namespace

LumaNoise::LumaNoise(const Deviations& deviations) {
  const auto& draws = BellDraws();
  std::array<std::int32_t, 256> scales{};
  for (std::size_t luma = 0; luma < deviations.size(); ++luma) {
    const double deviation = std::clamp(deviations[luma], 0.0, kLargestDeviation);
    scales[luma] = static_cast<std::int32_t>(std::lround(deviation * kScaleUnit));
  }
  if (std::ranges::max(scales) * draws.back() < kDrawUnit * kScaleUnit) return;
  samples_.resize(scales.size() * kDraws);
  for (std::size_t luma = 0; luma < scales.size(); ++luma) {
    std::uint8_t* const row = samples_.data() + luma * kDraws;
    const std::int32_t scale = scales[luma];
    for (std::size_t i = 0; i < kDraws; ++i) {
      const std::int32_t offset = draws[i] * scale / (kDrawUnit * kScaleUnit);
      row[i] = static_cast<std::uint8_t>(
          std::clamp(static_cast<std::int32_t>(luma) + offset, kBlack, kWhite));
    }
  }
}

void LumaNoise::AddTo(std::span<std::uint8_t> luma, std::uint64_t seed) const {
  if (IsSilent()) return;
  auto numbers = base::SplitMix::Behind(base::SplitMix::Behind(seed - 1).Next());
  const auto move = [rows = samples_.data()](std::uint8_t& sample, std::uint64_t& bits) {
    sample = rows[(std::size_t{sample} << kBitsOfDraw) | (bits & (kDraws - 1))];
    bits >>= kBitsOfDraw;
  };
  std::size_t at = 0;
  for (; at + kDrawsOfWord <= luma.size(); at += kDrawsOfWord) {
    std::uint64_t bits = numbers.Next();
    for (std::size_t i = 0; i < kDrawsOfWord; ++i) move(luma[at + i], bits);
  }
  std::uint64_t bits = numbers.Next();
  for (; at < luma.size(); ++at) move(luma[at], bits);
}

}  // namespace lidcam::camera_model
