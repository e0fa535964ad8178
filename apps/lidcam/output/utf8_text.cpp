#include "apps/lidcam/output/utf8_text.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>

namespace lidcam::app {
namespace {

/// The characters that a first byte of its range begins.
struct FirstByteRow {
  std::uint8_t First;
  std::uint8_t Last;
  std::uint8_t Length;
  // Of the second byte; all others are from 0x80 to 0xBF. These leave out what could be written
  // shorter, halves of surrogate pairs, and what lies behind the last character.
  std::uint8_t LowestSecond;
  std::uint8_t HighestSecond;
};

constexpr std::array kFirstBytes{
    FirstByteRow{0x00, 0x7F, 1, 0x00, 0x00}, FirstByteRow{0xC2, 0xDF, 2, 0x80, 0xBF},
    FirstByteRow{0xE0, 0xE0, 3, 0xA0, 0xBF}, FirstByteRow{0xE1, 0xEC, 3, 0x80, 0xBF},
    FirstByteRow{0xED, 0xED, 3, 0x80, 0x9F}, FirstByteRow{0xEE, 0xEF, 3, 0x80, 0xBF},
    FirstByteRow{0xF0, 0xF0, 4, 0x90, 0xBF}, FirstByteRow{0xF1, 0xF3, 4, 0x80, 0xBF},
    FirstByteRow{0xF4, 0xF4, 4, 0x80, 0x8F},
};

std::uint8_t ByteAt(std::string_view bytes, std::size_t at) {
  return static_cast<std::uint8_t>(bytes[at]);
}

bool IsNoCharacter(std::string_view character) {
  return character == "\xEF\xBF\xBE" || character == "\xEF\xBF\xBF";
}

/// Bytes of the character that the text begins with; 0 if it begins with none.
std::size_t LengthOfFirst(std::string_view bytes) {
  for (const FirstByteRow& row : kFirstBytes) {
    const std::uint8_t first = ByteAt(bytes, 0);
    if (first < row.First || first > row.Last) continue;
    if (row.Length == 1) return 1;
    if (bytes.size() < row.Length) return 0;
    if (ByteAt(bytes, 1) < row.LowestSecond || ByteAt(bytes, 1) > row.HighestSecond) return 0;
    for (std::size_t at = 2; at < row.Length; ++at) {
      if ((ByteAt(bytes, at) & 0xC0) != 0x80) return 0;
    }
    return IsNoCharacter(bytes.substr(0, row.Length)) ? 0 : row.Length;
  }
  return 0;
}

std::string Escape(std::uint8_t byte) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  return std::string("\\x") + kDigits[byte >> 4] + kDigits[byte & 0xF];
}

void MakeUtf8(nlohmann::json& value) {
  if (value.is_string()) {
    value = Utf8Text(value.get_ref<const std::string&>());
  } else if (value.is_structured()) {
    for (nlohmann::json& part : value) MakeUtf8(part);
  }
}

}  // namespace

std::string Utf8Text(std::string_view bytes) {
  std::string text;
  while (!bytes.empty()) {
    const std::size_t length = LengthOfFirst(bytes);
    if (length == 0) {
      text += Escape(ByteAt(bytes, 0));
      bytes.remove_prefix(1);
    } else {
      text += bytes.substr(0, length);
      bytes.remove_prefix(length);
    }
  }
  return text;
}

std::string JsonText(const nlohmann::json& value, int indent) {
  nlohmann::json text = value;
  MakeUtf8(text);
  return text.dump(indent);
}

}  // namespace lidcam::app
