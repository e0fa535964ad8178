#pragma once

#include <cstddef>
#include <cstdint>

namespace lidcam {

/// Knots of the bridge's gamma curve.
inline constexpr std::size_t kGammaKnots = 15;

/// Output levels at the input levels 2, 4, 8, 12, 16, 24, 32, 40, 48, 64, 80, 96, 128, 160, 192 of
/// a scale of 256.
struct GammaRow {
  std::uint8_t Levels[kGammaKnots];
};

inline constexpr std::int32_t kGammaRows = 20;

/// Row k is the curve with exponent k/20.
extern const GammaRow GammaTable[kGammaRows];

/// The curve that a row number means: -1 is the nearly black row ahead of the table, and a number
/// outside of -1 to 19 counts as the nearer end.
const GammaRow& GammaRowAt(std::int32_t row);

}  // namespace lidcam
