#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace lidcam::app {

/// Width and height of a picture in pixels.
struct PictureSize {
  std::int32_t Width = 0;
  std::int32_t Height = 0;

  friend bool operator==(const PictureSize&, const PictureSize&) = default;

  /// Bytes of a YUY2 picture of this size.
  [[nodiscard]] std::size_t Yuy2Bytes() const {
    return static_cast<std::size_t>(Width) * static_cast<std::size_t>(Height) * 2;
  }
};

/// "640x480".
[[nodiscard]] std::string ToString(PictureSize size);

/// Reads "640x480". Throws UsageError.
[[nodiscard]] PictureSize ParsePictureSize(const std::string& text);

/// Reads a time with its unit: "250ms", "1.5s", "10min", "1h"; at most 1,000,000 s. Throws UsageError.
[[nodiscard]] std::chrono::microseconds ParseDuration(const std::string& text);

/// Reads an integer in decimal or, with 0x, hexadecimal, from 0 to `highest`. Throws UsageError.
///
/// @param what  names the number in the error
[[nodiscard]] std::uint32_t ParseNumber(const std::string& text, std::uint32_t highest,
                                        const std::string& what);

}  // namespace lidcam::app
