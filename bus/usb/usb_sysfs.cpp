#include "bus/usb/usb_sysfs.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <map>
#include <system_error>

#include "base/file_users.h"
#include "base/folder_entries.h"
#include "bus/usb_types.h"

namespace lidcam::bus {
namespace {

namespace fs = std::filesystem;

std::string ReadAll(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::string ReadLine(const fs::path& file) {
  std::string text = ReadAll(file);
  text.erase(std::find(text.begin(), text.end(), '\n'), text.end());
  // Text from the device: it must not reach a terminal as a control sequence.
  std::ranges::replace_if(
      text, [](char letter) { return static_cast<unsigned char>(letter) < 0x20 || letter == 0x7F; },
      '?');
  return text;
}

unsigned NumberOf(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(' ');
  unsigned number = 0;
  if (begin == std::string::npos) return 0;
  std::from_chars(text.data() + begin, text.data() + text.size(), number);
  return number;
}

/// The interfaces of a device: number and alternate setting in force.
std::map<unsigned, unsigned> SettingsInForce(const fs::path& device) {
  std::map<unsigned, unsigned> settings;
  const std::string prefix = device.filename().string() + ":";
  for (const fs::path& entry : base::EntriesOf(device)) {
    const std::string name = entry.filename().string();
    const std::size_t dot = name.rfind('.');
    if (!name.starts_with(prefix) || dot == std::string::npos) continue;
    settings[NumberOf(name.substr(dot + 1))] = NumberOf(ReadLine(entry / "bAlternateSetting"));
  }
  return settings;
}

/// Bytes a microframe of a periodic endpoint; 0 for others.
std::uint32_t ShareOf(const std::uint8_t* endpoint, bool isHighSpeed) {
  const unsigned type = endpoint[3] & 3U;
  const bool isIsochronous = type == 1;
  const bool isInterrupt = type == 3;
  if (!isIsochronous && !isInterrupt) return 0;
  const auto packetSize = static_cast<std::uint16_t>(endpoint[4] | endpoint[5] << 8);
  if (!isHighSpeed) return (packetSize & 0x7FFU) / kMicroframesPerFrame;
  const unsigned interval = std::clamp<unsigned>(endpoint[6], 1, 16);
  const std::uint32_t period = 1U << (interval - 1);
  return (BytesPerMicroframe(packetSize) + period - 1) / period;
}

// Only the descriptors' file has packet sizes with their multiplier.
std::uint32_t ReservedBy(const fs::path& device) {
  const std::string text = ReadAll(device / "descriptors");
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  const std::map<unsigned, unsigned> inForce = SettingsInForce(device);
  const bool isHighSpeed = NumberOf(ReadLine(device / "speed")) >= 480;
  constexpr std::size_t kInterfaceSize = 9;
  constexpr std::size_t kEndpointSize = 7;
  std::uint32_t sum = 0;
  bool isInForce = false;
  for (std::size_t at = 0; at + 2 <= text.size();) {
    const std::size_t length = bytes[at];
    if (length < 2 || at + length > text.size()) break;
    if (bytes[at + 1] == 4 && length >= kInterfaceSize) {
      const auto setting = inForce.find(bytes[at + 2]);
      isInForce = setting != inForce.end() && setting->second == bytes[at + 3];
    }
    if (bytes[at + 1] == 5 && length >= kEndpointSize && isInForce) {
      sum += ShareOf(bytes + at, isHighSpeed);
    }
    at += length;
  }
  return sum;
}

std::vector<std::string> DriversOf(const fs::path& device) {
  std::vector<std::string> drivers;
  const std::string prefix = device.filename().string() + ":";
  for (const fs::path& entry : base::EntriesOf(device)) {
    if (!entry.filename().string().starts_with(prefix)) continue;
    std::error_code error;
    const fs::path target = fs::read_symlink(entry / "driver", error);
    if (error) continue;
    const std::string name = target.filename().string();
    if (std::ranges::find(drivers, name) == drivers.end()) drivers.push_back(name);
  }
  return drivers;
}

}  // namespace

UsbDeviceFiles UsbSysfs::Device(const std::string& path) const {
  const fs::path device = devices_ / path;
  const std::string vendor = ReadLine(device / "idVendor");
  return {.Path = path,
          .Identity = vendor.empty() ? "" : vendor + ":" + ReadLine(device / "idProduct"),
          .Name = ReadLine(device / "product"),
          .Drivers = DriversOf(device),
          .ReservedBytes = ReservedBy(device)};
}

std::vector<UsbDeviceFiles> UsbSysfs::DevicesOnBus(unsigned bus) const {
  constexpr unsigned kHubClass = 9;
  std::vector<UsbDeviceFiles> devices;
  const std::string prefix = std::to_string(bus) + "-";
  for (const fs::path& entry : base::EntriesOf(devices_)) {
    const std::string name = entry.filename().string();
    if (!name.starts_with(prefix) || name.find(':') != std::string::npos) continue;
    if (NumberOf(ReadLine(entry / "bDeviceClass")) == kHubClass) continue;
    devices.push_back(Device(name));
  }
  return devices;
}

std::vector<std::string> UsbSysfs::UsersOf(const std::string& node) const {
  std::vector<std::string> users;
  for (const base::FileUser& user : base::UsersOf(node, processes_)) {
    users.push_back(std::to_string(user.Process) + " (" + user.Program + ")");
  }
  return users;
}

std::string NamesOf(const std::vector<UsbDeviceFiles>& devices, const std::string& leftOut) {
  std::string names;
  for (const UsbDeviceFiles& device : devices) {
    if (device.Path == leftOut) continue;
    names += (names.empty() ? "" : ", ") + device.Path + " " + device.Identity;
    if (!device.Name.empty()) names += " " + device.Name;
    for (const std::string& driver : device.Drivers) names += " (" + driver + ")";
  }
  return names;
}

std::uint32_t ReservedBytesOf(const std::vector<UsbDeviceFiles>& devices) {
  std::uint32_t sum = 0;
  for (const UsbDeviceFiles& device : devices) sum += device.ReservedBytes;
  return sum;
}

}  // namespace lidcam::bus
