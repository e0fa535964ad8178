#include "library/camera/source/plugged_camera.h"

#include <grp.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <thread>

#include "bus/usb/usb_host.h"
#include "bus/usb/usb_sysfs.h"
#include "camera_model/device/camera_identity.h"
#include "library/base/command_error.h"
#include "library/base/notices.h"

namespace lidcam::app {
namespace {

constexpr std::string_view kPrefix = "usb:";
constexpr const char* kRule = "70-lidcam.rules";
constexpr const char* kGroup = "plugdev";

// The time that udev needs to create a new device's file and to set its permissions.
constexpr std::chrono::seconds kLongestGrant{3};

bool IsCamera(const bus::PluggedDevice& device) {
  return camera_model::FindIdentity(device.Vendor, device.Product) != nullptr;
}

bool IsPath(std::string_view text) {
  const std::size_t dash = text.find('-');
  const auto isNumber = [](char letter) {
    return std::isdigit(static_cast<unsigned char>(letter));
  };
  if (dash == std::string_view::npos || dash == 0 || dash + 1 == text.size()) return false;
  return std::ranges::all_of(text.substr(0, dash), isNumber) &&
         std::ranges::all_of(text.substr(dash + 1),
                             [&](char letter) { return letter == '.' || isNumber(letter); });
}

std::optional<std::uint16_t> ParseIdentityWord(std::string_view text) {
  std::uint16_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
  if (error != std::errc{} || end != text.data() + text.size() || text.size() != 4) {
    return std::nullopt;
  }
  return number;
}

std::vector<std::string_view> Split(std::string_view text) {
  std::vector<std::string_view> parts;
  while (true) {
    const std::size_t colon = text.find(':');
    parts.push_back(text.substr(0, colon));
    if (colon == std::string_view::npos) return parts;
    text.remove_prefix(colon + 1);
  }
}

std::string NamesOfAll(const std::vector<bus::PluggedDevice>& devices) {
  std::string names;
  for (const bus::PluggedDevice& device : devices) {
    names += (names.empty() ? "" : ", ") + NameOf(device);
  }
  return names;
}

bool HasRule() {
  constexpr std::array kFolders = {"/etc/udev/rules.d", "/run/udev/rules.d",
                                   "/usr/local/lib/udev/rules.d", "/usr/lib/udev/rules.d",
                                   "/lib/udev/rules.d"};
  return std::ranges::any_of(kFolders, [](const char* folder) {
    std::error_code error;
    return std::filesystem::exists(std::filesystem::path(folder) / kRule, error);
  });
}

bool IsInGroup() {
  const group* const wanted = ::getgrnam(kGroup);
  if (wanted == nullptr) return true;  // no group to join
  std::vector<gid_t> groups(static_cast<std::size_t>(std::max(::getgroups(0, nullptr), 0)));
  const int count = ::getgroups(static_cast<int>(groups.size()), groups.data());
  return std::count(groups.begin(), groups.begin() + std::max(count, 0), wanted->gr_gid) != 0 ||
         ::getegid() == wanted->gr_gid;
}

std::string ReasonOf(const bus::PluggedDevice& device, const bus::UsbError& error) {
  switch (error.Obstacle()) {
    case bus::UsbObstacle::NoPermission:
      return "no permission for " + device.Node() + ": " + PermissionRemedy(device);
    case bus::UsbObstacle::Busy: {
      const std::string holder = HolderOf(device);
      return "it is in use by " + (holder.empty() ? "another program" : holder);
    }
    default:
      return error.what();
  }
}

Failure FailureOf(const bus::UsbError& error) {
  switch (error.Obstacle()) {
    case bus::UsbObstacle::NoPermission:
      return Failure::NoPermission;
    case bus::UsbObstacle::Busy:
      return Failure::InUse;
    case bus::UsbObstacle::Gone:
      return Failure::Unplugged;
    default:
      return Failure::Other;
  }
}

void TellDriver(const bus::PluggedDevice& device) {
  for (const std::string& driver : bus::UsbSysfs().Device(device.Path).Drivers) {
    if (driver == "usbfs") continue;
    TellUser("the kernel's driver " + driver + " is detached from " + NameOf(device) +
             ", and gets it back at the end");
  }
}

void TellNotice(const bus::PluggedDevice& device, bus::UsbNotice notice, std::string line) {
  if (notice == bus::UsbNotice::NoRoom) {
    const std::string others = NamesOf(bus::UsbSysfs().DevicesOnBus(device.Bus), device.Path);
    line += others.empty() ? "; nothing else is on bus " + std::to_string(device.Bus)
                           : "; also on bus " + std::to_string(device.Bus) + ": " + others;
  }
  TellUser(NameOf(device) + ": " + line);
}

// Without a file there is no permission to wait for: the device was found some other way.
void AwaitPermission(const bus::PluggedDevice& device) {
  constexpr std::chrono::milliseconds kPause{50};
  const auto deadline = std::chrono::steady_clock::now() + kLongestGrant;
  while (::access(device.Node().c_str(), R_OK | W_OK) != 0 && errno == EACCES &&
         std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(kPause);
  }
}

}  // namespace

std::string PermissionRemedy(const bus::PluggedDevice& device) {
  if (!HasRule()) {
    return "sudo chmod a+rw " + device.Node() +
           " (until it is unplugged; the udev rule that comes with lidcam's installation does it "
           "for "
           "good)";
  }
  if (!IsInGroup()) return std::string("sudo usermod -aG ") + kGroup + " $USER, and log in again";
  return "sudo udevadm trigger --action=add /sys/bus/usb/devices/" + device.Path;
}

bool IsPluggedIn(const std::string& camera) {
  return camera == "usb" || camera.starts_with(kPrefix);
}

bool PluggedName::Fits(const bus::PluggedDevice& device) const {
  return (Path.empty() || Path == device.Path) && (!Vendor || *Vendor == device.Vendor) &&
         (!Product || *Product == device.Product);
}

PluggedName ParsePluggedName(const std::string& camera) {
  PluggedName name;
  if (camera == "usb") return name;
  const UsageError error("camera '" + camera +
                         "' names no plugged-in camera: usb, usb:BUS-PORT such as usb:1-2.3, "
                         "usb:VID:PID such as usb:1af0:0511, or usb:BUS-PORT:VID:PID");
  auto parts = Split(std::string_view(camera).substr(kPrefix.size()));
  if (parts.size() == 1 || parts.size() == 3) {
    if (!IsPath(parts.front())) throw error;
    name.Path = parts.front();
    parts.erase(parts.begin());
  }
  if (parts.empty()) return name;
  if (parts.size() != 2) throw error;
  name.Vendor = ParseIdentityWord(parts[0]);
  name.Product = ParseIdentityWord(parts[1]);
  if (!name.Vendor || !name.Product) throw error;
  return name;
}

std::string NameOf(const bus::PluggedDevice& device) {
  std::array<char, 16> identity{};
  std::snprintf(identity.data(), identity.size(), ":%04x:%04x", unsigned{device.Vendor},
                unsigned{device.Product});
  return std::string(kPrefix) + device.Path + identity.data();
}

std::vector<bus::PluggedDevice> PluggedCameras() {
  std::vector<bus::PluggedDevice> devices = bus::UsbHost().Devices();
  std::erase_if(devices, [](const bus::PluggedDevice& device) { return !IsCamera(device); });
  return devices;
}

bus::PluggedDevice FindPluggedCamera(const std::string& camera) {
  const PluggedName name = ParsePluggedName(camera);
  const bus::UsbHost host;
  std::vector<bus::PluggedDevice> all = host.Devices();
  std::vector<bus::PluggedDevice> fitting = all;
  std::erase_if(fitting,
                [&](const auto& device) { return !name.Fits(device) || !IsCamera(device); });
  if (fitting.size() == 1) return fitting.front();
  if (fitting.size() > 1) {
    throw UsageError("camera '" + camera +
                     "' fits several that are plugged in, name one: " + NamesOfAll(fitting));
  }
  std::string text = "camera '" + camera + "' is not plugged in";
  if (!host.Obstacle().empty()) {
    throw CommandError(text + ": " + host.Obstacle(), Failure::NotFound);
  }
  const auto other = std::ranges::find_if(
      all, [&](const auto& device) { return !name.Path.empty() && device.Path == name.Path; });
  if (other != all.end()) text += ": " + NameOf(*other) + " is another device";
  std::erase_if(all, [](const auto& device) { return !IsCamera(device); });
  if (!all.empty()) text += "; plugged in: " + NamesOfAll(all);
  throw CommandError(text, Failure::NotFound);
}

std::optional<bus::PluggedDevice> AwaitPluggedCamera(const PluggedName& name,
                                                     const std::function<bool()>& goesOn) {
  constexpr std::chrono::milliseconds kRound{100};
  constexpr int kRoundsOfAHost = 10;
  while (true) {
    // If libusb gets no hotplug events, a new enumeration finds new devices.
    bus::UsbHost host;
    for (int round = 0; round < kRoundsOfAHost; ++round) {
      for (const bus::PluggedDevice& device : host.Devices()) {
        if (!name.Fits(device) || !IsCamera(device)) continue;
        AwaitPermission(device);
        return device;
      }
      if (!goesOn()) return std::nullopt;
      host.WaitForChange(kRound);
    }
  }
}

std::unique_ptr<bus::UsbBus> OpenPluggedCamera(const std::string& camera) {
  const bus::PluggedDevice device = FindPluggedCamera(camera);
  TellDriver(device);
  try {
    return bus::UsbHost().Open(device,
                               {.Tell = [device](bus::UsbNotice notice, const std::string& line) {
                                 TellNotice(device, notice, line);
                               }});
  } catch (const bus::UsbError& error) {
    throw CommandError("camera " + NameOf(device) + " can't be opened: " + ReasonOf(device, error),
                       FailureOf(error));
  }
}

std::string HolderOf(const bus::PluggedDevice& device) {
  const bus::UsbSysfs files;
  std::string holders;
  const auto add = [&](const std::string& holder) {
    holders += (holders.empty() ? "" : ", ") + holder;
  };
  for (const std::string& driver : files.Device(device.Path).Drivers) {
    if (driver != "usbfs") add("kernel driver " + driver);
  }
  for (const std::string& user : files.UsersOf(device.Node())) add("process " + user);
  if (!holders.empty()) return holders;
  const auto drivers = files.Device(device.Path).Drivers;
  return drivers.empty() ? "" : "a process of another user";
}

}  // namespace lidcam::app
