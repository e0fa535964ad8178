#include "testbed/metered_bus.h"

#include <numeric>

namespace lidcam::testbed {

bus::ControlResult MeteredBus::ControlTransfer(const bus::SetupPacket& setup,
                                               std::span<std::uint8_t> data) {
  const bus::ControlResult result = PassingBus::ControlTransfer(setup, data);
  Note(result.Status);
  return result;
}

bus::UsbStatus MeteredBus::SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) {
  const bus::UsbStatus status = PassingBus::SelectSetting(interface, alternateSetting);
  Note(status);
  return status;
}

bus::IsochronousResult MeteredBus::ReadIsochronous(std::uint8_t endpoint,
                                                   std::span<std::uint8_t> buffer,
                                                   std::span<bus::IsochronousPacket> packets) {
  const bus::IsochronousResult result = PassingBus::ReadIsochronous(endpoint, buffer, packets);
  if (result.Status != bus::UsbStatus::EndOfCapture) {
    bytes_ += std::accumulate(packets.begin(), packets.end(), std::uint64_t{0},
                              [](std::uint64_t sum, const bus::IsochronousPacket& packet) {
                                return sum + packet.Length;
                              });
    microframes_ += packets.size();
  }
  Note(result.Status);
  return result;
}

void MeteredBus::Note(bus::UsbStatus status) {
  BusEnd end = BusEnd::None;
  if (status == bus::UsbStatus::EndOfCapture) end = BusEnd::EndOfCapture;
  if (status == bus::UsbStatus::Disconnected) end = BusEnd::Unplugged;
  if (end == BusEnd::None) return;
  BusEnd before = BusEnd::None;
  if (end_.compare_exchange_strong(before, end) && ended_) ended_();
}

}  // namespace lidcam::testbed
