#include "library/register_sets/set_compiler.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

#include "library/register_sets/set_layout.h"
#include "library/register_sets/text_format.h"

namespace lidcam::app {
namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr std::uint8_t kLowByteLatch = 0x7F;

std::string_view Trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Words between blanks; "=" is a word wherever it stands.
std::vector<std::string_view> WordsOf(std::string_view text) {
  std::vector<std::string_view> words;
  std::size_t at = 0;
  while ((at = text.find_first_not_of(kBlanks, at)) != std::string_view::npos) {
    std::size_t end = text[at] == '=' ? at + 1 : text.find_first_of(" \t\r=", at);
    if (end == std::string_view::npos) end = text.size();
    words.push_back(text.substr(at, end - at));
    at = end;
  }
  return words;
}

// A number of exactly `digits` hexadecimal digits.
std::optional<unsigned> HexNumber(std::string_view word, std::size_t digits) {
  unsigned number = 0;
  const char* const end = word.data() + word.size();
  const auto result = std::from_chars(word.data(), end, number, 16);
  if (word.size() != digits || result.ec != std::errc() || result.ptr != end) return std::nullopt;
  return number;
}

std::uint8_t ByteOf(unsigned number, int at) {
  return static_cast<std::uint8_t>((number >> (8 * at)) & 0xFF);
}

void AppendLittleEndian(std::vector<std::uint8_t>& bytes, std::size_t number) {
  for (int at = 0; at < 4; ++at) bytes.push_back(ByteOf(static_cast<unsigned>(number), at));
}

struct SourceSection {
  const SetSectionKind* Kind;
  std::size_t Line;
  std::vector<std::uint8_t> Payload;
};

class Compiler {
 public:
  CompiledSet Compile(std::string_view source) {
    while (!source.empty()) {
      const std::size_t end = source.find('\n');
      ++line_;
      CompileLine(Trimmed(source.substr(0, end)));
      source.remove_prefix(end == std::string_view::npos ? source.size() : end + 1);
    }
    if (sections_.empty() && errors_.empty()) {
      AddError("there is no section: [setup], [low light] or [normal]");
    }
    CompiledSet compiled;
    compiled.Errors = std::move(errors_);
    if (compiled.Errors.empty()) compiled.Bytes = FileBytes();
    return compiled;
  }

 private:
  void CompileLine(std::string_view line) {
    line = Trimmed(line.substr(0, line.find('#')));
    if (line.empty()) return;
    if (line.front() == '[') {
      BeginSection(line);
    } else {
      CompileEntry(line);
    }
  }

  void BeginSection(std::string_view line) {
    const SetSectionKind* kind = nullptr;
    if (line.back() == ']') kind = SetSectionOfName(Trimmed(line.substr(1, line.size() - 2)));
    if (kind == nullptr) {
      isInBadSection_ = true;
      AddError("'" + std::string(line) + "' is not [setup], [low light] or [normal]");
      return;
    }
    isInBadSection_ = false;
    for (const SourceSection& earlier : sections_) {
      if (earlier.Kind == kind) {
        AddError(FormatText("there is a section [%s] already, in line %zu",
                            std::string(kind->Name).c_str(), earlier.Line));
      }
    }
    sections_.push_back({kind, line_, {}});
    bodyLength_ += kSetHeadSize;
  }

  void CompileEntry(std::string_view line) {
    const std::vector<std::string_view> words = WordsOf(line);
    const std::string_view chip = words.front();
    if (sections_.empty() && !isInBadSection_) {
      if (!std::exchange(hasToldOfSection_, true)) AddError("an entry ahead of the first section");
    }
    if (chip == "bridge") {
      CompileWrite(words, kSetBridgeMarker);
    } else if (chip == "sensor") {
      CompileWrite(words, kSetSensorMarker);
    } else if (chip == "wide") {
      CompileWide(words);
    } else if (chip == "raw") {
      CompileRaw(words);
    } else {
      AddError("'" + std::string(chip) + "' is not bridge, sensor, wide, raw or a section");
    }
  }

  // The register and the value of "chip REGISTER = VALUE".
  std::optional<std::pair<std::uint8_t, unsigned>> ReadWrite(
      const std::vector<std::string_view>& words, std::size_t valueDigits) {
    if (words.size() != 4 || words[2] != "=") {
      AddError(FormatText("an entry reads like: %s FF0A = %s", std::string(words[0]).c_str(),
                          valueDigits == 2 ? "01" : "0001"));
      return std::nullopt;
    }
    const auto address = HexNumber(words[1], 4);
    const auto value = HexNumber(words[3], valueDigits);
    const bool isRegister = address && *address >= 0xFF00 && *address < 0xFFFF;
    if (!isRegister) {
      AddError("register '" + std::string(words[1]) + "' is not in FF00 to FFFE");
    }
    if (!value) {
      AddError("value '" + std::string(words[3]) + "' is not " +
               (valueDigits == 2 ? "two" : "four") + " hexadecimal digits");
    }
    if (!isRegister || !value) return std::nullopt;
    return std::pair{ByteOf(*address, 0), *value};
  }

