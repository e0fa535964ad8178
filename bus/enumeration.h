#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <vector>

#include "bus/usb_bus.h"

namespace lidcam::bus {

/// A device could not be enumerated. what() is one line: the request and its status, or the offset
/// of the wrong byte in the descriptor.
class EnumerationError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One alternate setting of an interface.
struct AlternateSetting {
  std::uint8_t Interface = 0;
  std::uint8_t Setting = 0;
  std::uint8_t IsochronousEndpoint = 0;  ///< address of the first isochronous IN endpoint, or 0
  std::uint32_t BytesPerMicroframe = 0;  ///< of that endpoint, additional transactions included

  friend bool operator==(const AlternateSetting&, const AlternateSetting&) = default;
};

struct UsbDeviceInfo {
  std::uint16_t Vendor = 0;
  std::uint16_t Product = 0;
  std::array<std::uint8_t, 18> DeviceDescriptor{};
  std::vector<std::uint8_t> Configuration;          ///< all descriptors of the configuration
  std::vector<AlternateSetting> AlternateSettings;  ///< in descriptor order
};

/// Reads the alternate settings of a configuration.
///
/// @param configuration  the configuration descriptor and all that belong to it, complete
/// Throws EnumerationError at the first byte that violates the standard or contradicts the rest:
/// lengths, numbers of interfaces and endpoints, packet sizes beyond those of high speed.
[[nodiscard]] std::vector<AlternateSetting> ParseConfiguration(
    std::span<const std::uint8_t> configuration);

/// Enumerates a device as a host does: reads the device descriptor, the head of the configuration
/// descriptor and then all of it, and selects the configuration.
///
/// Throws EnumerationError if a request fails or a descriptor is malformed; the configuration is
/// then not selected.
[[nodiscard]] UsbDeviceInfo EnumerateDevice(UsbBus& bus);

}  // namespace lidcam::bus
