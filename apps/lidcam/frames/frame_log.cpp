#include "apps/lidcam/frames/frame_log.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <utility>

namespace lidcam::app {
namespace {

// The shortest text that reads back as the same number.
std::string ShortestText(double value) {
  std::array<char, 32> text{};
  const auto result = std::to_chars(text.data(), text.data() + text.size(), value);
  return {text.data(), result.ptr};
}

std::string TextOf(std::optional<double> value) {
  return value ? ShortestText(*value) : std::string();
}

double BeginOf(const camera_model::LightSchedule& light, double seconds) {
  double begin = 0;
  for (const camera_model::LightStep& step : light) {
    if (step.Seconds <= seconds) begin = step.Seconds;
  }
  return begin;
}

}  // namespace

std::string ToCsv(const FrameRow& row) {
  std::array<char, 200> text{};
  const std::string_view state = LightStateName(row.State);
  const std::string_view mode = LightModeName(row.Mode);
  std::snprintf(text.data(), text.size(),
                "%" PRIu64 ",%.6f,%u,%u,%d,%u,%u,%u,%u,%.*s,%.*s,%u,%u,%u,", row.Frame, row.Seconds,
                row.Luma, row.Level, row.Index, row.Exposure, row.CoarseGain, row.FineGain,
                row.Lines, static_cast<int>(state.size()), state.data(),
                static_cast<int>(mode.size()), mode.data(), row.Events.Steps, row.Events.Commits,
                row.Events.Refused);
  return text.data() + TextOf(row.Lux) + "," + TextOf(row.LuxSince);
}

FrameLog::FrameLog(const std::string& path, std::optional<camera_model::LightSchedule> light)
    : file_(path), light_(std::move(light)) {
  file_.Write(std::string(kFrameLogHeader) + "\n");
  file_.MarkWhole();
}

void FrameLog::Add(FrameRow row) {
  row.Frame = ++frames_;
  const double start = std::chrono::duration<double>(partStart_).count();
  if (light_) {
    row.Lux = camera_model::LuxAt(*light_, row.Seconds);
    row.LuxSince = BeginOf(*light_, row.Seconds) + start;
  }
  // The bus's clock may be a little ahead of this machine's, by which the parts begin.
  row.Seconds = newest_ = std::max(row.Seconds + start, newest_);
  file_.Write(ToCsv(row) + "\n");
  file_.MarkWhole();
}

}  // namespace lidcam::app
