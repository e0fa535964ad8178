#include "apps/lidcam/stream_run.h"

#include <cinttypes>
#include <cstdio>
#include <iostream>

#include "apps/lidcam/command_error.h"
#include "apps/lidcam/interrupt.h"
#include "apps/lidcam/progress.h"
#include "apps/lidcam/silence_watch.h"

namespace lidcam::app {
namespace {

bool IsReached(const StreamLimits& limits, const StreamCounts& counts) {
  if (limits.Frames && counts.Delivered() >= *limits.Frames) return true;
  constexpr std::int64_t kMicrosecondsPerMicroframe = 125;
  return limits.Duration &&
         static_cast<std::int64_t>(counts.Microframes) * kMicrosecondsPerMicroframe >=
             limits.Duration->count();
}

class LimitedLog {
 public:
  LimitedLog(FrameLog* log, const StreamLimits& limits) : log_(log), frames_(limits.Frames) {}

  void Add(const CameraContext& context, const DeliveredFrame& frame) {
    if (log_ == nullptr || (frames_ && logged_ >= *frames_)) return;
    log_->Add(context, frame);
    ++logged_;
  }

 private:
  FrameLog* log_;
  std::optional<std::uint64_t> frames_;
  std::uint64_t logged_ = 0;
};

nlohmann::json ToJson(const StreamResult& result) {
  return {
      {"identity", result.Identity},
      {"sensor", result.Sensor},
      {"size", ToString(result.Size)},
      {"rawSize", ToString(result.RawSize)},
      {"frames",
       {{"good", result.Counts.Good},
        {"bad", result.Counts.Bad},
        {"dropped", result.Counts.Dropped}}},
      {"busBytes", result.Counts.BusBytes},
      {"busSeconds", result.Counts.Seconds()},
      {"framesPerSecond", result.Counts.Rate()},
      {"output", result.Place},
  };
}

}  // namespace

void LimitedWriter::operator()(const DeliveredFrame& frame) {
  if (writer_ == nullptr || (frames_ && written_ >= *frames_)) return;
  writer_->Write(frame.Yuy2);
  ++written_;
}

StreamResult RunNativeStream(CoreCamera& camera, const StreamSize& size, const StreamLimits& limits,
                             std::span<const ControlAssignment> controls, FrameWriter* writer,
                             const Verbosity& verbosity, FrameLog* log) {
  StreamResult result{
      .Counts = {},
      .Size = size.Delivered,
      .RawSize = {},
      .Identity = IdentityText(camera.Device()),
      .Sensor = std::string(SensorName(camera.Context().SensorType)),
      .Place = {},
  };
  {
    LimitedLog limitedLog(log, limits);
    NativeStream stream(
        camera, size,
        [&, write = LimitedWriter(writer, limits)](const DeliveredFrame& frame) mutable {
          limitedLog.Add(camera.Context(), frame);
          write(frame);
        });
    for (const ControlAssignment& control : controls) Apply(camera.Context(), control);
    ProgressLine progress(!verbosity.IsQuiet);
    SilenceWatch silence;
    while (!IsInterrupted() && !IsReached(limits, stream.Counts()) && stream.ReadTransfer()) {
      progress.Show(stream.Counts(), camera.Context());
      if (!limits.ToleratesSilence) silence.Check(stream.Counts());
    }
    result.Counts = stream.Counts();
    result.RawSize = stream.RawSize();
  }
  return result;
}

void PrintSummary(const StreamResult& result, const CommonOptions& options) {
  if (options.IsJson) {
    std::cout << ToJson(result).dump(2) << std::endl;
    return;
  }
  if (options.Output.IsQuiet) return;
  const StreamCounts& counts = result.Counts;
  std::fprintf(stderr,
               "%s %s %s (raw %s): %" PRIu64 " frames good, %" PRIu64 " bad, %" PRIu64
               " dropped; %" PRIu64 " bytes in %.3f s of bus time, %.2f frames/s\n",
               result.Identity.empty() ? "unknown camera" : result.Identity.c_str(),
               result.Sensor.empty() ? "unknown sensor" : result.Sensor.c_str(),
               ToString(result.Size).c_str(), ToString(result.RawSize).c_str(), counts.Good,
               counts.Bad, counts.Dropped, counts.BusBytes, counts.Seconds(), counts.Rate());
  if (!result.Place.empty() && result.Place != "-") {
    std::fprintf(stderr, "written to %s\n", result.Place.c_str());
  }
}

void FinishOutput(StreamResult& result, FrameWriter* writer, const std::string& from) {
  if (result.Counts.Delivered() == 0) {
    throw CommandError(from + " gave no whole frame of " + ToString(result.Size));
  }
  if (writer == nullptr) return;
  writer->Finish();
  result.Place = writer->Place();
}

}  // namespace lidcam::app
