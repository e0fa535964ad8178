#pragma once

#include <atomic>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "bus/passing_bus.h"

namespace lidcam::app {

/// Accepts chosen alternate settings only. The driver uses the widest one that is accepted: this is
/// how a user chooses the raw size.
class SettingGate final : public bus::PassingBus {
 public:
  using bus::PassingBus::PassingBus;

  /// From now on these settings, and 0, are accepted; before the first call, all are.
  void Allow(std::vector<std::uint8_t> settings) { allowed_ = std::move(settings); }

  bus::UsbStatus SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) override;

  /// The result of the last accepted selection.
  [[nodiscard]] bus::UsbStatus LastStatus() const { return lastStatus_; }

 private:
  std::optional<std::vector<std::uint8_t>> allowed_;
  bus::UsbStatus lastStatus_ = bus::UsbStatus::NoBandwidth;
};

/// Ends the camera's data at a time that the host chooses. From then on microframes are empty
/// and the bus isn't read: the stream's frames consist of exactly the data read before,
/// however late they are delivered.
class StreamGate final : public bus::PassingBus {
 public:
  using bus::PassingBus::PassingBus;

  /// Limits reads to this many microframes in total. Before the first read.
  void EndAfter(std::uint64_t microframes) { end_ = microframes; }
  /// Stops all further reads. Any thread.
  void End() { end_ = 0; }

  bus::IsochronousResult ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                         std::span<bus::IsochronousPacket> packets) override;

 private:
  std::atomic<std::uint64_t> end_ = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t microframes_ = 0;  ///< read so far; one read at a time
};

/// Answers, for a recorded camera, requests that the recorded host did not make and every USB
/// device answers alike: standard requests without a data stage succeed, and a configuration
/// descriptor has its full length for any requested length. The camera is unplugged where the
/// recorded packets say so.
class RecordedDevice final : public bus::PassingBus {
 public:
  using bus::PassingBus::PassingBus;

  bus::ControlResult ControlTransfer(const bus::SetupPacket& setup,
                                     std::span<std::uint8_t> data) override;
  bus::IsochronousResult ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                         std::span<bus::IsochronousPacket> packets) override;

 private:
  bus::ControlResult ReadConfiguration(bus::SetupPacket setup, std::span<std::uint8_t> data);
};

}  // namespace lidcam::app
