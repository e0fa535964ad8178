#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bus/usb/plugged_device.h"
#include "bus/usb_bus.h"

namespace lidcam::bus {

/// The subject of a line for the user.
enum class UsbNotice {
  NoRoom,    ///< the bus refuses an alternate setting
  HasRoom,   ///< and takes a narrower one
  NoMemory,  ///< the kernel refuses memory for transfers
};

struct UsbPortOptions {
  /// Gets a line for the user when a request was refused for a reason that the user can remove. On
  /// the thread of the request; may be empty.
  std::function<void(UsbNotice notice, const std::string& line)> Tell{};
  /// How long a control request may take: as long as the hosts of this camera wait.
  std::chrono::milliseconds ControlLimit{5000};
};

/// The USB of this machine, through libusb: the devices plugged in, and a UsbBus to each.
///
/// One thread handles the events of all devices opened through it. Any thread may call.
class UsbHost {
 public:
  /// Never fails: a machine without USB has no devices, and Obstacle() returns the reason.
  UsbHost();
  UsbHost(const UsbHost&) = delete;
  UsbHost& operator=(const UsbHost&) = delete;
  ~UsbHost();

  /// Why devices can't be enumerated; empty if they can.
  [[nodiscard]] std::string Obstacle() const;

  /// What is plugged in now, hubs included, in the order of bus and ports.
  [[nodiscard]] std::vector<PluggedDevice> Devices() const;

  /// Opens a device and claims its interfaces. A kernel driver that holds one is detached, and
  /// attached again when the bus is destroyed.
  ///
  /// The bus keeps its own references to this host's state. Its requests end in bounded time even
  /// if the device or libusb hang: a control request at its time limit, a read after 3 s without a
  /// packet. Throws UsbError.
  [[nodiscard]] std::unique_ptr<UsbBus> Open(const PluggedDevice& device, UsbPortOptions options);

  /// Waits until something has been plugged in or unplugged since the last call, or for so long.
  /// @return false if the time is over
  bool WaitForChange(std::chrono::milliseconds limit);

 private:
  class Session;
  std::shared_ptr<Session> session_;
};

}  // namespace lidcam::bus
