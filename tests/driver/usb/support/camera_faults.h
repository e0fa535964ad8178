#pragma once

#include <cstdint>
#include <optional>

namespace lidcam::test {

/// Fault injection into the camera core: results that the transport handles and that no camera
/// causes. One at a time; the linker redirects the core's operations here (--wrap).
struct CameraFaults {
  CameraFaults();
  CameraFaults(const CameraFaults&) = delete;
  CameraFaults& operator=(const CameraFaults&) = delete;
  ~CameraFaults();

  bool NoRawBuffer = false;  ///< NegotiateFormat() returns a raw buffer size of 0
  bool ModeFails = false;    ///< SelectStreamMode() does its work and returns -1
  bool EndFails = false;     ///< EndStream() does its work and returns -1

  /// Device class that CreateCameraContext() returns.
  std::optional<std::uint32_t> DeviceClass;

  unsigned FailingLoad = 0;  ///< which LoadSettings() from now on does its work and returns -1
  unsigned Loads = 0;        ///< how many there have been
};

}  // namespace lidcam::test
