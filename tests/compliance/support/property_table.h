#pragma once

#include <ostream>
#include <span>

#include "platform/host/client/camera.h"

namespace lidcam::compliance {

/// A property as a client finds it: its basic support, and its first value.
struct PropertyRow {
  const char* Name;
  const GUID* Set;
  ULONG Id;
  LONG Minimum;
  LONG Maximum;
  LONG Default;  ///< by basic support
  LONG First;    ///< of a new camera
  ULONG Flags;   ///< of the first value: 1 automatic, 2 manual; 0 for the camera's own set
  ULONG Capabilities;
  bool IsKept;  ///< saved in the settings, across a removal
};

inline void PrintTo(const PropertyRow& row, std::ostream* out) {
  *out << row.Name;
}

extern const GUID kVideoAmplifier;
extern const GUID kCameraControl;
extern const GUID kVideoControl;
extern const GUID kPrivate;

/// The properties with a range and a value that can be set and is then kept: all except the white
/// balance, which ignores a set, and those with tests of their own.
[[nodiscard]] std::span<const PropertyRow> PropertyRows();

}  // namespace lidcam::compliance
