#include "library/camera/source/camera_source.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "bus/capture/files/capture_input.h"
#include "bus/capture/replay/capture_bus.h"
#include "camera_model/bus_adapter/simulated_bus.h"
#include "camera_model/device/camera_options.h"
#include "library/base/command_error.h"
#include "library/base/notices.h"
#include "library/camera/source/plugged_camera.h"
#include "library/camera/source/recorded_settings.h"

namespace lidcam::app {
namespace {

constexpr std::string_view kCapturePrefix = "capture:";

bool IsSimulated(const std::string& camera) {
  return camera == "sim" || camera.starts_with("sim:") || camera.starts_with("sim,");
}

// The camera's name may set the scene's light itself; with both, one would be ignored.
void RefuseTwoLights(const CameraChoice& choice, const char* option, const std::string& word) {
  if (choice.Camera.find("," + word) == std::string::npos) return;
  throw UsageError(std::string(option) + " and " + word + " in camera '" + choice.Camera +
                   "' say the same thing twice: give one of them");
}

camera_model::CameraOptions OptionsOf(const CameraChoice& choice) {
  try {
    camera_model::CameraOptions options = camera_model::ParseCameraOptions(choice.Camera);
    if (choice.Light) {
      RefuseTwoLights(choice, "--light", "light=");
      options.Light = camera_model::ParseLightSchedule(*choice.Light);
    }
    if (choice.Mains) {
      RefuseTwoLights(choice, "--mains", "mains=");
      if (*choice.Mains != "50Hz" && *choice.Mains != "60Hz") {
        throw UsageError("mains '" + *choice.Mains + "': 50Hz or 60Hz expected");
      }
      options.MainsRate = *choice.Mains == "50Hz" ? 100 : 120;
    }
    return options;
  } catch (const std::invalid_argument& error) {
    throw UsageError(error.what());
  }
}

std::unique_ptr<bus::UsbBus> OpenSimulated(const CameraChoice& choice) {
  const camera_model::CameraOptions options = OptionsOf(choice);
  try {
    return bus::MakeSimulatedBus(options,
                                 choice.IsFast ? bus::Pacing::FreeRunning : bus::Pacing::RealTime);
  } catch (const std::invalid_argument& error) {
    throw UsageError(error.what());
  } catch (const std::runtime_error& error) {
    throw CommandError(error.what());
  }
}

void RefuseLightOnGlass(const CameraChoice& choice) {
  if (!choice.Light && !choice.Mains) return;
  throw UsageError(std::string(choice.Light ? "--light" : "--mains") +
                   " lights the scene of a simulated camera; camera '" + choice.Camera +
                   "' has a scene of its own");
}

std::optional<bus::DeviceAddress> AddressOf(const std::optional<std::string>& device) {
  if (!device) return std::nullopt;
  try {
    return bus::ParseDeviceAddress(*device);
  } catch (const bus::CaptureError& error) {
    throw UsageError(error.what());
  }
}

}  // namespace

std::optional<std::string> UnitOf(const CameraChoice& choice) {
  if (IsPluggedIn(choice.Camera)) return "usb-" + FindPluggedCamera(choice.Camera).Path;
  if (!IsSimulated(choice.Camera)) return std::nullopt;
  const camera_model::CameraOptions options = OptionsOf(choice);
  std::array<char, 20> identity{};
  std::snprintf(identity.data(), identity.size(), "%04x-%04x", unsigned{options.VendorId},
                unsigned{options.ProductId});
  return std::string(identity.data()) + "-seed" + std::to_string(options.Seed);
}

std::optional<std::string> SceneFileOf(const CameraChoice& choice) {
  if (!IsSimulated(choice.Camera)) return std::nullopt;
  const std::string scene = OptionsOf(choice).SceneFile;
  return scene.empty() ? std::nullopt : std::optional(scene);
}

SetFiles SetFilesFor(const CameraChoice& choice) {
  if (IsPluggedIn(choice.Camera)) return SetFiles::OfPluggedCameras;
  return CaptureFileOf(choice.Camera) ? SetFiles::OfHardware : SetFiles::OfSimulatedCameras;
}

std::optional<std::string> CaptureFileOf(const std::string& camera) {
  if (!camera.starts_with(kCapturePrefix)) return std::nullopt;
  return camera.substr(kCapturePrefix.size());
}

bus::CaptureSource OpenCapture(const std::string& path, const std::optional<std::string>& device) {
  if (path.empty()) throw UsageError("capture '' names no file; - is standard input");
  const std::optional<bus::DeviceAddress> address = AddressOf(device);
  try {
    return bus::CaptureSource(path, address);
  } catch (const bus::CaptureError& error) {
    std::error_code ignored;
    const bool isThere = path == "-" || std::filesystem::exists(path, ignored);
    throw CommandError(error.what(), isThere ? Failure::Other : Failure::NotFound);
  }
}

void TellNotes(const bus::CaptureSource& source) {
  for (const std::string& note : source.Notes()) {
    TellUser(bus::CaptureName(source.Path()) + ": " + note);
  }
}

std::unique_ptr<bus::UsbBus> OpenCamera(const CameraChoice& choice) {
  if (const auto path = CaptureFileOf(choice.Camera)) {
    RefuseLightOnGlass(choice);
    const bus::CaptureSource source = OpenCapture(*path, choice.Device);
    TellNotes(source);
    auto recorded = std::make_unique<bus::CaptureBus>(source);
    if (!AdoptRecordedSettings(*recorded, choice.DriverKey)) {
      throw CommandError(
          bus::CaptureName(*path) +
          ": the camera's whole bring-up is not in it: lidcam replay gives its frames");
    }
    return recorded;
  }
  if (choice.Device) {
    throw UsageError("--device names a device of a capture: give --camera capture:FILE with it");
  }
  if (IsSimulated(choice.Camera)) return OpenSimulated(choice);
  if (IsPluggedIn(choice.Camera)) {
    RefuseLightOnGlass(choice);
    return OpenPluggedCamera(choice.Camera);
  }
  throw UsageError("camera '" + choice.Camera +
                   "' is of no known kind: use sim, sim:VID:PID, capture:FILE or usb");
}

std::optional<camera_model::LightSchedule> LightOn(const CameraChoice& choice) {
  if (!IsSimulated(choice.Camera)) return std::nullopt;
  return OptionsOf(choice).Light;
}

void RefuseControlsOfRecording(const CameraChoice& camera) {
  if (!CaptureFileOf(camera.Camera)) return;
  throw UsageError("camera '" + camera.Camera +
                   "' is a recording: its pictures are taken, and no control changes them");
}

}  // namespace lidcam::app
