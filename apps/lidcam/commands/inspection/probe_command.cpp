#include <cstdio>
#include <memory>
#include <string>

#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/commands/inspection/probe_report.h"
#include "apps/lidcam/output/output_file.h"
#include "library/base/command_error.h"
#include "library/camera/source/plugged_camera.h"

namespace lidcam::app {
namespace {

struct ProbeCommand {
  CommonOptions Common;
  std::string Output = "lidcam-probe.txt";
};

void Run(const ProbeCommand& command) {
  if (command.Output.empty()) throw UsageError("output '' names no file; - is standard output");
  CameraChoice choice = command.Common.Camera;
  if (CaptureFileOf(choice.Camera)) {
    throw UsageError("camera '" + choice.Camera +
                     "' is a recording, which answers what it was asked: see lidcam list FILE");
  }
  LookAtFiles(InputsOf(command.Common), OutputsOf(command.Common, command.Output));
  const CameraLock lock(choice, command.Common.Patience());
  const RunSettings settings = OpenHostEnvironment(command.Common.Output, SetFilesFor(choice));
  OutputFile file(command.Output);
  choice.IsFast = !IsPluggedIn(choice.Camera);
  const std::unique_ptr<bus::UsbBus> bus = OpenCamera(choice);
  ProbeReport report(*bus, choice);
  report.AddMachine();
  report.AddDescriptors();
  report.AddRegisters();
  report.AddSettings();
  report.AddStreams();
  file.Write(report.Text());
  file.Commit();
  if (!command.Common.Output.IsQuiet && command.Output != "-") {
    std::fprintf(stderr, "written to %s\n", command.Output.c_str());
  }
  FailForTroubles(report.Failures());
}

}  // namespace

void AddProbeCommand(CLI::App& app) {
  const auto command = std::make_shared<ProbeCommand>();
  CLI::App* const sub = app.add_subcommand("probe", "a report on an unknown unit, in one file");
  AddCameraOptions(*sub, command->Common);
  AddWaitOption(*sub, command->Common);
  sub->add_option("-o,--output", command->Output, "the report, or - for standard output")
      ->type_name("FILE")
      ->capture_default_str();
  sub->add_flag("--debug", command->Common.Output.ShowsDebug, "print the driver's debug output");
  sub->add_flag("-q,--quiet", command->Common.Output.IsQuiet, "say nothing of camera and file");
  sub->footer(
      "Descriptors, identity registers and all others, what comes in each alternate setting,\n"
      "and a second of frames at each size. A failure is reported in its place, and the exit\n"
      "status is then 1. The report holds no pictures and nothing of the user's.\n"
      "Example:\n"
      "  lidcam probe --camera usb:1-2 -o unit.txt");
  sub->callback([command] {
    ChooseCamera(command->Common);
    Run(*command);
  });
}

}  // namespace lidcam::app
