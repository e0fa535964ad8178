#pragma once

#include <functional>
#include <string>

#include "bus/usb_bus.h"
#include "driver/avstream/device/capture_device.h"
#include "testbed/device_filter.h"
#include "testbed/installed_driver.h"
#include "testbed/testbed.h"

namespace lidcam::testbed {

struct InstalledTestbedOptions {
  /// As in TransportTestbedOptions.
  std::u16string DriverKey{};
  ULONG FirstBusFrame = 0;         ///< bus frame number at interrupt time 0
  DeviceFilter* Filter = nullptr;  ///< attached below the driver's device; outlives the camera
};

/// The interface of applications: the host has the camera's driver as loaded from its image, and
/// plug and play has reported the device to it. Applications open it by TopDevice().
///
/// Requests of plug and play come from one thread at a time.
class InstalledTestbed final : public Testbed {
 public:
  /// Loads the driver and adds the device; it is started by Start().
  ///
  /// @param bus  outlives the camera
  /// @throws std::runtime_error if the driver or the kernel has no memory; nothing is left
  InstalledTestbed(bus::UsbBus& bus, InstalledTestbedOptions options);

  /// As Close(), except when an exception destroys it: the world stops then.
  ~InstalledTestbed() noexcept(false);

  // Each returns the drivers' status.

  NTSTATUS Start();
  NTSTATUS PowerDown();
  NTSTATUS PowerUp();
  /// Removes the device, also after a surprise removal. The driver's own device stays for files
  /// that are still open, and is deleted with the last one.
  NTSTATUS Remove();

  /// PullPlug(), and reports it to the driver.
  NTSTATUS SurpriseRemove();

  /// Removes the device, unloads the driver and destroys the stack. Files must be closed before.
  void Close();

  /// For applications. The bus's own device after the driver's has been removed.
  [[nodiscard]] PDEVICE_OBJECT TopDevice() const;
  /// The driver's data of the device, for inspection, until Remove().
  [[nodiscard]] const CaptureDevice& Device() const;
  /// Calls `use` with the camera's record, concurrently with the driver; no effect without a
  /// record.
  void WithCamera(const std::function<void(CameraContext& camera)>& use) const;

 private:
  void Install();
  void Unload();
  [[nodiscard]] PDEVICE_OBJECT FunctionalDevice() const;
  [[nodiscard]] CaptureDevice& Driver() const;

  InstalledDriver installedDriver_;
};

}  // namespace lidcam::testbed
