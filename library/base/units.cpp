#include "library/base/units.h"

#include <array>
#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>

#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

template <typename Number>
std::optional<Number> ParseWhole(std::string_view text, int base) {
  Number value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::optional<double> ParseDecimal(std::string_view text) {
  double value = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return value;
}

constexpr double kLongestDurationSeconds = 1e6;

struct TimeUnit {
  std::string_view Text;
  double Seconds;
};

// One that ends like another stands in front of it.
constexpr std::array kTimeUnits = {TimeUnit{"ms", 0.001}, TimeUnit{"s", 1}, TimeUnit{"min", 60},
                                   TimeUnit{"h", 3600}};

std::optional<double> ParseSeconds(std::string_view text) {
  for (const TimeUnit& unit : kTimeUnits) {
    if (!text.ends_with(unit.Text)) continue;
    const auto value = ParseDecimal(text.substr(0, text.size() - unit.Text.size()));
    return value ? std::optional(*value * unit.Seconds) : std::nullopt;
  }
  return std::nullopt;
}

}  // namespace

std::string ToString(PictureSize size) {
  return std::to_string(size.Width) + "x" + std::to_string(size.Height);
}

PictureSize ParsePictureSize(const std::string& text) {
  const std::size_t times = text.find('x');
  if (times != std::string::npos) {
    const auto width = ParseWhole<std::int32_t>(std::string_view(text).substr(0, times), 10);
    const auto height = ParseWhole<std::int32_t>(std::string_view(text).substr(times + 1), 10);
    if (width && height && *width > 0 && *height > 0) return {*width, *height};
  }
  throw UsageError("size '" + text + "' is not WIDTHxHEIGHT, such as 640x480");
}

std::chrono::microseconds ParseDuration(const std::string& text) {
  const auto seconds = ParseSeconds(text);
  if (!seconds || !(*seconds > 0 && *seconds <= kLongestDurationSeconds)) {
    throw UsageError("time '" + text +
                     "' is not a time above 0 with its unit, such as 250ms, 2s, 10min or 1h");
  }
  return std::chrono::microseconds(std::llround(*seconds * 1e6));
}

std::uint32_t ParseNumber(const std::string& text, std::uint32_t highest, const std::string& what) {
  const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
  const std::string_view digits = std::string_view(text).substr(isHexadecimal ? 2 : 0);
  const auto value = ParseWhole<std::uint32_t>(digits, isHexadecimal ? 16 : 10);
  if (!value || *value > highest) {
    throw UsageError(what + " '" + text + "' is not a number from 0 to " + std::to_string(highest));
  }
  return *value;
}

}  // namespace lidcam::app
