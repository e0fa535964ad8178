#include "platform/windows/wine/client/bus_port.h"

#include <setupapi.h>

#include <string_view>

#include "platform/windows/wine/client/report.h"

namespace lidcam::wine {
namespace {

std::wstring PathOf(HDEVINFO devices, SP_DEVICE_INTERFACE_DATA& found) {
  DWORD bytes = 0;
  SetupDiGetDeviceInterfaceDetailW(devices, &found, nullptr, 0, &bytes, nullptr);
  std::vector<DWORD> room(bytes / sizeof(DWORD) + 1);
  auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(room.data());
  detail->cbSize = sizeof(*detail);
  RequireCall(
      SetupDiGetDeviceInterfaceDetailW(devices, &found, detail, bytes, nullptr, nullptr) != FALSE,
      "tell the path of an interface");
  return detail->DevicePath;
}

std::wstring FindInterface(const GUID& category) {
  const HDEVINFO devices =
      SetupDiGetClassDevsW(&category, nullptr, nullptr, DIGCF_DEVICEINTERFACE | DIGCF_PRESENT);
  RequireCall(devices != INVALID_HANDLE_VALUE, "list interfaces");
  SP_DEVICE_INTERFACE_DATA found{};
  found.cbSize = sizeof(found);
  std::wstring path;
  if (SetupDiEnumDeviceInterfaces(devices, nullptr, &category, 0, &found)) {
    path = PathOf(devices, found);
  }
  SetupDiDestroyDeviceInfoList(devices);
  return path;
}

}  // namespace

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
