#include "bus/passing_bus.h"

namespace lidcam::bus {

ControlResult PassingBus::ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data) {
  return bus_.ControlTransfer(setup, data);
}

UsbStatus PassingBus::SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) {
  return bus_.SelectSetting(interface, alternateSetting);
}

IsochronousResult PassingBus::ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                              std::span<IsochronousPacket> packets) {
  return bus_.ReadIsochronous(endpoint, buffer, packets);
}

bool PassingBus::HasReceived(std::uint8_t endpoint, std::size_t packets) {
  return bus_.HasReceived(endpoint, packets);
}

void PassingBus::Abort(std::uint8_t endpoint) {
  bus_.Abort(endpoint);
}

std::uint32_t PassingBus::FrameNumber() {
  return bus_.FrameNumber();
}

void PassingBus::Unplug() {
  bus_.Unplug();
}

}  // namespace lidcam::bus
