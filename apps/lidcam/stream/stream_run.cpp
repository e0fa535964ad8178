#include "apps/lidcam/stream/stream_run.h"

#include <sys/resource.h>

#include <array>
#include <cinttypes>
#include <cstdio>
#include <iostream>

#include "apps/lidcam/frames/progress.h"
#include "apps/lidcam/output/utf8_text.h"
#include "apps/lidcam/stream/offered_stream.h"
#include "base/time_units.h"
#include "library/base/command_error.h"
#include "library/base/interrupt.h"
#include "library/camera/bring_up/camera_identity.h"
#include "library/camera/controls/sensor_notes.h"
#include "library/camera/source/plugged_camera.h"
#include "library/camera/streaming/silence_watch.h"
#include "testbed/worlds.h"

namespace lidcam::app {
namespace {

bool HasAllFrames(const StreamLimits& limits, const StreamCounts& counts) {
  return limits.Frames && counts.Delivered() >= *limits.Frames;
}

bool IsReached(const StreamLimits& limits, const StreamCounts& counts) {
  if (HasAllFrames(limits, counts)) return true;
  return limits.Duration &&
         static_cast<std::int64_t>(counts.Microframes) * base::kMicrosecondsPerMicroframe >=
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
  if (!result.Place.empty() && result.Written) answer["written"] = *result.Written;
  if (!result.Note.empty()) answer["note"] = result.Note;
  if (!result.OutputNote.empty()) answer["outputNote"] = result.OutputNote;
  if (!result.Faults.empty()) answer["faults"] = result.Faults;
  if (!result.Troubles.empty()) answer["troubles"] = result.Troubles;
  return answer;
}

std::string AfterFrames(const StreamResult& result) {
  return " after frame " + std::to_string(result.Counts.Delivered());
}

std::string FramesText(std::uint64_t count) {
  return std::to_string(count) + (count == 1 ? " frame" : " frames");
}

std::string CountText(std::uint64_t count, const std::string& what) {
  return (count == 0 ? "none" : std::to_string(count)) + " " + what;
}

}  // namespace

std::string ToText(const StreamCounts& counts) {
  std::string text = FramesText(counts.Delivered()) + " delivered";
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

std::string DifferenceText(std::uint64_t delivered, std::uint64_t recorded,
                           std::optional<std::uint64_t> asked) {
  if (delivered == recorded) return {};
  if (asked && delivered >= *asked) {
    return "a replay delivers " + FramesText(recorded) + ", and not " + std::to_string(*asked) +
           ": this machine was too busy to end the recording in time";
  }
  return "a replay delivers " + FramesText(recorded) +
         ": this machine was too busy to deliver more than " + std::to_string(delivered) +
         " of them in time";
}

namespace {

void PrintSummary(const StreamResult& result, const CommonOptions& options) {
  if (options.IsJson) {
    std::cout << JsonText(ToJson(result)) << std::endl;
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
    std::fprintf(stderr, "processor time: %.2f ms a frame%s\n", *processor,
                 IsPluggedIn(options.Camera.Camera) ? "" : ", of the camera that is simulated too");
  }
  if (!result.Note.empty()) std::fprintf(stderr, "%s\n", result.Note.c_str());
  if (!result.Faults.empty())
    std::fprintf(stderr, "faults on the bus: %s\n", result.Faults.c_str());
  if (!result.OutputNote.empty()) std::fprintf(stderr, "%s\n", result.OutputNote.c_str());
  if (result.Place.empty() || result.Place == "-") return;
  const std::uint64_t written = result.Written.value_or(counts.Delivered());
  std::fprintf(stderr, "written to %s", result.Place.c_str());
  if (written != counts.Delivered()) std::fprintf(stderr, ": %s", FramesText(written).c_str());
  std::fputs("\n", stderr);
}

std::string WhyWithoutFrame(const StreamResult& result, const std::string& from) {
  if (result.IsUnplugged) return "the camera was unplugged before its first frame";
  if (IsInterrupted()) return InterruptText() + " before the first frame";
  return from + " gave no whole frame of " + ToString(result.Size);
}

// If one output can't be completed, the others still are.
template <typename Output>
void Finish(Output* output, StreamResult& result) {
  if (output == nullptr) return;
  try {
    output->Finish();
  } catch (const CommandError& error) {
    result.Troubles.emplace_back(error.what());
  }
}

void NoteFault(FrameWriter& writer, StreamResult& result) {
  try {
    writer.NoteFault();
  } catch (const CommandError& error) {
    result.Troubles.emplace_back(error.what());
  }
}

void TellOutput(const FrameWriter& writer, StreamResult& result) {
  if (const auto kept = writer.Kept()) result.Written = *kept;
  if (result.Written != 0U) result.Place = writer.Place();
  result.OutputNote = writer.Note();
}

bool RunToLimit(CameraStream& stream, const StreamLimits& limits, const Verbosity& verbosity,
                OfferedStream* offered) {
  ProgressLine progress(!verbosity.IsQuiet);
  SilenceWatch silence;
  while (!IsReached(limits, stream.Counts())) {
    if (IsInterrupted()) return false;
    if (!stream.Advance()) break;
    if (offered != nullptr) offered->Serve();
    progress.Show(stream.Progress());
    if (!limits.ToleratesSilence) silence.Check(stream.Counts(), stream.Seconds());
  }
  return true;
}

/// Runs a stream until a limit, an interrupt, or its own end, and takes the frames that are on their way
/// by then.
/// @return false if its end was requested earlier
bool RunToEnd(CameraStream& stream, const StreamLimits& limits, const Verbosity& verbosity,
              OfferedStream* offered) {
  const bool isComplete = RunToLimit(stream, limits, verbosity, offered);
  if (!HasAllFrames(limits, stream.Counts())) stream.TakeRest();
  return isComplete;
}

}  // namespace

void LimitedWriter::Write(const OutputFrame& frame) {
  if (writer_ == nullptr || (frames_ && written_ >= *frames_)) return;
  writer_->Write(frame);
  ++written_;
}

StreamResult RunStream(bus::UsbBus& bus, const StreamSize& size, const StreamLimits& limits,
                       std::span<const ControlAssignment> controls, FrameWriter* writer,
                       const Verbosity& verbosity, FrameLog* log,
                       std::optional<std::int64_t> frameInterval, const CameraChoice* offer) {
  StreamResult result;
  result.Size = size.Delivered;
  LimitedLog limitedLog(log, limits);
  LimitedWriter limitedWriter(writer, limits);
  const auto take = [&](const StreamFrame& frame) {
    limitedLog.Add(frame.Report.Loop);
    limitedWriter.Write({.Yuy2 = frame.Yuy2,
                         .Time = base::TimeOfMicroframes(frame.Report.Microframe),
                         .IsGood = frame.Report.IsGood});
  };
  bool isComplete = true;
  const auto use = [&](CameraStream& stream) {
    result.Identity = IdentityText(stream.Opened().Device());
    result.Sensor = SensorName(stream.Opened().SensorType());
    result.RawSize = stream.RawSize();
    stream.Opened().WithContext(
        [&](const CameraContext& context) { result.Note = PictureNoteOf(context); });
    const double processorAtRun = ProcessorSeconds();
    std::optional<OfferedStream> offered;
    if (offer != nullptr) offered.emplace(stream, *offer);
    testbed::RunThenEnd(
        [&] { isComplete = RunToEnd(stream, limits, verbosity, offered ? &*offered : nullptr); },
        [&] {
          offered.reset();
          result.ProcessorSeconds = ProcessorSeconds() - processorAtRun;
          result.Counts = stream.Counts();
          result.IsUnplugged = stream.IsUnplugged();
        });
  };
  const StreamSetup setup{.Size = size,
                          .Controls = controls,
                          .Frames = take,
                          .MostFrames = limits.Frames,
                          .FrameInterval = frameInterval,
                          .Duration = limits.Duration};
  try {
    WithStream(bus, setup, use);
  } catch (const std::exception& error) {
    if (result.Counts.Delivered() == 0) throw;
    result.Troubles.emplace_back(error.what());
  }
  result.Written = limitedWriter.Written();
  if (result.Counts.Delivered() == 0) return result;
  // A recording contains its camera's end.
  if (result.IsUnplugged && !limits.ToleratesSilence && !limits.ToleratesUnplugging) {
    result.Troubles.push_back("the camera was unplugged" + AfterFrames(result));
  }
  if (!isComplete) NoteInterrupt(result, limits);
  return result;
}

void NoteInterrupt(StreamResult& result, const StreamLimits& limits) {
  if (!limits.HasEnd() && IsInterruptedByUser()) return;
  result.Troubles.push_back(InterruptText() + AfterFrames(result));
}

void StoreSettings(const RunSettings& settings, StreamResult& result) {
  try {
    settings.Store();
  } catch (const CommandError& error) {
    result.Troubles.emplace_back(error.what());
  }
}

void ConcludeStream(StreamResult& result, const StreamOutputs& outputs, const std::string& from,
                    const CommonOptions& options) {
  Finish(outputs.Log, result);
  if (result.Counts.Delivered() == 0) {
    result.Troubles.push_back(WhyWithoutFrame(result, from));
  } else {
    if (outputs.Writer != nullptr && !result.Troubles.empty()) NoteFault(*outputs.Writer, result);
    Finish(outputs.Writer, result);
    if (outputs.Writer != nullptr) TellOutput(*outputs.Writer, result);
    PrintSummary(result, options);
  }
  FailForTroubles(result.Troubles);
}

}  // namespace lidcam::app
