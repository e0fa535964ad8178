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

void ProgressLine::Show(const StreamCounts& counts, const CameraContext& context) {
  if (!isShown_) return;
  const auto now = std::chrono::steady_clock::now();
  if (now < next_) return;
  next_ = now + kInterval;
  hasText_ = true;
  std::fprintf(stderr,
               "\r%" PRIu64 " frames  %.1f/s  %" PRIu64 " dropped  exposure %s  light %s\x1b[K",
               counts.Delivered(), counts.Rate(), counts.Dropped,
               context.AutoExposure != 0 ? "auto" : "manual", LightStateName(context.LightState));
  std::fflush(stderr);
}

}  // namespace lidcam::app
