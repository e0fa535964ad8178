#pragma once

#include <atomic>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "bus/passing_bus.h"

namespace lidcam::app {

/// Has room for chosen alternate settings only. The driver takes the widest that it is given: this is
/// how a user chooses what the camera sends.
class SettingGate final : public bus::PassingBus {
 public:
  using bus::PassingBus::PassingBus;

  /// From here on these settings, and 0, are let through; before the first call, all are.
  void Allow(std::vector<std::uint8_t> settings) { allowed_ = std::move(settings); }

  bus::UsbStatus SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) override;

  /// How the last selection that was let through ended.
  [[nodiscard]] bus::UsbStatus LastStatus() const { return lastStatus_; }

 private:
  std::optional<std::vector<std::uint8_t>> allowed_;
  bus::UsbStatus lastStatus_ = bus::UsbStatus::NoBandwidth;
};

/// Ends what the camera sends at a moment that the host chooses. From there on microframes are empty
/// and the bus isn't read: what was read before, and no more, is what the stream's frames are made of,
/// however late they are taken.
class StreamGate final : public bus::PassingBus {
 public:
  using bus::PassingBus::PassingBus;

  /// Lets reads through until they have had this many microframes. Before the first read.
  void EndAfter(std::uint64_t microframes) { end_ = microframes; }
  /// Lets no further read through. Any thread.
  void End() { end_ = 0; }

  bus::IsochronousResult ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                         std::span<bus::IsochronousPacket> packets) override;

 private:
  std::atomic<std::uint64_t> end_ = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t microframes_ = 0;  ///< that were let through; one read comes at a time
};

/// Answers for a recorded camera what every USB device answers alike and a recorded host did not ask:
/// standard requests without a data stage succeed, and a configuration descriptor is as long as it is
/// whatever was asked for. Where the recorded packets say that the camera was unplugged, it is.
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
