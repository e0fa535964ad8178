#include "apps/lidcam/stream_run.h"

#include <cinttypes>
#include <cstdio>
#include <iostream>

#include "apps/lidcam/command_error.h"
#include "apps/lidcam/interrupt.h"
#include "apps/lidcam/progress.h"

namespace lidcam::app {
namespace {

bool IsReached(const StreamLimits& limits, const StreamCounts& counts) {
  if (limits.Frames && counts.Delivered() >= *limits.Frames) return true;
  constexpr std::int64_t kMicrosecondsPerMicroframe = 125;
  return limits.Duration &&
         static_cast<std::int64_t>(counts.Microframes) * kMicrosecondsPerMicroframe >=
             limits.Duration->count();
}

// A camera that is silent this long sends nothing more; the slowest setting takes under a second a
// frame.
constexpr std::uint64_t kSilenceMicroframes = 5 * 8000;

// Ends a stream that gives no frames rather than wait for ever.
class SilenceWatch {
 public:
  void Check(const StreamCounts& counts) {
    if (counts.Delivered() != delivered_) {
      delivered_ = counts.Delivered();
      since_ = counts.Microframes;
    }
    if (counts.Microframes - since_ < kSilenceMicroframes) return;
    throw CommandError(delivered_ == 0 ? "the camera sent no whole frame in 5 s"
                                       : "the camera sent no whole frame for 5 s after frame " +
                                             std::to_string(delivered_));
  }

 private:
  std::uint64_t delivered_ = 0;
  std::uint64_t since_ = 0;
};

nlohmann::json ToJson(const StreamResult& result) {
  return {
      {"identity", result.Identity},
      {"sensor", result.Sensor},
      {"size", ToString(result.Size)},
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

void LimitedWriter::operator()(std::span<const std::uint8_t> yuy2) {
  if (writer_ == nullptr || (frames_ && written_ >= *frames_)) return;
  writer_->Write(yuy2);
  ++written_;
}

StreamResult RunNativeStream(CoreCamera& camera, PictureSize size, const StreamLimits& limits,
                             std::span<const ControlAssignment> controls, FrameWriter* writer,
                             const Verbosity& verbosity) {
  StreamResult result{
      .Counts = {},
      .Size = size,
      .Identity = IdentityText(camera.Device()),
      .Sensor = std::string(SensorName(camera.Context().SensorType)),
      .Place = {},
  };
  {
    NativeStream stream(camera, size, LimitedWriter(writer, limits));
    for (const ControlAssignment& control : controls) Apply(camera.Context(), control);
    ProgressLine progress(!verbosity.IsQuiet);
    SilenceWatch silence;
    while (!IsInterrupted() && !IsReached(limits, stream.Counts()) && stream.ReadTransfer()) {
      progress.Show(stream.Counts(), camera.Context());
      if (!limits.ToleratesSilence) silence.Check(stream.Counts());
    }
    result.Counts = stream.Counts();
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
               "%s %s %s: %" PRIu64 " frames good, %" PRIu64 " bad, %" PRIu64 " dropped; %" PRIu64
               " bytes in %.3f s of bus time, %.2f frames/s\n",
               result.Identity.empty() ? "unknown camera" : result.Identity.c_str(),
               result.Sensor.empty() ? "unknown sensor" : result.Sensor.c_str(),
               ToString(result.Size).c_str(), counts.Good, counts.Bad, counts.Dropped,
               counts.BusBytes, counts.Seconds(), counts.Rate());
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
