#pragma once

#include <cstdint>

#if defined(_WIN32) && !defined(LIDCAM_HOST_DECLARATIONS)
#include <guiddef.h>
#else
#include "platform/host/ks/declarations/ks_declarations.h"
#endif

namespace lidcam::host {

/// A GUID of the numbers that the platform publishes as STATIC_ and the GUID's name, for data that must
/// be built at compile time.
constexpr GUID GuidOf(std::uint32_t data1, std::uint16_t data2, std::uint16_t data3,
                      std::uint8_t b1, std::uint8_t b2, std::uint8_t b3, std::uint8_t b4,
                      std::uint8_t b5, std::uint8_t b6, std::uint8_t b7, std::uint8_t b8) {
  return GUID{data1, data2, data3, {b1, b2, b3, b4, b5, b6, b7, b8}};
}

}  // namespace lidcam::host
