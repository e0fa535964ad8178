#pragma once

#include <string>
#include <string_view>

namespace lidcam::app {

/// A printf-style format and its arguments as a string.
[[nodiscard, gnu::format(printf, 1, 2)]] std::string FormatText(const char* format, ...);

/// The text without the byte order mark that some editors put ahead of UTF-8.
[[nodiscard]] std::string_view WithoutByteOrderMark(std::string_view text);

}  // namespace lidcam::app
