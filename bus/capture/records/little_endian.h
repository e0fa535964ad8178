#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

namespace lidcam::bus {

/// Reads an integer in little-endian order; the caller has checked that `bytes` is long enough.
template <typename Integer>
[[nodiscard]] constexpr Integer LoadLittle(std::span<const std::uint8_t> bytes, std::size_t at) {
  std::make_unsigned_t<Integer> value = 0;
  for (std::size_t i = sizeof(Integer); i-- > 0;) {
    value = static_cast<std::make_unsigned_t<Integer>>((std::uint64_t{value} << 8) | bytes[at + i]);
  }
  return static_cast<Integer>(value);
}

/// Writes an integer in little-endian order; `bytes` must be long enough.
template <typename Integer>
constexpr void StoreLittle(std::span<std::uint8_t> bytes, std::size_t at, Integer value) {
  auto rest = static_cast<std::uint64_t>(static_cast<std::make_unsigned_t<Integer>>(value));
  for (std::size_t i = 0; i < sizeof(Integer); ++i) {
    bytes[at + i] = static_cast<std::uint8_t>(rest & 0xFF);
    rest >>= 8;
  }
}

}  // namespace lidcam::bus
