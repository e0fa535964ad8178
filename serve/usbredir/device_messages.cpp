#include "serve/usbredir/device_messages.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <vector>

namespace lidcam::serve::usbredir {
namespace {

constexpr std::uint8_t kInterfaceType = 4;
constexpr std::uint8_t kEndpointType = 5;
constexpr std::size_t kInterfaceSize = 9;
constexpr std::size_t kEndpointSize = 7;
constexpr std::size_t kEndpoints = 32;
constexpr std::uint16_t kControlPacketSize = 64;

std::uint16_t Word(std::uint8_t low, std::uint8_t high) {
  return static_cast<std::uint16_t>(high << 8 | low);
}

/// The index of an endpoint in the message: those IN are the upper half.
std::size_t PlaceOf(std::uint8_t address) {
  return static_cast<std::size_t>((address & 0x80U) >> 3 | (address & 0x0FU));
}

}  // namespace

usb_redir_device_connect_header DeviceOf(const bus::UsbDeviceInfo& device) {
  const auto& descriptor = device.DeviceDescriptor;
  return {.speed = usb_redir_speed_high,
          .device_class = descriptor[4],
          .device_subclass = descriptor[5],
          .device_protocol = descriptor[6],
          .vendor_id = device.Vendor,
          .product_id = device.Product,
          .device_version_bcd = Word(descriptor[12], descriptor[13])};
}

usb_redir_interface_info_header InterfacesOf(const bus::UsbDeviceInfo& device) {
  usb_redir_interface_info_header message{};
  const std::vector<std::uint8_t>& bytes = device.Configuration;
  for (std::size_t at = 0; at + kInterfaceSize <= bytes.size() && bytes[at] != 0; at += bytes[at]) {
    const bool isFirst = bytes[at + 1] == kInterfaceType && bytes[at + 3] == 0;
    const std::uint32_t count = message.interface_count;
    if (!isFirst || count == std::size(message.interface)) continue;
    message.interface[count] = bytes[at + 2];
    message.interface_class[count] = bytes[at + 5];
    message.interface_subclass[count] = bytes[at + 6];
    message.interface_protocol[count] = bytes[at + 7];
    message.interface_count = count + 1;
  }
  return message;
}

usb_redir_ep_info_header EndpointsOf(const ServedCamera& camera) {
  usb_redir_ep_info_header message{};
  std::ranges::fill(message.type, std::uint8_t{usb_redir_type_invalid});
  for (const std::uint8_t address : {std::uint8_t{0x00}, std::uint8_t{0x80}}) {
    message.type[PlaceOf(address)] = usb_redir_type_control;
    message.max_packet_size[PlaceOf(address)] = kControlPacketSize;
  }
  const std::vector<std::uint8_t>& bytes = camera.Device().Configuration;
  std::uint8_t interface = 0;
  bool isInForce = false;
  for (std::size_t at = 0; at + 2 <= bytes.size() && bytes[at] != 0; at += bytes[at]) {
    if (bytes[at + 1] == kInterfaceType && at + kInterfaceSize <= bytes.size()) {
      interface = bytes[at + 2];
      isInForce = camera.SettingOf(interface) == bytes[at + 3];
    }
    if (!isInForce || bytes[at + 1] != kEndpointType || at + kEndpointSize > bytes.size()) continue;
    const std::size_t place = PlaceOf(bytes[at + 2]);
    static_assert(kEndpoints == std::size(decltype(message.type){}));
    message.type[place] = bytes[at + 3] & 0x03;
    message.interval[place] = bytes[at + 6];
    message.interface[place] = interface;
    message.max_packet_size[place] = Word(bytes[at + 4], bytes[at + 5]);
  }
  return message;
}

}  // namespace lidcam::serve::usbredir
