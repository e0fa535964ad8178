#pragma once

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::testbed {

/// A device of somebody's own between the camera's driver and the USB stack. Passive level.
class DeviceFilter {
 public:
  virtual ~DeviceFilter() = default;

  /// Puts its device on top of the stack. Called before the driver's device comes.
  /// @throws std::runtime_error if the kernel has no room for it; Detach() is called then, too
  virtual void Attach(PDEVICE_OBJECT below) = 0;

  /// Takes it off again, once the driver's device has gone.
  virtual void Detach() = 0;
};

}  // namespace lidcam::testbed
