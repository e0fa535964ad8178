#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace lidcam::simulation {

/// The numbers that one run is made of: equal on every platform for equal seeds (SplitMix64).
class Random {
 public:
  /// @param purpose  keeps streams of numbers from the same seed apart
  explicit Random(std::uint64_t seed, std::uint64_t purpose = 0)
      : state_(seed * 0xD1342543DE82EF95 + purpose) {}

  std::uint64_t Next() {
    state_ += 0x9E3779B97F4A7C15;
    std::uint64_t number = state_;
    number = (number ^ (number >> 30)) * 0xBF58476D1CE4E5B9;
    number = (number ^ (number >> 27)) * 0x94D049BB133111EB;
    return number ^ (number >> 31);
  }

  /// @return 0 to `count` - 1
  std::uint64_t Below(std::uint64_t count) { return Next() % count; }

  /// @return `first` to `last`, both included
  std::uint64_t Between(std::uint64_t first, std::uint64_t last) {
    return first + Below(last - first + 1);
  }

  bool OneIn(std::uint64_t count) { return Below(count) == 0; }

  template <typename T, std::size_t kCount>
  T OneOf(const T (&values)[kCount]) {
    return values[Below(kCount)];
  }

 private:
  std::uint64_t state_;
};

}  // namespace lidcam::simulation
