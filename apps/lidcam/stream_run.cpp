#include "apps/lidcam/stream_run.h"

#include <sys/resource.h>

#include <array>
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

  void Add(const FrameRow& row) {
    if (log_ == nullptr || (frames_ && logged_ >= *frames_)) return;
    log_->Add(row);
    ++logged_;
  }

 private:
  FrameLog* log_;
  std::optional<std::uint64_t> frames_;
  std::uint64_t logged_ = 0;
};

double SecondsOf(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

double ProcessorSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return SecondsOf(usage.ru_utime) + SecondsOf(usage.ru_stime);
}

// Nothing without a frame, or in virtual time.
std::optional<double> ProcessorMillisecondsPerFrame(const StreamResult& result) {
  if (!result.ProcessorSeconds || result.Counts.Delivered() == 0) return std::nullopt;
  return *result.ProcessorSeconds * 1000 / static_cast<double>(result.Counts.Delivered());
}

nlohmann::json ToJson(const StreamResult& result) {
  nlohmann::json answer = {
      {"identity", result.Identity},
      {"sensor", result.Sensor},
      {"size", ToString(result.Size)},
      {"rawSize", ToString(result.RawSize)},
      {"frames",
       {{"delivered", result.Counts.Delivered()},
        {"good", result.Counts.Good},
        {"bad", result.Counts.Bad},
        {"startUp", result.Counts.StartUp},
        {"settling", result.Counts.Settling},
        {"lost", result.Counts.Lost}}},
      {"busBytes", result.Counts.BusBytes},
      {"busSeconds", result.Counts.Seconds()},
      {"framesPerSecond", nullptr},
      {"output", result.Place},
  };
  if (const auto rate = result.Counts.Rate()) answer["framesPerSecond"] = *rate;
  if (const auto processor = ProcessorMillisecondsPerFrame(result)) {
    answer["processorMillisecondsPerFrame"] = *processor;
  }
  if (!result.Faults.empty()) answer["faults"] = result.Faults;
  return answer;
}

std::string CountText(std::uint64_t count, const std::string& what) {
  return (count == 0 ? "none" : std::to_string(count)) + " " + what;
}

}  // namespace

std::string ToText(const StreamCounts& counts) {
  std::string text = std::to_string(counts.Delivered()) +
                     (counts.Delivered() == 1 ? " frame delivered" : " frames delivered");
  if (const auto rate = counts.Rate()) {
    std::array<char, 40> number{};
    std::snprintf(number.data(), number.size(), ", %.2f a second", *rate);
    text += number.data();
  }
  text += "; " + CountText(counts.Lost, "lost");
  text += ", " + CountText(counts.Bad, "of a wrong size");
  if (counts.Settling > 0)
    text += ", " + CountText(counts.Settling, "left out at changes of light");
  return text;
}

void LimitedWriter::Write(std::span<const std::uint8_t> yuy2) {
  if (writer_ == nullptr || (frames_ && written_ >= *frames_)) return;
  writer_->Write(yuy2);
  ++written_;
}

StreamResult RunStream(bus::UsbBus& bus, const StreamSize& size, const StreamLimits& limits,
                       std::span<const ControlAssignment> controls, FrameWriter* writer,
                       const Verbosity& verbosity, FrameLog* log) {
  StreamResult result;
  result.Size = size.Delivered;
  LimitedLog limitedLog(log, limits);
  LimitedWriter limitedWriter(writer, limits);
  const auto take = [&](const StreamFrame& frame) {
    limitedLog.Add(frame.Report.Loop);
    limitedWriter.Write(frame.Yuy2);
  };
  WithStream(bus, {.Size = size, .Controls = controls, .Frames = take}, [&](CameraStream& stream) {
    result.Identity = IdentityText(stream.Opened().Device());
    result.Sensor = SensorName(stream.Opened().SensorType());
    result.RawSize = stream.RawSize();
    const double processorAtRun = ProcessorSeconds();
    ProgressLine progress(!verbosity.IsQuiet);
    SilenceWatch silence;
    while (!IsInterrupted() && !IsReached(limits, stream.Counts()) && stream.Advance()) {
      progress.Show(stream.Progress());
      if (!limits.ToleratesSilence) silence.Check(stream.Counts(), stream.Seconds());
    }
    result.ProcessorSeconds = ProcessorSeconds() - processorAtRun;
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
  std::fprintf(stderr, "%s %s %s (raw %s): %s; %" PRIu64 " bytes in %.3f s of bus time\n",
               result.Identity.empty() ? "unknown camera" : result.Identity.c_str(),
               result.Sensor.empty() ? "unknown sensor" : result.Sensor.c_str(),
               ToString(result.Size).c_str(), ToString(result.RawSize).c_str(),
               ToText(counts).c_str(), counts.BusBytes, counts.Seconds());
  if (const auto processor = ProcessorMillisecondsPerFrame(result)) {
    std::fprintf(stderr, "processor time: %.2f ms a frame, of the camera that is simulated too\n",
                 *processor);
  }
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
    if (IsInterrupted()) throw CommandError("interrupted before the first frame");
    throw CommandError(from + " gave no whole frame of " + ToString(result.Size));
  }
  if (writer == nullptr) return;
  writer->Finish();
  result.Place = writer->Place();
}

}  // namespace lidcam::app
