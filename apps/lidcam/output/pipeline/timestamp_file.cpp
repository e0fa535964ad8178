#include "apps/lidcam/output/pipeline/timestamp_file.h"

#include <array>
#include <cinttypes>
#include <cstdio>

namespace lidcam::app {

TimestampedOutput::TimestampedOutput(std::unique_ptr<FrameWriter> next, const std::string& path)
    : next_(std::move(next)), file_(path) {
  file_.Write("# timestamp format v2\n");
  file_.MarkWhole();
}

void TimestampedOutput::Write(const OutputFrame& frame) {
  next_->Write(frame);
  std::array<char, 40> line{};
  const std::int64_t microseconds = frame.Time.count();
  std::snprintf(line.data(), line.size(), "%" PRId64 ".%03" PRId64 "\n", microseconds / 1000,
                microseconds % 1000);
  file_.Write(line.data());
  file_.MarkWhole();
}

void TimestampedOutput::Finish() {
  next_->Finish();
  file_.Commit();
}

}  // namespace lidcam::app
