#include "tests/on_wine/client/bus_port.h"

#include <string_view>

#include "tests/on_wine/client/device/device_interface.h"
#include "tests/on_wine/client/report.h"

namespace lidcam::wine {
CameraInterfaces FindCameraInterfaces() {
  return {FindInterface(KSCATEGORY_CAPTURE), FindInterface(KSCATEGORY_VIDEO)};
}

BusPort::BusPort() : bus_(L"\\\\.\\LidcamBus") {}

CameraInterfaces BusPort::PlugIn(const std::string& options) const {
  DWORD error = 0;
  const auto isPluggedIn = [&] {
    error = bus_.Tell(kPlugIn, std::as_bytes(std::span(options)));
    return error != ERROR_BUSY;
  };
  Require(WaitUntil(isPluggedIn, kRequestLimit) && error == 0,
          "plug in '" + options + "': error " + std::to_string(error));
  CameraInterfaces found;
  const auto areThere = [&] {
    found = FindCameraInterfaces();
    return found.AreThere();
  };
  Require(WaitUntil(areThere, kRequestLimit), "the camera's interfaces don't come up");
  return found;
}

void BusPort::PullOut() const {
  bus_.Ask(kPullOut, {}, 0, "pull the camera out");
  const auto areGone = [] { return FindCameraInterfaces().AreGone(); };
  Require(WaitUntil(areGone, kRequestLimit), "the camera's interfaces don't go");
}

void BusPort::UnloadCameraDriver() const {
  constexpr std::string_view kService = "lidcam";
  DWORD error = 0;
  const auto isUnloaded = [&] {
    error = bus_.Tell(kUnloadDriver, std::as_bytes(std::span(kService)));
    return error == 0;
  };
  Require(WaitUntil(isUnloaded, kRequestLimit),
          "unload the driver: error " + std::to_string(error));
}

}  // namespace lidcam::wine
