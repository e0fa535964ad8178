#include "library/camera/gates/bus_gates.h"

#include <algorithm>

namespace lidcam::app {
namespace {

constexpr std::uint8_t kTypeMask = 0x60;
constexpr std::uint8_t kStandardType = 0x00;
constexpr std::uint8_t kGetDescriptor = 6;
constexpr std::uint16_t kConfiguration = 2 << 8;
constexpr std::uint16_t kConfigurationHead = 9;

bool IsStandard(const bus::SetupPacket& setup) {
  return (setup.RequestType & kTypeMask) == kStandardType;
}

bool AsksForConfiguration(const bus::SetupPacket& setup) {
  return IsStandard(setup) && setup.IsDeviceToHost() && setup.Request == kGetDescriptor &&
         setup.Value == kConfiguration;
}

}  // namespace

bus::UsbStatus SettingGate::SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) {
  const bool isAllowed =
      alternateSetting == 0 || !allowed_ ||
      std::find(allowed_->begin(), allowed_->end(), alternateSetting) != allowed_->end();
  if (!isAllowed) return bus::UsbStatus::NoBandwidth;
  const bus::UsbStatus status = PassingBus::SelectSetting(interface, alternateSetting);
  if (alternateSetting != 0) lastStatus_ = status;
  return status;
}

bus::IsochronousResult StreamGate::ReadIsochronous(std::uint8_t endpoint,
                                                   std::span<std::uint8_t> buffer,
                                                   std::span<bus::IsochronousPacket> packets) {
  if (microframes_ < end_) {
    microframes_ += packets.size();
    return PassingBus::ReadIsochronous(endpoint, buffer, packets);
  }
  const std::size_t share = packets.empty() ? 0 : buffer.size() / packets.size();
  std::size_t offset = 0;
  for (bus::IsochronousPacket& packet : packets) {
    packet = {static_cast<std::uint32_t>(offset), 0, bus::UsbStatus::Ok};
    offset += share;
  }
  return {bus::UsbStatus::Ok, FrameNumber() * bus::kMicroframesPerFrame};
}

bus::ControlResult RecordedDevice::ControlTransfer(const bus::SetupPacket& setup,
                                                   std::span<std::uint8_t> data) {
  const bus::ControlResult result = PassingBus::ControlTransfer(setup, data);
  if (result.Status != bus::UsbStatus::NotRecorded) return result;
  if (AsksForConfiguration(setup)) return ReadConfiguration(setup, data);
  if (IsStandard(setup) && setup.Length == 0) return {bus::UsbStatus::Ok, 0};
  return result;
}

bus::IsochronousResult RecordedDevice::ReadIsochronous(std::uint8_t endpoint,
                                                       std::span<std::uint8_t> buffer,
                                                       std::span<bus::IsochronousPacket> packets) {
  bus::IsochronousResult result = PassingBus::ReadIsochronous(endpoint, buffer, packets);
  const bool isGone =
      std::any_of(packets.begin(), packets.end(), [](const bus::IsochronousPacket& packet) {
        return packet.Status == bus::UsbStatus::Disconnected;
      });
  if (result.Status == bus::UsbStatus::Ok && isGone) result.Status = bus::UsbStatus::Disconnected;
  return result;
}

// The recorded host requested the descriptor with its exact length.
bus::ControlResult RecordedDevice::ReadConfiguration(bus::SetupPacket setup,
                                                     std::span<std::uint8_t> data) {
  const std::uint16_t asked = setup.Length;
  setup.Length = kConfigurationHead;
  if (asked < setup.Length || data.size() < asked) return {bus::UsbStatus::NotRecorded, 0};
  const bus::ControlResult head = PassingBus::ControlTransfer(setup, data);
  if (head.Status != bus::UsbStatus::Ok || head.Transferred < kConfigurationHead) return head;
  const auto length = static_cast<std::uint16_t>(data[2] | data[3] << 8);
  setup.Length = std::min(asked, length);
  return PassingBus::ControlTransfer(setup, data);
}

}  // namespace lidcam::app
