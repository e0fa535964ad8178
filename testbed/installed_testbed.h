#pragma once

#include <functional>
#include <memory>
#include <string>

#include "bus/usb_bus.h"
#include "driver/avstream/device/capture_device.h"
#include "platform/host/usbd/device/usb_device_stack.h"
#include "testbed/device_filter.h"
#include "testbed/metered_bus.h"

namespace lidcam::testbed {

struct InstalledTestbedOptions {
  /// As TransportTestbedOptions have it.
  std::u16string DriverKey{};
  ULONG FirstBusFrame = 0;         ///< bus frame number at interrupt time 0
  DeviceFilter* Filter = nullptr;  ///< stands below the driver's device; outlives the camera
};

/// One camera plugged into one host on which its driver is installed: a bus, the host's USB stack on
/// it, and the driver as its image brings it, which plug and play has told of the device. Applications
/// open it by TopDevice().
///
/// It belongs to the world of the thread that makes it. All calls are for passive level; what plug and
/// play says comes from one thread at a time, PullPlug() from any.
class InstalledTestbed {
 public:
  /// Loads the driver and adds the device; it is started by Start().
  ///
  /// @param bus  outlives the camera
  /// @throws std::runtime_error if the driver or the kernel has no room; nothing is left
  InstalledTestbed(bus::UsbBus& bus, InstalledTestbedOptions options);
  InstalledTestbed(const InstalledTestbed&) = delete;
  InstalledTestbed& operator=(const InstalledTestbed&) = delete;

  /// As Close(), unless it is destroyed by an exception: the world stops then.
  ~InstalledTestbed() noexcept(false);

  // Each gives the drivers' status.

  NTSTATUS Start();
  NTSTATUS PowerDown();
  NTSTATUS PowerUp();
  /// The device leaves in order, or what is left of it after a surprise. The driver's own device stays
  /// for files that are still open, and goes with the last one.
  NTSTATUS Remove();

  /// The cable is pulled: the bus and the USB stack know. Any thread of the world.
  void PullPlug() { stack_->Unplug(); }
  /// PullPlug(), and plug and play tells the driver.
  NTSTATUS SurpriseRemove();

  /// Removes the device, unloads the driver and takes the stack down. Files are closed before.
  void Close();

  /// For applications. The bus's own device once the driver's has been removed.
  [[nodiscard]] PDEVICE_OBJECT TopDevice() const;
  /// What the driver keeps of the device; for looking at it, until Remove().
  [[nodiscard]] const CaptureDevice& Device() const;
  /// Lets `use` work on the camera's record beside the driver; nothing if there is none any more.
  void WithCamera(const std::function<void(CameraContext& camera)>& use) const;
  [[nodiscard]] BusEnd End() const { return meter_.End(); }
  [[nodiscard]] BusMeter Meter() const { return meter_.Meter(); }

 private:
  void Install();
  void TakeDown();
  [[nodiscard]] PDEVICE_OBJECT FunctionalDevice() const;
  [[nodiscard]] CaptureDevice& Driver() const;

  const InstalledTestbedOptions options_;
  MeteredBus meter_;
  std::unique_ptr<host::UsbDeviceStack> stack_;
  DRIVER_OBJECT driver_{};
};

}  // namespace lidcam::testbed
