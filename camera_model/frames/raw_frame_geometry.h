#pragma once

#include <array>
#include <cstdint>

#include "camera_model/chips/bridge.h"
#include "camera_model/chips/sensor_model.h"

namespace lidcam::camera_model {

/// The part of the sensor's picture in a raw frame.
enum class RawSize : std::uint8_t {
  Full,     ///< 640 by 480, or the sensor's nearest size
  Half,     ///< every second pixel and line
  Third,    ///< about 240 by 160
  Quarter,  ///< every fourth pixel and line
  Sixth,    ///< about 120 by 80
  Mega,     ///< 1280 by 1024, only Mi1318
};

inline constexpr std::array kAllRawSizes{RawSize::Full,    RawSize::Half,  RawSize::Third,
                                         RawSize::Quarter, RawSize::Sixth, RawSize::Mega};

inline constexpr std::uint32_t kRawHeaderBytes = 64;
inline constexpr std::uint32_t kRawClosingBytes = 2;

struct RawFrameGeometry {
  std::uint32_t Width = 0;   ///< pixels of a line, even
  std::uint32_t Height = 0;  ///< lines, the last one may be incomplete
  /// Header, pixels and closing bytes. Some sensors send fewer pixels than Width times Height.
  std::uint32_t TotalBytes = 0;

  [[nodiscard]] constexpr std::uint32_t PixelBytes() const {
    return TotalBytes - kRawHeaderBytes - kRawClosingBytes;
  }
  friend bool operator==(const RawFrameGeometry&, const RawFrameGeometry&) = default;
};

/// @return the full size's geometry for a size that the sensor does not have
[[nodiscard]] RawFrameGeometry GeometryOf(SensorModel model, RawSize size);

/// The size set in the bridge: register 0x0A bits 2 to 4, in effect while the reducer (register
/// 0x5D bit 7) is on. Without it the sensor's whole picture is sent, on Mi1318 with all its pixels
/// if register 0x0A bit 2 is set.
[[nodiscard]] RawSize SelectedRawSize(const Bridge& bridge);

}  // namespace lidcam::camera_model
