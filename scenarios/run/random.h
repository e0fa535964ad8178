#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/split_mix.h"

namespace lidcam::scenarios {

/// A run's random numbers: equal on every platform for equal seeds.
class Random {
 public:
  /// @param purpose  selects one of several independent sequences of a seed
  explicit Random(std::uint64_t seed, std::uint64_t purpose = 0)
      : numbers_(seed * 0xD1342543DE82EF95 + purpose) {}

  std::uint64_t Next() { return numbers_.Next(); }

  /// @return 0 to `count` - 1
  std::uint64_t Below(std::uint64_t count) { return Next() % count; }

  /// @return `first` to `last`, both included
  std::uint64_t Between(std::uint64_t first, std::uint64_t last) {
    return numbers_.Between(first, last);
  }

  bool OneIn(std::uint64_t count) { return Below(count) == 0; }

  template <typename T, std::size_t kCount>
  T OneOf(const T (&values)[kCount]) {
    return values[Below(kCount)];
  }

 private:
  base::SplitMix numbers_;
};

}  // namespace lidcam::scenarios
