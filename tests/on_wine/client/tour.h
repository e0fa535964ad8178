#pragma once

#include <string>

namespace lidcam::wine {

/// Inputs of the tour. Folders end with a backslash.
struct TourOptions {
  std::wstring Package;  ///< lidcam.inf, lidcam.sys
  std::wstring Bus;      ///< camera_bus.inf, camera_bus.sys
  /// Contains "usual" and "changed", each a tree with system32/drivers/S001.set; frames and their
  /// records are written here.
  std::wstring Run;
};

/// All operations of the driver on a machine, from its installation to its unloading.
/// @throws Failure at the first step that fails
void TakeTour(const TourOptions& options);

}  // namespace lidcam::wine
