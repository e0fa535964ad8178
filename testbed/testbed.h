#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <string>

#include "bus/usb_bus.h"
#include "platform/host/usbd/device/usb_device_stack.h"
#include "testbed/device_filter.h"
#include "testbed/metered_bus.h"

namespace lidcam::testbed {

/// The port that a camera is plugged into.
struct PortOptions {
  std::u16string DriverKey{};      ///< of the camera's settings in the registry; empty: no settings
  ULONG FirstBusFrame = 0;         ///< bus frame number at interrupt time 0
  DeviceFilter* Filter = nullptr;  ///< attached below the driver's device; outlives the camera
};

/// One camera plugged into one host: a bus, the host's USB stack on it, and a driver above, used in
/// one of two ways: by the device's operations (TransportTestbed) or by an application's files
/// (InstalledTestbed).
///
/// It belongs to the world of the thread that makes it (see worlds.h). Passive level, except that
/// PullPlug() may come from any thread of the world.
class Testbed {
 public:
  Testbed(const Testbed&) = delete;
  Testbed& operator=(const Testbed&) = delete;

  /// Unplugs the camera, as seen by the bus and the USB stack.
  void PullPlug() { stack_->Unplug(); }
  /// How the bus ended, if so. Any thread.
  [[nodiscard]] BusEnd End() const { return meter_.End(); }
  /// What was read from the bus. Any thread.
  [[nodiscard]] BusMeter Meter() const { return meter_.Meter(); }

 protected:
  /// Makes a host without a camera.
  ///
  /// @param bus    outlives the camera
  /// @param ended  called once, on the thread of the request that detected that the device is gone
  Testbed(bus::UsbBus& bus, PortOptions options, std::function<void()> ended)
      : options_(std::move(options)), meter_(bus, std::move(ended)) {}
  ~Testbed() = default;

  /// Plugs the camera in and starts its driver; if either throws, destroys everything and rethrows.
  void Build(const std::function<void()>& bringDriver, const std::function<void()>& takeDriverDown);
  /// Destroys the driver and then the stack.
  void TakeDown(const std::function<void()>& takeDriverDown);

  [[nodiscard]] bool IsPluggedIn() const { return stack_ != nullptr; }
  [[nodiscard]] PDEVICE_OBJECT PhysicalDevice() const { return stack_->PhysicalDeviceObject(); }
  [[nodiscard]] DRIVER_OBJECT& DriverObject() { return driver_; }
  [[nodiscard]] const DRIVER_OBJECT& DriverObject() const { return driver_; }

 private:
  void PlugIn();

  const PortOptions options_;
  MeteredBus meter_;
  std::unique_ptr<host::UsbDeviceStack> stack_;
  DRIVER_OBJECT driver_{};
};

}  // namespace lidcam::testbed
