#pragma once

#include <cstdint>
#include <string_view>

namespace lidcam::base {

/// FNV-1a of 64 bits: the same on every platform.
inline constexpr std::uint64_t kFnvOffset = 0xCBF29CE484222325;
inline constexpr std::uint64_t kFnvPrime = 0x100000001B3;

constexpr std::uint64_t FnvHash(std::uint64_t hash, unsigned char byte) {
  return (hash ^ byte) * kFnvPrime;
}

constexpr std::uint64_t FnvHash(std::uint64_t hash, std::string_view text) {
  for (const char letter : text) hash = FnvHash(hash, static_cast<unsigned char>(letter));
  return hash;
}

}  // namespace lidcam::base
