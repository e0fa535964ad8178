#pragma once

#include <cstdint>

namespace lidcam::base {

/// SplitMix64: gives the same numbers with every compiler and library, so that a seed is portable.
class SplitMix {
 public:
  constexpr explicit SplitMix(std::uint64_t seed) : state_(seed) {}

  /// The sequence of seed 0 after its first `count` numbers.
  static constexpr SplitMix Behind(std::uint64_t count) { return SplitMix{count * kStep}; }

  constexpr std::uint64_t Next() {
    state_ += kStep;
    std::uint64_t bits = state_;
    bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9U;
    bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EBU;
    return bits ^ (bits >> 31);
  }

  /// @return a number from `lowest` to `highest`, both included
  constexpr std::uint64_t Between(std::uint64_t lowest, std::uint64_t highest) {
    return lowest + Next() % (highest - lowest + 1);
  }

 private:
  static constexpr std::uint64_t kStep = 0x9E3779B97F4A7C15U;

  std::uint64_t state_;
};

}  // namespace lidcam::base
