#include "platform/host/ks/objects/file_names.h"

namespace lidcam::host {
namespace {

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

}  // namespace

GuidText::GuidText(const GUID& guid) {
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

void GuidText::PutHex(ULONG value, int digits) {
  while (digits-- > 0) Put("0123456789ABCDEF"[(value >> (4 * digits)) & 0xF]);
}

UNICODE_STRING GuidText::AsString() {
  return {sizeof(letters_), sizeof(letters_), letters_};
}

bool IsSameName(const UNICODE_STRING& one, const UNICODE_STRING& other) {
  return one.Length == other.Length &&
         IsSameText(one.Buffer, other.Buffer, one.Length / static_cast<ULONG>(sizeof(WCHAR)));
}

bool ParseRelativeName(const UNICODE_STRING& name, const GUID& kind, RelativeName& parsed) {
  constexpr ULONG kKindLength = GuidText::kLetters * sizeof(WCHAR);
  constexpr ULONG kBeginLength = kKindLength + sizeof(WCHAR);
  parsed = {};
  if (name.Length < kKindLength) return false;
  if (!IsSameText(name.Buffer, GuidText(kind).Letters(), GuidText::kLetters)) return false;
  if (name.Length == kKindLength) return true;
  if (name.Length < kBeginLength || name.Buffer[GuidText::kLetters] != '\\') return false;
  parsed.Parameters = reinterpret_cast<const UCHAR*>(name.Buffer) + kBeginLength;
  parsed.ParametersLength = name.Length - kBeginLength;
  return true;
}

}  // namespace lidcam::host
