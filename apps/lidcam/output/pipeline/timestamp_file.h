#pragma once

#include <memory>
#include <string>
#include <utility>

#include "apps/lidcam/output/frame_writer.h"
#include "apps/lidcam/output/output_file.h"

namespace lidcam::app {

/// Writes the times of an output's frames beside it, in Matroska's text format: a line "# timestamp format v2",
/// then a line of milliseconds for each frame.
class TimestampedOutput : public FrameWriter {
 public:
  /// Throws CommandError if the file can't be made.
  TimestampedOutput(std::unique_ptr<FrameWriter> next, const std::string& path);

  void Write(const OutputFrame& frame) override;
  void Finish() override;
  [[nodiscard]] std::string Place() const override { return next_->Place(); }
  [[nodiscard]] std::optional<std::uint64_t> Kept() const override { return next_->Kept(); }
  [[nodiscard]] std::string Note() const override { return next_->Note(); }

 private:
  std::unique_ptr<FrameWriter> next_;
  OutputFile file_;
};

}  // namespace lidcam::app
