#include "apps/lidcam/doctor/machine_checks.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <system_error>

#include "base/folder_entries.h"
#include "bus/usb/plugged_device.h"
#include "bus/usb/usb_sysfs.h"
#include "camera_model/device/camera_identity.h"
#include "library/camera/source/plugged_camera.h"
#include "library/register_sets/set_checker.h"
#include "library/register_sets/set_files.h"
#include "library/settings/host_environment.h"

namespace lidcam::app {
namespace {

namespace fs = std::filesystem;

constexpr unsigned kHighSpeed = 480;                 // Mbit/s
constexpr std::uint32_t kWidestSettingBytes = 3072;  // a microframe
constexpr unsigned kEnoughMegabytes = 4;             // for the transfers of a stream, with room

std::string ReadLine(const fs::path& file) {
  std::ifstream stream(file);
  std::string line;
  std::getline(stream, line);
  return line;
}

std::optional<unsigned> ReadNumber(const fs::path& file, int base = 10) {
  const std::string text = ReadLine(file);
  unsigned number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc{} || end == text.data()) return std::nullopt;
  return number;
}

fs::path DevicesOf(const Machine& machine) {
  return machine.Root / "sys/bus/usb/devices";
}

bool IsCamera(unsigned vendor, unsigned product) {
  return std::ranges::any_of(camera_model::AllIdentities(), [&](const auto& identity) {
    return identity.VendorId == vendor && identity.ProductId == product;
  });
}

std::vector<bus::PluggedDevice> CamerasOf(const Machine& machine) {
  constexpr int kHexadecimal = 16;
  std::vector<bus::PluggedDevice> cameras;
  for (const fs::path& entry : base::EntriesOf(DevicesOf(machine))) {
    const auto vendor = ReadNumber(entry / "idVendor", kHexadecimal);
    const auto product = ReadNumber(entry / "idProduct", kHexadecimal);
    if (!vendor || !product || !IsCamera(*vendor, *product)) continue;
    cameras.push_back({.Path = entry.filename().string(),
                       .Bus = ReadNumber(entry / "busnum").value_or(0),
                       .Address = ReadNumber(entry / "devnum").value_or(0),
                       .Vendor = static_cast<std::uint16_t>(*vendor),
                       .Product = static_cast<std::uint16_t>(*product),
                       .Megabits = ReadNumber(entry / "speed").value_or(0)});
  }
  return cameras;
}

Finding SpeedOf(const bus::PluggedDevice& camera) {
  Finding finding{"camera " + NameOf(camera), FindingLevel::Ok,
                  std::to_string(camera.Megabits) + " Mbit/s"};
  if (camera.Megabits >= kHighSpeed) return finding;
  finding.Level = FindingLevel::Wrong;
  finding.Text += ": pictures need a port of 480 Mbit/s, without a slower hub or cable before it";
  finding.Remedy = "lsusb -t";
  return finding;
}

Finding PermissionOf(const Machine& machine, const bus::PluggedDevice& camera) {
  const fs::path node = machine.Root / fs::path(camera.Node()).relative_path();
  if (machine.MayOpen(node)) {
    return {"permission", FindingLevel::Ok, "this user may open " + camera.Node()};
  }
  return {"permission", FindingLevel::Wrong, "this user may not open " + camera.Node(),
          PermissionRemedy(camera)};
}

Finding HolderOf(const bus::UsbSysfs& files, const bus::PluggedDevice& camera) {
  const std::vector<std::string> users = files.UsersOf(camera.Node());
  if (users.empty()) return {"holder", FindingLevel::Ok, "no other process has the camera open"};
  const std::string& user = users.front();
  return {"holder", FindingLevel::Wrong, "process " + user + " has the camera open",
          "kill " + user.substr(0, user.find(' '))};
}

Finding DriverOf(const bus::UsbSysfs& files, const bus::PluggedDevice& camera) {
  for (const std::string& driver : files.Device(camera.Path).Drivers) {
    if (driver == "usbfs") continue;
    return {"kernel driver", FindingLevel::Note,
            driver + " is bound to the camera: each run detaches it and gives it back",
            "sudo modprobe -r " + driver};
  }
  return {"kernel driver", FindingLevel::Ok, "none is bound to the camera"};
}

Finding BandwidthOf(const bus::UsbSysfs& files, const bus::PluggedDevice& camera) {
  const auto onBus = files.DevicesOnBus(camera.Bus);
  const std::uint32_t reserved = std::min(bus::ReservedBytesOf(onBus), bus::kReservableBytes);
  const std::uint32_t left = bus::kReservableBytes - reserved;
  Finding finding{"bandwidth", FindingLevel::Ok,
                  "bus " + std::to_string(camera.Bus) + " has " + std::to_string(left) + " of " +
                      std::to_string(bus::kReservableBytes) + " bytes a microframe left"};
  // A stream that runs has reserved its own.
  const std::uint32_t own = files.Device(camera.Path).ReservedBytes;
  if (left + own >= kWidestSettingBytes) return finding;
  finding.Level = FindingLevel::Wrong;
  finding.Text += ", and 640x480 takes " + std::to_string(kWidestSettingBytes) +
                  "; also on it: " + bus::NamesOf(onBus, camera.Path);
  finding.Remedy = "lidcam stream --raw-size 320x240";
  return finding;
}

Finding CamerasFinding() {
  return {"camera", FindingLevel::Note,
          "none is plugged in; simulated ones and recordings work without", "lsusb"};
}

Finding UsbMemoryOf(const Machine& machine) {
  const auto megabytes = ReadNumber(machine.Root / "sys/module/usbcore/parameters/usbfs_memory_mb");
  if (!megabytes) {
    return {"USB memory", FindingLevel::Note, "this kernel doesn't say its limit for USB programs",
            "sudo modprobe usbcore"};
  }
  if (*megabytes == 0) return {"USB memory", FindingLevel::Ok, "the kernel sets no limit"};
  Finding finding{"USB memory", FindingLevel::Ok,
                  "all USB programs together have " + std::to_string(*megabytes) + " MB"};
  if (*megabytes >= kEnoughMegabytes) return finding;
  finding.Level = FindingLevel::Wrong;
  finding.Text += ", which is too little for a stream";
  finding.Remedy = "echo 16 | sudo tee /sys/module/usbcore/parameters/usbfs_memory_mb";
  return finding;
}

Finding PipeWireOf(const Machine& machine) {
  std::error_code error;
  if (!machine.RuntimeFolder.empty() && fs::exists(machine.RuntimeFolder / "pipewire-0", error)) {
    return {"PipeWire", FindingLevel::Ok, "it runs in this session"};
  }
  const bool isInstalled = fs::exists(machine.Root / "usr/bin/pipewire", error);
  return {"PipeWire", FindingLevel::Note,
          std::string(isInstalled ? "it doesn't run in this session" : "it isn't installed") +
              ": other applications get the camera by V4L2 only",
          isInstalled ? "systemctl --user start pipewire"
                      : "sudo apt-get install pipewire wireplumber"};
}

// Whether the running kernel can load a module of that name.
bool HasModule(const Machine& machine, const std::string& name) {
  const std::string release = ReadLine(machine.Root / "proc/sys/kernel/osrelease");
  std::ifstream modules(machine.Root / "lib/modules" / release / "modules.dep");
  const std::string file = "/" + name + ".ko";
  for (std::string line; std::getline(modules, line);) {
    if (line.substr(0, line.find(':')).find(file) != std::string::npos) return true;
  }
  return false;
}

Finding LoopbackOf(const Machine& machine) {
  const fs::path module = machine.Root / "sys/module/v4l2loopback";
  std::error_code error;
  if (!fs::exists(module, error)) {
    const bool isInstalled = HasModule(machine, "v4l2loopback");
    return {
        "v4l2loopback", FindingLevel::Note,
        std::string(isInstalled ? "the module isn't loaded" : "this kernel has no such module") +
            ": applications that know V4L2 only don't get the camera",
        isInstalled ? "sudo modprobe v4l2loopback exclusive_caps=1"
                    : "sudo apt-get install v4l2loopback-dkms linux-headers-amd64"};
  }
  if (ReadLine(module / "parameters/exclusive_caps").starts_with('Y')) {
    return {"v4l2loopback", FindingLevel::Ok, "the module is loaded, with exclusive_caps"};
  }
  return {"v4l2loopback", FindingLevel::Wrong,
          "the module is loaded without exclusive_caps: browsers don't list its cameras",
          "sudo modprobe -r v4l2loopback && sudo modprobe v4l2loopback exclusive_caps=1"};
}

std::optional<std::string> FaultOf(const fs::path& file) {
  std::string error;
  const auto bytes = ReadSetFile(file, error);
  if (!bytes) return error;
  for (const SetFinding& finding : CheckRegisterSet(*bytes)) {
    if (finding.Kind == SetFinding::Weight::Fault) {
      return FindingText(file.filename().string(), finding);
    }
  }
  return std::nullopt;
}

Finding SetFilesOf(const Machine& machine) {
  std::size_t count = 0;
  for (const fs::path& file : base::EntriesOf(machine.SetFolder)) {
    if (file.extension() != ".set") continue;
    ++count;
    if (const auto fault = FaultOf(file)) {
      return {"set files", FindingLevel::Wrong, *fault, "lidcam sets check " + file.string()};
    }
  }
  const std::string folder = machine.SetFolder.string();
  if (count > 0) {
    return {"set files", FindingLevel::Ok, std::to_string(count) + " in " + folder};
  }
  return {
      "set files", FindingLevel::Note,
      "none in " + folder +
          ": cameras that are plugged in use the built-in registers, unless those that came with "
          "the hardware are copied there",
      "install -D -t " + folder + " *.set"};
}

}  // namespace

