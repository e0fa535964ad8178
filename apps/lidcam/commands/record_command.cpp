#include <memory>

#include "apps/lidcam/command_error.h"
#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/commands/common_options.h"
#include "apps/lidcam/stream_run.h"
#include "bus/capture/recording_bus.h"

namespace lidcam::app {
namespace {

struct RecordCommand {
  CommonOptions Common;
  StreamOptions Stream;
};

void Run(const RecordCommand& command) {
  const StreamSize size = SizeOf(command.Stream.Sizes);
  const StreamLimits limits = LimitsOf(command.Stream);
  const std::vector<ControlAssignment> controls = ParseAssignments(command.Stream.Controls);
  OpenHostEnvironment(command.Common.Output, SetFilesFor(command.Common.Camera));
  const std::unique_ptr<bus::UsbBus> bus = OpenCamera(command.Common.Camera);
  StreamResult result;
  try {
    bus::RecordingBus recording(*bus, *command.Stream.Output);
    {
      CoreCamera camera(recording);
      result = RunNativeStream(camera, size, limits, controls, nullptr, command.Common.Output);
    }
    FinishOutput(result, nullptr, "camera '" + command.Common.Camera.Camera + "'");
    recording.Finish();
  } catch (const bus::CaptureError& error) {
    throw CommandError(error.what());
  }
  result.Place = *command.Stream.Output;
  PrintSummary(result, command.Common);
}

}  // namespace

void AddRecordCommand(CLI::App& app) {
  const auto command = std::make_shared<RecordCommand>();
  CLI::App* const sub =
      app.add_subcommand("record", "a capture of the bus traffic that Wireshark opens");
  AddCameraOptions(*sub, command->Common);
  AddStreamOptions(*sub, command->Common, command->Stream);
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
