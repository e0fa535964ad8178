#pragma once

#include <span>

#include "platform/kernel.h"

namespace lidcam {

/// Frame intervals on offer for widths below 640, in 100 ns: 10, 12, 15, 18, 20, 25 and 30 frames a
/// second.
inline constexpr LONGLONG FrameRatesSmall[] = {1000000, 833333, 666666, 555555,
                                               500000,  400000, 333333};

/// Frame intervals on offer for all other widths: 6, 10, 12 and 15 frames a second.
inline constexpr LONGLONG FrameRatesLarge[] = {1666666, 1000000, 833333, 666666};

/// @param width  pixels; signed, as the platform's sizes are
constexpr std::span<const LONGLONG> FrameRatesFor(LONG width) {
  if (width < 640) return FrameRatesSmall;
  return FrameRatesLarge;
}

}  // namespace lidcam
