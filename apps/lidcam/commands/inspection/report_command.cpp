#include <stdlib.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/commands/inspection/probe_report.h"
#include "apps/lidcam/doctor/machine_checks.h"
#include "apps/lidcam/frames/frame_log.h"
#include "apps/lidcam/options/common_options.h"
#include "apps/lidcam/report/picture_cover.h"
#include "apps/lidcam/report/report_archive.h"
#include "apps/lidcam/stream/stream_run.h"
#include "bus/capture/files/capture_error.h"
#include "bus/capture/recording/recording_bus.h"
#include "library/base/command_error.h"
#include "library/camera/controls/control_table.h"
#include "library/camera/opened_camera.h"
#include "library/settings/trace_observer.h"

namespace lidcam::app {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds kRecorded{2};

struct ReportCommand {
  CommonOptions Common;
  std::string Output = "lidcam-report.tar.gz";
  bool HasPictures = false;
};

/// A folder that is gone with this object.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::error_code ignored;
    std::string name = (fs::temp_directory_path(ignored) / "lidcam-report-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw CommandError("no folder for temporary files can be made in " +
                         fs::path(name).parent_path().string());
    }
    path_ = name;
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }

  [[nodiscard]] std::string PathOf(const char* name) const { return (path_ / name).string(); }

 private:
  fs::path path_;
};

std::string ContentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The user's folder has the user's name.
std::string WithoutHome(std::string text) {
  const char* const home = std::getenv("HOME");
  const std::string name = home != nullptr ? home : "";
  for (std::size_t at = 0; !name.empty() && (at = text.find(name, at)) != std::string::npos;) {
    text.replace(at, name.size(), "~");
  }
  return text;
}

std::string MachineText() {
  std::string text = "lidcam " LIDCAM_VERSION "\n";
  for (const Finding& finding : Examine(ThisMachine())) {
    constexpr std::array kLevels = {"ok", "note", "wrong"};
    text += std::string(kLevels[static_cast<std::size_t>(finding.Level)]) + " " + finding.Subject +
            ": " + finding.Text + "\n";
  }
  return WithoutHome(text);
}

std::string ControlsText(const CameraChoice& choice) {
  std::string text;
  WithOpenedCameraOf(choice, [&](OpenedCamera& opened) {
    for (const CameraControl& control : AllControls()) {
      const ControlRange range = RangeOf(opened.Camera(), control);
      text += std::string(control.Name) + "=" + std::to_string(ValueOf(opened.Camera(), control)) +
              " (" + std::to_string(range.Minimum) + " to " + std::to_string(range.Maximum) +
              ", default " + std::to_string(range.Default) + ")\n";
    }
  });
  return text;
}

std::string ProbeText(bus::UsbBus& bus, const CameraChoice& choice,
                      std::vector<std::string>& failures) {
  ProbeReport probe(bus, choice);
  probe.AddMachine();
  probe.AddDescriptors();
  probe.AddRegisters();
  failures.insert(failures.end(), probe.Failures().begin(), probe.Failures().end());
  return probe.Text();
}

/// Two seconds of a stream, with what they left.
struct Recording {
  std::string Capture;
  std::string Trace;
  std::string Log;
  std::string Faults;
};

Recording Record(bus::UsbBus& bus, const ReportCommand& command, const CameraChoice& choice,
                 std::vector<std::string>& failures) {
  const TemporaryFolder folder;
  Recording recorded;
  std::optional<TraceObserver> observer(std::in_place, [&recorded](std::string_view line) {
    recorded.Trace.append(line).append("\n");
  });
  PictureCover cover(bus);
  bus::UsbBus& source = command.HasPictures ? bus : cover;
  bus::RecordingBus recording(source, folder.PathOf("bus.pcap"));
  FrameLog log(folder.PathOf("frames.csv"), LightOn(choice));
  StreamResult result;
  try {
    RunInTimeOf(choice, [&] {
      result = RunStream(recording, {.Delivered = {640, 480}}, {.Duration = kRecorded}, {}, nullptr,
                         {.IsQuiet = true}, &log);
    });
    recorded.Faults = ToText(result.Counts) + "\n";
    for (const std::string& trouble : result.Troubles) recorded.Faults += trouble + "\n";
    if (result.Counts.Delivered() == 0) failures.emplace_back("no whole frame came");
    failures.insert(failures.end(), result.Troubles.begin(), result.Troubles.end());
  } catch (const CommandError& error) {
    recorded.Faults += std::string(error.what()) + "\n";
    failures.emplace_back(error.what());
  }
  observer.reset();
  log.Finish();
  recording.Finish();
  recorded.Log = ContentOf(folder.PathOf("frames.csv"));
  recorded.Capture = ContentOf(folder.PathOf("bus.pcap"));
  return recorded;
}

