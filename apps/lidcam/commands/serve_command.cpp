#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "apps/lidcam/base/command_error.h"
#include "apps/lidcam/base/interrupt.h"
#include "apps/lidcam/camera/served_source.h"
#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/options/common_options.h"
#include "apps/lidcam/options/fault_option.h"
#include "bus/capture/capture_error.h"
#include "serve/device/camera_supply.h"
#include "serve/sockets/server.h"
#include "serve/usbip/usbip_session.h"

namespace lidcam::app {
namespace {

struct ServeCommand {
  CommonOptions Common;
  std::optional<std::string> Faults;
  std::string Address;
};

serve::Listener Listen(const ServeCommand& command) {
  try {
    return serve::Listener::OnAddress(command.Address);
  } catch (const std::invalid_argument& error) {
    throw UsageError(error.what());
  } catch (const serve::SocketError& error) {
    throw CommandError(error.what());
  }
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

void RunUsbip(const ServeCommand& command) {
  const std::unique_ptr<serve::CameraSupply> supply = SupplyOf(command);
  const bool isQuiet = command.Common.Output.IsQuiet;
  const auto tell = [isQuiet](const std::string& line) {
    if (!isQuiet) TellLine(line);
  };
  serve::Server server(Listen(command),
                       {.Make =
                            [&supply](serve::Session::Time now, serve::Server::Log log) {
                              return std::make_unique<serve::usbip::UsbipSession>(*supply, now,
                                                                                  std::move(log));
                            },
                        .Tell = tell});
  WarnOfReach(server.Door());
  tell("camera '" + command.Common.Camera.Camera + "' is served at " + server.Door().Name() +
       " as device " + std::string(serve::usbip::kCameraName.BusId));
  server.Run(IsInterrupted);
}

void AddUsbip(CLI::App& serve) {
  const auto command = std::make_shared<ServeCommand>();
  command->Address = "127.0.0.1:3240";
  CLI::App* const sub =
      serve.add_subcommand("usbip", "for USB/IP clients, such as Linux's vhci-hcd");
  AddCameraOptions(*sub, command->Common);
  AddLightOptions(*sub, command->Common);
  AddFaultOption(*sub, command->Faults);
  sub->add_option("--listen", command->Address, "where clients connect; port 0 is any that is free")
      ->type_name("ADDRESS:PORT")
      ->capture_default_str();
  sub->add_flag("-q,--quiet", command->Common.Output.IsQuiet, "tell only warnings and errors");
  sub->footer(
      "Each client that attaches the device gets a camera of its own. Ctrl-C and SIGTERM end the "
      "server.\n"
      "Example:\n"
      "  lidcam serve usbip --camera sim:1af0:6010 &\n"
      "  sudo modprobe vhci-hcd && sudo usbip attach -r 127.0.0.1 -b 1-1");
  sub->callback([command] { RunUsbip(*command); });
}

}  // namespace

void AddServeCommand(CLI::App& app) {
  CLI::App* const sub =
      app.add_subcommand("serve", "the camera as a USB device, for other systems to plug in");
  sub->require_subcommand(1);
  AddUsbip(*sub);
}

}  // namespace lidcam::app
