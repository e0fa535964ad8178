#include "tests/on_wine/client/device/driver_installation.h"

#include <windows.h>
//
#include <newdev.h>
#include <setupapi.h>

#include <array>

#include "tests/on_wine/client/report.h"

namespace lidcam::wine {
namespace {

constexpr GUID kSystemClass = {
    0x4D36E97D, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
// A list of one.
constexpr wchar_t kBusId[] = L"ROOT\\LidcamBus\0";

void RegisterBusDevice(HDEVINFO devices) {
  SP_DEVINFO_DATA device{};
  device.cbSize = sizeof(device);
  RequireCall(SetupDiCreateDeviceInfoW(devices, L"ROOT\\LidcamBus\\0000", &kSystemClass,
                                       L"Simulated USB bus", nullptr, 0, &device) != FALSE,
              "make the bus's device");
  RequireCall(SetupDiSetDeviceRegistryPropertyW(devices, &device, SPDRP_HARDWAREID,
                                                reinterpret_cast<const BYTE*>(kBusId),
                                                sizeof(kBusId)) != FALSE,
              "name the bus's device");
  RequireCall(SetupDiCallClassInstaller(DIF_REGISTERDEVICE, devices, &device) != FALSE,
              "register the bus's device");
}

}  // namespace

void InstallCameraDriver(const std::wstring& folder) {
  std::array<wchar_t, MAX_PATH> copied{};
  RequireCall(SetupCopyOEMInfW((folder + L"lidcam.inf").c_str(), nullptr, SPOST_PATH, 0,
                               copied.data(), MAX_PATH, nullptr, nullptr) != FALSE,
              "install lidcam.inf");
  Ok("lidcam.inf is known as " + Narrow(copied.data()));
}

void InstallBus(const std::wstring& folder) {
  const HDEVINFO devices = SetupDiCreateDeviceInfoList(&kSystemClass, nullptr);
  RequireCall(devices != INVALID_HANDLE_VALUE, "make a list of devices");
  RegisterBusDevice(devices);
  SetupDiDestroyDeviceInfoList(devices);
  BOOL needsRestart = FALSE;
  RequireCall(UpdateDriverForPlugAndPlayDevicesW(
                  nullptr, kBusId, (folder + L"camera_bus.inf").c_str(), 0, &needsRestart) != FALSE,
              "install camera_bus.inf");
  Ok("camera_bus.inf is installed");
}

std::wstring DriverFolder() {
  std::array<wchar_t, MAX_PATH> system{};
  RequireCall(GetSystemDirectoryW(system.data(), MAX_PATH) != 0, "find the system's folder");
  return std::wstring(system.data()) + L"\\drivers\\";
}

}  // namespace lidcam::wine
