#include "camera_model/optics/line_filter.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

namespace lidcam::camera_model {
namespace {

std::uint8_t ToByte(int value) {
  return static_cast<std::uint8_t>(std::clamp(value, 0, 255));
}

// In 16 bits, of which a vector holds twice as many: the difference is 510 times 63 at most.
std::uint8_t Sharpened(int left, int here, int right, int amount) {
  const auto difference = static_cast<std::int16_t>((2 * here - left - right) * amount);
  const auto share = static_cast<std::int16_t>(difference / 16);
  return ToByte(static_cast<std::int16_t>(here + share));
}

template <typename Combine>
void Apply(std::span<const std::uint8_t> luma, std::uint8_t* __restrict out,
           const Combine& combine) {
  const std::uint8_t* const in = luma.data();
  const std::size_t last = luma.size() - 1;
  out[0] = combine(in[0], in[0], in[std::min<std::size_t>(1, last)]);
  for (std::size_t x = 1; x < last; ++x) out[x] = combine(in[x - 1], in[x], in[x + 1]);
  if (last != 0) out[last] = combine(in[last - 1], in[last], in[last]);
}

}  // namespace

void FilterLine(const LineFilter& filter, std::span<const std::uint8_t> luma,
                std::span<std::uint8_t> out) {
  if (luma.empty()) return;
  switch (filter.Kind) {
    case LineFilterKind::Sharpen:
      return Apply(luma, out.data(), [amount = filter.Amount](int left, int here, int right) {
        return Sharpened(left, here, right, amount);
      });
    case LineFilterKind::Relief:
      return Apply(luma, out.data(),
                   [](int left, int, int right) { return ToByte(128 + (right - left) * 2); });
    case LineFilterKind::Sketch:
      return Apply(luma, out.data(), [](int left, int, int right) {
        return ToByte(235 - std::abs(right - left) * 4);
      });
  }
}

}  // namespace lidcam::camera_model
