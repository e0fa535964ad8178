#include "apps/lidcam/camera/served_source.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <system_error>

#include "bus/capture/replay/capture_bus.h"
#include "library/base/command_error.h"
#include "library/camera/gates/frame_faults.h"
#include "library/camera/source/plugged_camera.h"

namespace lidcam::app {
namespace {

// A server has no duration over which a seed's faults could be spread.
constexpr std::chrono::minutes kFaultySpan{10};

void RequireFile(const std::string& path) {
  std::error_code ignored;
  if (std::filesystem::is_regular_file(path, ignored)) return;
  if (path != "-" && !std::filesystem::exists(path, ignored)) return;  // fails when it is opened
  throw UsageError("capture '" + path +
                   "' is no file: each client reads it anew, and a pipe can be read only once");
}

}  // namespace

serve::CameraSupply::Options ServedCameras(const CameraChoice& choice,
                                           const std::optional<std::string>& faults) {
  serve::CameraSupply::Options options;
  if (faults) options.Faults = FaultsOfOption(*faults, kFaultySpan);
  const auto path = CaptureFileOf(choice.Camera);
  if (IsPluggedIn(choice.Camera)) {
    throw UsageError("camera '" + choice.Camera +
                     "' is plugged in here: served are simulated cameras and recordings");
  }
  if (!path) {
    CameraChoice free = choice;
    free.IsFast = true;
    options.Plug = [free, script = options.Faults] {
      auto bus = OpenCamera(free);
      if (script) DisturbFrames(*bus, *script);
      return bus;
    };
    return options;
  }
  RequireFile(*path);
  if (options.Faults) RefuseFrameFaults(*options.Faults);
  const bus::CaptureSource source = OpenCapture(*path, choice.Device);
  TellNotes(source);
  options.Plug = [source] { return std::make_unique<bus::CaptureBus>(source); };
  return options;
}

}  // namespace lidcam::app