void Run(const ReportCommand& command) {
  if (command.Output.empty()) throw UsageError("output '' names no file; - is standard output");
  CameraChoice choice = command.Common.Camera;
  if (CaptureFileOf(choice.Camera)) {
    throw UsageError("camera '" + choice.Camera +
                     "' is a recording, which can be sent as it is: a report is on a camera");
  }
  LookAtFiles(InputsOf(command.Common), OutputsOf(command.Common, command.Output));
  const CameraLock lock(choice, command.Common.Patience());
  const RunSettings settings = OpenHostEnvironment(command.Common.Output, SetFilesFor(choice));
  choice.IsFast = !IsPluggedIn(choice.Camera);
  ReportArchive archive(command.Output, "lidcam-report");
  std::vector<std::string> failures;
  archive.Add("machine.txt", MachineText());
  archive.Add("controls.txt", ControlsText(choice));
  archive.Add("settings.reg", ContentOf(SettingsFile().string()));
  const std::unique_ptr<bus::UsbBus> bus = OpenCamera(choice);
  archive.Add("camera.txt", ProbeText(*bus, choice, failures));
  try {
    const Recording recorded = Record(*bus, command, choice, failures);
    archive.Add("faults.txt", recorded.Faults);
    archive.Add("trace.txt", recorded.Trace);
    archive.Add("frames.csv", recorded.Log);
    archive.Add("bus.pcap", recorded.Capture);
  } catch (const bus::CaptureError& error) {
    throw CommandError(error.what());
  }
  archive.Finish();
  if (!command.Common.Output.IsQuiet && command.Output != "-") {
    std::fprintf(stderr, "written to %s, %s pictures\n", command.Output.c_str(),
                 command.HasPictures ? "with" : "without");
  }
  FailForTroubles(failures);
}

}  // namespace

void AddReportCommand(CLI::App& app) {
  const auto command = std::make_shared<ReportCommand>();
  CLI::App* const sub =
      app.add_subcommand("report", "everything that a bug report needs, in one archive");
  AddCameraOptions(*sub, command->Common);
  AddWaitOption(*sub, command->Common);
  sub->add_option("-o,--output", command->Output, "the archive, or - for standard output")
      ->type_name("FILE.tar.gz")
      ->capture_default_str();
  sub->add_flag("--pictures", command->HasPictures,
                "leave the pictures in the recording; without it they are grey");
  sub->add_flag("--debug", command->Common.Output.ShowsDebug, "print the driver's debug output");
  sub->add_flag("-q,--quiet", command->Common.Output.IsQuiet, "say nothing of camera and file");
  sub->footer(
      "Version, system, what lidcam doctor says, descriptors, registers, controls, settings, and "
      "two\n"
      "seconds of a stream: recording, trace, log and faults. Without --pictures each byte of a\n"
      "picture in the recording is grey, and nothing in the archive names the user. lidcam replay\n"
      "plays it. A failure is reported in it, and the exit status is then 1.\n"
      "Examples:\n"
      "  lidcam report -o report.tar.gz\n"
      "  lidcam replay report.tar.gz -o replayed.mkv");
  sub->callback([command] {
    ChooseCamera(command->Common);
    Run(*command);
  });
}

}  // namespace lidcam::app
