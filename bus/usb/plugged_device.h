#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace lidcam::bus {

/// A device that is plugged in, as the host enumerates it.
struct PluggedDevice {
  std::string Path{};        ///< bus and ports, as Linux names them: "1-2.3"
  unsigned Bus = 0;          ///< number of the bus
  unsigned Address = 0;      ///< device number, a new one each time it is plugged in
  std::uint16_t Vendor = 0;  ///< idVendor
  std::uint16_t Product = 0;
  unsigned Megabits = 0;  ///< signalling rate, 480 for high speed; 0 if unknown

  /// The device's file: "/dev/bus/usb/001/004".
  [[nodiscard]] std::string Node() const;

  friend bool operator==(const PluggedDevice&, const PluggedDevice&) = default;
};

/// Why a device could not be opened.
enum class UsbObstacle {
  NoPermission,  ///< the user may not write to the device's file
  Busy,          ///< another program has an interface of it
  Gone,          ///< it is not plugged in any more
  NotBuiltIn,    ///< this program was built without libusb
  Other,
};

/// A device could not be opened. what() is one line with libusb's error.
class UsbError : public std::runtime_error {
 public:
  UsbError(UsbObstacle obstacle, const std::string& text)
      : std::runtime_error(text), obstacle_(obstacle) {}

  [[nodiscard]] UsbObstacle Obstacle() const { return obstacle_; }

 private:
  UsbObstacle obstacle_;
};

}  // namespace lidcam::bus
