#include "apps/lidcam/options/common_options.h"

#include <charconv>
#include <cstdio>
#include <memory>
#include <string>

#include "library/base/command_error.h"
#include "library/base/interrupt.h"
#include "library/camera/source/plugged_camera.h"
#include "platform/image/file/image_file.h"
#include "testbed/installed_driver.h"

namespace lidcam::app {

void AddCameraOptions(CLI::App& command, CommonOptions& options) {
  command
      .add_option_function<std::string>(
          "--camera",
          [&options](const std::string& camera) {
            options.Camera.Camera = camera;
            options.IsCameraNamed = true;
          },
          "sim[:vid:pid][,sensor=NAME][,config=long|short][,seed=N][,scene=FILE]"
          "[,light=LIGHT@TIME;...][,mains=50Hz|60Hz], capture:FILE, - for standard input, or "
          "usb[:BUS-PORT][:VID:PID]; if not given, a camera that is plugged in, else sim")
      ->type_name("CAMERA")
      ->envname("LIDCAM_CAMERA");
  command.add_option("--device", options.Camera.Device, "device of a capture, if it holds several")
      ->type_name("BUS.DEVICE");
}

namespace {

void Say(const CommonOptions& options, const std::string& line) {
  if (options.Output.IsQuiet || options.IsJson) return;
  std::fprintf(stderr, "lidcam: %s\n", line.c_str());
}

// Replaces the name by the plugged-in camera's full one, which fits only this camera.
void SettlePluggedCamera(CommonOptions& options) {
  CameraChoice& choice = options.Camera;
  if (choice.IsFast) {
    throw UsageError("--fast runs simulated cameras and recordings: camera '" + choice.Camera +
                     "' keeps its own time");
  }
  if (options.Waits && !AwaitPluggedCamera(ParsePluggedName(choice.Camera), [] { return false; })) {
    Say(options, "waiting for camera '" + choice.Camera + "' to be plugged in");
    if (!AwaitPluggedCamera(ParsePluggedName(choice.Camera), [] { return !IsInterrupted(); })) {
      throw CommandError(InterruptText() + " before camera '" + choice.Camera + "' was plugged in");
    }
  }
  options.IsPortNamed = !ParsePluggedName(choice.Camera).Path.empty();
  choice.Camera = NameOf(FindPluggedCamera(choice.Camera));
}

}  // namespace

void ChooseCamera(CommonOptions& options) {
  CameraChoice& choice = options.Camera;
  if (options.IsCameraNamed) {
    if (IsPluggedIn(choice.Camera)) SettlePluggedCamera(options);
    return;
  }
  choice.Camera = "sim";
  if (choice.IsFast || choice.Light || choice.Mains || choice.Device) return;
  const std::vector<bus::PluggedDevice> cameras = PluggedCameras();
  if (cameras.empty()) {
    Say(options, "no camera is plugged in: this is the simulated one");
    return;
  }
  choice.Camera = NameOf(cameras.front());
  Say(options, "camera " + choice.Camera +
                   (cameras.size() > 1 ? ", the first that is plugged in" : " is plugged in"));
}

void AddWaitOption(CLI::App& command, CommonOptions& options) {
  command.add_flag(
      "--wait", options.Waits,
      "wait for a camera that another process has, or that is not plugged in, rather than "
      "fail");
}

void AddDriverOption(CLI::App& command) {
  command
      .add_option_function<std::string>(
          "--driver",
          [](const std::string& path) {
            try {
              testbed::InstallDriverOf(
                  std::make_shared<const image::ImageFile>(image::ImageFile::Read(path)));
            } catch (const image::ImageError& error) {
              throw CommandError(std::string("--driver: ") + error.what());
            }
          },
          "install the camera with this image of the driver, lidcam.sys for 64-bit x86, rather "
          "than "
          "with the driver of this program")
      ->type_name("FILE");
}

void AddLightOptions(CLI::App& command, CommonOptions& options) {
  command
      .add_option(
          "--light", options.Camera.Light,
          "light on a simulated scene from the stream's start on: 300lx@0s,5lx@4s,300lx@12s")
      ->type_name("LIGHT@TIME,...");
  command
      .add_option("--mains", options.Camera.Mains, "lamps on a simulated scene: 50Hz or 60Hz mains")
      ->type_name("RATE");
}

void AddOutputOptions(CLI::App& command, CommonOptions& options) {
  command.add_flag("--json", options.IsJson, "answer in JSON");
  command.add_flag("--trace", options.Output.ShowsTrace,
                   "print every register access, state change and frame decision");
  command.add_flag("--debug", options.Output.ShowsDebug, "print the driver's debug output");
  command.add_flag("-q,--quiet", options.Output.IsQuiet, "no progress and no summary");
}

std::vector<InputRole> InputsOf(const CommonOptions& options,
                                const std::vector<InputRole>& others) {
  std::vector<InputRole> inputs;
  if (const auto capture = CaptureFileOf(options.Camera.Camera)) {
    inputs.push_back({"capture", *capture});
  }
  if (const auto scene = SceneFileOf(options.Camera)) inputs.push_back({"scene", *scene});
  inputs.insert(inputs.end(), others.begin(), others.end());
  inputs.push_back({"settings", SettingsFile().string()});
  return inputs;
}

std::vector<OutputRole> OutputsOf(const CommonOptions& options,
                                  const std::optional<std::string>& output) {
  std::vector<OutputRole> outputs;
  if (output) outputs.push_back({"-o", *output});
  if (options.IsJson) outputs.push_back({"--json", "-"});
  return outputs;
}

void AddSizeOptions(CLI::App& command, SizeOptions& options) {
  command
      .add_option("--size", options.Size,
                  "picture size: 640x480, 352x288, 320x240, 176x144 or 160x120")
      ->type_name("WxH")
      ->capture_default_str();
  command
      .add_option("--raw-size", options.RawSize,
                  "what the camera is to send for it: 640x480, 320x240 or 160x120; if not given, "
                  "what the widest setting that the bus has room for gives")
      ->type_name("WxH");
}

StreamSize SizeOf(const SizeOptions& options) {
  StreamSize size{.Delivered = ParseStreamSize(options.Size)};
  if (options.RawSize) size.Raw = ParseRawSize(*options.RawSize);
  return size;
}

void AddStreamOptions(CLI::App& command, CommonOptions& common, StreamOptions& options) {
  AddSizeOptions(command, options.Sizes);
  AddFrameLimit(command, options.Frames);
  command.add_option("--duration", options.Duration, "end after this time on the bus, such as 2s")
      ->type_name("TIME");
  CLI::Option* const set =
      command
          .add_option("--set", options.Controls,
                      "change picture controls once the stream runs, for this run only")
          ->type_name("NAME=VALUE");
  command.add_flag("--save", options.Saves, "keep what --set changes, as lidcam set does")
      ->needs(set);
  command.add_flag("--fast", common.Camera.IsFast,
                   "don't wait for bus time: as fast as this machine can");
  AddWaitOption(command, common);
}

std::vector<ControlAssignment> ControlsOf(const CommonOptions& common,
                                          const StreamOptions& options) {
  if (!options.Controls.empty()) RefuseControlsOfRecording(common.Camera);
  return ParseAssignments(options.Controls);
}

CLI::Validator WholeNumberFrom(std::uint64_t lowest) {
  const auto check = [lowest](const std::string& text) -> std::string {
    std::uint64_t value = 0;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, value);
    if (error == std::errc{} && end == last && value >= lowest) return {};
    return "'" + text + "' is no number from " + std::to_string(lowest) + " on";
  };
  return CLI::Validator(check, {});
}

void AddFrameLimit(CLI::App& command, std::optional<std::uint64_t>& frames) {
  command.add_option("--frames", frames, "end after this many frames")
      ->check(WholeNumberFrom(1))
      ->type_name("N");
}

StreamLimits LimitsOf(const StreamOptions& options) {
  StreamLimits limits{.Frames = options.Frames};
  if (options.Duration) limits.Duration = ParseDuration(*options.Duration);
  return limits;
}

}  // namespace lidcam::app
