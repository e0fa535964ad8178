#include "platform/host/ks/file_names.h"

namespace lidcam::host {
namespace {

constexpr USHORT kGuidLetters = 38;

WCHAR UpperCase(WCHAR letter) {
  const bool isLower = letter >= 'a' && letter <= 'z';
  return isLower ? static_cast<WCHAR>(letter - 'a' + 'A') : letter;
}

bool IsSameText(const WCHAR* one, const WCHAR* other, ULONG letters) {
  for (ULONG i = 0; i < letters; ++i) {
    if (UpperCase(one[i]) != UpperCase(other[i])) return false;
  }
  return true;
}

/// Writes a GUID as text, letter by letter.
class GuidText {
 public:
  explicit GuidText(const GUID& guid) {
    Put('{');
    PutHex(guid.Data1, 8);
    Put('-');
    PutHex(guid.Data2, 4);
    Put('-');
    PutHex(guid.Data3, 4);
    for (int i = 0; i < 8; ++i) {
      if (i == 0 || i == 2) Put('-');
      PutHex(guid.Data4[i], 2);
    }
    Put('}');
  }

  [[nodiscard]] const WCHAR* Letters() const { return letters_; }

 private:
  void Put(char letter) { letters_[length_++] = static_cast<WCHAR>(letter); }
  void PutHex(ULONG value, int digits) {
    while (digits-- > 0) Put("0123456789ABCDEF"[(value >> (4 * digits)) & 0xF]);
  }

  WCHAR letters_[kGuidLetters]{};
  int length_ = 0;
};

}  // namespace

bool IsSameName(const UNICODE_STRING& one, const UNICODE_STRING& other) {
  return one.Length == other.Length &&
         IsSameText(one.Buffer, other.Buffer, one.Length / static_cast<ULONG>(sizeof(WCHAR)));
}

bool ParseRelativeName(const UNICODE_STRING& name, const GUID& kind, RelativeName& parsed) {
  constexpr ULONG kKindLength = kGuidLetters * sizeof(WCHAR);
  constexpr ULONG kBeginLength = kKindLength + sizeof(WCHAR);
  parsed = {};
  if (name.Length < kKindLength) return false;
  if (!IsSameText(name.Buffer, GuidText(kind).Letters(), kGuidLetters)) return false;
  if (name.Length == kKindLength) return true;
  if (name.Length < kBeginLength || name.Buffer[kGuidLetters] != '\\') return false;
  parsed.Parameters = reinterpret_cast<const UCHAR*>(name.Buffer) + kBeginLength;
  parsed.ParametersLength = name.Length - kBeginLength;
  return true;
}

}  // namespace lidcam::host
