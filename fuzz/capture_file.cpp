#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "bus/capture/control_history.h"
#include "bus/capture/usb_record.h"
#include "bus/enumeration.h"

namespace {

using lidcam::bus::UsbRecord;

bool LiesWithin(std::span<const std::uint8_t> part, std::span<const std::uint8_t> whole) {
  return part.empty() ||
         (part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size());
}

/// Nothing that a record shows may lie outside the bytes it was decoded from.
void CheckViews(const UsbRecord& record, std::span<const std::uint8_t> bytes) {
  if (!LiesWithin(record.Data, bytes)) std::abort();
  for (const auto& packet : record.Packets) {
    if (!LiesWithin(PacketData(record, packet), record.Data)) std::abort();
  }
}

/// What was decoded is decoded alike after encoding, where the record was whole.
void CheckRoundTrip(const UsbRecord& record) {
  if (record.TimeMicroseconds < 0) std::abort();
  for (const auto& packet : record.Packets) {
    if (packet.Captured > packet.Length) std::abort();
    if (packet.Captured != packet.Length) return;
  }
  std::vector<std::uint8_t> encoded;
  EncodeUsbmonRecord(record, encoded);
  UsbRecord again;
  DecodeUsbmonRecord(encoded, encoded.size(), again);
  if (again.Packets != record.Packets || again.Setup != record.Setup ||
      again.Data.size() != record.Data.size() || again.Id != record.Id) {
    std::abort();
  }
}

template <typename Call>
void Survive(const Call& call) {
  try {
    call();
  } catch (const lidcam::bus::CaptureError&) {
  } catch (const lidcam::bus::EnumerationError&) {
  }
}

}  // namespace

/// The first two bytes choose the decoder and how much of the record was cut off.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::span<const std::uint8_t> bytes{data + 2, size - 2};
  const std::size_t originalLength = bytes.size() + data[1] * std::size_t{16};
  UsbRecord record;
  lidcam::bus::ControlHistory history;
  switch (data[0] % 3) {
    case 0:
      Survive([&] {
        DecodeUsbmonRecord(bytes, originalLength, record);
        CheckViews(record, bytes);
        history.Add(record);
        CheckRoundTrip(record);
      });
      break;
    case 1:
      Survive([&] {
        DecodeUsbpcapRecord(bytes, originalLength, 0, record);
        CheckViews(record, bytes);
        history.Add(record);
      });
      break;
    default:
      Survive([&] {
        if (lidcam::bus::ParseConfiguration(bytes).size() > bytes.size() / 9) std::abort();
      });
      break;
  }
  return 0;
}
