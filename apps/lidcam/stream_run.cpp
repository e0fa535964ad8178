#include "apps/lidcam/stream_run.h"

#include <cinttypes>
#include <cstdio>
#include <iostream>

#include "apps/lidcam/command_error.h"
#include "apps/lidcam/core_camera.h"
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
  nlohmann::json answer = {
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
  if (!result.Faults.empty()) answer["faults"] = result.Faults;
  return answer;
}

}  // namespace

void LimitedWriter::operator()(const DeliveredFrame& frame) {
  if (writer_ == nullptr || (frames_ && written_ >= *frames_)) return;
  writer_->Write(frame.Yuy2);
  ++written_;
}

StreamResult RunStream(bus::UsbBus& bus, const StreamSize& size, const StreamLimits& limits,
                       std::span<const ControlAssignment> controls, FrameWriter* writer,
                       const Verbosity& verbosity, FrameLog* log) {
  StreamResult result;
  result.Size = size.Delivered;
  LimitedLog limitedLog(log, limits);
  LimitedWriter limitedWriter(writer, limits);
  const world::FrameHandler handler = [&](const world::HostedFrame& frame) {
    limitedLog.Add(frame.Camera, ToDelivered(frame));
    limitedWriter(ToDelivered(frame));
  };
  WithStream(bus, {.Size = size, .Controls = controls, .Frames = handler},
             [&](HostedStream& stream) {
               result.Identity = IdentityText(stream.Device());
               result.Sensor = SensorName(stream.Context().SensorType);
               result.RawSize = stream.RawSize();
               ProgressLine progress(!verbosity.IsQuiet);
               SilenceWatch silence;
               while (!IsInterrupted() && !IsReached(limits, stream.Counts()) && stream.Advance()) {
                 progress.Show(stream.Counts(), stream.Context());
                 if (!limits.ToleratesSilence) silence.Check(stream.Counts(), stream.Seconds());
               }
               result.Counts = stream.Counts();
               result.IsUnplugged = stream.IsUnplugged();
             });
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
  if (!result.Faults.empty())
    std::fprintf(stderr, "faults on the bus: %s\n", result.Faults.c_str());
  if (!result.Place.empty() && result.Place != "-") {
    std::fprintf(stderr, "written to %s\n", result.Place.c_str());
  }
}

void RequirePluggedIn(const StreamResult& result) {
  if (!result.IsUnplugged) return;
  throw CommandError("the camera was unplugged after frame " +
                     std::to_string(result.Counts.Delivered()));
}

void FinishOutput(StreamResult& result, FrameWriter* writer, const std::string& from) {
  if (result.Counts.Delivered() == 0) {
    if (result.IsUnplugged) throw CommandError("the camera was unplugged before its first frame");
    throw CommandError(from + " gave no whole frame of " + ToString(result.Size));
  }
  if (writer == nullptr) return;
  writer->Finish();
  result.Place = writer->Place();
}

}  // namespace lidcam::app
