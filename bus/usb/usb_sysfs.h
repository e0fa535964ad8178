#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace lidcam::bus {

/// What a high-speed bus may reserve of each microframe's 7500 bytes for isochronous and interrupt
/// transfers: 80 in 100.
inline constexpr std::uint32_t kReservableBytes = 6000;

/// A device as Linux describes it in its files.
struct UsbDeviceFiles {
  std::string Path{};                  ///< "1-2.3"
  std::string Identity{};              ///< "1af0:0511"
  std::string Name{};                  ///< what the device calls itself; may be empty
  std::vector<std::string> Drivers{};  ///< the kernel's, of its interfaces, each once
  std::uint32_t ReservedBytes = 0;     ///< a microframe, by the settings in force
};

/// Reads what Linux tells of the USB to any user. Where there are no such files, nothing is told.
class UsbSysfs {
 public:
  explicit UsbSysfs(std::filesystem::path devices = "/sys/bus/usb/devices",
                    std::filesystem::path processes = "/proc")
      : devices_(std::move(devices)), processes_(std::move(processes)) {}

  /// One device by its path; empty fields for what isn't told.
  [[nodiscard]] UsbDeviceFiles Device(const std::string& path) const;

  /// All devices of a bus but hubs, by their paths.
  [[nodiscard]] std::vector<UsbDeviceFiles> DevicesOnBus(unsigned bus) const;

  /// The processes that have a file open, as "1234 (name)"; those of other users only for root.
  [[nodiscard]] std::vector<std::string> UsersOf(const std::string& node) const;

 private:
  std::filesystem::path devices_;
  std::filesystem::path processes_;
};

/// The devices of a list but one, as a line names them: "1-3 046d:0825 Webcam (uvcvideo), ...".
[[nodiscard]] std::string NamesOf(const std::vector<UsbDeviceFiles>& devices,
                                  const std::string& leftOut);

/// The bytes that they reserve together.
[[nodiscard]] std::uint32_t ReservedBytesOf(const std::vector<UsbDeviceFiles>& devices);

}  // namespace lidcam::bus
