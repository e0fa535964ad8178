#pragma once

#include <windows.h>

#include <string>

namespace lidcam::wine {

/// Path of the category's first interface whose device is present; empty if none is.
[[nodiscard]] std::wstring FindInterface(const GUID& category);

/// Values in the key of an interface: the class that applications instantiate for it, and the name
/// that they show.
struct InterfaceNames {
  std::wstring Class;
  std::wstring Friendly;
};

/// Opens the key of an interface and reads it.
/// @throws Failure naming the missing part
[[nodiscard]] InterfaceNames ReadInterfaceNames(const GUID& category, const std::wstring& path);

}  // namespace lidcam::wine
