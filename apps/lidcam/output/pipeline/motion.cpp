#include "apps/lidcam/output/pipeline/motion.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <utility>

namespace lidcam::app {
namespace {

constexpr int kBlock = 16;

// Of a block's mean luminance; the sensor's noise moves it by less than one.
constexpr int kLevels = 6;

}  // namespace

MotionWatch::MotionWatch(PictureSize size) : size_(size) {}

double MotionWatch::PercentMoved(std::span<const std::uint8_t> yuy2) {
  const std::vector<int> before = std::exchange(before_, BlocksOf(yuy2));
  if (before.size() != before_.size()) return 0;
  std::vector<int> changes(before_.size());
  for (std::size_t at = 0; at < changes.size(); ++at) changes[at] = before_[at] - before[at];
  // The median is the change of what doesn't move.
  std::vector<int> sorted = changes;
  const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
  std::nth_element(sorted.begin(), middle, sorted.end());
  const auto moved = std::ranges::count_if(
      changes, [common = *middle](int change) { return std::abs(change - common) > kLevels; });
  const double percent = 100.0 * static_cast<double>(moved) / static_cast<double>(changes.size());
  return std::min(percent, std::exchange(movedBefore_, percent));
}

std::vector<int> MotionWatch::BlocksOf(std::span<const std::uint8_t> yuy2) const {
  const int columns = size_.Width / kBlock;
  const int rows = size_.Height / kBlock;
  std::vector<int> blocks(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows));
  for (int y = 0; y < rows * kBlock; ++y) {
    const std::uint8_t* const line =
        yuy2.data() + static_cast<std::size_t>(y) * 2 * static_cast<std::size_t>(size_.Width);
    for (int x = 0; x < columns * kBlock; ++x) {
      blocks[static_cast<std::size_t>(y / kBlock * columns + x / kBlock)] += line[2 * x];
    }
  }
  for (int& block : blocks) block /= kBlock * kBlock;
  return blocks;
}

}  // namespace lidcam::app
