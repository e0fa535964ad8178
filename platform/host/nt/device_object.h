#pragma once

#include <string>

#include "platform/host/nt/nt_declarations.h"

/// The host's device object. Drivers see the name only; what stands in it is the host's business.
struct DEVICE_OBJECT {
  /// Full path of the registry key that holds the device's driver settings, in the kernel's form
  /// (\Registry\Machine\...). Empty for a device that nobody installed: it has no settings.
  std::u16string DriverKey;
};

namespace lidcam::host {

/// The driver key of the imaging device with this number in the platform's class of imaging devices:
/// where an installed camera keeps its settings, so that an exported key can be imported there.
///
/// @param instance  0 to 9999
[[nodiscard]] std::u16string ImagingDriverKey(unsigned instance);

}  // namespace lidcam::host