  void CompileWrite(const std::vector<std::string_view>& words, std::uint8_t marker) {
    if (const auto write = ReadWrite(words, 2)) {
      AddEntry(marker, write->first, ByteOf(write->second, 0));
    }
  }

  void CompileWide(const std::vector<std::string_view>& words) {
    if (const auto write = ReadWrite(words, 4)) {
      AddEntry(kSetBridgeMarker, kLowByteLatch, ByteOf(write->second, 0));
      AddEntry(kSetSensorMarker, write->first, ByteOf(write->second, 1));
    }
  }

  void CompileRaw(const std::vector<std::string_view>& words) {
    std::optional<unsigned> bytes[kSetEntrySize];
    bool isWhole = words.size() == 1 + kSetEntrySize;
    for (std::size_t i = 0; isWhole && i < kSetEntrySize; ++i) {
      bytes[i] = HexNumber(words[i + 1], 2);
      isWhole = bytes[i].has_value();
    }
    if (!isWhole) {
      AddError("a raw entry reads like: raw 22 0A 01");
      return;
    }
    AddEntry(ByteOf(*bytes[0], 0), ByteOf(*bytes[1], 0), ByteOf(*bytes[2], 0));
  }

  void AddEntry(std::uint8_t marker, std::uint8_t number, std::uint8_t value) {
    if (sections_.empty() || isInBadSection_) return;
    SourceSection& section = sections_.back();
    section.Payload.insert(section.Payload.end(), {marker, number, value});
    bodyLength_ += kSetEntrySize;
    if (section.Payload.size() / kSetEntrySize == section.Kind->MostEntries + 1) {
      AddError(FormatText("[%s] has more than %zu entries", std::string(section.Kind->Name).c_str(),
                          section.Kind->MostEntries));
    }
    if (bodyLength_ > kLongestSetBody && !std::exchange(hasToldOfLength_, true)) {
      AddError(FormatText("the sections take more than %zu bytes", kLongestSetBody));
    }
  }

  [[nodiscard]] std::vector<std::uint8_t> FileBytes() const {
    std::vector<std::uint8_t> bytes;
    AppendLittleEndian(bytes, bodyLength_);
    for (const SourceSection& section : sections_) {
      AppendLittleEndian(bytes, kSetHeadSize + section.Payload.size());
      AppendLittleEndian(bytes, section.Kind->Type);
      bytes.insert(bytes.end(), section.Payload.begin(), section.Payload.end());
    }
    return bytes;
  }

  void AddError(std::string reason) { errors_.push_back({line_, std::move(reason)}); }

  std::size_t line_ = 0;
  std::size_t bodyLength_ = 0;
  bool isInBadSection_ = false;
  bool hasToldOfSection_ = false;
  bool hasToldOfLength_ = false;
  std::vector<SourceSection> sections_;
  std::vector<SourceError> errors_;
};

// A binary file is recognised by a control character; otherwise each of its lines would be an
// error.
std::optional<SourceError> WhyNoText(std::string_view source) {
  const auto found = std::ranges::find_if(source, [](char letter) {
    constexpr std::string_view kOfText = "\t\n\v\f\r";
    const auto byte = static_cast<unsigned char>(letter);
    return (byte < 0x20 && kOfText.find(letter) == std::string_view::npos) || byte == 0x7F;
  });
  if (found == source.end()) return std::nullopt;
  const auto line = static_cast<std::size_t>(std::count(source.begin(), found, '\n')) + 1;
  return SourceError{line, FormatText("this is no source of a register set, but binary data (byte "
                                      "%02X at offset %zu)",
                                      static_cast<unsigned>(static_cast<unsigned char>(*found)),
                                      static_cast<std::size_t>(found - source.begin()))};
}

}  // namespace

CompiledSet CompileRegisterSet(std::string_view source) {
  if (const auto error = WhyNoText(source)) return {.Bytes = {}, .Errors = {*error}};
  return Compiler().Compile(WithoutByteOrderMark(source));
}

std::string ErrorText(std::string_view fileName, const SourceError& error) {
  return FormatText("%s:%zu: %s", std::string(fileName).c_str(), error.Line, error.Reason.c_str());
}

}  // namespace lidcam::app
