#pragma once

#include <string>

#include "tests/on_wine/client/device/device_file.h"

namespace lidcam::wine {

/// The interfaces by which applications find a camera.
struct CameraInterfaces {
  std::wstring Capture;  ///< paths; empty while there is none
  std::wstring Video;

  [[nodiscard]] bool AreThere() const { return !Capture.empty() && !Video.empty(); }
  [[nodiscard]] bool AreGone() const { return Capture.empty() && Video.empty(); }
};

/// The simulated bus's one port.
class BusPort {
 public:
  BusPort();

  /// Plugs a camera in, once the port is free, and waits until its driver enables the interfaces.
  /// @param options  as `lidcam stream --camera` takes them
  CameraInterfaces PlugIn(const std::string& options) const;
  /// Pulls the camera out and waits until the interfaces are gone. The port is free once the driver
  /// has released the camera.
  void PullOut() const;

  /// Requests the unloading of the camera's driver, after its last camera was removed.
  void UnloadCameraDriver() const;

 private:
  DeviceFile bus_;
};

/// The present interfaces of both categories.
[[nodiscard]] CameraInterfaces FindCameraInterfaces();

}  // namespace lidcam::wine
