#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

#include "bus/passing_bus.h"

namespace lidcam::testbed {

/// How the isochronous traffic of a bus ended.
enum class BusEnd : std::uint8_t {
  None,          ///< it has not ended
  EndOfCapture,  ///< a recording has no more packets
  Unplugged,     ///< the device is gone
};

/// The isochronous traffic of a bus so far.
struct BusMeter {
  std::uint64_t Bytes = 0;        ///< of all packets
  std::uint64_t Microframes = 0;  ///< bus time that was read
};

/// Passes all calls on to another bus, counts what is read, and notes the device's end.
class MeteredBus final : public bus::PassingBus {
 public:
  /// @param bus    outlives this one
  /// @param ended  called once, on the thread of the request that detected that the device is gone
  MeteredBus(bus::UsbBus& bus, std::function<void()> ended)
      : PassingBus(bus), ended_(std::move(ended)) {}

  bus::ControlResult ControlTransfer(const bus::SetupPacket& setup,
                                     std::span<std::uint8_t> data) override;
  bus::UsbStatus SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) override;
  bus::IsochronousResult ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                         std::span<bus::IsochronousPacket> packets) override;

  /// Any thread.
  [[nodiscard]] BusMeter Meter() const { return {bytes_.load(), microframes_.load()}; }
  [[nodiscard]] BusEnd End() const { return end_.load(); }

 private:
  void Note(bus::UsbStatus status);

  const std::function<void()> ended_;
  std::atomic<std::uint64_t> bytes_ = 0;
  std::atomic<std::uint64_t> microframes_ = 0;
  std::atomic<BusEnd> end_ = BusEnd::None;
};

}  // namespace lidcam::testbed
