#pragma once

#include <windows.h>

#include <string>

namespace lidcam::wine {

/// Path of the camera's driver key, in the kernel's form. The camera need not be present.
[[nodiscard]] std::wstring DriverKeyPath();

/// Reads the camera's saved settings from the registry with NtQueryValueKey, prints them, and
/// requires those of SetKeptControls().
void CheckSavedSettings();

}  // namespace lidcam::wine
