#include "bus/faults/packet_disturbance.h"

#include <algorithm>

namespace lidcam::bus {
namespace {

constexpr std::uint64_t kMostFlippedBits = 8;
constexpr std::uint8_t kFiller = 0x55;  // no part of a marker

// The bytes with which the camera begins each frame.
constexpr std::uint8_t kMarker[] = {0xFF, 0xD8};

void PutMarker(std::span<std::uint8_t> share, std::size_t at) {
  std::copy(std::begin(kMarker), std::end(kMarker),
            share.begin() + static_cast<std::ptrdiff_t>(at));
}

std::uint32_t ShortestPacketFor(FaultKind kind) {
  switch (kind) {
    case FaultKind::Marker:
      return 3;
    case FaultKind::Short:
    case FaultKind::FalseStart:
      return 2;
    default:
      return 1;
  }
}

}  // namespace

// Positions of the bits with a constant distance: no two are equal.
void FlipBits(std::span<std::uint8_t> bytes, base::SplitMix random) {
  const std::uint64_t bits = bytes.size() * 8;
  if (bits == 0) return;
  const std::uint64_t count = random.Between(1, std::min(kMostFlippedBits, bits));
  const std::uint64_t step = random.Between(1, std::max<std::uint64_t>(1, (bits - 1) / count));
  std::uint64_t bit = random.Between(0, bits - 1);
  for (std::uint64_t i = 0; i < count; ++i) {
    bytes[bit / 8] = static_cast<std::uint8_t>(bytes[bit / 8] ^ (1U << (bit % 8)));
    bit = (bit + step) % bits;
  }
}

bool IsFitFor(FaultKind kind, std::span<const std::uint8_t> share,
              const IsochronousPacket& packet) {
  return packet.Length >= ShortestPacketFor(kind) && packet.Length <= share.size();
}

void DisturbPacket(FaultKind kind, std::span<std::uint8_t> share, IsochronousPacket& packet,
                   base::SplitMix random) {
  switch (kind) {
    case FaultKind::Lose:
    case FaultKind::Silence:
      packet.Length = 0;
      break;
    case FaultKind::Short:
      packet.Length = static_cast<std::uint32_t>(random.Between(1, packet.Length - 1));
      break;
    case FaultKind::Oversize:
      std::fill(share.begin() + packet.Length, share.end(), kFiller);
      packet.Length = static_cast<std::uint32_t>(share.size());
      break;
    case FaultKind::Corrupt:
      FlipBits(share.first(packet.Length), random);
      break;
    case FaultKind::Marker:
      PutMarker(share, random.Between(1, packet.Length - std::size(kMarker)));
      break;
    case FaultKind::FalseStart:
      PutMarker(share, 0);
      break;
    case FaultKind::Error:
      packet.Status = UsbStatus::Failed;
      break;
    default:
      break;
  }
}

}  // namespace lidcam::bus
