#pragma once

#include <string>

namespace lidcam::wine {

/// Makes the camera's driver known: its INF, with lidcam.sys beside it.
/// @param folder  ends with a backslash
void InstallCameraDriver(const std::wstring& folder);

/// Makes the simulated bus a device of the machine and installs its driver.
/// @param folder  of camera_bus.inf and camera_bus.sys; ends with a backslash
void InstallBus(const std::wstring& folder);

/// The folder of the drivers; ends with a backslash.
[[nodiscard]] std::wstring DriverFolder();

}  // namespace lidcam::wine
