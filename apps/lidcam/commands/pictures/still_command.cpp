#include <chrono>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/frames/progress.h"
#include "apps/lidcam/options/common_options.h"
#include "apps/lidcam/options/fault_option.h"
#include "apps/lidcam/options/running_camera.h"
#include "apps/lidcam/output/output_file.h"
#include "apps/lidcam/output/output_form.h"
#include "apps/lidcam/output/pictures/exif_block.h"
#include "apps/lidcam/output/pictures/jpeg_file.h"
#include "apps/lidcam/output/png_file.h"
#include "apps/lidcam/output/utf8_text.h"
#include "apps/lidcam/output/yuy2.h"
#include "apps/lidcam/stream/replay_run.h"
#include "library/base/command_error.h"
#include "library/base/interrupt.h"
#include "library/camera/bring_up/camera_identity.h"
#include "library/camera/controls/sensor_notes.h"
#include "library/camera/still_request.h"
#include "library/camera/streaming/camera_stream.h"
#include "library/camera/streaming/silence_watch.h"
#include "library/control_socket/base64.h"
#include "library/still/still_file.h"

namespace lidcam::app {
namespace {

struct StillCommand {
  CommonOptions Common;
  SizeOptions Sizes;
  std::string Value = "0";
  std::uint64_t SettleFrames = 30;
  std::string Output;
  std::optional<std::string> Faults;
};

// Less settling helps only where a frame came that could have been the still.
[[noreturn]] void FailAtEndOfCapture(std::uint64_t delivered, std::uint64_t settleFrames) {
  if (delivered == 0) throw CommandError("the capture ended before its first whole frame");
  throw CommandError("the capture ended after " + std::to_string(delivered) +
                     " frames, before the still" +
                     (delivered <= settleFrames ? ": take it earlier with --settle" : ""));
}

/// Lets a stream run until a condition holds.
class StreamRunner {
 public:
  StreamRunner(CameraStream& stream, const StillCommand& command)
      : stream_(stream),
        settleFrames_(command.SettleFrames),
        progress_(!command.Common.Output.IsQuiet) {}

  template <typename Condition>
  void RunUntil(Condition isReached) {
    bool goesOn = true;
    while (!isReached()) {
      if (IsInterrupted()) throw CommandError(InterruptText() + ": no still was taken");
      if (!goesOn) FailAtEnd();
      goesOn = stream_.Advance();
      progress_.Show(stream_.Progress());
      silence_.Check(stream_.Counts(), stream_.Seconds());
    }
  }

 private:
  [[noreturn]] void FailAtEnd() const {
    if (stream_.IsUnplugged()) {
      throw CommandError("the camera was unplugged: no still was taken");
    }
    FailAtEndOfCapture(stream_.Counts().Delivered(), settleFrames_);
  }

