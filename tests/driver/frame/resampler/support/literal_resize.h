#pragma once

#include <cstdint>
#include <vector>

#include "driver/frame/resampler/jobs/resize_arguments.h"

namespace lidcam {

/// What lies in a destination before a call that must not change it, or not all of it.
inline constexpr std::uint8_t kUntouched = 0xA5;

/// ResizeYuy2() told a second time, sample by sample, without tables or line buffers: `destination`
/// is changed as the destination buffer has to be. For steps wide enough for their rows only.
ResizeStatus LiteralResizeYuy2(const ResizeArguments& arguments,
                               std::vector<std::uint8_t>& destination);

/// A picture of bytes without order, the same for the same seed.
std::vector<std::uint8_t> RandomPicture(std::size_t bytes, std::uint32_t seed);

}  // namespace lidcam
