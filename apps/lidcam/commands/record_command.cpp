#include <memory>

#include "apps/lidcam/command_error.h"
#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/commands/common_options.h"
#include "apps/lidcam/fault_option.h"
#include "apps/lidcam/stream_run.h"
#include "bus/capture/recording_bus.h"

namespace lidcam::app {
namespace {

struct RecordCommand {
  CommonOptions Common;
  StreamOptions Stream;
  std::optional<std::string> Faults;
};

void Run(const RecordCommand& command) {
  const StreamSize size = SizeOf(command.Stream.Sizes);
  const StreamLimits limits = LimitsOf(command.Stream);
  const std::vector<ControlAssignment> controls = ParseAssignments(command.Stream.Controls);
  OpenHostEnvironment(command.Common.Output, SetFilesFor(command.Common.Camera));
  FaultyPort port(OpenCamera(command.Common.Camera), command.Faults, LikelyDuration(limits));
  StreamResult result;
  try {
    bus::RecordingBus recording(port.Bus(), *command.Stream.Output);
    RunInTimeOf(command.Common.Camera, [&] {
      result = RunStream(recording, size, limits, controls, nullptr, command.Common.Output);
    });
    if (!IsInRealTime(command.Common.Camera)) result.ProcessorSeconds.reset();
    result.Faults = port.Account();
    FinishOutput(result, nullptr, "camera '" + command.Common.Camera.Camera + "'");
    recording.Finish();
  } catch (const bus::CaptureError& error) {
    throw CommandError(error.what());
  }
  result.Place = *command.Stream.Output;
  PrintSummary(result, command.Common);
  RequirePluggedIn(result);
}

}  // namespace

void AddRecordCommand(CLI::App& app) {
  const auto command = std::make_shared<RecordCommand>();
  CLI::App* const sub =
      app.add_subcommand("record", "a capture of the bus traffic that Wireshark opens");
  AddCameraOptions(*sub, command->Common);
  AddStreamOptions(*sub, command->Common, command->Stream);
  AddFaultOption(*sub, command->Faults);
  sub->add_option("-o,--output", command->Stream.Output, "capture file, pcap")
      ->type_name("FILE")
      ->required();
  AddOutputOptions(*sub, command->Common);
  sub->footer(
      "Example:\n"
      "  lidcam record --duration 2s -o bus.pcap");
  sub->callback([command] { Run(*command); });
}

}  // namespace lidcam::app
