#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"

namespace lidcam {

/// The bridge's vendor requests for one register: wIndex has the register's address, wValue the byte to write.
inline constexpr std::uint32_t kRequestWrite = 0xA0;
inline constexpr std::uint32_t kRequestRead = 0xA1;

/// A constant of the read request's wValue, not a length.
inline constexpr std::uint32_t kReadRequestValue = 1;

/// Written ahead of each access: whose register the next request means. Bit 1 chooses the sensor, bit 0 a read.
inline constexpr std::uint32_t kSelectRegister = 0xFFFF;

constexpr std::uint32_t SelectForWrite(Chip chip) {
  return chip == Chip::Bridge ? 0 : 2;
}
constexpr std::uint32_t SelectForRead(Chip chip) {
  return chip == Chip::Bridge ? 1 : 3;
}

}  // namespace lidcam
