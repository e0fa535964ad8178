#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "apps/lidcam/output/frame_writer.h"

namespace lidcam::app {

/// Passes on one frame in each frame period: a frame is repeated until the next one has come, and of two in one
/// period the second is left out. So a film whose form has no times is as long as the stream.
class ConstantRate : public FrameWriter {
 public:
  ConstantRate(std::unique_ptr<FrameWriter> next, std::chrono::microseconds period)
      : next_(std::move(next)), period_(period) {}

  void Write(const OutputFrame& frame) override;
  void Finish() override { next_->Finish(); }
  [[nodiscard]] std::string Place() const override { return next_->Place(); }
  [[nodiscard]] std::optional<std::uint64_t> Kept() const override { return written_; }
  [[nodiscard]] std::string Note() const override;

 private:
  void Repeat();

  std::unique_ptr<FrameWriter> next_;
  const std::chrono::microseconds period_;
  std::chrono::microseconds start_{};
  std::vector<std::uint8_t> newest_;
  OutputFrame before_{};
  std::int64_t written_ = 0;
  std::uint64_t repeated_ = 0;
  std::uint64_t leftOut_ = 0;
};

/// Notes whether a film of a fixed rate plays as long as its frames took.
class FixedRateNotice : public FrameWriter {
 public:
  FixedRateNotice(std::unique_ptr<FrameWriter> next, std::chrono::microseconds period)
      : next_(std::move(next)), period_(period) {}

  void Write(const OutputFrame& frame) override;
  void Finish() override { next_->Finish(); }
  [[nodiscard]] std::string Place() const override { return next_->Place(); }
  [[nodiscard]] std::optional<std::uint64_t> Kept() const override { return next_->Kept(); }
  [[nodiscard]] std::string Note() const override;

 private:
  std::unique_ptr<FrameWriter> next_;
  const std::chrono::microseconds period_;
  std::chrono::microseconds first_{};
  std::chrono::microseconds newest_{};
  std::int64_t frames_ = 0;
};

}  // namespace lidcam::app
