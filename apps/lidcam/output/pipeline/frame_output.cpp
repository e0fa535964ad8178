#include "apps/lidcam/output/pipeline/frame_output.h"

#include <algorithm>
#include <utility>

#include "apps/lidcam/output/output_form.h"
#include "apps/lidcam/output/pipeline/constant_rate.h"
#include "apps/lidcam/output/pipeline/picture_stamp.h"
#include "apps/lidcam/output/pipeline/ring_output.h"
#include "apps/lidcam/output/pipeline/segmented_output.h"
#include "apps/lidcam/output/pipeline/timestamp_file.h"
#include "apps/lidcam/output/writers/file_writers.h"
#include "apps/lidcam/output/writers/series_writer.h"
#include "library/base/command_error.h"
#ifdef LIDCAM_HAS_FILM
#include "apps/lidcam/modules/module.h"
#include "apps/lidcam/output/film/film_writer.h"
#include "apps/lidcam/output/output_file.h"
#endif

namespace lidcam::app {
namespace {

// Two frames never have the same time: one microframe lies between them at least.
constexpr std::chrono::microseconds kShortestGap{125};

std::unique_ptr<FrameWriter> MakeFilm([[maybe_unused]] const std::string& path,
                                      [[maybe_unused]] PictureSize size,
                                      [[maybe_unused]] OutputForm form,
                                      [[maybe_unused]] std::chrono::microseconds framePeriod) {
#ifdef LIDCAM_HAS_FILM
  const auto make = FunctionOfModule<MakeFilmWriterFunction>("output '" + path + "'", kFilmModule,
                                                             kMakeFilmWriter);
  std::unique_ptr<ByteOutput> file = std::make_unique<OutputFile>(path);
  return std::unique_ptr<FrameWriter>(make(file, size, form, framePeriod));
#else
  throw CommandError("output '" + path +
                     "': this lidcam was built without libavformat, libavcodec and libswscale; use "
                     ".mjpeg, .y4m, .yuy2, .png or .jpg, or build it where they are installed");
#endif
}

/// Makes one file of a setup: the output itself, or one of several.
std::unique_ptr<FrameWriter> MakeOneFile(const FrameOutputSetup& setup, const std::string& path,
                                         const std::optional<std::string>& timestamps) {
  std::unique_ptr<FrameWriter> writer = MakeFileWriter(path, setup.Size, setup.FramePeriod);
  if (timestamps) writer = std::make_unique<TimestampedOutput>(std::move(writer), *timestamps);
  if (setup.IsConstantRate) {
    return std::make_unique<ConstantRate>(std::move(writer), setup.FramePeriod);
  }
  if (!HasFixedRate(FormOfOutput(path)) || IsOutputDevice(path)) return writer;
  return std::make_unique<FixedRateNotice>(std::move(writer), setup.FramePeriod);
}

FileMaker NumberedFiles(const FrameOutputSetup& setup) {
  return [setup](std::uint64_t number) {
    std::optional<std::string> timestamps;
    if (setup.Timestamps) timestamps = NumberedName(*setup.Timestamps, number);
    return MakeOneFile(setup, NumberedName(setup.Path, number), timestamps);
  };
}

std::unique_ptr<FrameWriter> MakeStages(const FrameOutputSetup& setup) {
  std::unique_ptr<FrameWriter> writer;
  if (setup.Ring) {
    RequireFolderOf(setup.Path);
    writer = std::make_unique<RingOutput>(RingSetup{.Path = setup.Path,
                                                    .Length = *setup.Ring,
                                                    .Size = setup.Size,
                                                    .MotionPercent = setup.MotionPercent,
                                                    .Tell = setup.Tell},
                                          NumberedFiles(setup));
  } else if (setup.Segment) {
    RequireFolderOf(setup.Path);
    writer = std::make_unique<SegmentedOutput>(setup.Path, *setup.Segment, NumberedFiles(setup));
  } else {
    writer = MakeOneFile(setup, setup.Path, setup.Timestamps);
  }
  if (!setup.IsStamped) return writer;
  return std::make_unique<StampedOutput>(std::move(writer), setup.Size, setup.TellsDate);
}

}  // namespace

FrameOutput::FrameOutput(const FrameOutputSetup& setup)
    : skip_(setup.Skip), every_(setup.Every), next_(MakeStages(setup)) {}

FrameOutput::~FrameOutput() = default;

void FrameOutput::Write(const OutputFrame& frame) {
  OutputFrame taken = frame;
  taken.Number = ++count_;
  taken.Time = std::max(frame.Time + partStart_, newest_ + kShortestGap);
  newest_ = taken.Time;
  if (!IsWanted(taken)) return;
  next_->Write(taken);
  ++passed_;
}

bool FrameOutput::IsWanted(const OutputFrame& frame) {
  if (frame.Number <= skip_) return false;
  if (!every_) return true;
  if (passed_ > 0 && frame.Time < due_) return false;
  // From the first on; what came late doesn't shift those behind it.
  due_ = passed_ == 0 ? frame.Time : due_;
  while (due_ <= frame.Time) due_ += *every_;
  return true;
}

void FrameOutput::Finish() {
  next_->Finish();
}

std::string FrameOutput::Place() const {
  return Kept() == 0U ? std::string() : next_->Place();
}

void FrameOutput::NoteFault() {
  next_->NoteFault();
}

std::optional<std::uint64_t> FrameOutput::Kept() const {
  const std::optional<std::uint64_t> kept = next_->Kept();
  return kept ? kept : passed_;
}

std::string FrameOutput::Note() const {
  return next_->Note();
}

std::unique_ptr<FrameWriter> MakeFileWriter(const std::string& path, PictureSize size,
                                            std::chrono::microseconds framePeriod) {
  const OutputForm form = FormOfOutput(path);
  switch (form) {
    case OutputForm::RawYuy2:
      return MakeRawWriter(path);
    case OutputForm::PngSeries:
    case OutputForm::JpegSeries:
      return MakeSeriesWriter(path, size, form);
    case OutputForm::Mjpeg:
      return MakeMjpegWriter(path, size);
    case OutputForm::Avi:
    case OutputForm::Matroska:
    case OutputForm::Mp4:
      return MakeFilm(path, size, form, framePeriod);
    case OutputForm::Y4m:
      break;
  }
  return MakeY4mWriter(path, size, framePeriod);
}

}  // namespace lidcam::app
