#include "platform/host/nt/system/message_format.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {
namespace {

constexpr std::string_view kIntegers = "diouxX";
constexpr std::string_view kFractions = "eEfgGaA";

// A part of a format that begins with a percent sign.
struct Conversion {
  std::string
      Layout;  // flags, width and precision, with the arguments' numbers in place of asterisks
  std::string Size;
  char Kind = 0;
};

class MessageWriter {
 public:
  MessageWriter(const char* format, const std::uint64_t* arguments)
      : left_(format), arguments_(arguments) {}

  std::string Write() {
    while (!left_.empty()) {
      if (left_.front() != '%') {
        message_ += left_.front();
        left_.remove_prefix(1);
        continue;
      }
      const std::string_view before = left_;
      const Conversion conversion = ReadConversion();
      if (!WriteArgument(conversion)) message_ += before.substr(0, before.size() - left_.size());
    }
    return message_;
  }

 private:
  std::uint64_t Next() { return *arguments_++; }

  template <typename T>
  const T* NextPointer() {
    return reinterpret_cast<const T*>(static_cast<std::uintptr_t>(Next()));
  }

  void SkipOne() { left_.remove_prefix(1); }
  bool Skip(std::string_view text) {
    if (!left_.starts_with(text)) return false;
    left_.remove_prefix(text.size());
    return true;
  }

  void ReadLayout(Conversion& conversion, std::string_view characters) {
    while (!left_.empty() && characters.find(left_.front()) != std::string_view::npos) {
      if (left_.front() == '*') {
        conversion.Layout += std::to_string(static_cast<std::int32_t>(Next()));
      } else {
        conversion.Layout += left_.front();
      }
      SkipOne();
    }
  }

  Conversion ReadConversion() {
    Conversion conversion;
    SkipOne();
    ReadLayout(conversion, "-+ #0");
    ReadLayout(conversion, "*.0123456789");
    for (const std::string_view size : {"I64", "I32", "I", "ll", "l", "hh", "h", "w"}) {
      if (!Skip(size)) continue;
      conversion.Size = size;
      break;
    }
    if (!left_.empty()) {
      conversion.Kind = left_.front();
      SkipOne();
    }
    return conversion;
  }

// The compiler can't check a format that is made of another.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

  template <typename T>
  void Print(const Conversion& conversion, const char* size, char kind, T value) {
    const std::string format = "%" + conversion.Layout + size + kind;
    std::array<char, 128> shortText{};
    const int length = std::snprintf(shortText.data(), shortText.size(), format.c_str(), value);
    if (length < static_cast<int>(shortText.size())) {
      message_ += shortText.data();
      return;
    }
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    std::snprintf(text.data(), text.size(), format.c_str(), value);
    text.pop_back();
    message_ += text;
  }

#pragma GCC diagnostic pop

  void PrintInteger(const Conversion& conversion) {
    const std::uint64_t value = Next();
    if (conversion.Size == "I64" || conversion.Size == "ll" || conversion.Size == "I") {
      Print(conversion, "ll", conversion.Kind, static_cast<unsigned long long>(value));
    } else if (conversion.Size == "h" || conversion.Size == "hh") {
      Print(conversion, conversion.Size.c_str(), conversion.Kind, static_cast<int>(value));
    } else {
      Print(conversion, "", conversion.Kind, static_cast<unsigned>(value));
    }
  }

  void PrintFraction(const Conversion& conversion) {
    const std::uint64_t bits = Next();
    double value = 0;
    std::memcpy(&value, &bits, sizeof(value));
    Print(conversion, "", conversion.Kind, value);
  }

  // Characters that have no single byte are shown as question marks.
  static std::string Narrow(const char16_t* begin, std::size_t length) {
    std::string text;
    for (std::size_t at = 0; at < length; ++at)
      text += begin[at] < 0x80 ? static_cast<char>(begin[at]) : '?';
    return text;
  }

  void PrintWideString(const Conversion& conversion) {
    const auto* const begin = NextPointer<char16_t>();
    const std::string text =
        begin == nullptr ? "(null)" : Narrow(begin, std::u16string_view(begin).size());
    Print(conversion, "", 's', text.c_str());
  }

  void PrintCountedString(const Conversion& conversion) {
    const auto* const string = NextPointer<UNICODE_STRING>();
    const std::string text = string == nullptr || string->Buffer == nullptr
                                 ? "(null)"
                                 : Narrow(string->Buffer, string->Length / sizeof(char16_t));
    Print(conversion, "", 's', text.c_str());
  }

  bool WriteArgument(const Conversion& conversion) {
    const bool isWide = conversion.Size == "l" || conversion.Size == "w";
    const char kind = conversion.Kind;
    if (kind == '%') {
      message_ += '%';
    } else if (kind != 0 && kIntegers.find(kind) != std::string_view::npos) {
      PrintInteger(conversion);
    } else if (kind != 0 && kFractions.find(kind) != std::string_view::npos) {
      PrintFraction(conversion);
    } else if (kind == 'c') {
      Print(conversion, "", 'c', static_cast<int>(Next()));
    } else if (kind == 'p') {
      Print({"016", {}, kind}, "ll", 'X', static_cast<unsigned long long>(Next()));
    } else if ((kind == 's' && isWide) || kind == 'S') {
      PrintWideString(conversion);
    } else if (kind == 's') {
      const char* const text = NextPointer<char>();
      Print(conversion, "", 's', text != nullptr ? text : "(null)");
    } else if (kind == 'Z' && conversion.Size == "w") {
      PrintCountedString(conversion);
    } else {
      return false;
    }
    return true;
  }

  std::string_view left_;
  const std::uint64_t* arguments_;
  std::string message_;
};

}  // namespace

std::string FormatMessage(const char* format, const std::uint64_t* arguments) {
  return MessageWriter(format, arguments).Write();
}

}  // namespace lidcam::host
