#pragma once

#include <string>

namespace lidcam::wine {

/// Installs the camera's driver package: its INF, and lidcam.sys in the same folder.
/// @param folder  ends with a backslash
void InstallCameraDriver(const std::wstring& folder);

/// Creates a device for the simulated bus and installs its driver.
/// @param folder  of camera_bus.inf and camera_bus.sys; ends with a backslash
void InstallBus(const std::wstring& folder);

/// The folder of the drivers; ends with a backslash.
[[nodiscard]] std::wstring DriverFolder();

}  // namespace lidcam::wine
