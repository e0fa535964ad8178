#pragma once

#include <span>

#include "tests/on_wine/client/camera_file.h"

namespace lidcam::wine {

/// A control as the camera's documentation has it.
struct Control {
  const char* Name;  ///< also of the saved value; see IsKept
  const GUID* Set;
  ULONG Id;
  LONG Minimum;
  LONG Maximum;
  LONG Default;  ///< as told
  LONG First;    ///< of a camera that nobody has touched
  LONG Kept;     ///< one that differs from both, for the trial of the settings
  bool IsKept;   ///< saved as a setting
};

/// Those with a range and a value that is held.
[[nodiscard]] std::span<const Control> Controls();

/// Range, default and first value of each control as told; sets of its least, its most and its
/// middle are held, and so are those out of range; restored. Properties that the camera has not are
/// refused.
void TryControls(const CameraFile& camera);

/// Sets the controls that are saved to values that no new camera has.
void SetKeptControls(const CameraFile& camera);
/// Requires the values of SetKeptControls().
void CheckKeptControls(const CameraFile& camera);
/// Sets all controls as a new camera has them, but leaves the exposure in the user's hands: by
/// itself it would depend on how fast frames are looked at.
void SetFirstControls(const CameraFile& camera);

}  // namespace lidcam::wine
