#include <chrono>
#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/options/common_options.h"
#include "apps/lidcam/options/fault_option.h"
#include "apps/lidcam/options/frame_output_options.h"
#include "apps/lidcam/stream/replay_run.h"
#include "apps/lidcam/stream/replug.h"
#include "apps/lidcam/stream/stream_run.h"
#include "base/time_units.h"
#include "driver/avstream/properties/frame_rates.h"
#include "library/base/command_error.h"
#include "testbed/worlds.h"

namespace lidcam::app {
namespace {

struct StreamCommand {
  CommonOptions Common;
  StreamOptions Stream;
  FrameOutputOptions Output;
  std::optional<std::string> Log;
  std::optional<std::string> Faults;
  std::optional<std::uint64_t> Fps;
};

/// Tells when each part of a stream begins: a camera that is plugged in again counts its time anew.
class PartClock {
 public:
  /// Time from the first part's begin to this one's.
  std::chrono::microseconds BeginPart() {
    const Clock::time_point now = Clock::now();
    if (!start_) start_ = now;
    return std::chrono::duration_cast<std::chrono::microseconds>(now - *start_);
  }

 private:
  using Clock = std::chrono::steady_clock;

  std::optional<Clock::time_point> start_;
};

std::uint64_t WholeRateOf(std::int64_t interval) {
  return static_cast<std::uint64_t>((base::kUnitsPerSecond + interval / 2) / interval);
}

/// The frame interval in 100 ns of a rate that the pin offers. Throws UsageError, listing those, for another one.
std::optional<std::int64_t> IntervalOf(const StreamCommand& command, PictureSize size) {
  if (!command.Fps) return std::nullopt;
  std::string rates;
  const std::span<const LONGLONG> intervals = FrameRatesFor(size.Width);
  for (const LONGLONG& interval : intervals) {
    if (WholeRateOf(interval) == *command.Fps) return interval;
    const bool isLast = &interval == &intervals.back();
    rates += (rates.empty() ? "" : isLast ? " or " : ", ") + std::to_string(WholeRateOf(interval));
  }
  throw UsageError("frame rate '" + std::to_string(*command.Fps) +
                   "' is not offered by the pin for " + ToString(size) + ": use " + rates);
}

// The camera keeps the rate of its exposure, whatever the pin was asked for.
void NoteRate(const StreamCommand& command, StreamResult& result) {
  constexpr double kTolerance = 0.05;
  const std::optional<double> rate = result.Counts.Rate();
  if (!command.Fps || !rate) return;
  const auto asked = static_cast<double>(*command.Fps);
  if (std::abs(*rate - asked) <= kTolerance * asked) return;
  result.Note += std::string(result.Note.empty() ? "" : "; ") + "the camera was asked for " +
                 std::to_string(*command.Fps) +
                 " frames a second and keeps its own rate; --constant-rate writes as many as were "
                 "asked for";
}

void LookAtFilesOf(const StreamCommand& command) {
  std::vector<OutputRole> outputs = FrameOutputsOf(command.Common, command.Output);
  if (command.Log) outputs.push_back({"--log", *command.Log});
  LookAtFiles(InputsOf(command.Common, FilesOfFaults(command.Faults)), outputs);
}

void Run(const StreamCommand& command) {
  const StreamSize size = SizeOf(command.Stream.Sizes);
  StreamLimits limits = LimitsOf(command.Stream);
  limits.Frames = FramesFor(limits.Frames, command.Output);
  limits.EndsByItself = CaptureFileOf(command.Common.Camera.Camera).has_value();
  const std::vector<ControlAssignment> controls = ControlsOf(command.Common, command.Stream);
  if (command.Common.IsJson && command.Output.Output == "-") {
    throw UsageError("--json and the output '-' both want standard output: use one of them");
  }
  if (command.Log == "-" && (command.Common.IsJson || command.Output.Output == "-")) {
    throw UsageError("the log '-' wants standard output, which is taken: name a file");
  }
  const std::optional<std::int64_t> interval = IntervalOf(command, size.Delivered);
  const std::chrono::microseconds period =
      interval ? std::chrono::microseconds(*interval / base::kUnitsPerMicrosecond) : kFramePeriod;
  LookAtFilesOf(command);
  const CameraChoice& choice = command.Common.Camera;
  const CameraLock lock(choice, command.Common.Patience());
  const RunSettings settings = OpenHostEnvironment(command.Common.Output, SetFilesFor(choice));
  std::optional<FaultyPort> port;
  port.emplace(OpenCamera(choice), command.Faults, LikelyDuration(limits));
  const std::unique_ptr<FrameOutput> writer =
      OpenFrameOutput(command.Common, command.Output, size.Delivered, period, IsInRealTime(choice));
  std::optional<FrameLog> log;
  if (command.Log) log.emplace(*command.Log, LightOn(choice));
  StreamResult result;
  try {
    const StreamSize fitting = FitToCamera(size, choice);
    PartClock clock;
    const StreamPart part = [&](const CameraChoice& camera, const StreamLimits& left,
                                bool isFirst) {
      // A script's faults are those of the first part.
      const std::chrono::microseconds start = clock.BeginPart();
      if (writer) writer->BeginPart(start);
      if (log) log->BeginPart(start);
      if (!isFirst) port.emplace(OpenCamera(camera), std::nullopt, LikelyDuration(left));
      StreamResult streamed;
      testbed::RunThenEnd(
          [&] {
            RunInTimeOf(camera, [&] {
              streamed = RunStream(port->Bus(), fitting, left, controls, writer.get(),
                                   command.Common.Output, log ? &*log : nullptr, interval, &camera);
            });
          },
          [&] {
            streamed.Faults = port->Account();
            port.reset();
          });
      return streamed;
    };
    // An unplug of the script is the stream's end: the camera itself is still plugged in.
    result = command.Faults && !command.Common.Waits
                 ? part(choice, limits, true)
                 : StreamOverReplugs(command.Common, limits, part);
    if (!IsInRealTime(choice)) result.ProcessorSeconds.reset();
  } catch (...) {
    // The log is most useful after a failed stream.
    if (log) log->Finish();
    throw;
  }
  NoteRate(command, result);
  if (command.Stream.Saves) StoreSettings(settings, result);
  ConcludeStream(result, {.Writer = writer.get(), .Log = log ? &*log : nullptr},
                 "camera '" + choice.Camera + "'", command.Common);
}

}  // namespace

void AddStreamCommand(CLI::App& app) {
  const auto command = std::make_shared<StreamCommand>();
  CLI::App* const sub =
      app.add_subcommand("stream", "frames to a film, a series of pictures or a pipe");
  AddCameraOptions(*sub, command->Common);
  AddLightOptions(*sub, command->Common);
  AddStreamOptions(*sub, command->Common, command->Stream);
  AddFaultOption(*sub, command->Faults);
  AddFrameOutputOptions(*sub, command->Output);
  AddRingOptions(*sub, command->Output);
  sub->add_option(
         "--fps", command->Fps,
         "frame rate that the pin is asked for, one that it offers for the size: see lidcam "
         "formats")
      ->check(WholeNumberFrom(1))
      ->type_name("N");
  sub->add_option("--log", command->Log,
                  "what the exposure loop did at each delivered frame, as CSV; see lidcam plot")
      ->type_name("FILE");
  AddDriverOption(*sub);
  AddOutputOptions(*sub, command->Common);
  sub->footer(
      "Without --frames or --duration it runs until Ctrl-C, which ends it in order. Whatever\n"
      "ends it ahead of its time - a silent or unplugged camera, a full disk, a reader that\n"
      "goes away, SIGTERM, SIGHUP - the frames until then are kept, and the exit status is 1.\n"
      "A second Ctrl-C ends it at once.\n"
      "Lost frames are those that the camera sent behind the first one and that did not\n"
      "arrive; a camera that sends fewer in the dark loses none. When the light state\n"
      "changes the driver leaves two frames out. Frames of a wrong size came from a damaged\n"
      "raw frame. Processor time is reported for streams in real time only.\n"
      "One process at a time has a camera; simulated ones differ by identity and seed.\n"
      "Examples:\n"
      "  lidcam stream --frames 5 -o picture.png\n"
      "  lidcam stream --size 320x240 -o - | ffplay -\n"
      "  lidcam stream --fast --duration 5s --faults 'at 2s lose 40; at 3s marker' --trace\n"
      "  lidcam stream --camera sim:1af0:6010,sensor=OV7670 --duration 2s -o clip.y4m\n"
      "  lidcam stream --fast --light 300lx@0s,5lx@4s,300lx@12s --mains 50Hz --duration 20s "
      "--log frames.csv");
  sub->callback([command] {
    ChooseCamera(command->Common);
    Run(*command);
  });
}

}  // namespace lidcam::app
