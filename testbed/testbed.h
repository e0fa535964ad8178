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

/// Where a camera is plugged in.
struct PortOptions {
  std::u16string DriverKey{};  ///< of the camera's settings in the registry; empty: there are none
  ULONG FirstBusFrame = 0;     ///< bus frame number at interrupt time 0
  DeviceFilter* Filter = nullptr;  ///< stands below the driver's device; outlives the camera
};

/// One camera plugged into one host: a bus, the host's USB stack on it, and a driver above, which one of the
/// two entrances brings: the device's operations (TransportTestbed) or an application's files
/// (InstalledTestbed).
///
/// It belongs to the world of the thread that makes it (see worlds.h). All calls are for passive level;
/// PullPlug() may come from any thread of the world.
class Testbed {
 public:
  Testbed(const Testbed&) = delete;
  Testbed& operator=(const Testbed&) = delete;

  /// The cable is pulled: the bus and the USB stack know.
  void PullPlug() { stack_->Unplug(); }
  /// How the bus ended, if it did. Any thread.
  [[nodiscard]] BusEnd End() const { return meter_.End(); }
  /// What was read from the bus. Any thread.
  [[nodiscard]] BusMeter Meter() const { return meter_.Meter(); }

 protected:
  /// Nothing is plugged in yet.
  ///
  /// @param bus    outlives the camera
  /// @param ended  called once, on the thread of the request that found the device gone
  Testbed(bus::UsbBus& bus, PortOptions options, std::function<void()> ended)
      : options_(std::move(options)), meter_(bus, std::move(ended)) {}
  ~Testbed() = default;

  /// Plugs the camera in and brings its driver; takes everything down and throws again what either throws.
  void Build(const std::function<void()>& bringDriver, const std::function<void()>& takeDriverDown);
  /// Takes the driver and then the stack down.
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
