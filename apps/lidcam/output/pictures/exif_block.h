#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace lidcam::app {

/// What a picture's file says of how it was taken.
struct PictureFacts {
  std::string Camera;                             ///< identity and sensor
  std::chrono::system_clock::time_point Taken{};  ///< said in this machine's time zone
  /// Exposure time in flicker periods of 1/100 s or 1/120 s; nothing if the camera exposes by itself.
  std::optional<std::uint32_t> ExposurePeriods{};
  std::uint32_t PeriodsASecond = 100;
  std::string Comment{};  ///< ASCII
};

/// An Exif block of them, for EncodeJpeg(); empty in a program that was built without libexif.
[[nodiscard]] std::vector<std::uint8_t> MakeExif(const PictureFacts& facts);

}  // namespace lidcam::app
