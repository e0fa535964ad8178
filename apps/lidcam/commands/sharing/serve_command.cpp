#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "apps/lidcam/camera/served_source.h"
#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/commands/sharing/serve_rtsp_command.h"
#include "apps/lidcam/options/common_options.h"
#include "apps/lidcam/options/fault_option.h"
#include "apps/lidcam/options/listening_options.h"
#include "bus/capture/files/capture_error.h"
#include "library/base/command_error.h"
#include "library/base/interrupt.h"
#include "serve/device/camera_supply.h"
#include "serve/sockets/server.h"
#include "serve/usbip/usbip_session.h"
#ifdef LIDCAM_HAS_USBREDIR
#include "serve/usbredir/usbredir_session.h"
#endif

namespace lidcam::app {
namespace {

struct ServeCommand {
  CommonOptions Common;
  std::optional<std::string> Faults;
  std::optional<std::string> Address;
  std::optional<std::string> Socket;  ///< in the file system
};

serve::Listener Listen(const ServeCommand& command) {
  return command.Socket ? ListenOnPath(*command.Socket) : ListenOn(*command.Address);
}

void TellLine(const std::string& line) {
  std::fprintf(stderr, "lidcam: %s\n", line.c_str());
}

void WarnOfReach(const serve::Listener& door) {
  if (!door.IsReachable()) return;
  TellLine("warning: " + door.Name() +
           " can be reached by other machines, and every one of them can use the camera: the "
           "protocol has neither passwords nor encryption");
}

std::unique_ptr<serve::CameraSupply> SupplyOf(const ServeCommand& command) {
  try {
    return std::make_unique<serve::CameraSupply>(
        ServedCameras(command.Common.Camera, command.Faults));
  } catch (const bus::EnumerationError& error) {
    throw CommandError(error.what());
  } catch (const bus::CaptureError& error) {
    throw CommandError(error.what());
  }
}

using MakeSession = std::function<std::unique_ptr<serve::Session>(
    serve::CameraSupply& supply, serve::Session::Time now, serve::Server::Log log)>;

/// @param name  the clients' name of the camera, printed after the address
void Serve(const ServeCommand& command, const std::string& name, const MakeSession& make) {
  const std::unique_ptr<serve::CameraSupply> supply = SupplyOf(command);
  const bool isQuiet = command.Common.Output.IsQuiet;
  const auto tell = [isQuiet](const std::string& line) {
    if (!isQuiet) TellLine(line);
  };
  serve::Server server(Listen(command), {.Make =
                                             [&](serve::Session::Time now, serve::Server::Log log) {
                                               return make(*supply, now, std::move(log));
                                             },
                                         .Tell = tell});
  WarnOfReach(server.Door());
  tell("camera '" + command.Common.Camera.Camera + "' is served at " + server.Door().Name() + name);
  server.Run(IsInterrupted);
}

void AddCommonOptions(CLI::App& command, ServeCommand& options) {
  command
      .add_option("--camera", options.Common.Camera.Camera,
                  "sim[:vid:pid][,sensor=NAME][,config=long|short][,seed=N][,scene=FILE]"
                  "[,light=LIGHT@TIME;...][,mains=50Hz|60Hz] or capture:FILE")
      ->type_name("CAMERA")
      ->capture_default_str();
  command
      .add_option("--device", options.Common.Camera.Device,
                  "device of a capture, if it holds several")
      ->type_name("BUS.DEVICE");
  AddLightOptions(command, options.Common);
  AddFaultOption(command, options.Faults);
  command.add_flag("-q,--quiet", options.Common.Output.IsQuiet, "tell only warnings and errors");
}

void AddUsbip(CLI::App& serve) {
  const auto command = std::make_shared<ServeCommand>();
  command->Address = "127.0.0.1:3240";
  CLI::App* const sub =
      serve.add_subcommand("usbip", "for USB/IP clients, such as Linux's vhci-hcd");
  AddCommonOptions(*sub, *command);
  sub->add_option("--listen", command->Address,
                  "where clients connect, 127.0.0.1:3240 if not given; port 0 is any that is free")
      ->type_name("ADDRESS:PORT");
  sub->footer(
      "Each client that attaches the device gets a camera of its own. Ctrl-C and SIGTERM end the "
      "server.\n"
      "Example:\n"
      "  lidcam serve usbip --camera sim:1af0:6010 &\n"
      "  sudo modprobe vhci-hcd && sudo usbip attach -r 127.0.0.1 -b 1-1");
  sub->callback([command] {
    Serve(*command, " as device " + std::string(serve::usbip::kCameraName.BusId),
          [](serve::CameraSupply& supply, serve::Session::Time now, serve::Server::Log log) {
            return std::make_unique<serve::usbip::UsbipSession>(supply, now, std::move(log));
          });
  });
}

void RunUsbredir(const ServeCommand& command) {
  if (command.Address.has_value() == command.Socket.has_value()) {
    throw UsageError("serve usbredir: give one of --socket PATH and --listen ADDRESS:PORT");
  }
#ifdef LIDCAM_HAS_USBREDIR
  Serve(command, "",
        [](serve::CameraSupply& supply, serve::Session::Time now, serve::Server::Log log) {
          return std::make_unique<serve::usbredir::UsbredirSession>(supply, now, std::move(log));
        });
#else
  throw CommandError("serve usbredir: this lidcam was built without libusbredirparser");
#endif
}

void AddUsbredir(CLI::App& serve) {
  const auto command = std::make_shared<ServeCommand>();
  CLI::App* const sub = serve.add_subcommand("usbredir", "for virtual machines of qemu");
  AddCommonOptions(*sub, *command);
  sub->add_option("--socket", command->Socket,
                  "a socket in the file system for clients of this machine")
      ->type_name("PATH");
  sub->add_option("--listen", command->Address, "where clients connect; port 0 is any that is free")
      ->type_name("ADDRESS:PORT");
  sub->footer(
      "Each client gets a camera of its own. Ctrl-C and SIGTERM end the server.\n"
      "Example:\n"
      "  lidcam serve usbredir --socket /tmp/camera &\n"
      "  qemu-system-x86_64 ... -device usb-ehci,id=ehci -chardev "
      "socket,id=camera,path=/tmp/camera \\\n"
      "    -device usb-redir,chardev=camera,bus=ehci.0");
  sub->callback([command] { RunUsbredir(*command); });
}

}  // namespace

void AddServeCommand(CLI::App& app) {
  CLI::App* const sub = app.add_subcommand(
      "serve", "the camera for other systems: as a USB device, as a stream for viewers");
  sub->require_subcommand(1);
  AddUsbip(*sub);
  AddUsbredir(*sub);
  AddServeRtspCommand(*sub);
}

}  // namespace lidcam::app
