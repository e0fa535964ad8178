#pragma once

#include <string>

namespace lidcam::app {

/// A printf-style format and its arguments as a string.
[[nodiscard, gnu::format(printf, 1, 2)]] std::string FormatText(const char* format, ...);

}  // namespace lidcam::app
