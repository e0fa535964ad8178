#include "apps/lidcam/commands/sharing/serve_rtsp_command.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "apps/lidcam/options/common_options.h"
#include "apps/lidcam/options/fault_option.h"
#include "apps/lidcam/options/listening_options.h"
#include "library/base/command_error.h"
#include "library/base/interrupt.h"
#include "library/settings/stream_size.h"
#ifdef LIDCAM_HAS_RTSP
#include "apps/lidcam/modules/module.h"
#include "library/lidcam.h"
#include "serve/rtsp/rtsp_service.h"
#endif

namespace lidcam::app {
namespace {

struct ServeRtspCommand {
  CommonOptions Common;
  std::optional<std::string> Faults;
  std::string Size = "640x480";
  std::string Codec = "h264";
  std::string Address = "127.0.0.1:8554";
  std::optional<std::string> User;
  std::optional<std::string> PasswordFile;
};

#ifdef LIDCAM_HAS_RTSP

std::optional<serve::rtsp::Viewer> ViewerOf(const ServeRtspCommand& command) {
  if (command.User.has_value() != command.PasswordFile.has_value()) {
    throw UsageError("serve rtsp: give --user and --password-file together");
  }
  if (!command.User) return std::nullopt;
  if (command.User->empty() || command.User->find_first_of(":\"") != std::string::npos) {
    throw UsageError("--user '" + *command.User + "': a name without ':' and '\"' is expected");
  }
  return serve::rtsp::Viewer{*command.User, PasswordIn(*command.PasswordFile)};
}

/// The camera is opened when the first viewer comes. What is wrong with it is said now.
void TryCamera(const std::string& address) {
  lidcam_camera* camera = nullptr;
  const lidcam_status status = lidcam_open(address.c_str(), nullptr, &camera);
  if (status == LIDCAM_ERROR_INVALID_ARGUMENT) throw UsageError(lidcam_error_text());
  if (status < 0) throw CommandError(lidcam_error_text());
  lidcam_close(camera);
}

serve::rtsp::CameraMedia MediaOf(const ServeRtspCommand& command) {
  const PictureSize size = ParseStreamSize(command.Size);
  return {.Camera = command.Common.Camera.Camera,
          .Faults = command.Faults,
          .Width = static_cast<std::uint32_t>(size.Width),
          .Height = static_cast<std::uint32_t>(size.Height),
          .Encoding =
              command.Codec == "mjpeg" ? serve::rtsp::Codec::MotionJpeg : serve::rtsp::Codec::H264};
}

void PrintLine(const std::string& line) {
  std::fprintf(stderr, "lidcam: %s\n", line.c_str());
}

serve::rtsp::RtspService ServiceOf(const ServeRtspCommand& command,
                                   const std::optional<serve::rtsp::Viewer>& viewer) {
  return {.Media = MediaOf(command),
          .OnlyViewer = viewer,
          .Log = PrintLine,
          .IsServing =
              [&command](const std::string& address) {
                if (command.Common.Output.IsQuiet) return;
                PrintLine("camera '" + command.Common.Camera.Camera + "' is served at " + address);
              },
          .IsOver = IsInterrupted};
}

void RunServeRtsp(ServeRtspCommand& command) {
  const std::optional<serve::rtsp::Viewer> viewer = ViewerOf(command);
  MediaOf(command);
  const auto serve = FunctionOfModule<serve::rtsp::ServeRtspFunction>("serve rtsp", kRtspModule,
                                                                      serve::rtsp::kServeRtsp);
  serve::Listener listener = ListenOn(command.Address);
  if (listener.IsReachable() && !viewer) {
    throw UsageError("serve rtsp: " + listener.Name() +
                     " can be reached by other machines: give --user and --password-file");
  }
  ChooseCamera(command.Common);
  TryCamera(command.Common.Camera.Camera);
  try {
    serve(listener, ServiceOf(command, viewer));
  } catch (const std::runtime_error& error) {
    throw CommandError(std::string("serve rtsp: ") + error.what());
  }
}

#else

void RunServeRtsp(const ServeRtspCommand&) {
  throw CommandError("serve rtsp: this lidcam was built without GStreamer and its RTSP server");
}

#endif

}  // namespace

void AddServeRtspCommand(CLI::App& serve) {
  const auto command = std::make_shared<ServeRtspCommand>();
  CLI::App* const sub = serve.add_subcommand("rtsp", "as a stream for any number of viewers");
  AddCameraOptions(*sub, command->Common);
  AddFaultOption(*sub, command->Faults);
  sub->add_option("--size", command->Size,
                  "picture size: 640x480, 352x288, 320x240, 176x144 or 160x120")
      ->type_name("WxH")
      ->capture_default_str();
  sub->add_option("--codec", command->Codec, "h264 or mjpeg")
      ->check(CLI::IsMember({"h264", "mjpeg"}))
      ->type_name("CODEC")
      ->capture_default_str();
  sub->add_option("--listen", command->Address,
                  "where viewers connect, 127.0.0.1:8554 if not given; port 0 is any that is free")
      ->type_name("ADDRESS:PORT");
  sub->add_option("--user", command->User,
                  "who may see the camera; needed where other machines can reach the address")
      ->type_name("NAME");
  sub->add_option("--password-file", command->PasswordFile,
                  "a file whose first line is the password of --user")
      ->type_name("FILE");
  sub->add_flag("-q,--quiet", command->Common.Output.IsQuiet, "tell only warnings and errors");
  sub->footer(
      "The camera runs while there are viewers; all of them share one encoder. Ctrl-C and SIGTERM "
      "end the server.\n"
      "Example:\n"
      "  lidcam serve rtsp &\n"
      "  ffplay rtsp://127.0.0.1:8554/camera");
  sub->callback([command] { RunServeRtsp(*command); });
}

}  // namespace lidcam::app
