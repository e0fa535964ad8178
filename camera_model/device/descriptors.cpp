#include "camera_model/device/descriptors.h"

#include <span>
#include <string_view>

namespace lidcam::camera_model {
namespace {

constexpr std::uint8_t kDeviceType = 1;
constexpr std::uint8_t kConfigurationType = 2;
constexpr std::uint8_t kStringType = 3;
constexpr std::uint8_t kInterfaceType = 4;
constexpr std::uint8_t kEndpointType = 5;
constexpr std::uint8_t kVendorClass = 0xFF;
constexpr std::uint8_t kInterruptTransfers = 3;
constexpr std::uint8_t kAsynchronousIsochronous = 0x05;

// Bits 11 and 12 count the additional transactions of a microframe.
constexpr std::uint16_t kLongPacketSizes[] = {
    0,      128, 512, 1024,
    0x0B00,  // 2 times 768
    0x0C00,  // 2 times 1024
    0x1380,  // 3 times 896
    0x1400,  // 3 times 1024
};
constexpr std::uint16_t kShortPacketSizes[] = {0, 128, 512, 1023};

std::span<const std::uint16_t> PacketSizes(ConfigurationKind kind) {
  if (kind == ConfigurationKind::Long) return kLongPacketSizes;
  return kShortPacketSizes;
}

std::uint8_t Low(std::uint16_t word) {
  return static_cast<std::uint8_t>(word & 0xFF);
}
std::uint8_t High(std::uint16_t word) {
  return static_cast<std::uint8_t>(word >> 8);
}

void Append(std::vector<std::uint8_t>& to, std::initializer_list<std::uint8_t> bytes) {
  to.insert(to.end(), bytes);
}

}  // namespace

std::uint8_t AlternateSettingCount(ConfigurationKind kind) {
  return static_cast<std::uint8_t>(PacketSizes(kind).size());
}

std::uint16_t IsochronousMaxPacketSize(ConfigurationKind kind, std::uint8_t alternateSetting) {
  const auto sizes = PacketSizes(kind);
  return alternateSetting < sizes.size() ? sizes[alternateSetting] : std::uint16_t{0};
}

std::array<std::uint8_t, 18> DeviceDescriptor(const CameraIdentity& identity) {
  return {18,
          kDeviceType,
          0x00,
          0x02,  // USB 2.0
          kVendorClass,
          0,
          0,
          64,
          Low(identity.VendorId),
          High(identity.VendorId),
          Low(identity.ProductId),
          High(identity.ProductId),
          0x00,
          0x01,  // release 1.0
          1,
          2,
          0,
          1};
}

std::vector<std::uint8_t> ConfigurationDescriptor(ConfigurationKind kind) {
  const auto sizes = PacketSizes(kind);
  const auto total = static_cast<std::uint16_t>(9 + sizes.size() * (9 + 7 + 7));
  std::vector<std::uint8_t> bytes;
  bytes.reserve(total);
  // One interface, configuration value 1, powered by the bus, 500 mA.
  Append(bytes, {9, kConfigurationType, Low(total), High(total), 1, 1, 0, 0x80, 250});
  for (std::size_t setting = 0; setting < sizes.size(); ++setting) {
    const std::uint16_t size = sizes[setting];
    Append(bytes,
           {9, kInterfaceType, 0, static_cast<std::uint8_t>(setting), 2, kVendorClass, 0, 0, 0});
    Append(bytes, {7, kEndpointType, kInterruptEndpoint, kInterruptTransfers, 1, 0, 9});
    Append(bytes, {7, kEndpointType, kIsochronousEndpoint, kAsynchronousIsochronous, Low(size),
                   High(size), 1});
  }
  return bytes;
}

std::optional<std::vector<std::uint8_t>> StringDescriptor(std::uint8_t index) {
  constexpr std::uint16_t kEnglish = 0x0409;
  if (index == 0) {
    return std::vector<std::uint8_t>{4, kStringType, Low(kEnglish), High(kEnglish)};
  }
  constexpr std::string_view kStrings[] = {"lidcam", "Simulated notebook camera"};
  if (index > std::size(kStrings)) return std::nullopt;
  const std::string_view text = kStrings[index - 1];
  std::vector<std::uint8_t> bytes{static_cast<std::uint8_t>(2 + 2 * text.size()), kStringType};
  for (const char letter : text) Append(bytes, {static_cast<std::uint8_t>(letter), 0});
  return bytes;
}

}  // namespace lidcam::camera_model
