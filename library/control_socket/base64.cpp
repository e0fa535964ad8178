#include "library/control_socket/base64.h"

#include <array>

namespace lidcam::app {
namespace {

constexpr std::string_view kLetters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr unsigned kBitsOfLetter = 6;
constexpr unsigned kBitsOfByte = 8;
constexpr std::size_t kLettersOfGroup = 4;

}  // namespace

std::string ToBase64(std::span<const std::uint8_t> bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * kLettersOfGroup);
  std::uint32_t bits = 0;
  unsigned count = 0;
  for (const std::uint8_t byte : bytes) {
    bits = bits << kBitsOfByte | byte;
    count += kBitsOfByte;
    while (count >= kBitsOfLetter) {
      count -= kBitsOfLetter;
      text += kLetters[bits >> count & 0x3F];
    }
  }
  if (count != 0) text += kLetters[bits << (kBitsOfLetter - count) & 0x3F];
  while (text.size() % kLettersOfGroup != 0) text += '=';
  return text;
}

std::optional<std::vector<std::uint8_t>> FromBase64(std::string_view text) {
  if (text.size() % kLettersOfGroup != 0) return std::nullopt;
  for (int i = 0; i < 2 && text.ends_with('='); ++i) text.remove_suffix(1);
  std::vector<std::uint8_t> bytes;
  bytes.reserve(text.size() * 3 / kLettersOfGroup);
  std::uint32_t bits = 0;
  unsigned count = 0;
  for (const char letter : text) {
    const std::size_t value = kLetters.find(letter);
    if (value == std::string_view::npos) return std::nullopt;
    bits = bits << kBitsOfLetter | static_cast<std::uint32_t>(value);
    count += kBitsOfLetter;
    if (count < kBitsOfByte) continue;
    count -= kBitsOfByte;
    bytes.push_back(static_cast<std::uint8_t>(bits >> count & 0xFF));
  }
  return bytes;
}

}  // namespace lidcam::app
