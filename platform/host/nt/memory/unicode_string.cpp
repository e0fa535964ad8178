#include <algorithm>
#include <string>
#include <string_view>

#include "platform/host/nt/declarations/nt_declarations.h"

#if defined(__clang__) && __clang_major__ < 14
// The compiler expects this constructor in the library, which has none for this character type.
template void std::u16string::_M_construct(const char16_t*, const char16_t*,
                                           std::forward_iterator_tag);
#endif

namespace {

// Lengths are 16 bits; the longest string that still has room for a terminator.
constexpr std::size_t kLongestString = 0xFFFC;

}  // namespace

void RtlInitUnicodeString(PUNICODE_STRING destination, PCWSTR source) {
  if (source == nullptr) {
    *destination = {};
    return;
  }
  const std::size_t bytes =
      std::min(std::u16string_view(source).size() * sizeof(WCHAR), kLongestString);
  destination->Length = static_cast<USHORT>(bytes);
  destination->MaximumLength = static_cast<USHORT>(bytes + sizeof(WCHAR));
  // The published structure has no room for const; the buffer is never written.
  destination->Buffer = const_cast<PWSTR>(source);
}

NTSTATUS RtlAppendUnicodeToString(PUNICODE_STRING destination, PCWSTR source) {
  if (source == nullptr) return STATUS_SUCCESS;
  const std::u16string_view text(source);
  const std::size_t bytes = text.size() * sizeof(WCHAR);
  const std::size_t used = destination->Length;
  if (used + bytes > destination->MaximumLength) return STATUS_BUFFER_TOO_SMALL;
  std::copy(text.begin(), text.end(), destination->Buffer + used / sizeof(WCHAR));
  destination->Length = static_cast<USHORT>(used + bytes);
  if (used + bytes + sizeof(WCHAR) <= destination->MaximumLength) {
    destination->Buffer[(used + bytes) / sizeof(WCHAR)] = 0;
  }
  return STATUS_SUCCESS;
}
