#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <utility>

#include "bus/faults/fault_script.h"

namespace lidcam::bus {
namespace {

constexpr std::uint64_t kLongestAnswer = 65535;
constexpr std::uint64_t kHighestSetting = 255;
constexpr std::size_t kMicrosecondDigits = 6;
constexpr std::size_t kLongestQuote = 40;

constexpr std::string_view kBlanks = " \t\r\v\f";
constexpr std::string_view kPlaces =
    "control NUMBER, setting NUMBER, at TIME, frame NUMBER packet NUMBER or bits NUMBER";

// An error message is one line, whatever bytes the script contains.
std::string Quoted(std::string_view word) {
  std::string text = "'";
  for (const char letter : word.substr(0, kLongestQuote)) {
    text += letter >= ' ' && letter <= '~' ? letter : '?';
  }
  return text + (word.size() > kLongestQuote ? "...'" : "'");
}

std::optional<std::uint64_t> ParseWhole(std::string_view text) {
  std::uint64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc{} || stop != end) return std::nullopt;
  return value;
}

struct TimeUnit {
  std::string_view Word;
  std::uint64_t Microseconds;
  std::size_t Decimals;  ///< needed for a microsecond
};
// "s" is a suffix of the others too and is tried last.
constexpr TimeUnit kTimeUnits[] = {{"us", 1, 0}, {"ms", 1'000, 3}, {"s", 1'000'000, 6}};

// Whole numbers only: a time must be the same on every platform.
std::optional<std::uint64_t> ParseAmountOf(const TimeUnit& unit, std::string_view text) {
  const std::size_t point = text.find('.');
  const auto whole = ParseWhole(text.substr(0, point));
  if (!whole || *whole > kLatestFaultTime / unit.Microseconds) return std::nullopt;
  std::uint64_t microseconds = *whole * unit.Microseconds;
  if (point == std::string_view::npos) return microseconds;
  std::string decimals{text.substr(point + 1)};
  if (decimals.empty() || decimals.size() > unit.Decimals) return std::nullopt;
  static_assert(kTimeUnits[2].Decimals == kMicrosecondDigits);
  decimals.resize(unit.Decimals, '0');
  const auto part = ParseWhole(decimals);
  if (!part) return std::nullopt;
  microseconds += *part;
  return microseconds;
}

std::optional<std::uint64_t> ParseTime(std::string_view text) {
  for (const TimeUnit& unit : kTimeUnits) {
    if (!text.ends_with(unit.Word)) continue;
    const auto time = ParseAmountOf(unit, text.substr(0, text.size() - unit.Word.size()));
    return time && *time <= kLatestFaultTime ? time : std::nullopt;
  }
  return std::nullopt;
}

std::string ListOfFaults(FaultPlace place) {
  std::string list;
  for (const FaultForm& form : FaultForms()) {
    if (form.Place != place) continue;
    if (!list.empty()) list += ", ";
    list += WordOf(form.Kind);
    if (form.Amount == FaultAmount::Time) list += " TIME";
    if (form.Amount == FaultAmount::Bytes) list += " BYTES";
    if (form.HasCount) list += " [COUNT]";
  }
  return list;
}

std::string_view Sufferer(FaultPlace place) {
  switch (place) {
    case FaultPlace::Control:
      return "a control request";
    case FaultPlace::Setting:
      return "a setting";
    case FaultPlace::Frame:
      return "a packet of a frame";
    case FaultPlace::Time:
      break;
  }
  return "isochronous reads";
}

/// The words of one fault, and its line for error messages.
class Statement {
 public:
  Statement(std::string_view text, const std::string& name, std::size_t line)
      : name_(name), line_(line) {
    for (std::size_t begin = text.find_first_not_of(kBlanks); begin != std::string_view::npos;) {
      const std::size_t end = std::min(text.find_first_of(kBlanks, begin), text.size());
      words_.push_back(text.substr(begin, end - begin));
      begin = text.find_first_not_of(kBlanks, end);
    }
  }

  [[nodiscard]] bool IsOver() const { return next_ == words_.size(); }

  std::string_view Next(const std::string& wanted) {
    if (!IsOver()) return words_[next_++];
    if (words_.empty()) Fail("an empty line where " + wanted + " should stand");
    Fail(Quoted(words_.back()) + " is the last word; " + wanted + " should follow");
  }

  std::uint64_t Number(const std::string& what, std::uint64_t lowest, std::uint64_t highest) {
    const std::string range =
        what + " from " + std::to_string(lowest) + " to " + std::to_string(highest);
    const std::string_view word = Next(range);
    const auto number = ParseWhole(word);
    if (!number || *number < lowest || *number > highest) Fail(Quoted(word) + " is not " + range);
    return *number;
  }

  std::uint64_t Time(std::uint64_t lowest) {
    const std::string wanted = std::string(lowest == 0 ? "a time" : "a time above 0") +
                               " with its unit and at most 500000s, such as 2s, 1.5ms or 125us";
    const std::string_view word = Next(wanted);
    const auto time = ParseTime(word);
    if (!time || *time < lowest) Fail(Quoted(word) + " is not " + wanted);
    return *time;
  }

  void ExpectOver(const std::string& reason) {
    if (!IsOver()) Fail(Quoted(words_[next_]) + " is too much: " + reason);
  }

  [[noreturn]] void Fail(const std::string& reason) const {
    throw FaultScriptError(name_ + ":" + std::to_string(line_) + ": " + reason, line_);
  }

 private:
  const std::string& name_;
  std::size_t line_;
  std::vector<std::string_view> words_;
  std::size_t next_ = 0;
};

FaultPlace ReadPlace(Statement& statement, std::string_view word) {
  for (const FaultPlace place :
       {FaultPlace::Control, FaultPlace::Setting, FaultPlace::Time, FaultPlace::Frame}) {
    if (word == WordOf(place)) return place;
  }
  statement.Fail(Quoted(word) + " is no place; right would be " + std::string(kPlaces));
}

std::uint64_t ReadFramePacket(Statement& statement) {
  const std::uint64_t frame = statement.Number("the number of a frame", 1, kHighestFrame);
  const std::string_view word = statement.Next("packet NUMBER");
  if (word != "packet") statement.Fail(Quoted(word) + " is not packet NUMBER");
  return FramePacket(frame, statement.Number("the number of a packet", 1, kHighestPacketOfFrame));
}

std::uint64_t ReadAt(Statement& statement, FaultPlace place) {
  switch (place) {
    case FaultPlace::Control:
      return statement.Number("the number of a control request", 1, kHighestControlRequest);
    case FaultPlace::Setting:
      return statement.Number("the number of an alternate setting", 0, kHighestSetting);
    case FaultPlace::Frame:
      return ReadFramePacket(statement);
    case FaultPlace::Time:
      break;
  }
  return statement.Time(0);
}

const FaultForm& ReadForm(Statement& statement, FaultPlace place) {
  const std::string list = "one of " + ListOfFaults(place);
  const std::string_view word = statement.Next(list);
  for (const FaultForm& form : FaultForms()) {
    if (form.Place == place && word == WordOf(form.Kind)) return form;
  }
  statement.Fail(Quoted(word) + " is nothing that happens to " + std::string(Sufferer(place)) +
                 "; right would be " + list);
}

BusFault ReadFault(Statement& statement, std::string_view firstWord) {
  BusFault fault;
  fault.Place = ReadPlace(statement, firstWord);
  fault.At = ReadAt(statement, fault.Place);
  const FaultForm& form = ReadForm(statement, fault.Place);
  fault.Kind = form.Kind;
  fault.Count = UsualCount(fault.Place);
  if (form.Amount == FaultAmount::Time) fault.Amount = statement.Time(1);
  if (form.Amount == FaultAmount::Bytes) {
    fault.Amount = statement.Number("a number of bytes", 0, kLongestAnswer);
  }
  if (form.HasCount && !statement.IsOver()) {
    fault.Count = static_cast<std::uint32_t>(statement.Number("a count", 1, kHighestFaultCount));
  }
  return fault;
}

void ReadStatement(Statement statement, FaultScript& script) {
  if (statement.IsOver()) return;
  const std::string_view word = statement.Next(std::string(kPlaces));
  if (word == "bits") {
    script.Bits = statement.Number("a number", 0, std::numeric_limits<std::uint64_t>::max());
  } else {
    if (script.Faults.size() == kMostFaults) {
      statement.Fail("more than " + std::to_string(kMostFaults) + " faults");
    }
    script.Faults.push_back(ReadFault(statement, word));
  }
  statement.ExpectOver("the line is complete before it; ';' or a new line begins another fault");
}

/// Removes and returns the text before the separator.
std::string_view CutOff(std::string_view& text, char separator) {
  const std::size_t end = std::min(text.find(separator), text.size());
  const std::string_view part = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return part;
}

}  // namespace

FaultScript ParseFaultScript(std::string_view text, const std::string& name) {
  FaultScript script;
  for (std::size_t line = 1; !text.empty(); ++line) {
    std::string_view rest = CutOff(text, '\n');
    rest = rest.substr(0, rest.find('#'));
    while (!rest.empty()) ReadStatement({CutOff(rest, ';'), name, line}, script);
  }
  return script;
}

}  // namespace lidcam::bus
