#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "apps/lidcam/output/frame_writer.h"
#include "library/base/units.h"

namespace lidcam::app {

/// Draws lines of text into the lower left corner of a YUY2 picture, white upon black. Letters: digits, ":", ".",
/// "-", "#" and the space; each is 5 by 7 dots, a dot one pixel for each 320 of the width.
void DrawStamp(std::span<std::uint8_t> yuy2, PictureSize size, std::span<const std::string> lines);

/// Draws the time and the number of each frame into the picture.
class StampedOutput : public FrameWriter {
 public:
  /// @param tellsDate  true: the date and time of this machine's clock; false: the time since the stream's start
  StampedOutput(std::unique_ptr<FrameWriter> next, PictureSize size, bool tellsDate)
      : next_(std::move(next)), size_(size), tellsDate_(tellsDate) {}

  void Write(const OutputFrame& frame) override;
  void Finish() override { next_->Finish(); }
  [[nodiscard]] std::string Place() const override { return next_->Place(); }
  void NoteFault() override { next_->NoteFault(); }
  [[nodiscard]] std::optional<std::uint64_t> Kept() const override { return next_->Kept(); }
  [[nodiscard]] std::string Note() const override { return next_->Note(); }

 private:
  [[nodiscard]] std::string TimeText(std::chrono::microseconds time) const;

  std::unique_ptr<FrameWriter> next_;
  const PictureSize size_;
  const bool tellsDate_;
  /// The clock's time at the stream's time 0, by the first frame.
  std::optional<std::chrono::system_clock::time_point> start_;
  std::vector<std::uint8_t> picture_;
};

/// "2026-11-22 13:05:12.345", in this machine's time zone.
[[nodiscard]] std::string DateText(std::chrono::system_clock::time_point time);

}  // namespace lidcam::app
