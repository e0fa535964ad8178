#include "apps/lidcam/camera_source.h"

#include <stdexcept>

#include "apps/lidcam/command_error.h"
#include "bus/capture/capture_bus.h"
#include "bus/simulated/simulated_bus.h"
#include "simulator/camera_options.h"

namespace lidcam::app {
namespace {

constexpr std::string_view kCapturePrefix = "capture:";

std::unique_ptr<bus::UsbBus> OpenSimulated(const CameraChoice& choice) {
  simulator::CameraOptions options;
  try {
    options = simulator::ParseCameraOptions(choice.Camera);
  } catch (const std::invalid_argument& error) {
    throw UsageError(error.what());
  }
  try {
    return bus::MakeSimulatedBus(options,
                                 choice.IsFast ? bus::Pacing::FreeRunning : bus::Pacing::RealTime);
  } catch (const std::invalid_argument& error) {
    throw UsageError(error.what());
  } catch (const std::runtime_error& error) {
    throw CommandError(error.what());
  }
}

}  // namespace

SetFiles SetFilesFor(const CameraChoice& choice) {
  return CaptureFileOf(choice.Camera) ? SetFiles::OfHardware : SetFiles::OfSimulatedCameras;
}

std::optional<std::string> CaptureFileOf(const std::string& camera) {
  if (!camera.starts_with(kCapturePrefix)) return std::nullopt;
  return camera.substr(kCapturePrefix.size());
}

bus::CaptureSource OpenCapture(const std::string& path, const std::optional<std::string>& device) {
  try {
    std::optional<bus::DeviceAddress> address;
    if (device) address = bus::ParseDeviceAddress(*device);
    return bus::CaptureSource(path, address);
  } catch (const bus::CaptureError& error) {
    throw CommandError(error.what());
  }
}

std::unique_ptr<bus::UsbBus> OpenCamera(const CameraChoice& choice) {
  if (const auto path = CaptureFileOf(choice.Camera)) {
    return std::make_unique<bus::CaptureBus>(OpenCapture(*path, choice.Device));
  }
  if (choice.Device) {
    throw UsageError("--device names a device of a capture: give --camera capture:FILE with it");
  }
  if (choice.Camera == "sim" || choice.Camera.starts_with("sim:") ||
      choice.Camera.starts_with("sim,")) {
    return OpenSimulated(choice);
  }
  throw UsageError("camera '" + choice.Camera +
                   "' is of no known kind: use sim, sim:VID:PID or capture:FILE");
}

}  // namespace lidcam::app
