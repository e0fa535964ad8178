// Reading of the exchange format. The writer is in registry_text_writer.cpp.

#include "platform/host/nt/registry/registry_text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <utility>

namespace lidcam::host {
namespace {

constexpr std::u16string_view kHeader = u"Windows Registry Editor Version 5.00";
constexpr std::u16string_view kRootPrefix = u"HKEY_";
constexpr std::u16string_view kLineEnds = u"\r\n";

constexpr unsigned ByteAt(std::string_view bytes, std::size_t at) {
  return static_cast<unsigned char>(bytes[at]);
}

void AppendCodePoint(std::u16string& text, char32_t point) {
  if (point < 0x10000) {
    text.push_back(static_cast<char16_t>(point));
    return;
  }
  text.push_back(static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10)));
  text.push_back(static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF)));
}

// One row per length of a UTF-8 sequence.
struct Utf8Form {
  unsigned Mask;
  unsigned Lead;
  std::size_t Length;
  char32_t Smallest;
};
constexpr std::array<Utf8Form, 4> kUtf8Forms = {{
    {0x80, 0x00, 1, 0x0},
    {0xE0, 0xC0, 2, 0x80},
    {0xF0, 0xE0, 3, 0x800},
    {0xF8, 0xF0, 4, 0x10000},
}};

// Removes one character from the front; none for any other than its shortest encoding.
std::optional<char32_t> TakeUtf8(std::string_view& bytes) {
  const unsigned lead = ByteAt(bytes, 0);
  const auto form = std::ranges::find_if(
      kUtf8Forms, [lead](const Utf8Form& row) { return (lead & row.Mask) == row.Lead; });
  if (form == kUtf8Forms.end() || bytes.size() < form->Length) return std::nullopt;
  char32_t point = lead & ~form->Mask;
  for (std::size_t i = 1; i < form->Length; ++i) {
    if ((ByteAt(bytes, i) & 0xC0) != 0x80) return std::nullopt;
    point = (point << 6) | (ByteAt(bytes, i) & 0x3F);
  }
  const bool isSurrogate = point >= 0xD800 && point <= 0xDFFF;
  if (point < form->Smallest || point > 0x10FFFF || isSurrogate) return std::nullopt;
  bytes.remove_prefix(form->Length);
  return point;
}

bool DecodeUtf8(std::string_view bytes, std::u16string& text) {
  while (!bytes.empty()) {
    const std::optional<char32_t> point = TakeUtf8(bytes);
    if (!point) return false;
    AppendCodePoint(text, *point);
  }
  return true;
}

// Null on success, else the error.
const char* Decode(std::string_view bytes, std::u16string& text) {
  if (bytes.starts_with("\xFE\xFF")) return "the bytes of each character are in the wrong order";
  if (!bytes.starts_with("\xFF\xFE")) {
    if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
    return DecodeUtf8(bytes, text) ? nullptr : "neither UTF-16 with a byte order mark nor UTF-8";
  }
  if (bytes.size() % 2 != 0) return "the last character is cut";
  for (std::size_t at = 2; at < bytes.size(); at += 2) {
    text.push_back(static_cast<char16_t>(ByteAt(bytes, at) | (ByteAt(bytes, at + 1) << 8)));
  }
  return nullptr;
}

std::optional<unsigned> HexDigit(char16_t character) {
  if (character >= u'0' && character <= u'9') return character - u'0';
  const unsigned small = character | 0x20U;
  if (small >= u'a' && small <= u'f') return small - u'a' + 10;
  return std::nullopt;
}

class Parser {
 public:
  Parser(std::u16string_view text, RegistryTree& tree, RegistryTextError& error)
      : rest_(text), tree_(tree), error_(error) {}

  bool Parse() {
    if (!NextLine()) return error_.What.empty() ? Fail("the text is empty") : false;
    if (line_ != kHeader) return Fail("the text has not the header of the exchange format");
    while (NextLine()) {
      if (!ParseLine()) return false;
    }
    return error_.What.empty();
  }

 private:
  bool Fail(const char* what) {
    error_ = {lineNumber_, what};
    return false;
  }

  // False at the end of the text, and with an error for an incomplete last line.
  bool NextLine() {
    if (rest_.empty()) return false;
    ++lineNumber_;
    const std::size_t end = rest_.find_first_of(kLineEnds);
    if (end == rest_.npos) return Fail("the last line has no end: the text was cut");
    line_ = rest_.substr(0, end);
    rest_.remove_prefix(rest_.substr(end).starts_with(u"\r\n") ? end + 2 : end + 1);
    return true;
  }

  void SkipBlanks() {
    line_.remove_prefix(std::min(line_.find_first_not_of(u" \t"), line_.size()));
  }

  bool Take(char16_t expected) {
    if (!line_.starts_with(expected)) return false;
    line_.remove_prefix(1);
    return true;
  }

  bool TakeWord(std::u16string_view word) {
    if (!SameRegistryName(line_.substr(0, word.size()), word)) return false;
    line_.remove_prefix(word.size());
    return true;
  }

  bool ParseLine() {
    if (line_.find(u'\0') != line_.npos) return Fail("a zero character");
    SkipBlanks();
    if (line_.empty() || line_.front() == u';') return true;
    return Take(u'[') ? ParseKey() : ParseValue();
  }

