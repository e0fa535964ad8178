#pragma once

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::testbed {

/// A test's own device between the camera's driver and the USB stack. Passive level.
class DeviceFilter {
 public:
  virtual ~DeviceFilter() = default;

  /// Attaches its device to the stack. Called before the driver's device is attached.
  /// @throws std::runtime_error if the kernel has no memory; Detach() is called then, too
  virtual void Attach(PDEVICE_OBJECT below) = 0;

  /// Detaches the device, after the driver's device was removed.
  virtual void Detach() = 0;
};

}  // namespace lidcam::testbed
