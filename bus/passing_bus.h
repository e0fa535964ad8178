#pragma once

#include "bus/usb_bus.h"

namespace lidcam::bus {

/// Passes all calls on to another bus. A decorator derives from it and overrides some of them.
///
/// Threads as for the other bus.
class PassingBus : public UsbBus {
 public:
  /// @param bus  outlives this one
  explicit PassingBus(UsbBus& bus) : bus_(bus) {}

  ControlResult ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data) override;
  UsbStatus SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) override;
  IsochronousResult ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                    std::span<IsochronousPacket> packets) override;
  [[nodiscard]] bool HasReceived(std::uint8_t endpoint, std::size_t packets) override;
  void Abort(std::uint8_t endpoint) override;
  [[nodiscard]] std::uint32_t FrameNumber() override;
  void Unplug() override;

 private:
  UsbBus& bus_;
};

}  // namespace lidcam::bus
