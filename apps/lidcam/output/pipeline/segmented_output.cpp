#include "apps/lidcam/output/pipeline/segmented_output.h"

#include "apps/lidcam/output/writers/series_writer.h"

namespace lidcam::app {

void SegmentedOutput::Write(const OutputFrame& frame) {
  const std::int64_t segment = frame.Time / length_;
  if (file_ && segment != segment_) Complete();
  if (!file_) {
    file_ = makeFile_(files_ + 1);
    ++files_;
    segment_ = segment;
  }
  OutputFrame own = frame;
  own.Time -= length_ * segment;
  file_->Write(own);
  ++written_;
}

void SegmentedOutput::Complete() {
  // Not a second time if it fails.
  const std::unique_ptr<FrameWriter> file = std::move(file_);
  completed_ += file->Kept().value_or(written_);
  written_ = 0;
  file->Finish();
  if (note_.empty()) note_ = file->Note();
}

void SegmentedOutput::Finish() {
  if (file_) Complete();
}

std::string SegmentedOutput::Place() const {
  return PlaceOfSeries(path_, files_);
}

std::optional<std::uint64_t> SegmentedOutput::Kept() const {
  return completed_ + (file_ ? file_->Kept().value_or(written_) : 0);
}

}  // namespace lidcam::app
