#pragma once

#include <cstdint>
#include <string>

namespace lidcam::host {

/// A message of DbgPrint() from the platform's format: `l` is a size of 32 bits, `I64` and `ll` are sizes of 64
/// bits, `S`, `ls` and `ws` are strings of 16-bit characters, `wZ` is a UNICODE_STRING, and `p` has all digits of a
/// pointer.
///
/// @param arguments  those behind the format, eight bytes each, as a caller on 64-bit Windows passes them
/// @return a conversion that the platform doesn't have is copied as it stands
[[nodiscard]] std::string FormatMessage(const char* format, const std::uint64_t* arguments);

}  // namespace lidcam::host
