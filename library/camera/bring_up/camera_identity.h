#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "bus/enumeration.h"

namespace lidcam::app {

/// The name of a sensor type as users know it: "VGA0708", "OV7660" and so on.
[[nodiscard]] std::string_view SensorName(std::int32_t sensorType);

/// The sensor type of a name as SensorName() gives it; nothing for another name.
[[nodiscard]] std::optional<std::int32_t> SensorTypeOf(std::string_view name);

/// Whether the configuration has eight alternate settings rather than four.
[[nodiscard]] bool HasLongConfiguration(const bus::UsbDeviceInfo& device);

/// Where the settings of a camera of this identity are in the registry.
[[nodiscard]] std::u16string DriverKeyOf(const bus::UsbDeviceInfo& device);

/// "1af0:0511".
[[nodiscard]] std::string IdentityText(const bus::UsbDeviceInfo& device);

}  // namespace lidcam::app
