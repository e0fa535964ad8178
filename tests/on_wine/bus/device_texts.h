#pragma once

#include <string>

#include "bus/usb_bus.h"

namespace lidcam::wine {

/// The texts that identify a USB device to plug and play, in its own notation. Lists have a zero
/// after each of their texts.
struct DeviceTexts {
  std::wstring DeviceId;
  std::wstring InstanceId;
  std::wstring HardwareIds;    ///< a list, the most specific first
  std::wstring CompatibleIds;  ///< a list
  std::wstring Description;
  std::wstring Location;
};

/// Reads the device's descriptor, as a hub does with a new device.
/// @throws std::runtime_error if that fails
[[nodiscard]] DeviceTexts ReadDeviceTexts(bus::UsbBus& bus);

}  // namespace lidcam::wine
