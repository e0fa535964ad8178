#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "camera_model/device/camera_identity.h"

namespace lidcam::camera_model {

/// The camera exists with many alternate settings (long) or few (short).
enum class ConfigurationKind : std::uint8_t { Long, Short };

inline constexpr std::uint8_t kInterruptEndpoint = 0x81;
inline constexpr std::uint8_t kIsochronousEndpoint = 0x82;

/// One more than the highest alternate setting.
[[nodiscard]] std::uint8_t AlternateSettingCount(ConfigurationKind kind);

/// wMaxPacketSize of the isochronous endpoint in an alternate setting; 0 beyond the last one.
[[nodiscard]] std::uint16_t IsochronousMaxPacketSize(ConfigurationKind kind,
                                                     std::uint8_t alternateSetting);

[[nodiscard]] std::array<std::uint8_t, 18> DeviceDescriptor(const CameraIdentity& identity);

/// Configuration, interface and endpoint descriptors as one block: 193 or 101 bytes.
[[nodiscard]] std::vector<std::uint8_t> ConfigurationDescriptor(ConfigurationKind kind);

/// @param index  0: languages, 1: maker, 2: product
/// @return nothing for an index without a string
[[nodiscard]] std::optional<std::vector<std::uint8_t>> StringDescriptor(std::uint8_t index);

}  // namespace lidcam::camera_model
