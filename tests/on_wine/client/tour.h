#pragma once

#include <string>

namespace lidcam::wine {

/// What the tour works with. Folders end with a backslash.
struct TourOptions {
  std::wstring Package;  ///< lidcam.inf, lidcam.sys
  std::wstring Bus;      ///< camera_bus.inf, camera_bus.sys
  /// Holds usual and changed, each a tree with system32/drivers/S001.set; frames and what is told
  /// of them go here.
  std::wstring Run;
};

/// Everything that the driver does on a machine, from its installation to its last line, in one go.
/// @throws Failure at the first step that goes wrong
void TakeTour(const TourOptions& options);

}  // namespace lidcam::wine
