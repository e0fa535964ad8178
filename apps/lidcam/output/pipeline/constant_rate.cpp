#include "apps/lidcam/output/pipeline/constant_rate.h"

#include <array>
#include <cstdio>
#include <cstdlib>

namespace lidcam::app {
namespace {

// A camera's own clock deviates by less.
constexpr std::int64_t kTolerancePercent = 5;

std::string SecondsText(std::chrono::microseconds time) {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%.1f s", std::chrono::duration<double>(time).count());
  return text.data();
}

}  // namespace

void ConstantRate::Write(const OutputFrame& frame) {
  if (written_ == 0) start_ = frame.Time;
  const std::int64_t place = (frame.Time - start_ + period_ / 2) / period_;
  if (place < written_) {
    ++leftOut_;
    return;
  }
  while (written_ < place) Repeat();
  OutputFrame placed = frame;
  placed.Time = start_ + period_ * written_;
  next_->Write(placed);
  ++written_;
  before_ = placed;
  newest_.assign(frame.Yuy2.begin(), frame.Yuy2.end());
}

void ConstantRate::Repeat() {
  before_.Yuy2 = newest_;
  before_.Time = start_ + period_ * written_;
  next_->Write(before_);
  ++written_;
  ++repeated_;
}

std::string ConstantRate::Note() const {
  if (repeated_ == 0 && leftOut_ == 0) return {};
  return "constant rate: " + std::to_string(repeated_) + " frames repeated, " +
         std::to_string(leftOut_) + " left out";
}

void FixedRateNotice::Write(const OutputFrame& frame) {
  next_->Write(frame);
  if (frames_++ == 0) first_ = frame.Time;
  newest_ = frame.Time;
}

std::string FixedRateNotice::Note() const {
  if (frames_ < 2) return {};
  const std::chrono::microseconds took = newest_ - first_;
  const std::chrono::microseconds plays = period_ * (frames_ - 1);
  const auto difference = std::chrono::abs(took - plays);
  if (difference * 100 <= took * kTolerancePercent || difference <= 2 * period_) return {};
  const std::string place = next_->Place();
  return (place == "-" ? "standard output" : place) + " has one rate for all frames: it plays in " +
         SecondsText(plays) + " what took " + SecondsText(took) +
         "; .mkv and .mp4 keep the time of each frame, and --constant-rate repeats frames";
}

}  // namespace lidcam::app
