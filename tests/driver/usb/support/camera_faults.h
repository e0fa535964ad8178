#pragma once

#include <cstdint>
#include <optional>

namespace lidcam::test {

/// What the camera core is to refuse although it has no reason to: results that the transport has an
/// answer to and that no camera provokes. One of them lives at a time; the linker leads the core's
/// operations here (--wrap).
struct CameraFaults {
  CameraFaults();
  CameraFaults(const CameraFaults&) = delete;
  CameraFaults& operator=(const CameraFaults&) = delete;
  ~CameraFaults();

  bool NoRawBuffer = false;  ///< NegotiateFormat() asks for a raw buffer of 0 bytes
  bool ModeFails = false;    ///< SelectStreamMode() does its work and gives -1
  bool EndFails = false;     ///< EndStream() does its work and gives -1

  /// Device class that CreateCameraContext() tells.
  std::optional<std::uint32_t> DeviceClass;

  unsigned FailingLoad = 0;  ///< which LoadSettings() from now on does its work and gives -1
  unsigned Loads = 0;        ///< how many there have been
};

}  // namespace lidcam::test
