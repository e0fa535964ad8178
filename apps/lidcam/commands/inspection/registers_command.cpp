#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/options/common_options.h"
#include "driver/sensor/registers/register_access.h"
#include "library/base/command_error.h"
#include "library/camera/bring_up/started_camera.h"
#include "library/camera/bring_up/virtual_time.h"
#include "library/camera/streaming/camera_stream.h"

namespace lidcam::app {
namespace {

struct RegistersCommand {
  CommonOptions Common;
  std::string Chip;
  std::string Register;
  std::string Value;
  std::optional<std::string> Size;
};

enum class RegisterChip : std::uint8_t { Bridge, Sensor };

RegisterChip ChipOf(const RegistersCommand& command) {
  return command.Chip == "bridge" ? RegisterChip::Bridge : RegisterChip::Sensor;
}

// 0x0A and 0xFF0A both name register 0x0A.
RegisterAddress AddressOf(const std::string& text) {
  const std::uint32_t number = ParseNumber(text, 0xFFFF, "register");
  if (number > 0xFF && number < 0xFF00) {
    throw UsageError("register '" + text + "' is neither 0x00 to 0xFF nor 0xFF00 to 0xFFFF");
  }
  if ((number & 0xFF) == 0xFF) {
    throw UsageError("register '" + text +
                     "' is the select register, which is not read or written "
                     "by itself");
  }
  return static_cast<RegisterAddress>(0xFF00U | number);
}

std::uint8_t ReadRegister(CameraContext& camera, RegisterChip chip, RegisterAddress address) {
  std::uint8_t value = 0;
  const Status status = chip == RegisterChip::Bridge ? ReadBridgeRegister(camera, address, value)
                                                     : ReadSensorRegister(camera, address, value);
  if (status != 0) throw CommandError("the register could not be read");
  return value;
}

void WithCamera(const RegistersCommand& command, const std::function<void(CameraContext&)>& use) {
  OpenHostEnvironment(command.Common.Output, SetFilesFor(command.Common.Camera));
  CameraChoice choice = command.Common.Camera;
  choice.IsFast = true;
  const std::unique_ptr<bus::UsbBus> bus = OpenCamera(choice);
  RunInVirtualTime([&] { WithStartedCamera(*bus, use); });
}

void Read(const RegistersCommand& command) {
  const RegisterAddress address = AddressOf(command.Register);
  WithCamera(command, [&](CameraContext& camera) {
    const unsigned value = ReadRegister(camera, ChipOf(command), address);
    std::printf("%s %04X = %02X\n", command.Chip.c_str(), unsigned{address}, value);
  });
}

void Write(const RegistersCommand& command) {
  const RegisterAddress address = AddressOf(command.Register);
  const std::uint32_t value = ParseNumber(command.Value, 0xFF, "value");
  const CameraLock lock(command.Common.Camera, command.Common.Patience());
  WithCamera(command, [&](CameraContext& camera) {
    const Status status = ChipOf(command) == RegisterChip::Bridge
                              ? WriteBridgeRegister(camera, address, value)
                              : WriteSensorRegister(camera, address, value);
    if (status != 0) throw CommandError("the register could not be written");
    const unsigned stored = ReadRegister(camera, ChipOf(command), address);
    std::printf("%s %04X = %02X\n", command.Chip.c_str(), unsigned{address}, stored);
  });
}

void Dump(const RegistersCommand& command) {
  WithCamera(command, [&](CameraContext& camera) {
    std::printf("%s  +0 +1 +2 +3 +4 +5 +6 +7 +8 +9 +A +B +C +D +E +F\n", command.Chip.c_str());
    for (unsigned row = 0; row < 0x100; row += 0x10) {
      std::printf("  %04X", 0xFF00U + row);
      for (unsigned number = row; number < row + 0x10; ++number) {
        // The last number is the select register.
        if (number == 0xFF) {
          std::printf(" --");
        } else {
          const auto address = static_cast<RegisterAddress>(0xFF00U + number);
          std::printf(" %02X", unsigned{ReadRegister(camera, ChipOf(command), address)});
        }
      }
      std::printf("\n");
    }
  });
}

void Trace(const RegistersCommand& command) {
  std::optional<PictureSize> size;
  if (command.Size) size = ParseStreamSize(*command.Size);
  OpenHostEnvironment(command.Common.Output, SetFilesFor(command.Common.Camera));
  TraceToStandardOutput();
  CameraChoice choice = command.Common.Camera;
  choice.IsFast = true;
  const std::unique_ptr<bus::UsbBus> bus = OpenCamera(choice);
  if (size) {
    RunInTimeOf(choice, [&] { WithStream(*bus, {.Size = {*size}}, [](CameraStream&) {}); });
  } else {
    RunInVirtualTime([&] { WithStartedCamera(*bus, [](CameraContext&) {}); });
  }
}

CLI::App* AddAction(CLI::App& parent, const std::shared_ptr<RegistersCommand>& command,
                    const std::string& name, const std::string& description, bool hasChip) {
  CLI::App* const action = parent.add_subcommand(name, description);
  if (hasChip) {
    action->add_option("chip", command->Chip, "bridge or sensor")
        ->required()
        ->check(CLI::IsMember({"bridge", "sensor"}));
  }
  AddCameraOptions(*action, command->Common);
  action->add_flag("--debug", command->Common.Output.ShowsDebug, "print the driver's debug output");
  return action;
}

void AddRegister(CLI::App& action, const std::shared_ptr<RegistersCommand>& command) {
  action.add_option("register", command->Register, "0x0A or 0xFF0A")->required();
}

}  // namespace

void AddRegistersCommand(CLI::App& app) {
  const auto command = std::make_shared<RegistersCommand>();
  CLI::App* const sub =
      app.add_subcommand("registers", "registers of bridge and sensor after the bring-up");
  sub->require_subcommand(1);

  CLI::App* const read = AddAction(*sub, command, "read", "read one register", true);
  AddRegister(*read, command);
  read->footer("Example:\n  lidcam registers read bridge 0x0A");
  read->callback([command] {
    ChooseCamera(command->Common);
    Read(*command);
  });

  CLI::App* const write =
      AddAction(*sub, command, "write", "write one register and read it back", true);
  AddRegister(*write, command);
  write->add_option("value", command->Value, "0 to 0xFF")->required();
  AddWaitOption(*write, command->Common);
  write->footer("Example:\n  lidcam registers write bridge 0x77 0x20");
  write->callback([command] {
    ChooseCamera(command->Common);
    Write(*command);
  });

  CLI::App* const dump = AddAction(*sub, command, "dump", "read all registers of a chip", true);
  dump->footer("Example:\n  lidcam registers dump sensor --camera sim:1af0:6010");
  dump->callback([command] {
    ChooseCamera(command->Common);
    Dump(*command);
  });

  CLI::App* const trace =
      AddAction(*sub, command, "trace", "print every register access of the bring-up", false);
  trace->add_option("--size", command->Size, "and of the start and end of a stream of this size")
      ->type_name("WxH");
  trace->footer("Example:\n  lidcam registers trace --size 320x240");
  trace->callback([command] {
    ChooseCamera(command->Common);
    Trace(*command);
  });

  sub->footer(
      "Examples:\n"
      "  lidcam registers read bridge 0x0A\n"
      "  lidcam registers trace --camera sim:1af0:6010");
}

}  // namespace lidcam::app
