#pragma once

#include <cstdint>

namespace lidcam {

/// The smaller of two sizes in bytes. Any level.
constexpr std::uint32_t SmallerOf(std::uint32_t a, std::uint32_t b) {
  return a < b ? a : b;
}

}  // namespace lidcam
