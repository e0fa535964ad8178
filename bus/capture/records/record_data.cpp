#include "bus/capture/records/record_data.h"

#include <algorithm>
#include <string>

namespace lidcam::bus {

bool CarriesData(const UsbRecord& record) {
  return record.IsIn() ? record.Event == RecordEvent::Complete
                       : record.Event == RecordEvent::Submit;
}

void PlacePackets(UsbRecord& record, std::size_t originalDataLength) {
  if (!CarriesData(record)) return;
  std::size_t index = 0;
  for (RecordedPacket& packet : record.Packets) {
    const std::uint64_t end = std::uint64_t{packet.Offset} + packet.Length;
    if (packet.Length != 0 && end > originalDataLength) {
      throw CaptureError("isochronous packet " + std::to_string(index) + " ends at byte " +
                         std::to_string(end) + " of " + std::to_string(originalDataLength));
    }
    const std::size_t present =
        record.Data.size() - std::min<std::size_t>(packet.Offset, record.Data.size());
    packet.Captured = static_cast<std::uint32_t>(std::min<std::size_t>(packet.Length, present));
    ++index;
  }
}

std::span<const std::uint8_t> AnnouncedData(std::span<const std::uint8_t> rest,
                                            std::size_t originalLength, std::uint32_t announced) {
  if (announced > std::max(originalLength, rest.size())) {
    throw CaptureError("data length " + std::to_string(announced) + ", but " +
                       std::to_string(std::max(originalLength, rest.size())) +
                       " bytes behind the header");
  }
  return rest.first(std::min<std::size_t>(announced, rest.size()));
}

}  // namespace lidcam::bus
