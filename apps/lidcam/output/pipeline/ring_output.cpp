#include "apps/lidcam/output/pipeline/ring_output.h"

#include <memory>
#include <utility>

#include "apps/lidcam/output/output_form.h"
#include "apps/lidcam/output/writers/series_writer.h"
#include "library/base/interrupt.h"

namespace lidcam::app {

RingOutput::RingOutput(RingSetup setup, FileMaker makeFile)
    : setup_(std::move(setup)), makeFile_(std::move(makeFile)), motion_(setup_.Size) {
  WatchForSaveRequest();
}

RingOutput::~RingOutput() {
  if (file_.valid()) file_.wait();
}

void RingOutput::Write(const OutputFrame& frame) {
  Keep(frame);
  if (TakeSaveRequest()) Save("SIGUSR1");
  if (!frame.IsGood) Save("frame " + std::to_string(frame.Number) + " of a wrong size");
  if (setup_.MotionPercent) LookForMotion(frame);
}

void RingOutput::Keep(const OutputFrame& frame) {
  while (!frames_.empty() && frame.Time - frames_.front().Frame.Time > setup_.Length) {
    frames_.pop_front();
  }
  frames_.push_back({{frame.Yuy2.begin(), frame.Yuy2.end()}, frame});
}

void RingOutput::LookForMotion(const OutputFrame& frame) {
  const double percent = motion_.PercentMoved(frame.Yuy2);
  if (!motionSave_ && percent >= *setup_.MotionPercent) {
    motionSave_ = frame.Time + setup_.Length / 2;
  }
  if (motionSave_ && frame.Time >= *motionSave_) {
    motionSave_.reset();
    Save("motion");
  }
}

void RingOutput::Save(const std::string& reason) {
  if (frames_.empty()) return;
  AwaitFile();
  const std::uint64_t number = ++files_;
  kept_ += frames_.size();
  if (setup_.Tell) {
    setup_.Tell("the " + std::to_string(frames_.size()) + " frames up to frame " +
                std::to_string(frames_.back().Frame.Number) + " go to " +
                NumberedName(setup_.Path, number) + ": " + reason);
  }
  auto frames = std::make_shared<std::deque<KeptFrame>>(std::exchange(frames_, {}));
  file_ = std::async(std::launch::async, [frames, writer = makeFile_(number)] {
    const std::chrono::microseconds start = frames->front().Frame.Time;
    for (KeptFrame& kept : *frames) {
      kept.Frame.Yuy2 = kept.Yuy2;
      kept.Frame.Time -= start;
      writer->Write(kept.Frame);
    }
    writer->Finish();
  });
}

void RingOutput::AwaitFile() {
  if (file_.valid()) file_.get();
}

std::string RingOutput::Place() const {
  return PlaceOfSeries(setup_.Path, files_);
}

std::string RingOutput::Note() const {
  return files_ == 0 ? "nothing called for a save: no file was written" : std::string();
}

}  // namespace lidcam::app
