#include "camera_model/frames/faults.h"

#include <algorithm>
#include <array>

namespace lidcam::camera_model {
namespace {

constexpr std::array kByChance{
    FaultKind::Lost,         FaultKind::Short,        FaultKind::Oversized, FaultKind::Corrupted,
    FaultKind::MarkerAtHead, FaultKind::MarkerInside, FaultKind::EmptyRun,  FaultKind::Silence};
constexpr std::uint32_t kLongestChanceRun = 400;
constexpr std::size_t kExcessBytes = 16;
constexpr std::uint8_t kFiller = 0x55;

void PutMarker(std::vector<std::uint8_t>& bytes, std::size_t at) {
  if (at + 2 > bytes.size()) return;
  bytes[at] = 0xFF;
  bytes[at + 1] = 0xD8;
}

bool Meets(const PacketFault& fault, std::uint64_t frame, std::uint64_t packetOfFrame,
           std::uint64_t packetOfStream) {
  if (fault.Frame == PacketFault::kAny) {
    return fault.Packet == PacketFault::kAny || fault.Packet == packetOfStream;
  }
  return fault.Frame == frame &&
         (fault.Packet == PacketFault::kAny || fault.Packet == packetOfFrame);
}

}  // namespace

void FaultScript::DisturbAtRandom(std::uint64_t seed, std::uint32_t oneIn) {
  random_.seed(seed);
  oneIn_ = oneIn;
}

const PacketFault* FaultScript::FaultFor(std::uint64_t frame, std::uint64_t packetOfFrame,
                                         std::uint64_t packetOfStream) {
  for (const PacketFault& fault : faults_) {
    if (Meets(fault, frame, packetOfFrame, packetOfStream)) return &fault;
  }
  if (oneIn_ == 0 || random_() % oneIn_ != 0) return nullptr;
  chance_.Kind = kByChance[random_() % kByChance.size()];
  chance_.Microframes = 1 + static_cast<std::uint32_t>(random_() % kLongestChanceRun);
  return &chance_;
}

DisturbedPacket Disturb(std::span<const std::uint8_t> packet, FaultKind kind, std::uint32_t limit) {
  DisturbedPacket result;
  result.Bytes.assign(packet.begin(), packet.end());
  switch (kind) {
    case FaultKind::Lost:
      result.Bytes.clear();
      result.HasBusError = true;
      break;
    case FaultKind::Short:
      result.Bytes.resize(packet.size() / 2);
      break;
    case FaultKind::Oversized: {
      const std::size_t wanted = packet.size() + kExcessBytes;
      result.HasBusError = wanted > limit;
      result.Bytes.resize(std::min<std::size_t>(wanted, limit), kFiller);
      break;
    }
    case FaultKind::Corrupted:
      for (std::size_t at = 0; at < result.Bytes.size(); at += 7) result.Bytes[at] ^= 0x5A;
      result.HasBusError = true;
      break;
    case FaultKind::MarkerAtHead:
      PutMarker(result.Bytes, 0);
      break;
    case FaultKind::MarkerInside:
      PutMarker(result.Bytes, result.Bytes.size() / 2);
      break;
    case FaultKind::EmptyRun:
    case FaultKind::Silence:
    case FaultKind::Stall:
      break;
  }
  return result;
}

}  // namespace lidcam::camera_model
