#pragma once

#include "platform/kernel.h"

namespace lidcam::host {

/// A GUID as the registry writes it, in capitals: "{146F1A80-4791-11D0-A5D6-28DB04C10000}".
class GuidText {
 public:
  static constexpr USHORT kLetters = 38;

  explicit GuidText(const GUID& guid);

  [[nodiscard]] const WCHAR* Letters() const { return letters_; }
  /// Valid as long as this object.
  [[nodiscard]] UNICODE_STRING AsString();

 private:
  void Put(char letter) { letters_[length_++] = static_cast<WCHAR>(letter); }
  void PutHex(ULONG value, int digits);

  WCHAR letters_[kLetters]{};
  int length_ = 0;
};

/// Compares names without regard to the case of the letters A to Z.
bool IsSameName(const UNICODE_STRING& one, const UNICODE_STRING& other);

/// The name of a file that an application opens relative to another: the kind of the object, and
/// the bytes after it that describe it.
struct RelativeName {
  const UCHAR* Parameters;
  ULONG ParametersLength;
};

/// Parses a name that begins with `kind` as text, "{...}" with a backslash. The backslash may be
/// missing at the end of the name.
/// @return false for another beginning
bool ParseRelativeName(const UNICODE_STRING& name, const GUID& kind, RelativeName& parsed);

}  // namespace lidcam::host
