#pragma once

#include <cstdint>

#include "driver/frame/resampler/jobs/scale_tables.h"

namespace lidcam {

/// Positions of an axis in groups.
///
/// Adding the step rounds to a multiple of the last place of the sum. While positions stay between
/// the same two powers of two that place is the same, so each addition moves them by the same
/// multiple of it: the n-th position from here on is the first one plus n times that increment, and
/// both operations are exact. An addition to an odd multiple of the last place may round a tie to
/// the other side, but its result is an even one: the increment is taken from the addition after it.
///
/// `Isa` is a local type of the source file, so that files built for different processors never share
/// a function.
template <typename Isa>
class PositionWalk {
 public:
  static constexpr double kSteps = kGroupEntries - 1;

  explicit PositionWalk(double step) : step_(step) {}

  [[nodiscard]] double First() const { return first_; }
  [[nodiscard]] double Increment() const { return increment_; }

  /// Whether the next group is First() + n * Increment(), and none of its positions is too far for an
  /// index.
  [[nodiscard]] bool IsEven() const { return first_ + kSteps * increment_ < limit_; }

  /// Passes a group that IsEven().
  void PassEven() { first_ = first_ + kSteps * increment_ + step_; }

  /// Passes any group, addition by addition.
  void Pass(double (&positions)[kGroupEntries]) {
    double last = first_;
    for (double& position : positions) {
      last = first_;
      position = last < kFarthestPosition ? last : kFarthestPosition;
      first_ += step_;
    }
    const double power = PowerAbove(last);
    increment_ = (first_ + step_) - first_;
    limit_ = power < kFarthestPosition ? power : kFarthestPosition;
  }

 private:
  // The power of two above a number that is not below 0: for infinity a number below 0.
  static double PowerAbove(double number) {
    constexpr std::uint64_t kExponent = 0x7FF0000000000000U;
    constexpr std::uint64_t kExponentOne = 0x0010000000000000U;
    const auto bits = __builtin_bit_cast(std::uint64_t, number);
    return __builtin_bit_cast(double, (bits & kExponent) + kExponentOne);
  }

  double step_;
  double first_ = 0.0;
  double increment_ = 0.0;
  double limit_ = 0.0;  ///< the increment is that of all positions below
};

/// BuildColumns() in vectors. `Isa::EvenGroup` converts a group of positions that are an increment
/// apart to entries, `Isa::Group` any group.
template <typename Isa>
void BuildColumnsInGroups(double step, std::uint32_t entries, std::int32_t* index,
                          std::uint16_t* weight) {
  PositionWalk<Isa> walk(step);
  for (std::uint32_t entry = 0; entry < entries; entry += kGroupEntries) {
    if (walk.IsEven()) {
      Isa::EvenGroup(walk.First(), walk.Increment(), index + entry, weight + entry);
      walk.PassEven();
    } else {
      alignas(64) double positions[kGroupEntries];
      walk.Pass(positions);
      Isa::Group(positions, index + entry, weight + entry);
    }
  }
}

}  // namespace lidcam
