#pragma once

#include <string>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {

/// A device of the host: the published object, followed by the host's own data. IoCreateDevice()
/// makes them; a test that needs only a device with settings declares one.
struct HostDevice : DEVICE_OBJECT {
  HostDevice() : HostDevice(std::u16string()) {}
  explicit HostDevice(std::u16string driverKey);
  HostDevice(const HostDevice&) = delete;
  HostDevice& operator=(const HostDevice&) = delete;

  DEVOBJ_EXTENSION Extension{};

  /// Full path of the registry key that holds the device's driver settings, in the kernel's form
  /// (\Registry\Machine\...). Empty for a device that was not installed: it has no settings.
  std::u16string DriverKey;

  /// Plug and play removes the device: it can't be opened any more.
  bool IsBeingRemoved = false;
};

/// @return the host's device behind a published object, or null if the host didn't make it
[[nodiscard]] HostDevice* FindHostDevice(PDEVICE_OBJECT device);

/// Fills a driver object as the platform does before it calls the driver's entry: every request is
/// completed with STATUS_INVALID_DEVICE_REQUEST until the driver sets its own routines. Forgets a
/// driver object that was filled at this address before, with all that was added to it.
void InitializeDriverObject(DRIVER_OBJECT& driver);

/// The driver key of the imaging device with this number in the platform's class of imaging devices:
/// where an installed camera keeps its settings, so that an exported key can be imported there.
///
/// @param instance  0 to 9999
[[nodiscard]] std::u16string ImagingDriverKey(unsigned instance);

}  // namespace lidcam::host
