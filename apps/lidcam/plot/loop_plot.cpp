#include "apps/lidcam/plot/loop_plot.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <optional>
#include <string_view>
#include <vector>

#include "apps/lidcam/output/utf8_text.h"
#include "apps/lidcam/plot/loop_events.h"
#include "apps/lidcam/plot/loop_plot_script.h"

namespace lidcam::app {
namespace {

std::string Number(double value) {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%.10g", value);
  return text.data();
}

// At most two decimals, for readability.
std::string ShortNumber(double value) {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%.2f", value);
  std::string number = text.data();
  while (number.back() == '0') number.pop_back();
  if (number.back() == '.') number.pop_back();
  return number;
}

// In single quotes only the quote itself has a meaning, and stands twice; in what is drawn, some letters
// change the type unless a backslash stands ahead of them. A drawing has no place for control characters.
std::string PlotText(std::string_view text) {
  std::string quoted = "'";
  for (const char letter : Utf8Text(text)) {
    if (letter == '\'') quoted += letter;
    if (std::string_view("^_{}~@&\\").find(letter) != std::string_view::npos) quoted += '\\';
    quoted += static_cast<unsigned char>(letter) < 0x20 ? ' ' : letter;
  }
  return quoted + "'";
}

// Letters of the heading that a line has room for.
constexpr std::size_t kLongestHeading = 84;

/// Cuts a text into lines between its words; a word that is longer than a line is cut itself.
std::vector<std::string> Wrapped(std::string_view text) {
  std::vector<std::string> lines;
  while (text.size() > kLongestHeading) {
    std::size_t end = text.rfind(' ', kLongestHeading);
    if (end == std::string_view::npos || end == 0) end = kLongestHeading;
    // Not within a character of several bytes.
    while (end > 1 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(end);
    if (text.starts_with(' ')) text.remove_prefix(1);
  }
  lines.emplace_back(text);
  return lines;
}

std::string HeadingLines(std::string_view title) {
  std::string texts;
  const std::vector<std::string> lines = Wrapped(title);
  for (const std::string& line : lines) texts += (texts.empty() ? "" : ", ") + PlotText(line);
  return "array heading[" + std::to_string(lines.size()) + "] = [" + texts + "]\n";
}

std::string Counted(std::ptrdiff_t count, const std::string& thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

std::ptrdiff_t CountOf(std::span<const LoopEvent> events, LoopEventKind kind) {
  return std::ranges::count(events, kind, &LoopEvent::Kind);
}

std::string Summary(std::span<const FrameRow> rows, std::span<const LoopEvent> events) {
  using enum LoopEventKind;
  return Counted(static_cast<std::ptrdiff_t>(rows.size()), "frame") + " in " +
         ShortNumber(rows.back().Seconds) +
         " s: " + Counted(CountOf(events, StepUp) + CountOf(events, StepDown), "step") + ", " +
         Counted(CountOf(events, Transition), "transition") + ", " +
         Counted(CountOf(events, Commit), "commit") + ", " +
         Counted(CountOf(events, Refused), "frame") + " with refused writes";
}

std::string Block(const std::string& name, const std::string& lines) {
  return "$" + name + " << EOD\n" + lines + "EOD\n";
}

// What the sensor is brought up with, which the log doesn't have until the loop's first step.
constexpr std::uint32_t kPeriodsAtBringUp = 3;
constexpr std::uint32_t kFineGainAtBringUp = 156;
constexpr std::uint32_t kCoarseGainAtBringUp = 3;

// A sensor that exposes by itself leaves the light state as it is created, too.
bool HasHostLoop(std::span<const FrameRow> rows) {
  return std::ranges::any_of(rows, [](const FrameRow& row) {
    return row.State != LightStateInitial || row.Exposure != 0;
  });
}

std::string FrameLines(std::span<const FrameRow> rows) {
  std::string lines;
  for (const FrameRow& row : rows) {
    const bool isBroughtUp = row.Exposure == 0;
    const std::uint32_t exposure = isBroughtUp ? kPeriodsAtBringUp : row.Exposure;
    const std::uint32_t fineGain = isBroughtUp ? kFineGainAtBringUp : row.FineGain;
    const std::uint32_t coarseGain = isBroughtUp ? kCoarseGainAtBringUp : row.CoarseGain;
    for (const double value : {row.Seconds, row.Lux.value_or(0), static_cast<double>(row.Luma),
                               static_cast<double>(row.Index), static_cast<double>(exposure),
                               static_cast<double>(fineGain), static_cast<double>(coarseGain)}) {
      lines += Number(value) + " ";
    }
    lines.back() = '\n';
  }
  return lines;
}

std::string StateLines(std::span<const FrameRow> rows) {
  std::string lines;
  for (const StateStay& stay : FindStateStays(rows)) {
    lines += Number(stay.From) + " " + Number(stay.To) + " " + std::to_string(stay.State) + "\n";
  }
  return lines;
}

std::string LightLines(std::span<const FrameRow> rows) {
  std::string lines;
  std::optional<double> before;
  for (const FrameRow& row : rows) {
    if (row.Lux == before) continue;
    before = row.Lux;
    lines += Number(row.LuxSince.value_or(row.Seconds)) + " " + Number(row.Lux.value_or(0)) + " " +
             (row.Lux ? ShortNumber(*row.Lux) + " lx" : "unknown") + "\n";
  }
  return lines;
}

// The light's curve: where each begins, and the end of the last.
std::string LightCurve(std::span<const FrameRow> rows) {
  std::string lines;
  std::optional<double> before;
  for (const FrameRow& row : rows) {
    if (row.Lux == before) continue;
    before = row.Lux;
    lines += Number(row.LuxSince.value_or(row.Seconds)) + " " + Number(row.Lux.value_or(0)) + "\n";
  }
  return lines + Number(rows.back().Seconds) + " " + Number(rows.back().Lux.value_or(0)) + "\n";
}

std::string EventLines(std::span<const LoopEvent> events) {
  std::string lines;
  for (const LoopEvent& event : events) {
    lines += Number(event.Seconds) + " " + std::to_string(static_cast<int>(event.Kind)) + "\n";
  }
  return lines;
}

bool IsMoment(const LoopEvent& event) {
  return event.Kind == LoopEventKind::LightChange || event.Kind == LoopEventKind::Transition;
}

std::string CountsOfLanes(std::span<const LoopEvent> events) {
  std::string counts;
  for (std::size_t lane = 0; lane < kLoopEventKinds; ++lane) {
    counts += std::to_string(CountOf(events, static_cast<LoopEventKind>(lane))) + " ";
  }
  return counts;
}

// Whole decades around the light; 0 can't be shown on a logarithmic scale.
std::string LightRange(std::span<const FrameRow> rows) {
  double lowest = 1e6;
  double highest = 0.1;
  for (const FrameRow& row : rows) {
    const double lux = row.Lux.value_or(0);
    if (lux > 0) lowest = std::min(lowest, lux);
    highest = std::max(highest, lux);
  }
  const double low = std::pow(10, std::floor(std::log10(std::min(lowest, highest)) - 1e-9));
  const double high = std::pow(10, std::ceil(std::log10(highest) + 1e-9));
  return "lux_low = " + Number(low) + "\nlux_high = " + Number(high) + "\n";
}

}  // namespace

std::string LoopPlotScript(std::span<const FrameRow> rows, const std::string& title,
                           PlotForm form) {
  constexpr double kShortest = 0.1;  // seconds that have a width
  const std::vector<LoopEvent> events = FindLoopEvents(rows);
  std::vector<LoopEvent> moments;
  std::ranges::copy_if(events, std::back_inserter(moments), IsMoment);
  const bool hasLight =
      std::ranges::any_of(rows, [](const FrameRow& row) { return row.Lux.has_value(); });
  return std::string("drawing = '") + (form == PlotForm::Png ? "pngcairo" : "svg") + "'\n" +
         HeadingLines(title) + "has_loop = " + (HasHostLoop(rows) ? "1" : "0") +
         "\nsummary = " + PlotText(Summary(rows, events)) +
         "\nend = " + Number(std::max(rows.back().Seconds, kShortest)) +
         "\nhas_light = " + (hasLight ? "1\n" : "0\n") + LightRange(rows) +
         Block("frames", FrameLines(rows)) + Block("states", StateLines(rows)) +
         Block("lights", LightLines(rows)) + Block("light_curve", LightCurve(rows)) +
         Block("events", EventLines(events)) + Block("moments", EventLines(moments)) +
         "counts = '" + CountsOfLanes(events) + "'\n" + std::string(kLoopPlotScript);
}

}  // namespace lidcam::app
