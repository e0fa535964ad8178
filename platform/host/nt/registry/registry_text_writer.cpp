#include <cstdint>
#include <iterator>
#include <string>

#include "platform/host/nt/registry/registry_text.h"

namespace lidcam::host {
namespace {

// The platform breaks lists of bytes so that lines stay within 80 columns.
constexpr std::size_t kLastColumn = 76;

constexpr char16_t DigitOf(std::uint32_t nibble) {
  return u"0123456789abcdef"[nibble & 0xF];
}

void AppendHex(std::u16string& text, std::uint32_t number, int digits) {
  while (digits-- > 0) text.push_back(DigitOf(number >> (4 * digits)));
}

void AppendQuoted(std::u16string& text, std::u16string_view content) {
  text.push_back(u'"');
  for (const char16_t character : content) {
    if (character == u'"' || character == u'\\') text.push_back(u'\\');
    text.push_back(character);
  }
  text.push_back(u'"');
}

// The characters of a value that can be written in quotes: with one terminator, at the end, and
// without characters that the format can't escape.
bool IsQuotable(const RegistryValue& value, std::u16string& content) {
  if (value.Type != kRegistryString || value.Data.size() < 2 || value.Data.size() % 2 != 0)
    return false;
  for (std::size_t at = 0; at < value.Data.size(); at += 2) {
    content.push_back(static_cast<char16_t>(value.Data[at] | (value.Data[at + 1] << 8)));
  }
  if (content.back() != u'\0') return false;
  content.pop_back();
  return IsRegistryTextName(content);
}

void AppendBytes(std::u16string& text, std::size_t lineStart, const RegistryValue& value) {
  text += u"hex";
  if (value.Type != kRegistryBinary) {
    int digits = 1;
    while (digits < 8 && (value.Type >> (4 * digits)) != 0) ++digits;
    text.push_back(u'(');
    AppendHex(text, value.Type, digits);
    text.push_back(u')');
  }
  text.push_back(u':');
  for (std::size_t i = 0; i < value.Data.size(); ++i) {
    AppendHex(text, value.Data[i], 2);
    if (i + 1 == value.Data.size()) break;
    text.push_back(u',');
    if (text.size() - lineStart < kLastColumn) continue;
    text += u"\\\r\n";
    lineStart = text.size();
    text += u"  ";
  }
}

void AppendValue(std::u16string& text, std::u16string_view name, const RegistryValue& value) {
  const std::size_t lineStart = text.size();
  if (name.empty()) {
    text.push_back(u'@');
  } else {
    AppendQuoted(text, name);
  }
  text.push_back(u'=');
  std::u16string content;
  if (value.Type == kRegistryDword && value.Data.size() == 4) {
    text += u"dword:";
    for (int i = 3; i >= 0; --i) AppendHex(text, value.Data[static_cast<std::size_t>(i)], 2);
  } else if (IsQuotable(value, content)) {
    AppendQuoted(text, content);
  } else {
    AppendBytes(text, lineStart, value);
  }
  text += u"\r\n";
}

std::string EncodeUtf16(std::u16string_view text) {
  std::string bytes = "\xFF\xFE";
  bytes.reserve(2 + 2 * text.size());
  for (const char16_t unit : text) {
    bytes.push_back(static_cast<char>(unit & 0xFF));
    bytes.push_back(static_cast<char>(unit >> 8));
  }
  return bytes;
}

}  // namespace

bool IsRegistryTextName(std::u16string_view name) {
  return name.find_first_of(std::u16string_view(u"\r\n\0", 3)) == name.npos;
}

std::string WriteRegistryText(const RegistryTree& tree) {
  std::u16string text = u"Windows Registry Editor Version 5.00\r\n\r\n";
  const auto& keys = tree.Keys();
  for (auto key = keys.begin(); key != keys.end(); ++key) {
    const auto next = std::next(key);
    const bool hasSubkeys = next != keys.end() && IsBelowKey(next->first, key->first);
    if (key->second.empty() && hasSubkeys) continue;
    text += u"[" + key->first + u"]\r\n";
    for (const auto& [name, value] : key->second) AppendValue(text, name, value);
    text += u"\r\n";
  }
  return EncodeUtf16(text);
}

}  // namespace lidcam::host
