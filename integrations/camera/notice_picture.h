#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace lidcam::integrations {

/// A YUY2 picture that shows a line of text in its middle, for the time in which the camera sends none.
///
/// @param width  pixels, even
/// @param text   lower-case letters and spaces; other characters are left blank
[[nodiscard]] std::vector<std::uint8_t> DrawNotice(std::uint32_t width, std::uint32_t height,
                                                   std::string_view text);

}  // namespace lidcam::integrations
