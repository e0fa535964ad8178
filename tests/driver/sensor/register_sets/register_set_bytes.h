#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

namespace lidcam::test {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::int32_t kSensorTypes[] = {1, 3, 5, 6, 7, 8, 9, 10, 11};

/// Joins blocks of bytes.
inline Bytes Join(std::initializer_list<Bytes> blocks) {
  Bytes all;
  for (const Bytes& block : blocks) all.insert(all.end(), block.begin(), block.end());
  return all;
}

inline Bytes LittleEndian(std::uint32_t number) {
  Bytes bytes;
  for (int shift = 0; shift < 32; shift += 8) {
    bytes.push_back(static_cast<std::uint8_t>((number >> shift) & 0xFF));
  }
  return bytes;
}

/// A section of type 1 (setup), 2 (low light) or 3 (normal) with the length that its payload has.
inline Bytes Section(std::uint32_t type, const Bytes& payload) {
  const auto length = static_cast<std::uint32_t>(payload.size() + 8);
  return Join({LittleEndian(length), LittleEndian(type), payload});
}

/// `count` writes of bridge register 0xFF50, the values counting up from 0.
inline Bytes CountingEntries(std::size_t count) {
  Bytes payload;
  for (std::size_t i = 0; i < count; ++i) {
    payload.insert(payload.end(), {0x11, 0x50, static_cast<std::uint8_t>(i & 0xFF)});
  }
  return payload;
}

/// A file whose body has the length that stands ahead of it.
inline Bytes SetFile(std::initializer_list<Bytes> sections) {
  const Bytes body = Join(sections);
  return Join({LittleEndian(static_cast<std::uint32_t>(body.size())), body});
}

/// A file whose header gives a wrong body length.
inline Bytes SetFileTelling(std::uint32_t bodyLength, std::initializer_list<Bytes> sections) {
  return Join({LittleEndian(bodyLength), Join(sections)});
}

}  // namespace lidcam::test
