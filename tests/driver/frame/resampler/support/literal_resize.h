#pragma once

#include <cstdint>
#include <vector>

#include "driver/frame/resampler/jobs/resize_arguments.h"

namespace lidcam {

/// Content of a destination before a call that must not change it, or not all of it.
inline constexpr std::uint8_t kUntouched = 0xA5;

/// A second implementation of ResizeYuy2(), sample by sample, without tables or line buffers:
/// `destination` gets the content that the destination buffer must have. Only for steps wide enough
/// for their rows.
ResizeStatus LiteralResizeYuy2(const ResizeArguments& arguments,
                               std::vector<std::uint8_t>& destination);

/// A picture of bytes without order, the same for the same seed.
std::vector<std::uint8_t> RandomPicture(std::size_t bytes, std::uint32_t seed);

}  // namespace lidcam
