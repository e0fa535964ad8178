#include "apps/lidcam/progress.h"

#include <unistd.h>

#include <array>
#include <cinttypes>
#include <cstdio>

namespace lidcam::app {
namespace {

constexpr std::chrono::milliseconds kInterval{100};

const char* LightStateName(std::uint32_t state) {
  constexpr std::array kNames = {"normal", "low light", "initial", "trial"};
  return state < kNames.size() ? kNames[state] : "unknown";
}

}  // namespace

ProgressLine::ProgressLine(bool isWanted) : isShown_(isWanted && isatty(STDERR_FILENO) != 0) {}

ProgressLine::~ProgressLine() {
  if (hasText_) std::fputs("\r\x1b[K", stderr);
}

std::string ToText(const StreamProgress& progress) {
  constexpr double kUnitsPerSecond = 1e7;
  std::array<char, 160> text{};
  const StreamCounts& counts = progress.Counts;
  std::string line = std::to_string(counts.Delivered()) + " frames";
  if (const auto rate = counts.Rate()) {
    std::snprintf(text.data(), text.size(), "  %.1f/s", *rate);
    line += text.data();
  }
  if (progress.Position) {
    std::snprintf(text.data(), text.size(), "  picture %" PRId64 " at %.3f s",
                  progress.Position->PictureNumber,
                  static_cast<double>(progress.Position->PresentationTime) / kUnitsPerSecond);
    line += text.data();
  }
  if (counts.Lost > 0) line += "  " + std::to_string(counts.Lost) + " lost";
  std::snprintf(text.data(), text.size(), "  exposure %s  light %s",
                progress.IsAutoExposure ? "auto" : "manual", LightStateName(progress.LightState));
  return line + text.data();
}

void ProgressLine::Show(const StreamProgress& progress) {
  if (!isShown_) return;
  const auto now = std::chrono::steady_clock::now();
  if (now < next_) return;
  next_ = now + kInterval;
  hasText_ = true;
  std::fprintf(stderr, "\r%s\x1b[K", ToText(progress).c_str());
  std::fflush(stderr);
}

}  // namespace lidcam::app
