#pragma once

#include <functional>
#include <string>

#include "bus/usb_bus.h"
#include "driver/avstream/device/capture_device.h"
#include "testbed/device_filter.h"
#include "testbed/testbed.h"

namespace lidcam::testbed {

struct InstalledTestbedOptions {
  /// As TransportTestbedOptions have it.
  std::u16string DriverKey{};
  ULONG FirstBusFrame = 0;         ///< bus frame number at interrupt time 0
  DeviceFilter* Filter = nullptr;  ///< stands below the driver's device; outlives the camera
};

/// The entrance of applications: the host has the camera's driver as its image brings it, which plug and
/// play has told of the device. Applications open it by TopDevice().
///
/// What plug and play says comes from one thread at a time.
class InstalledTestbed final : public Testbed {
 public:
  /// Loads the driver and adds the device; it is started by Start().
  ///
  /// @param bus  outlives the camera
  /// @throws std::runtime_error if the driver or the kernel has no room; nothing is left
  InstalledTestbed(bus::UsbBus& bus, InstalledTestbedOptions options);

  /// As Close(), unless it is destroyed by an exception: the world stops then.
  ~InstalledTestbed() noexcept(false);

  // Each gives the drivers' status.

  NTSTATUS Start();
  NTSTATUS PowerDown();
  NTSTATUS PowerUp();
  /// The device leaves in order, or what is left of it after a surprise. The driver's own device stays
  /// for files that are still open, and goes with the last one.
  NTSTATUS Remove();

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

 private:
  void Install();
  void Unload();
  [[nodiscard]] PDEVICE_OBJECT FunctionalDevice() const;
  [[nodiscard]] CaptureDevice& Driver() const;
};

}  // namespace lidcam::testbed
