// The kernels work in 16 bits where the scale is defined in 32. These tests prove for every number
// that the two forms agree: the 16-bit operations are written as the processors do them.

#include <gtest/gtest.h>

#include <cstdint>

namespace lidcam {
namespace {

constexpr std::int32_t kOne = 16384;

std::int16_t Wrapped(std::int32_t value) {
  return static_cast<std::int16_t>(static_cast<std::uint16_t>(value));
}

// High half of a product.
std::int32_t MultiplyHigh(std::int16_t a, std::int16_t b) {
  return (std::int32_t{a} * b) >> 16;
}

// Rounded product of numbers with 15 fraction bits.
std::int16_t MultiplyRound(std::int16_t a, std::int16_t b) {
  return Wrapped((std::int32_t{a} * b + 0x4000) >> 15);
}

TEST(WeightIdentities, HorizontalScaleIsTheSameIn16BitsForAllSamplesAndWeights) {
  std::uint64_t differences = 0;
  for (std::int32_t weight = 0; weight <= kOne; ++weight) {
    const std::int16_t factor = Wrapped(-2 * weight);
    for (std::int32_t difference = -255; difference <= 255; ++difference) {
      // Both forms move by 64 with both samples, so one pair for each difference stands for all.
      const std::int32_t left = difference > 0 ? difference : 0;
      const std::int32_t right = left - difference;
      const std::int32_t wanted = (weight * right + (kOne - weight) * left + 128) >> 8;
      const std::int32_t got = 64 * left + MultiplyRound(Wrapped(64 * difference), factor);
      differences += got != wanted ? 1U : 0U;
    }
  }
  EXPECT_EQ(differences, 0u);
}

TEST(WeightIdentities, HorizontalScaleMovesBySixtyFourWithBothSamples) {
  std::uint64_t differences = 0;
  for (std::int32_t weight = 0; weight <= kOne; weight += 7) {
    for (std::int32_t left = 0; left < 255; left += 2) {
      for (std::int32_t right = 0; right < 255; right += 2) {
        const auto scaled = [weight](std::int32_t a, std::int32_t b) {
          return (weight * b + (kOne - weight) * a + 128) >> 8;
        };
        differences += scaled(left + 1, right + 1) != scaled(left, right) + 64 ? 1U : 0U;
      }
    }
  }
  EXPECT_EQ(differences, 0u);
}

TEST(WeightIdentities, SmoothedSampleNeverLeavesFourteenBits) {
  EXPECT_EQ((kOne * 255 + 128) >> 8, 16320);
}

// With the farther row's weight at most one half, as the kernels choose their rows.
std::int32_t BlendIn16Bits(std::int32_t nearer, std::int32_t farther, std::int32_t fartherWeight) {
  const std::int32_t blend =
      nearer + MultiplyHigh(Wrapped(nearer - farther), Wrapped(-4 * fartherWeight));
  return MultiplyRound(Wrapped(blend), 512);
}

// With upper minus lower in both cases, as for several output rows at once.
std::int32_t BlendOfUpperMinusLower(std::int32_t upper, std::int32_t lower, std::int32_t weight) {
  const bool lowerNearer = weight > kOne / 2;
  const std::int32_t factor = lowerNearer ? 4 * (kOne - weight) : -4 * weight;
  const std::int32_t base = lowerNearer ? lower : upper;
  return MultiplyRound(Wrapped(base + MultiplyHigh(Wrapped(upper - lower), Wrapped(factor))), 512);
}

TEST(WeightIdentities, VerticalScaleIsTheSameIn16BitsForAllWeights) {
  constexpr std::int32_t kLargest = 16320;
  std::uint64_t differences = 0;
  for (std::int32_t weight = 0; weight <= kOne; ++weight) {
    for (std::int32_t upper = weight % 149; upper <= kLargest; upper += 149) {
      for (std::int32_t lower = (weight * 31) % 211; lower <= kLargest; lower += 211) {
        const auto wanted =
            static_cast<std::int32_t>((static_cast<std::uint32_t>(upper * (kOne - weight)) +
                                       static_cast<std::uint32_t>(lower * weight) + 0x80000U) >>
                                      20U);
        const std::int32_t got = weight > kOne / 2 ? BlendIn16Bits(lower, upper, kOne - weight)
                                                   : BlendIn16Bits(upper, lower, weight);
        differences += got != wanted ? 1U : 0U;
        differences += BlendOfUpperMinusLower(upper, lower, weight) != wanted ? 1U : 0U;
      }
    }
  }
  EXPECT_EQ(differences, 0u);
}

TEST(WeightIdentities, VerticalScaleIsTheSameAtTheEndsOfEveryRange) {
  constexpr std::int32_t kEdges[] = {0,    1,    31,   32,    33,    63,    64,
                                     8159, 8160, 8161, 16287, 16288, 16319, 16320};
  constexpr std::int32_t kWeights[] = {0, 1, 2, 8190, 8191, 8192, 8193, 8194, 16382, 16383, 16384};
  for (const std::int32_t weight : kWeights) {
    for (const std::int32_t upper : kEdges) {
      for (const std::int32_t lower : kEdges) {
        const std::int32_t wanted = (upper * (kOne - weight) + lower * weight + 0x80000) >> 20;
        EXPECT_EQ(BlendOfUpperMinusLower(upper, lower, weight), wanted)
            << upper << " " << lower << " " << weight;
      }
    }
  }
}

}  // namespace
}  // namespace lidcam
