#include "library/camera/bring_up/camera_identity.h"

#include <array>
#include <cstdio>
#include <string>

#include "driver/core/record/camera_context.h"
#include "platform/host/nt/io/device_object.h"

namespace lidcam::app {
namespace {

// wTotalLength of the configuration with eight alternate settings.
constexpr std::size_t kLongConfigurationLength = 193;

struct NamedSensor {
  std::int32_t Type;
  std::string_view Name;
};

constexpr std::array kSensorNames = {
    NamedSensor{SensorTypeVGA0408, "VGA0408"}, NamedSensor{SensorTypeReserved3, "Reserved3"},
    NamedSensor{SensorTypeVGA7648, "VGA7648"}, NamedSensor{SensorTypeK82, "K82"},
    NamedSensor{SensorTypeOV7660, "OV7660"},   NamedSensor{SensorTypeOV7663, "OV7663"},
    NamedSensor{SensorTypeVGA0708, "VGA0708"}, NamedSensor{SensorTypeMi1318, "Mi1318"},
    NamedSensor{SensorTypeOV7670, "OV7670"},
};

}  // namespace

std::string_view SensorName(std::int32_t sensorType) {
  for (const NamedSensor& sensor : kSensorNames) {
    if (sensor.Type == sensorType) return sensor.Name;
  }
  return "unknown";
}

std::optional<std::int32_t> SensorTypeOf(std::string_view name) {
  for (const NamedSensor& sensor : kSensorNames) {
    if (sensor.Name == name) return sensor.Type;
  }
  return std::nullopt;
}

bool HasLongConfiguration(const bus::UsbDeviceInfo& device) {
  return device.Configuration.size() == kLongConfigurationLength;
}

// Each identity has settings of its own: the low digits of their product numbers all differ.
std::u16string DriverKeyOf(const bus::UsbDeviceInfo& device) {
  return host::ImagingDriverKey(device.Product & 0xFFFU);
}

std::string IdentityText(const bus::UsbDeviceInfo& device) {
  std::array<char, 10> text{};
  std::snprintf(text.data(), text.size(), "%04x:%04x", unsigned{device.Vendor},
                unsigned{device.Product});
  return text.data();
}

}  // namespace lidcam::app
