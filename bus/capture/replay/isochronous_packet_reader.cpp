#include "bus/capture/replay/isochronous_packet_reader.h"

#include <map>

namespace lidcam::bus {
namespace {

// A host ignores the data of a transfer that it cancelled.
bool IsTakenBack(const UsbRecord& record) {
  return StatusFromErrno(record.Status) == UsbStatus::Aborted;
}

bool BeginsFrame(std::span<const std::uint8_t> data) {
  return data.size() >= 2 && data[0] == 0xFF && data[1] == 0xD8;
}

}  // namespace

IsochronousPacketReader::IsochronousPacketReader(const CaptureSource& source)
    : IsochronousPacketReader(source.Path(), source.Device().Address, source.StreamEndpoint()) {}

IsochronousPacketReader::IsochronousPacketReader(const std::string& path, DeviceAddress address,
                                                 std::uint8_t endpoint)
    : reader_(path), address_(address), endpoint_(endpoint) {}

bool IsochronousPacketReader::Next(IsochronousPayload& payload) {
  while (nextPacket_ >= record_.Packets.size()) {
    if (!NextRecord()) return false;
  }
  const RecordedPacket& packet = record_.Packets[nextPacket_++];
  payload.Data = PacketData(record_, packet);
  const bool cut = packet.Captured < packet.Length;
  payload.Status = cut ? UsbStatus::Failed : StatusFromErrno(packet.Status);
  payload.Microframe = microframe_++;
  missingBytes_ += packet.Length - packet.Captured;
  return true;
}

bool IsochronousPacketReader::NextRecord() {
  nextPacket_ = 0;
  record_.Packets.clear();
  while (reader_.Next(record_)) {
    if (record_.Type != TransferType::Isochronous || record_.Event != RecordEvent::Complete ||
        record_.Address != address_ || record_.Endpoint != endpoint_ || IsTakenBack(record_)) {
      record_.Packets.clear();
      continue;
    }
    // Host controllers wrap around after a few seconds; some count nothing at all.
    if (record_.StartMicroframe > microframe_) microframe_ = record_.StartMicroframe;
    return true;
  }
  return false;
}

std::optional<FrameSizeEstimate> EstimateRawFrameSize(IsochronousPacketReader& packets) {
  std::map<std::uint64_t, std::uint64_t> framesBySize;
  std::uint64_t frames = 0;
  std::uint64_t bytes = 0;
  bool inFrame = false;
  IsochronousPayload payload;
  while (packets.Next(payload)) {
    if (BeginsFrame(payload.Data)) {
      if (inFrame) {
        ++framesBySize[bytes];
        ++frames;
      }
      inFrame = true;
      bytes = 0;
    }
    bytes += payload.Data.size();
  }
  FrameSizeEstimate estimate{0, 0, frames};
  for (const auto& [size, count] : framesBySize) {
    if (count >= estimate.Occurrences) estimate = {size, count, frames};
  }
  if (frames == 0) return std::nullopt;
  return estimate;
}

}  // namespace lidcam::bus
