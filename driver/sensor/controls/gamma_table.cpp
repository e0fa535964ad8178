#include "driver/sensor/controls/gamma_table.h"

namespace lidcam {
namespace {

constexpr std::uint32_t kKnots[kGammaKnots] = {2,  4,  8,  12, 16,  24,  32, 40,
                                               48, 64, 80, 96, 128, 160, 192};
constexpr std::uint32_t kScale = 256;
constexpr std::uint32_t kExponentUnit = 20;

// Whole numbers up to 256 to the 20th power, the largest that the curve's comparison meets.
class WideNumber {
 public:
  constexpr void Multiply(std::uint32_t factor) {
    std::uint64_t carry = 0;
    for (std::uint32_t& limb : limbs_) {
      carry += std::uint64_t{limb} * factor;
      limb = static_cast<std::uint32_t>(carry & 0xFFFFFFFFU);
      carry >>= 32;
    }
  }

  [[nodiscard]] constexpr bool IsAbove(const WideNumber& other) const {
    for (std::size_t at = kLimbs; at-- > 0;) {
      if (limbs_[at] != other.limbs_[at]) return limbs_[at] > other.limbs_[at];
    }
    return false;
  }

 private:
  static constexpr std::size_t kLimbs = 6;
  std::uint32_t limbs_[kLimbs] = {1};
};

constexpr WideNumber Power(std::uint32_t base, std::uint32_t exponent) {
  WideNumber power;
  for (std::uint32_t step = 0; step < exponent; ++step) power.Multiply(base);
  return power;
}

// 256 * (knot/256)^(row/20) cut to a whole number is the largest v whose 20th power is not above
// knot^row * 256^(20-row): whole numbers only, so that no rounding can tip a level over.
constexpr std::uint8_t LevelOf(std::uint32_t row, std::uint32_t knot) {
  WideNumber limit = Power(knot, row);
  for (std::uint32_t step = row; step < kExponentUnit; ++step) limit.Multiply(kScale);
  std::uint32_t level = 0;
  for (std::uint32_t bit = kScale / 2; bit != 0; bit /= 2) {
    if (!Power(level + bit, kExponentUnit).IsAbove(limit)) level += bit;
  }
  return static_cast<std::uint8_t>(level);
}

constexpr std::size_t kKnotOfLevel8 = 2;

constexpr GammaRow MakeRow(std::uint32_t row) {
  GammaRow made{};
  for (std::size_t at = 0; at < kGammaKnots; ++at) made.Levels[at] = LevelOf(row, kKnots[at]);
  // The camera is tuned with these three one below the curve, where it meets a whole number.
  if (row == 8 || row == 12 || row == 16) --made.Levels[kKnotOfLevel8];
  return made;
}

// One constant per row, so that the compiler's limit on constant evaluation applies to each row
// alone.
template <std::uint32_t row>
constexpr GammaRow kRow = MakeRow(row);

constexpr GammaRow kRowAhead = {{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 235, 0, 0, 0}};

}  // namespace

constinit const GammaRow GammaTable[kGammaRows] = {
    kRow<0>,  kRow<1>,  kRow<2>,  kRow<3>,  kRow<4>,  kRow<5>,  kRow<6>,
    kRow<7>,  kRow<8>,  kRow<9>,  kRow<10>, kRow<11>, kRow<12>, kRow<13>,
    kRow<14>, kRow<15>, kRow<16>, kRow<17>, kRow<18>, kRow<19>,
};

const GammaRow& GammaRowAt(std::int32_t row) {
  if (row < 0) return kRowAhead;
  return GammaTable[row < kGammaRows ? row : kGammaRows - 1];
}

}  // namespace lidcam
