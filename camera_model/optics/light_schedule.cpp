#include "camera_model/optics/light_schedule.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <string>

namespace lidcam::camera_model {
namespace {

constexpr double kBrightestLux = 100'000;
constexpr std::string_view kSeparators = ",;";

[[noreturn]] void Refuse(std::string_view text, const std::string& reason) {
  throw std::invalid_argument("light \"" + std::string(text) + "\": " + reason);
}

std::string Quoted(std::string_view text) {
  return '"' + std::string(text) + '"';
}

/// A plain decimal number: no sign, no exponent, no words for infinity.
std::optional<double> ParseNumber(std::string_view text) {
  if (text.empty() || text.find_first_not_of("0123456789.") != std::string_view::npos) {
    return std::nullopt;
  }
  double number = 0;
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number, std::chars_format::fixed);
  if (result.ec != std::errc{} || result.ptr != end || !std::isfinite(number)) return std::nullopt;
  return number;
}

/// The number in front of a unit, or nothing if the unit is another one.
std::optional<double> NumberWithUnit(std::string_view text, std::string_view unit) {
  if (!text.ends_with(unit)) return std::nullopt;
  return ParseNumber(text.substr(0, text.size() - unit.size()));
}

double ParseLux(std::string_view whole, std::string_view text) {
  const auto lux = NumberWithUnit(text, "lx");
  if (!lux.has_value()) {
    Refuse(whole, Quoted(text) + " is no light; it may be a number with lx, such as 300lx");
  }
  if (*lux > kBrightestLux) {
    Refuse(whole, Quoted(text) + " is more light than the sun gives; it may be 0lx to 100000lx");
  }
  return *lux;
}

double ParseSeconds(std::string_view whole, std::string_view text) {
  if (const auto milliseconds = NumberWithUnit(text, "ms"); milliseconds.has_value()) {
    return *milliseconds / 1000;
  }
  const auto seconds = NumberWithUnit(text, "s");
  if (!seconds.has_value()) {
    Refuse(whole, Quoted(text) + " is no time; it may be a number with s or ms, such as 4s");
  }
  return *seconds;
}

LightStep ParseStep(std::string_view whole, std::string_view text, bool isFirst) {
  if (text.empty()) Refuse(whole, "a step is empty; each is written LIGHT@TIME, such as 5lx@4s");
  const std::size_t at = text.find('@');
  if (at == std::string_view::npos && !isFirst) {
    Refuse(whole, Quoted(text) + " has no time; each step after the first is written LIGHT@TIME");
  }
  const double lux = ParseLux(whole, text.substr(0, at));
  const double seconds =
      at == std::string_view::npos ? 0 : ParseSeconds(whole, text.substr(at + 1));
  return {seconds, lux};
}

void CheckOrder(std::string_view whole, std::string_view text, const LightSchedule& before,
                const LightStep& step) {
  if (before.empty()) {
    if (step.Seconds != 0) Refuse(whole, Quoted(text) + " is the first step; it must begin at 0s");
    return;
  }
  if (step.Seconds <= before.back().Seconds) {
    Refuse(whole, Quoted(text) + " is not later than the step before it; times must ascend");
  }
}

}  // namespace

LightSchedule ParseLightSchedule(std::string_view text) {
  LightSchedule schedule;
  std::size_t begin = 0;
  while (begin <= text.size()) {
    const std::size_t end = std::min(text.find_first_of(kSeparators, begin), text.size());
    const std::string_view part = text.substr(begin, end - begin);
    const LightStep step = ParseStep(text, part, schedule.empty());
    CheckOrder(text, part, schedule, step);
    schedule.push_back(step);
    begin = end + 1;
  }
  return schedule;
}

double LuxAt(const LightSchedule& schedule, double seconds) {
  if (schedule.empty()) return kRoomLux;
  double lux = schedule.front().Lux;
  for (const LightStep& step : schedule) {
    if (step.Seconds > seconds) break;
    lux = step.Lux;
  }
  return lux;
}

}  // namespace lidcam::camera_model
