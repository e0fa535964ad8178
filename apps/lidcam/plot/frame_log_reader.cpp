#include "apps/lidcam/plot/frame_log_reader.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "library/base/command_error.h"
#include "library/register_sets/text_format.h"

namespace lidcam::app {
namespace {

// A longer row means that the file is not a log.
constexpr std::size_t kLongestQuote = 60;

// The current log and line, for errors.
struct Place {
  const std::string& Name;
  std::uint64_t Line;

  [[noreturn]] void Refuse(const std::string& reason) const {
    throw CommandError("frame log '" + Name + "' line " + std::to_string(Line) + ": " + reason);
  }
};

std::string Quoted(std::string_view text) {
  std::string quoted = "'";
  for (const char letter : text.substr(0, kLongestQuote)) {
    quoted += letter >= 0x20 && letter < 0x7F ? letter : '?';
  }
  return quoted + (text.size() > kLongestQuote ? "...'" : "'");
}

std::vector<std::string_view> Split(std::string_view line) {
  std::vector<std::string_view> fields;
  for (std::size_t begin = 0;;) {
    const std::size_t comma = line.find(',', begin);
    fields.push_back(line.substr(begin, comma - begin));
    if (comma == std::string_view::npos) return fields;
    begin = comma + 1;
  }
}

// The fields of one row, taken from left to right.
class RowFields {
 public:
  RowFields(const Place& place, std::string_view line)
      : place_(place), names_(Split(kFrameLogHeader)), fields_(Split(line)) {
    if (fields_.size() == names_.size()) return;
    place_.Refuse("there are " + std::to_string(fields_.size()) + " fields in place of " +
                  std::to_string(names_.size()));
  }

  template <typename Number>
  Number Take(Number lowest, Number highest) {
    const std::string_view field = fields_[next_];
    Number value{};
    const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), value);
    const bool isWhole = error == std::errc{} && end == field.data() + field.size();
    // This form of the comparison also refuses NaN.
    if (!isWhole || !(value >= lowest && value <= highest)) {
      Refuse("no number from " + Text(lowest) + " to " + Text(highest));
    }
    ++next_;
    return value;
  }

  std::uint32_t TakeName(std::optional<std::uint32_t> (*numberOf)(std::string_view),
                         const char* names) {
    const auto number = numberOf(fields_[next_]);
    if (!number) Refuse(std::string("none of ") + names);
    ++next_;
    return *number;
  }

  [[nodiscard]] bool IsNextEmpty() const { return fields_[next_].empty(); }

 private:
  template <typename Number>
  static std::string Text(Number number) {
    std::array<char, 32> text{};
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), number).ptr};
  }

  [[noreturn]] void Refuse(const std::string& reason) const {
    place_.Refuse(std::string(names_[next_]) + " " + Quoted(fields_[next_]) + " is " + reason);
  }

  const Place& place_;
  std::vector<std::string_view> names_;
  std::vector<std::string_view> fields_;
  std::size_t next_ = 0;
};

constexpr std::uint32_t kMostPerFrame = 1000;  // bus accesses of one frame's exposure control
constexpr double kLongestSeconds = 1e7;
constexpr double kMostLux = 1e6;

FrameRow ParseRow(const Place& place, std::string_view line) {
  RowFields fields(place, line);
  FrameRow row;
  row.Frame = fields.Take<std::uint64_t>(1, UINT64_MAX);
  row.Seconds = fields.Take<double>(0, kLongestSeconds);
  row.Luma = fields.Take<std::uint32_t>(0, 255);
  row.Level = fields.Take<std::uint32_t>(0, 255);
  row.Index = fields.Take<std::int32_t>(0, 80);
  row.Exposure = fields.Take<std::uint32_t>(0, 20);
  row.CoarseGain = fields.Take<std::uint32_t>(0, 255);
  row.FineGain = fields.Take<std::uint32_t>(0, 255);
  row.Lines = fields.Take<std::uint32_t>(0, 255 * 20);
  row.State = fields.TakeName(LightStateOf, "Normal, LowLight, Initial, Dummy");
  row.Mode = fields.TakeName(LightModeOf, "Normal, LowLight, Dummy");
  row.Events.Steps = fields.Take<std::uint32_t>(0, kMostPerFrame);
  row.Events.Commits = fields.Take<std::uint32_t>(0, kMostPerFrame);
  row.Events.Refused = fields.Take<std::uint32_t>(0, kMostPerFrame);
  if (!fields.IsNextEmpty()) row.Lux = fields.Take<double>(0, kMostLux);
  return row;
}

// Lines of text written elsewhere may end in a carriage return.
bool ReadLine(std::istream& input, std::string& line) {
  if (!std::getline(input, line)) return false;
  if (line.ends_with('\r')) line.pop_back();
  return true;
}

void CheckOrder(const Place& place, const std::vector<FrameRow>& rows, const FrameRow& row) {
  if (rows.empty()) return;
  if (row.Frame <= rows.back().Frame) {
    place.Refuse("frame " + std::to_string(row.Frame) + " does not come after frame " +
                 std::to_string(rows.back().Frame));
  }
  if (row.Seconds < rows.back().Seconds) {
    place.Refuse("time_s is earlier than in the row before");
  }
}

}  // namespace

std::vector<FrameRow> ReadFrameLog(std::istream& input, const std::string& name) {
  Place place{name, 1};
  std::string line;
  if (!ReadLine(input, line)) place.Refuse("the file is empty; lidcam stream --log writes one");
  if (WithoutByteOrderMark(line) != kFrameLogHeader) {
    place.Refuse("the header is " + Quoted(line) + " in place of " + std::string(kFrameLogHeader));
  }
  std::vector<FrameRow> rows;
  while (ReadLine(input, line)) {
    ++place.Line;
    const FrameRow row = ParseRow(place, line);
    CheckOrder(place, rows, row);
    rows.push_back(row);
  }
  if (input.bad()) throw CommandError("frame log '" + name + "' can't be read");
  if (rows.empty()) place.Refuse("there is no frame behind the header");
  return rows;
}

std::vector<FrameRow> ReadFrameLog(const std::string& path) {
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) {
    throw CommandError("frame log '" + path + "' can't be read: it is a folder");
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) throw CommandError("frame log '" + path + "' can't be read: " + std::strerror(errno));
  return ReadFrameLog(file, path);
}

}  // namespace lidcam::app