  CameraStream& stream_;
  std::uint64_t settleFrames_;
  ProgressLine progress_;
  SilenceWatch silence_;
};

/// Which camera took a still.
struct StillCamera {
  std::string Identity;
  std::string Sensor;
  std::string Note;  ///< as StreamResult has it
  FrameRow Loop{};   ///< the exposure loop at the newest frame
  bool IsSteeredByHost = false;
  std::int32_t Flicker = FlickerOff;
  std::chrono::system_clock::time_point Taken{};
  bool IsLoopKnown = true;  ///< not of a camera that another process has open
};

StillCamera TakeStill(bus::UsbBus& bus, const StillCommand& command, const StreamSize& size,
                      std::uint32_t value, const StillReport& report) {
  StillCamera camera;
  FrameRow loop;
  const auto see = [&loop](const StreamFrame& frame) { loop = frame.Report.Loop; };
  WithStream(bus, {.Size = size, .Frames = see}, [&](CameraStream& stream) {
    const OpenedCamera& opened = stream.Opened();
    camera = {.Identity = IdentityText(opened.Device()),
              .Sensor = std::string(SensorName(opened.SensorType())),
              .Note = {}};
    camera.IsSteeredByHost = opened.SensorType() == SensorTypeVGA0708;
    opened.WithContext([&](const CameraContext& context) {
      camera.Note = PictureNoteOf(context);
      camera.Flicker = context.Flicker;
    });
    StreamRunner runner(stream, command);
    runner.RunUntil([&] { return stream.Counts().Delivered() >= command.SettleFrames; });
    AskForStill(opened, value);
    runner.RunUntil([&] { return report.Status().has_value(); });
    camera.Taken = std::chrono::system_clock::now();
  });
  camera.Loop = loop;
  return camera;
}

// The sensor exposes as it was brought up until the loop's first step.
constexpr std::uint32_t kPeriodsAtBringUp = 3;
constexpr std::uint32_t kCoarseGainAtBringUp = 3;
constexpr std::uint32_t kFineGainAtBringUp = 156;

PictureFacts FactsOf(const StillCamera& camera) {
  PictureFacts facts{.Camera = camera.Identity + " " + camera.Sensor, .Taken = camera.Taken};
  if (!camera.IsLoopKnown) return facts;
  facts.Comment = "luma=" + std::to_string(camera.Loop.Luma);
  if (!camera.IsSteeredByHost) return facts;
  const bool hasStepped = camera.Loop.Exposure != 0;
  // Brought up for 50 Hz light, whatever the control says.
  facts.PeriodsASecond = hasStepped && camera.Flicker == Flicker60Hz ? 120 : 100;
  facts.ExposurePeriods = hasStepped ? camera.Loop.Exposure : kPeriodsAtBringUp;
  facts.Comment +=
      " coarse_gain=" + std::to_string(hasStepped ? camera.Loop.CoarseGain : kCoarseGainAtBringUp) +
      " fine_gain=" + std::to_string(hasStepped ? camera.Loop.FineGain : kFineGainAtBringUp);
  return facts;
}

void WritePicture(OutputFile& file, const StillPicture& still, const StillCamera& camera) {
  const OutputForm form = FormOfOutput(file.Path());
  if (form == OutputForm::JpegSeries) {
    file.Write(EncodeJpeg(file.Path(), still.Size, still.Yuy2, MakeExif(FactsOf(camera))));
  } else if (form == OutputForm::PngSeries) {
    std::vector<std::uint8_t> rgb;
    ConvertToRgb(still.Yuy2, still.Size, rgb);
    file.Write(EncodePng(file.Path(), still.Size, rgb));
  } else {
    file.Write(still.Yuy2);
  }
  file.Commit();
}

void PrintStill(const StillCommand& command, const StillCamera& camera, const StillPicture& still) {
  if (command.Common.IsJson) {
    nlohmann::json answer = {
        {"identity", camera.Identity},  {"sensor", camera.Sensor},
        {"width", still.Size.Width},    {"height", still.Size.Height},
        {"sizeIndex", still.SizeIndex}, {"value", still.Value},
        {"bytes", still.Yuy2.size()},   {"file", StillFilePath().string()},
        {"output", command.Output},
    };
    if (!camera.Note.empty()) answer["note"] = camera.Note;
    std::cout << JsonText(answer) << std::endl;
    return;
  }
  if (command.Common.Output.IsQuiet) return;
  std::fprintf(stderr, "%s %s: still of %s, size index %u, value %u; %zu bytes in %s\n",
               camera.Identity.c_str(), camera.Sensor.c_str(), ToString(still.Size).c_str(),
               unsigned{still.SizeIndex}, unsigned{still.Value}, still.Yuy2.size(),
               StillFilePath().c_str());
  if (!camera.Note.empty()) std::fprintf(stderr, "%s\n", camera.Note.c_str());
  std::fprintf(stderr, "written to %s\n", command.Output.c_str());
}

bool IsStillOutput(const std::string& path) {
  if (path == "-") return false;
  try {
    const OutputForm form = FormOfOutput(path);
    return IsSeries(form) || form == OutputForm::RawYuy2;
  } catch (const UsageError&) {
    return false;
  }
}

void RequireStillOutput(const std::string& path) {
  if (IsStillOutput(path)) return;
  throw UsageError(
      "output '" + path +
      "' is no file for a still: use .png, .jpg, or .yuy2 for the bytes as the driver wrote "
      "them");
}

void TakeHere(const StillCommand& command, const StreamSize& size, std::uint32_t value) {
  const CameraChoice& choice = command.Common.Camera;
  const CameraLock camera(choice, command.Common.Patience());
  OpenHostEnvironment(command.Common.Output, SetFilesFor(choice));
  const StillLock lock(HomeFolder());
  ClearStillFile();
  const StreamLimits limits{.Frames = command.SettleFrames + 1, .Duration = {}};
  FaultyPort port(OpenCamera(choice), command.Faults, LikelyDuration(limits));
  OutputFile file(command.Output);  // ahead of the stream, which takes its time
  const StillReport report;
  const StreamSize fitting = FitToCamera(size, choice);
  StillCamera taker;
  RunInTimeOf(choice, [&] { taker = TakeStill(port.Bus(), command, fitting, value, report); });
  report.RequireWritten();
  const StillPicture still = ReadStillFile(value);
  WritePicture(file, still, taker);
  PrintStill(command, taker, still);
}

// The stream there has its own size and has settled.
void TakeThere(const StillCommand& command, ControlClient& client, std::uint32_t value) {
  OutputFile file(command.Output);
  const nlohmann::json answer = client.Ask({{"do", "still"}, {"value", value}});
  auto yuy2 = FromBase64(answer.at("yuy2").get<std::string>());
  if (!yuy2) throw CommandError("the process that has the camera open sent no picture");
  const StillPicture still = DecodeStill(std::move(*yuy2), value);
  const StillCamera taker{.Identity = answer.at("identity").get<std::string>(),
                          .Sensor = answer.at("sensor").get<std::string>(),
                          .Note = {},
                          .Taken = std::chrono::system_clock::now(),
                          .IsLoopKnown = false};
  WritePicture(file, still, taker);
  PrintStill(command, taker, still);
}

// Whether the still is to be one of a running stream as well as of one of this process.
bool IsPlain(const StillCommand& command) {
  return !command.Faults && !command.Sizes.RawSize && !command.Common.Camera.Light &&
         !command.Common.Camera.Mains && !command.Common.Camera.IsFast;
}

void Run(const StillCommand& command) {
  RequireStillOutput(command.Output);
  const StreamSize size = SizeOf(command.Sizes);
  const std::uint32_t value = ParseNumber(command.Value, 0xFFFFFFFF, "value");
  LookAtFiles(InputsOf(command.Common, FilesOfFaults(command.Faults)),
              OutputsOf(command.Common, command.Output));
  if (!IsPlain(command)) {
    TakeHere(command, size, value);
    return;
  }
  RunWhereOpen(
      command.Common, [&](ControlClient& client) { TakeThere(command, client, value); },
      [&] { TakeHere(command, size, value); });
}

}  // namespace

void AddStillCommand(CLI::App& app) {
  const auto command = std::make_shared<StillCommand>();
  CLI::App* const sub =
      app.add_subcommand("still", "one picture as the camera sends it, through the driver's still");
  AddCameraOptions(*sub, command->Common);
  AddLightOptions(*sub, command->Common);
  AddSizeOptions(*sub, command->Sizes);
  sub->add_option("--settle", command->SettleFrames,
                  "frames that go by first, for the exposure to settle")
      ->check(WholeNumberFrom(0))
      ->type_name("N")
      ->capture_default_str();
  sub->add_option("--value", command->Value,
                  "number that goes with the still; its low 16 bits take the place of the last "
                  "pixel")
      ->type_name("N")
      ->capture_default_str();
  sub->add_flag("--fast", command->Common.Camera.IsFast,
                "don't wait for bus time: as fast as this machine can");
  AddWaitOption(*sub, command->Common);
  AddFaultOption(*sub, command->Faults);
  sub->add_option(
         "-o,--output", command->Output,
         ".png, .jpg with time, exposure, gain and camera as Exif, or .yuy2 for the bytes "
         "as the driver wrote them; all show the driver's two marks in the last two pixels")
      ->type_name("FILE")
      ->required();
  AddDriverOption(*sub);
  AddOutputOptions(*sub, command->Common);
  sub->footer(
      "The still has the size that the camera sends, whatever the stream's size is. Its last two\n"
      "pixels are marks, in a PNG too: the number of the size (1 160x120, 2 320x240, 3 640x480)\n"
      "and the value.\n"
      "Examples:\n"
      "  lidcam still -o picture.png\n"
      "  lidcam still --raw-size 320x240 --value 0x1234 --json -o picture.png");
  sub->callback([command] {
    ChooseCamera(command->Common);
    Run(*command);
  });
}

}  // namespace lidcam::app
