#pragma once

#include <memory>
#include <optional>
#include <string>

#include "bus/capture/replay/capture_source.h"
#include "bus/usb_bus.h"
#include "camera_model/optics/light_schedule.h"
#include "library/settings/host_environment.h"

namespace lidcam::app {

/// The camera of a command, as the user names it.
struct CameraChoice {
  /// "sim[:vid:pid[,sensor=NAME]...]", "capture:FILE" or "usb[:BUS-PORT][:VID:PID]".
  std::string Camera = "sim";
  std::optional<std::string> Device;  ///< "bus.device" within a capture
  std::optional<std::string> Light;   ///< "300lx@0s,5lx@4s": light on a simulated scene
  std::optional<std::string> Mains;   ///< "50Hz" or "60Hz": lamps on a simulated scene
  bool IsFast = false;                ///< simulated bus time runs as fast as the machine can
  std::u16string DriverKey{};         ///< of the settings; empty: that of the camera's identity
};

/// Opens the camera's bus. Throws UsageError for an invalid name and CommandError for a
/// camera that can't be opened.
[[nodiscard]] std::unique_ptr<bus::UsbBus> OpenCamera(const CameraChoice& choice);

/// The light on the scene over the time of a stream; nothing for a camera that is not simulated.
/// Throws as OpenCamera() does.
[[nodiscard]] std::optional<camera_model::LightSchedule> LightOn(const CameraChoice& choice);

/// A unique key of a camera, as part of a file's name: identity and seed, or the port that it is
/// plugged into. Nothing for a recording, of which every reader has its own copy. Throws as
/// OpenCamera() does for an invalid name.
[[nodiscard]] std::optional<std::string> UnitOf(const CameraChoice& choice);

/// The file of a simulated camera's scene, if it has one. Throws as OpenCamera() does for an invalid name.
[[nodiscard]] std::optional<std::string> SceneFileOf(const CameraChoice& choice);

/// Opens a capture and finds the camera in it. Throws CommandError or UsageError.
[[nodiscard]] bus::CaptureSource OpenCapture(const std::string& path,
                                             const std::optional<std::string>& device);

/// Warns the user of missing parts of a capture.
void TellNotes(const bus::CaptureSource& source);

/// The set files that the camera uses.
[[nodiscard]] SetFiles SetFilesFor(const CameraChoice& choice);

/// The file of a "capture:FILE" name, or nothing.
[[nodiscard]] std::optional<std::string> CaptureFileOf(const std::string& camera);

/// Throws UsageError if controls are to be set on a recording, which holds the pictures as they are.
void RefuseControlsOfRecording(const CameraChoice& camera);

}  // namespace lidcam::app
