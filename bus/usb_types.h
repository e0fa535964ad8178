#pragma once

#include <array>
#include <compare>
#include <cstdint>

namespace lidcam::bus {

/// The eight bytes of a USB control transfer's setup stage, decoded.
struct SetupPacket {
  std::uint8_t RequestType = 0;  ///< bmRequestType: direction, type and recipient
  std::uint8_t Request = 0;      ///< bRequest
  std::uint16_t Value = 0;       ///< wValue
  std::uint16_t Index = 0;       ///< wIndex
  std::uint16_t Length = 0;      ///< wLength, bytes of the data stage

  friend auto operator<=>(const SetupPacket&, const SetupPacket&) = default;

  [[nodiscard]] constexpr bool IsDeviceToHost() const { return (RequestType & 0x80) != 0; }

  /// The packet's bytes on the wire, words in little-endian order.
  [[nodiscard]] constexpr std::array<std::uint8_t, 8> ToBytes() const {
    const auto low = [](std::uint16_t word) { return static_cast<std::uint8_t>(word & 0xFF); };
    const auto high = [](std::uint16_t word) { return static_cast<std::uint8_t>(word >> 8); };
    return {RequestType, Request,     low(Value),  high(Value),
            low(Index),  high(Index), low(Length), high(Length)};
  }

  [[nodiscard]] static constexpr SetupPacket FromBytes(const std::array<std::uint8_t, 8>& bytes) {
    const auto word = [&bytes](std::size_t at) {
      return static_cast<std::uint16_t>(bytes[at] | (bytes[at + 1] << 8));
    };
    return {bytes[0], bytes[1], word(2), word(4), word(6)};
  }
};

/// Microframes in one 1 ms bus frame at high speed.
inline constexpr std::uint32_t kMicroframesPerFrame = 8;

/// Reads wMaxPacketSize of a high-speed endpoint: bytes per microframe, additional transactions
/// (bits 11 and 12) included.
[[nodiscard]] constexpr std::uint32_t BytesPerMicroframe(std::uint16_t maxPacketSize) {
  return (maxPacketSize & 0x7FFU) * (1U + ((maxPacketSize >> 11) & 0x3U));
}

}  // namespace lidcam::bus
