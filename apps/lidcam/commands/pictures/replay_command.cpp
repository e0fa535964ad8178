#include <memory>

#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/options/common_options.h"
#include "apps/lidcam/options/frame_output_options.h"
#include "apps/lidcam/stream/replay_run.h"
#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

struct ReplayCommand {
  CommonOptions Common;
  std::string Capture;
  std::optional<std::string> Size;
  std::optional<std::uint64_t> Frames;
  FrameOutputOptions Output;
};

void Run(const ReplayCommand& command) {
  std::optional<PictureSize> size;
  if (command.Size) size = ParseStreamSize(*command.Size);
  LookAtFiles({{"capture", command.Capture}}, FrameOutputsOf(command.Common, command.Output));
  OpenHostEnvironment(command.Common.Output, SetFiles::OfHardware);
  try {
    const bus::CaptureSource source = OpenCapture(command.Capture, command.Common.Camera.Device);
    TellNotes(source);
    const PictureSize raw = EstimateRawSize(source);
    const ReplaySize sizes{.Delivered = size.value_or(raw), .Raw = raw};
    const std::unique_ptr<FrameOutput> writer =
        OpenFrameOutput(command.Common, command.Output, sizes.Delivered, kFramePeriod, false);
    const StreamLimits limits{.Frames = FramesFor(command.Frames, command.Output),
                              .Duration = {},
                              .ToleratesSilence = true,
                              .EndsByItself = true};
    StreamResult result = RunReplay(source, sizes, limits, writer.get(), command.Common.Output);
    ConcludeStream(result, {.Writer = writer.get()}, "capture '" + command.Capture + "'",
                   command.Common);
  } catch (const bus::CaptureError& error) {
    throw CommandError(error.what());
  }
}

}  // namespace

void AddReplayCommand(CLI::App& app) {
  const auto command = std::make_shared<ReplayCommand>();
  CLI::App* const sub = app.add_subcommand(
      "replay", "recorded packets through assembly and delivery, without timing");
  sub->add_option("capture", command->Capture,
                  "pcap or pcapng of Linux usbmon or Windows USBPcap, plain or "
                  "compressed (.gz, .xz, .zst), or - for standard input")
      ->type_name("FILE")
      ->required();
  sub->add_option("--device", command->Common.Camera.Device,
                  "device of the capture, if it holds several")
      ->type_name("BUS.DEVICE");
  sub->add_option("--size", command->Size, "picture size; that of the recorded frames if not given")
      ->type_name("WxH");
  AddFrameLimit(*sub, command->Frames);
  AddFrameOutputOptions(*sub, command->Output);
  AddOutputOptions(*sub, command->Common);
  sub->footer(
      "Examples:\n"
      "  lidcam replay bus.pcap -o replayed.y4m\n"
      "  lidcam record --fast --duration 5s -o - | lidcam replay - -o replayed.y4m");
  sub->callback([command] { Run(*command); });
}

}  // namespace lidcam::app
