#pragma once

#include "platform/kernel.h"

namespace lidcam::host {

/// Compares names without regard to the case of the letters A to Z.
bool IsSameName(const UNICODE_STRING& one, const UNICODE_STRING& other);

/// The name of a file that an application opens relative to another: what kind of object it wants, and
/// the bytes behind that, of which it says more.
struct RelativeName {
  const UCHAR* Parameters;
  ULONG ParametersLength;
};

/// Takes a name apart that begins with `kind` as text, "{...}" with a backslash. The backslash may be
/// missing if nothing follows.
/// @return false for another beginning
bool ParseRelativeName(const UNICODE_STRING& name, const GUID& kind, RelativeName& parsed);

}  // namespace lidcam::host
