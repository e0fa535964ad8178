#pragma once

#include <span>

#include "tests/on_wine/client/camera/camera_file.h"

namespace lidcam::wine {

/// A control, from the camera's documentation.
struct Control {
  const char* Name;  ///< also of the saved value; see IsKept
  const GUID* Set;
  ULONG Id;
  LONG Minimum;
  LONG Maximum;
  LONG Default;  ///< by basic support
  LONG First;    ///< of a new camera
  LONG Kept;     ///< differs from both, for the test of the settings
  bool IsKept;   ///< saved as a setting
};

/// The controls with a range and a value that is kept.
[[nodiscard]] std::span<const Control> Controls();

/// Checks range, default and first value of each control; that sets of its minimum, maximum and
/// middle are kept, as well as values out of range; and restores it. Properties that the camera
/// lacks must be refused.
void TryControls(const CameraFile& camera);

/// Sets the saved controls to values that differ from a new camera's.
void SetKeptControls(const CameraFile& camera);
/// Requires the values of SetKeptControls().
void CheckKeptControls(const CameraFile& camera);
/// Sets all controls to a new camera's values, except for a manual exposure: an automatic one would
/// depend on how fast frames are read.
void SetFirstControls(const CameraFile& camera);

}  // namespace lidcam::wine
