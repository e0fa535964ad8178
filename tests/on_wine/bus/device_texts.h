#pragma once

#include <string>

#include "bus/usb_bus.h"

namespace lidcam::wine {

/// What plug and play is told about a USB device, in its own notation. Lists have a zero behind each
/// of their texts.
struct DeviceTexts {
  std::wstring DeviceId;
  std::wstring InstanceId;
  std::wstring HardwareIds;    ///< a list, the most special first
  std::wstring CompatibleIds;  ///< a list
  std::wstring Description;
  std::wstring Location;
};

/// Asks the device for its descriptor, as a hub does with a new device.
/// @throws std::runtime_error if the device doesn't give it
[[nodiscard]] DeviceTexts ReadDeviceTexts(bus::UsbBus& bus);

}  // namespace lidcam::wine
