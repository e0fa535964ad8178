#pragma once

#include <sys/resource.h>

#include <csignal>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <map>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bus/capture/files/capture_error.h"
#include "bus/usb_bus.h"

namespace lidcam::bus::test {

using Bytes = std::vector<std::uint8_t>;

/// Bytes written as pairs of hexadecimal digits; blanks and line ends are ignored.
Bytes Hex(std::string_view text);

/// A folder with the lifetime of the test.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  [[nodiscard]] std::string Path(const std::string& name) const {
    return (folder_ / name).string();
  }
  [[nodiscard]] std::vector<std::string> Names() const;

 private:
  std::filesystem::path folder_;
};

/// Limits the size of files, as a full disk does.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &old_);
    rlimit limit = old_;
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &old_);
    std::signal(SIGXFSZ, handler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  void (*handler_)(int);
  rlimit old_{};
};

void WriteFile(const std::string& path, std::span<const std::uint8_t> bytes);
Bytes ReadFile(const std::string& path);

/// A pcap file assembled byte by byte, without the library under test.
class PcapImage {
 public:
  explicit PcapImage(std::uint32_t linkType);

  /// @param originalLength  0: not cut
  void Add(std::span<const std::uint8_t> record, std::size_t originalLength = 0);
  [[nodiscard]] const Bytes& Image() const { return image_; }
  /// Positions at which a record begins, and the end.
  [[nodiscard]] const std::set<std::size_t>& Boundaries() const { return boundaries_; }

 private:
  Bytes image_;
  std::set<std::size_t> boundaries_;
};

/// A camera with scripted answers that records the requests to it.
class ScriptedBus final : public UsbBus {
 public:
  struct Answer {
    UsbStatus Status = UsbStatus::Ok;
    Bytes Data;
  };
  struct Packet {
    Bytes Data;
    UsbStatus Status = UsbStatus::Ok;
  };

  /// Answers to a request in their order; the last one is repeated. A request without any is
  /// accepted.
  void Say(const SetupPacket& setup, Answer answer) {
    answers_[setup].push_back(std::move(answer));
  }

  std::deque<Packet> Packets;                        ///< of the isochronous stream
  std::set<std::uint8_t> Refused;                    ///< alternate settings without bandwidth
  std::uint32_t Microframe = 8000;                   ///< bus time: 1000 ms
  std::vector<std::pair<SetupPacket, Bytes>> Heard;  ///< control requests with their OUT data
  std::vector<std::uint8_t> Aborted;
  bool Unplugged = false;

  ControlResult ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data) override;
  UsbStatus SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) override;
  IsochronousResult ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                    std::span<IsochronousPacket> packets) override;
  void Abort(std::uint8_t endpoint) override { Aborted.push_back(endpoint); }
  [[nodiscard]] std::uint32_t FrameNumber() override { return Microframe / 8; }
  void Unplug() override { Unplugged = true; }

 private:
  std::map<SetupPacket, std::deque<Answer>> answers_;
};

/// Scripts the answers to an enumeration: identity and the short configuration, one interface with
/// the settings 0 and 1, each with an interrupt and an isochronous IN endpoint (0x82, 0 and 3072
/// bytes).
void SayDescriptors(ScriptedBus& bus, std::uint16_t vendor, std::uint16_t product);

// The camera's register accesses, as their two transfers.
void WriteRegister(UsbBus& bus, std::uint8_t select, std::uint8_t address, std::uint8_t value);
/// The byte read, or 256 plus the number of the status.
int ReadRegister(UsbBus& bus, std::uint8_t select, std::uint8_t address);

/// what() of the CaptureError that a call throws; empty if it throws none.
template <typename Call>
std::string ErrorOf(const Call& call) {
  try {
    call();
  } catch (const CaptureError& error) {
    return error.what();
  }
  return "";
}

/// Output of a shell command and whether it succeeded.
struct CommandResult {
  bool Succeeded = false;
  std::string Output;
};
CommandResult RunCommand(const std::string& command);

}  // namespace lidcam::bus::test
