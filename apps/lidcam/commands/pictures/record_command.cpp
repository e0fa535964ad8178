#include <atomic>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string_view>
#include <utility>

#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/options/common_options.h"
#include "apps/lidcam/options/fault_option.h"
#include "apps/lidcam/stream/stream_run.h"
#include "bus/capture/recording/recording_bus.h"
#include "library/base/command_error.h"
#include "library/settings/trace_observer.h"

namespace lidcam::app {
namespace {

struct RecordCommand {
  CommonOptions Common;
  StreamOptions Stream;
  std::string Output;
  std::optional<std::string> Faults;
};

/// The recording as a consumer of a stream's frames: a recording that can't be written ends the
/// stream at the next frame.
class RecordingWriter : public FrameWriter {
 public:
  RecordingWriter(bus::RecordingBus& recording, std::string path)
      : recording_(recording), path_(std::move(path)) {}

  void Write(const OutputFrame&) override {
    const std::string failure = recording_.Failure();
    isTold_ = !failure.empty();
    if (isTold_) throw CommandError(failure);
    ++frames_;
  }

  // One that failed ahead of the first frame is dropped.
  void Finish() override {
    if (frames_ == 0) return;
    try {
      recording_.Finish();
    } catch (const bus::CaptureError& error) {
      if (!isTold_) throw CommandError(error.what());
    }
  }

  // A device or a pipe leaves no file that could be named.
  [[nodiscard]] std::string Place() const override {
    const bool isKept = frames_ > 0 && (!isTold_ || std::filesystem::is_regular_file(path_));
    return isKept ? path_ : std::string();
  }

 private:
  bus::RecordingBus& recording_;
  const std::string path_;
  std::uint64_t frames_ = 0;
  bool isTold_ = false;
};

/// Counts the frames that a replay of the recorded packets delivers: all that the driver assembles,
/// but for the first two, which no stream delivers.
class RecordedFrames {
 public:
  RecordedFrames() : observer_([this](std::string_view line) { See(line); }) {}

  [[nodiscard]] std::uint64_t Count() const { return whole_ > kSkipped ? whole_ - kSkipped : 0; }

 private:
  static constexpr std::uint64_t kSkipped = 2;

  void See(std::string_view line) {
    if (line.starts_with("frame published ") || line.starts_with("frame busy ")) ++whole_;
  }

  std::atomic<std::uint64_t> whole_ = 0;
  TraceObserver observer_;
};

void Run(const RecordCommand& command) {
  if (command.Common.IsJson && command.Output == "-") {
    throw UsageError("--json and the output '-' both want standard output: use one of them");
  }
  if (command.Output.empty()) {
    throw UsageError("output '' names no file; - is standard output");
  }
  const StreamSize size = SizeOf(command.Stream.Sizes);
  const StreamLimits limits = LimitsOf(command.Stream);
  const std::vector<ControlAssignment> controls = ControlsOf(command.Common, command.Stream);
  LookAtFiles(InputsOf(command.Common, FilesOfFaults(command.Faults)),
              OutputsOf(command.Common, command.Output));
  const CameraLock lock(command.Common.Camera, command.Common.Patience());
  const RunSettings settings =
      OpenHostEnvironment(command.Common.Output, SetFilesFor(command.Common.Camera));
  FaultyPort port(OpenCamera(command.Common.Camera), command.Faults, LikelyDuration(limits));
  StreamResult result;
  const RecordedFrames recorded;
  try {
    bus::RecordingBus recording(port.Bus(), command.Output);
    RecordingWriter writer(recording, command.Output);
    RunInTimeOf(command.Common.Camera, [&] {
      result = RunStream(recording, size, limits, controls, &writer, command.Common.Output, nullptr,
                         {}, &command.Common.Camera);
    });
    if (!IsInRealTime(command.Common.Camera)) result.ProcessorSeconds.reset();
    result.Faults = port.Account();
    result.Written.reset();
    if (command.Stream.Saves) StoreSettings(settings, result);
    const std::string difference =
        DifferenceText(result.Counts.Delivered(), recorded.Count(), limits.Frames);
    if (!difference.empty()) std::fprintf(stderr, "lidcam: %s\n", difference.c_str());
    ConcludeStream(result, {.Writer = &writer}, "camera '" + command.Common.Camera.Camera + "'",
                   command.Common);
  } catch (const bus::CaptureError& error) {
    throw CommandError(error.what());
  }
}

}  // namespace

void AddRecordCommand(CLI::App& app) {
  const auto command = std::make_shared<RecordCommand>();
  CLI::App* const sub =
      app.add_subcommand("record", "a capture of the bus traffic that Wireshark opens");
  AddCameraOptions(*sub, command->Common);
  AddStreamOptions(*sub, command->Common, command->Stream);
  AddFaultOption(*sub, command->Faults);
  sub->add_option("-o,--output", command->Output, "capture file, pcap, or - for standard output")
      ->type_name("FILE")
      ->required();
  AddDriverOption(*sub);
  AddOutputOptions(*sub, command->Common);
  sub->footer(
      "Examples:\n"
      "  lidcam record --duration 2s -o bus.pcap\n"
      "  lidcam record --duration 2s -o - | gzip > bus.pcap.gz");
  sub->callback([command] {
    ChooseCamera(command->Common);
    Run(*command);
  });
}

}  // namespace lidcam::app
