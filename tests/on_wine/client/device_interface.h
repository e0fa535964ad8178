#pragma once

#include <windows.h>

#include <string>

namespace lidcam::wine {

/// Path of the category's first interface whose device is there; empty if there is none.
[[nodiscard]] std::wstring FindInterface(const GUID& category);

/// What the key of an interface tells applications: the class that they make for it, and the name that
/// they show.
struct InterfaceNames {
  std::wstring Class;
  std::wstring Friendly;
};

/// Opens the key of an interface and reads it.
/// @throws Failure naming what isn't there
[[nodiscard]] InterfaceNames ReadInterfaceNames(const GUID& category, const std::wstring& path);

}  // namespace lidcam::wine