Machine ThisMachine() {
  const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
  const char* const tree = std::getenv("LIDCAM_SYSTEM_ROOT");
  const fs::path root = tree != nullptr ? fs::path(tree) : HomeFolder() / "system-root";
  return {.Root = "/",
          .RuntimeFolder = runtime != nullptr ? runtime : "",
          .SetFolder = root / "system32/drivers",
          .MayOpen = [](const fs::path& file) { return ::access(file.c_str(), R_OK | W_OK) == 0; }};
}

std::vector<Finding> Examine(const Machine& machine) {
  const bus::UsbSysfs files(DevicesOf(machine), machine.Root / "proc");
  std::vector<Finding> findings;
  for (const bus::PluggedDevice& camera : CamerasOf(machine)) {
    findings.push_back(SpeedOf(camera));
    findings.push_back(PermissionOf(machine, camera));
    findings.push_back(HolderOf(files, camera));
    findings.push_back(DriverOf(files, camera));
    findings.push_back(BandwidthOf(files, camera));
  }
  if (findings.empty()) findings.push_back(CamerasFinding());
  findings.push_back(UsbMemoryOf(machine));
  findings.push_back(PipeWireOf(machine));
  findings.push_back(LoopbackOf(machine));
  findings.push_back(SetFilesOf(machine));
  return findings;
}

}  // namespace lidcam::app
