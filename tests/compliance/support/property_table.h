#pragma once

#include <ostream>
#include <span>

#include "platform/host/client/camera.h"

namespace lidcam::compliance {

/// A property as a client finds it: what the camera tells of it, and what it holds when it is new.
struct PropertyRow {
  const char* Name;
  const GUID* Set;
  ULONG Id;
  LONG Minimum;
  LONG Maximum;
  LONG Default;  ///< as told
  LONG First;    ///< of a camera that nobody has touched
  ULONG Flags;   ///< of the first value: 1 automatic, 2 manual; 0 for the camera's own set
  ULONG Capabilities;
  bool IsKept;  ///< by the settings, over a removal
};

inline void PrintTo(const PropertyRow& row, std::ostream* out) {
  *out << row.Name;
}

extern const GUID kVideoAmplifier;
extern const GUID kCameraControl;
extern const GUID kVideoControl;
extern const GUID kPrivate;

/// Those with a range and a value that can be set and is then held: all but the white balance, which
/// ignores a set, and what the tests tell by themselves.
[[nodiscard]] std::span<const PropertyRow> PropertyRows();

}  // namespace lidcam::compliance
