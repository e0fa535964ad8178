#include "apps/lidcam/report/picture_cover.h"

#include <algorithm>
#include <cstddef>

namespace lidcam::app {
namespace {

constexpr std::size_t kHeaderSize = 64;
constexpr std::uint8_t kGrey = 0x80;  // luminance and both colours

bool BeginsFrame(std::span<const std::uint8_t> packet) {
  return packet.size() >= 2 && packet[0] == 0xFF && packet[1] == 0xD8;
}

}  // namespace

bus::IsochronousResult PictureCover::ReadIsochronous(std::uint8_t endpoint,
                                                     std::span<std::uint8_t> buffer,
                                                     std::span<bus::IsochronousPacket> packets) {
  const bus::IsochronousResult result = bus::PassingBus::ReadIsochronous(endpoint, buffer, packets);
  for (const bus::IsochronousPacket& packet : packets) {
    if (packet.Offset > buffer.size()) continue;
    const std::size_t length = std::min<std::size_t>(packet.Length, buffer.size() - packet.Offset);
    Cover(buffer.subspan(packet.Offset, length));
  }
  return result;
}

void PictureCover::Cover(std::span<std::uint8_t> packet) {
  if (BeginsFrame(packet)) headerLeft_ = kHeaderSize;
  const std::size_t shown = std::min(headerLeft_, packet.size());
  headerLeft_ -= shown;
  std::ranges::fill(packet.subspan(shown), kGrey);
}

}  // namespace lidcam::app