  // A key's name may contain brackets: the last one of the line ends it.
  bool ParseKey() {
    const std::size_t end = line_.find_last_not_of(u" \t");
    if (end == line_.npos || line_[end] != u']') return Fail("a key without its closing bracket");
    std::u16string_view path = line_.substr(0, end);
    const bool deletes = path.starts_with(u'-');
    if (deletes) path.remove_prefix(1);
    if (!IsKeyPath(path)) return Fail("a key that is not below one of the HKEY_ roots");
    if (deletes) {
      tree_.DeleteKey(path);
      key_.clear();
    } else {
      tree_.CreateKey(path);
      key_ = path;
    }
    return true;
  }

  static bool IsKeyPath(std::u16string_view path) {
    return SameRegistryName(path.substr(0, kRootPrefix.size()), kRootPrefix) &&
           path.find(u"\\\\") == path.npos && !path.ends_with(u'\\');
  }

  bool ParseValue() {
    if (key_.empty()) return Fail("a value outside of a key");
    std::u16string name;
    if (!Take(u'@') && !ParseQuoted(name)) return false;
    SkipBlanks();
    if (!Take(u'=')) return Fail("a value without its equals sign");
    SkipBlanks();
    if (Take(u'-')) {
      tree_.DeleteValue(key_, name);
      return ExpectEnd();
    }
    RegistryValue value;
    if (!ParseData(value) || !ExpectEnd()) return false;
    tree_.SetValue(key_, name, std::move(value));
    return true;
  }

  bool ExpectEnd() {
    SkipBlanks();
    return line_.empty() || line_.front() == u';' || Fail("more than one value in a line");
  }

  bool ParseQuoted(std::u16string& text) {
    if (!Take(u'"')) return Fail("neither a key, a value nor a comment");
    while (!line_.empty()) {
      if (Take(u'"')) return true;
      if (Take(u'\\') && !line_.starts_with(u'\\') && !line_.starts_with(u'"')) break;
      text.push_back(line_.front());
      line_.remove_prefix(1);
    }
    return Fail("quotes that are not closed, or a backslash in them that is not doubled");
  }

  bool ParseData(RegistryValue& value) {
    if (TakeWord(u"dword:")) return ParseDword(value);
    if (TakeWord(u"hex:")) {
      value.Type = kRegistryBinary;
      return ParseBytes(value);
    }
    if (TakeWord(u"hex(")) {
      if (!ParseNumber(value.Type) || !TakeWord(u"):")) return Fail("a type that is no number");
      return ParseBytes(value);
    }
    std::u16string text;
    if (!ParseQuoted(text)) return Fail("a value of an unknown kind");
    text.push_back(u'\0');
    value.Type = kRegistryString;
    for (const char16_t unit : text) {
      value.Data.push_back(static_cast<std::uint8_t>(unit & 0xFF));
      value.Data.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    return true;
  }

  // One to eight digits.
  bool ParseNumber(std::uint32_t& number) {
    std::size_t digits = 0;
    number = 0;
    while (!line_.empty() && digits <= 8) {
      const std::optional<unsigned> digit = HexDigit(line_.front());
      if (!digit) break;
      number = (number << 4) | *digit;
      line_.remove_prefix(1);
      ++digits;
    }
    return digits >= 1 && digits <= 8;
  }

  bool ParseDword(RegistryValue& value) {
    std::uint32_t number = 0;
    if (!ParseNumber(number)) return Fail("a dword that has not one to eight digits");
    value.Type = kRegistryDword;
    for (int i = 0; i < 4; ++i) {
      value.Data.push_back(static_cast<std::uint8_t>((number >> (8 * i)) & 0xFF));
    }
    return true;
  }

  // A backslash at the end of a line continues the list on the next one.
  bool SkipContinuation() {
    SkipBlanks();
    while (Take(u'\\')) {
      SkipBlanks();
      if (!line_.empty()) return Fail("a backslash inside a list of bytes");
      if (!NextLine()) return Fail("a list of bytes that goes on behind the end");
      SkipBlanks();
    }
    return true;
  }

  bool ParseBytes(RegistryValue& value) {
    if (!SkipContinuation()) return false;
    if (line_.empty() || line_.front() == u';') return true;
    for (;;) {
      std::uint32_t byte = 0;
      if (!ParseNumber(byte) || byte > 0xFF) return Fail("a byte that has not two digits");
      value.Data.push_back(static_cast<std::uint8_t>(byte));
      SkipBlanks();
      if (!Take(u',')) return true;
      if (!SkipContinuation()) return false;
    }
  }

  std::u16string_view rest_;
  std::u16string_view line_;
  std::u16string key_;
  std::size_t lineNumber_ = 0;
  RegistryTree& tree_;
  RegistryTextError& error_;
};

}  // namespace

bool ParseRegistryText(std::string_view bytes, RegistryTree& tree, RegistryTextError& error) {
  tree = {};
  error = {};
  std::u16string text;
  if (const char* const what = Decode(bytes, text); what != nullptr) {
    error.What = what;
    return false;
  }
  return Parser(text, tree, error).Parse();
}

}  // namespace lidcam::host
