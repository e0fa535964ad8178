#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/options/fault_option.h"
#include "integrations/camera/camera_description.h"
#include "integrations/v4l2/loopback_share.h"
#include "library/base/command_error.h"
#include "library/base/interrupt.h"
#include "library/settings/stream_size.h"
#ifdef LIDCAM_HAS_PIPEWIRE
#include "apps/lidcam/modules/module.h"
#include "integrations/pipewire/pipewire_share.h"
#endif

namespace lidcam::app {
namespace {

struct ShareCommand {
  integrations::CameraAddress Address;
  std::optional<std::string> Device;
  std::optional<std::string> Size;
  bool IsQuiet = false;
};

void ShareThroughPipeWire(const ShareCommand& command,
                          [[maybe_unused]] const std::function<void(const std::string&)>& tell) {
  if (command.Size) {
    throw UsageError("share: --size belongs to --v4l2: PipeWire's applications choose their own");
  }
#ifdef LIDCAM_HAS_PIPEWIRE
  using integrations::pipewire::kShareWithPipeWire;
  using integrations::pipewire::ShareWithPipeWireFunction;
  const auto share =
      FunctionOfModule<ShareWithPipeWireFunction>("share", kPipeWireModule, kShareWithPipeWire);
  share(command.Address, tell, IsInterrupted);
#else
  throw CommandError(
      "share: this lidcam was built without libpipewire-0.3; --v4l2 DEVICE does without it");
#endif
}

void ShareAsDevice(const ShareCommand& command,
                   const std::function<void(const std::string&)>& tell) {
  const PictureSize size = ParseStreamSize(command.Size.value_or("640x480"));
  integrations::v4l2::ShareWithV4l2({.Address = command.Address,
                                     .Device = *command.Device,
                                     .Size = {.Width = static_cast<std::uint32_t>(size.Width),
                                              .Height = static_cast<std::uint32_t>(size.Height)}},
                                    tell, IsInterrupted);
}

void Share(const ShareCommand& command) {
  const auto tell = [&command](const std::string& line) {
    if (!command.IsQuiet) std::fprintf(stderr, "lidcam: %s\n", line.c_str());
  };
  try {
    if (command.Device) {
      ShareAsDevice(command, tell);
    } else {
      ShareThroughPipeWire(command, tell);
    }
  } catch (const integrations::ShareUsageError& error) {
    throw UsageError(error.what());
  } catch (const integrations::ShareError& error) {
    throw CommandError(error.what());
  }
}

}  // namespace

void AddShareCommand(CLI::App& app) {
  const auto command = std::make_shared<ShareCommand>();
  CLI::App* const sub =
      app.add_subcommand("share", "the camera for this machine's applications: PipeWire, V4L2");
  sub->add_option("--camera", command->Address.Text,
                  "usb[:BUS-PORT][:VID:PID], sim[:vid:pid][,NAME=VALUE...] or capture:FILE; if not "
                  "given, a camera that is plugged in, else sim")
      ->type_name("CAMERA")
      ->envname("LIDCAM_CAMERA");
  sub->add_option("--v4l2", command->Device,
                  "shares it as this device of v4l2loopback, in place of PipeWire")
      ->type_name("DEVICE");
  sub->add_option("--size", command->Size, "size of the device's pictures, 640x480 if not given")
      ->type_name("WxH");
  sub->add_option("--light", command->Address.Light,
                  "light on a simulated scene: 300lx@0s,5lx@4s,300lx@12s")
      ->type_name("LIGHT@TIME,...");
  AddFaultOption(*sub, command->Address.Faults);
  sub->add_flag("-q,--quiet", command->IsQuiet, "tell only errors");
  sub->footer(
      "The camera runs only while an application looks at it. When it is unplugged, they get a "
      "picture that says so until it is back. Ctrl-C and SIGTERM end the command.\n"
      "Example:\n"
      "  lidcam share                        # for browsers, OBS and video calls, by PipeWire\n"
      "  systemctl --user enable --now lidcam-share     # from each login on\n"
      "  lidcam share --v4l2 /dev/video9 --size 320x240 # for programs that know V4L2 only");
  sub->callback([command] { Share(*command); });
}

}  // namespace lidcam::app
