#include "apps/lidcam/frames/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <vector>

#include "base/time_units.h"

namespace lidcam::app {
namespace {

constexpr std::chrono::milliseconds kInterval{100};

const char* LightStateName(std::uint32_t state) {
  constexpr std::array kNames = {"normal", "low light", "initial", "trial"};
  return state < kNames.size() ? kNames[state] : "unknown";
}

constexpr const char* kGap = "  ";
constexpr std::size_t kGapLength = 2;

struct LinePart {
  int Rank;  ///< the highest goes first where there is too little room
  std::string Text;
};

std::string RateText(double rate) {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%.1f/s", rate);
  return text.data();
}

std::string PositionText(const FramePosition& position) {
  std::array<char, 80> text{};
  std::snprintf(text.data(), text.size(), "picture %" PRId64 " at %.3f s", position.PictureNumber,
                base::SecondsOfUnits(position.PresentationTime));
  return text.data();
}

// In the order in which they stand in the line.
std::vector<LinePart> PartsOf(const StreamProgress& progress) {
  const StreamCounts& counts = progress.Counts;
  std::vector<LinePart> parts = {{0, std::to_string(counts.Delivered()) + " frames"}};
  if (const auto rate = counts.Rate()) parts.push_back({2, RateText(*rate)});
  if (progress.Position) parts.push_back({5, PositionText(*progress.Position)});
  if (counts.Lost > 0) parts.push_back({1, std::to_string(counts.Lost) + " lost"});
  if (progress.IsAutoExposure) {
    parts.push_back({3, *progress.IsAutoExposure ? "exposure auto" : "exposure manual"});
  }
  if (progress.LightState) {
    parts.push_back({4, std::string("light ") + LightStateName(*progress.LightState)});
  }
  return parts;
}

std::size_t LengthOf(const std::vector<LinePart>& parts) {
  std::size_t length = (parts.size() - 1) * kGapLength;
  for (const LinePart& part : parts) length += part.Text.size();
  return length;
}

// One less than the terminal has: some wrap as soon as their last column is written.
std::size_t ColumnsOfTerminal() {
  constexpr std::size_t kUsualColumns = 80;
  winsize size{};
  const bool isKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return (isKnown ? size.ws_col : kUsualColumns) - 1;
}

}  // namespace

ProgressLine::ProgressLine(bool isWanted) : isShown_(isWanted && isatty(STDERR_FILENO) != 0) {}

ProgressLine::~ProgressLine() {
  if (hasText_) std::fputs("\r\x1b[K", stderr);
}

std::string ToText(const StreamProgress& progress, std::size_t columns) {
  std::vector<LinePart> parts = PartsOf(progress);
  while (parts.size() > 1 && LengthOf(parts) > columns) {
    parts.erase(std::ranges::max_element(parts, {}, &LinePart::Rank));
  }
  std::string line;
  for (const LinePart& part : parts) line += (line.empty() ? "" : kGap) + part.Text;
  return line.substr(0, columns);
}

void ProgressLine::Show(const StreamProgress& progress) {
  if (!isShown_) return;
  const auto now = std::chrono::steady_clock::now();
  if (now < next_) return;
  next_ = now + kInterval;
  hasText_ = true;
  std::fprintf(stderr, "\r%s\x1b[K", ToText(progress, ColumnsOfTerminal()).c_str());
  std::fflush(stderr);
}

}  // namespace lidcam::app
