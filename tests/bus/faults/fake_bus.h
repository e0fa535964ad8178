#pragma once

#include <bit>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "bus/faults/fault_bus.h"
#include "bus/faults/fault_script.h"
#include "bus/usb_bus.h"

namespace lidcam::bus::test {

/// A device that answers every request with 0x10, 0x11 ... and sends a packet of 0x40, 0x41 ... in
/// every microframe, except if `IsEmpty`.
class FakeBus final : public UsbBus {
 public:
  ControlResult ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data) override {
    if (IsUnplugged) return {UsbStatus::Disconnected, 0};
    ++Requests;
    if (ControlStatus != UsbStatus::Ok) return {ControlStatus, 0};
    if (!setup.IsDeviceToHost()) {
      Written.assign(data.begin(), data.begin() + setup.Length);
    } else {
      for (std::size_t i = 0; i < setup.Length; ++i) data[i] = static_cast<std::uint8_t>(0x10 + i);
    }
    return {UsbStatus::Ok, setup.Length};
  }

  UsbStatus SelectSetting(std::uint8_t, std::uint8_t alternateSetting) override {
    if (IsUnplugged) return UsbStatus::Disconnected;
    Settings.push_back(alternateSetting);
    return UsbStatus::Ok;
  }

  IsochronousResult ReadIsochronous(std::uint8_t, std::span<std::uint8_t> buffer,
                                    std::span<IsochronousPacket> packets) override {
    const std::uint32_t start = Microframe;
    const std::size_t share = buffer.size() / packets.size();
    for (std::size_t i = 0; i < packets.size(); ++i) {
      const UsbStatus status = IsUnplugged ? UsbStatus::Disconnected : ReadStatus;
      const bool isFull = status == UsbStatus::Ok && Microframe % 10 != EmptyDigit;
      packets[i] = {static_cast<std::uint32_t>(i * share), isFull ? PacketLength : 0, status};
      for (std::size_t at = 0; at < packets[i].Length; ++at) {
        buffer[i * share + at] = static_cast<std::uint8_t>(0x40 + at);
      }
      ++Microframe;
    }
    return {IsUnplugged ? UsbStatus::Disconnected : ReadStatus, start};
  }

  void Abort(std::uint8_t endpoint) override { Aborted.push_back(endpoint); }
  [[nodiscard]] std::uint32_t FrameNumber() override { return Microframe / 8; }
  void Unplug() override { IsUnplugged = true; }

  int Requests = 0;
  std::vector<std::uint8_t> Written;
  std::vector<std::uint8_t> Settings;
  std::vector<std::uint8_t> Aborted;
  std::uint32_t Microframe = 0;
  std::uint32_t PacketLength = 16;
  std::uint32_t EmptyDigit = 10;  ///< last digit of the microframes without a packet; 10: none
  UsbStatus ControlStatus = UsbStatus::Ok;
  UsbStatus ReadStatus = UsbStatus::Ok;
  bool IsUnplugged = false;
};

constexpr std::uint8_t kStreamEndpoint = 0x82;
constexpr std::size_t kShare = 32;
constexpr std::uint8_t kUntouched = 0xEE;

/// The fake device with the faults of a script.
class DisturbedBus {
 public:
  explicit DisturbedBus(const std::string& script)
      : bus{Fake,
            {ParseFaultScript(script), [this](std::uint64_t time) { Sleeps.push_back(time); },
             [this](const std::string& line) { Lines.push_back(line); }}} {}

  /// Requests four bytes.
  ControlResult Ask() {
    Answer.assign(6, kUntouched);
    return bus.ControlTransfer({0xC0, 0xA1, 1, 0xFF00, 4}, Answer);
  }

  IsochronousResult Read(std::size_t count) {
    Buffer.assign(count * kShare, kUntouched);
    Packets.assign(count, {});
    return bus.ReadIsochronous(kStreamEndpoint, Buffer, Packets);
  }

  [[nodiscard]] std::vector<std::uint32_t> Lengths() const {
    std::vector<std::uint32_t> lengths;
    for (const IsochronousPacket& packet : Packets) lengths.push_back(packet.Length);
    return lengths;
  }
  [[nodiscard]] std::vector<UsbStatus> Statuses() const {
    std::vector<UsbStatus> statuses;
    for (const IsochronousPacket& packet : Packets) statuses.push_back(packet.Status);
    return statuses;
  }
  [[nodiscard]] std::vector<std::uint8_t> Bytes(std::size_t index) const {
    const auto begin = Buffer.begin() + static_cast<std::ptrdiff_t>(Packets[index].Offset);
    return {begin, begin + static_cast<std::ptrdiff_t>(Packets[index].Length)};
  }
  /// Number of bits by which the packet differs from the one sent.
  [[nodiscard]] int WrongBits(std::size_t index) const {
    int bits = 0;
    std::uint8_t sent = 0x40;
    for (const std::uint8_t byte : Bytes(index)) bits += std::popcount<unsigned>(byte ^ sent++);
    return bits;
  }

  FakeBus Fake;
  std::vector<std::uint64_t> Sleeps;
  std::vector<std::string> Lines;
  std::vector<std::uint8_t> Answer;
  std::vector<std::uint8_t> Buffer;
  std::vector<IsochronousPacket> Packets;
  FaultBus bus;
};

}  // namespace lidcam::bus::test
