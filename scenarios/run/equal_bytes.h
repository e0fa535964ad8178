#pragma once

#include <cstring>
#include <span>

namespace lidcam::scenarios {

/// Whether all bytes are equal: each is compared with the next one, by the library's vector code.
template <typename Byte>
[[nodiscard]] bool AreAllEqual(std::span<const Byte> bytes) {
  static_assert(sizeof(Byte) == 1);
  return bytes.size() < 2 || std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0;
}

}  // namespace lidcam::scenarios
