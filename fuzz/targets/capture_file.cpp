#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "bus/capture/records/usb_record.h"
#include "bus/capture/replay/control_history.h"
#include "bus/enumeration.h"

namespace {

using lidcam::bus::UsbRecord;

bool LiesWithin(std::span<const std::uint8_t> part, std::span<const std::uint8_t> whole) {
  return part.empty() ||
         (part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size());
}

/// All views of a record must be within the bytes it was decoded from.
void CheckViews(const UsbRecord& record, std::span<const std::uint8_t> bytes) {
  if (!LiesWithin(record.Data, bytes)) std::abort();
  for (const auto& packet : record.Packets) {
    if (!LiesWithin(PacketData(record, packet), record.Data)) std::abort();
  }
}

/// A whole record must be equal after encoding and decoding.
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

using Decoder = void(std::span<const std::uint8_t> bytes, std::size_t originalLength,
                     UsbRecord& record);

void DecodeUsbpcap(std::span<const std::uint8_t> bytes, std::size_t originalLength,
                   UsbRecord& record) {
  lidcam::bus::DecodeUsbpcapRecord(bytes, originalLength, 0, record);
}

void CheckExchange(const lidcam::bus::ControlExchange& exchange) {
  const lidcam::bus::SetupPacket& setup = exchange.Setup;
  if (IsGetDeviceDescriptor(setup) && !IsGetDescriptor(setup)) std::abort();
  if (IsSelectWrite(setup) && !IsRegisterRequest(setup)) std::abort();
  if (IsSetInterface(setup) && IsRegisterRequest(setup)) std::abort();
  const auto status = lidcam::bus::StatusFromErrno(exchange.Status);
  if (exchange.Status == 0 && status != lidcam::bus::UsbStatus::Ok) std::abort();
  if (lidcam::bus::StatusFromErrno(lidcam::bus::ErrnoFromStatus(status)) != status) std::abort();
}

/// Several records of one device, each preceded by its length in two bytes.
void CheckHistory(std::span<const std::uint8_t> bytes, Decoder* decode) {
  lidcam::bus::ControlHistory history;
  while (bytes.size() >= 2) {
    const std::size_t length = std::min<std::size_t>(bytes[0] + bytes[1] * 256U, bytes.size() - 2);
    const std::span<const std::uint8_t> one = bytes.subspan(2, length);
    bytes = bytes.subspan(2 + length);
    UsbRecord record;
    decode(one, one.size(), record);
    CheckViews(record, one);
    if (lidcam::bus::ParseDeviceAddress(ToString(record.Address)) != record.Address) std::abort();
    history.Add(record);
  }
  for (const auto& exchange : history.Exchanges()) CheckExchange(exchange);
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

/// The first two bytes choose the decoder and the number of bytes cut off the record.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::span<const std::uint8_t> bytes{data + 2, size - 2};
  const std::size_t originalLength = bytes.size() + data[1] * std::size_t{16};
  UsbRecord record;
  lidcam::bus::ControlHistory history;
  switch (data[0] % 5) {
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
    case 3:
      Survive([&] { CheckHistory(bytes, lidcam::bus::DecodeUsbmonRecord); });
      break;
    case 4:
      Survive([&] { CheckHistory(bytes, DecodeUsbpcap); });
      break;
    default:
      Survive([&] {
        if (lidcam::bus::ParseConfiguration(bytes).size() > bytes.size() / 9) std::abort();
      });
      break;
  }
  return 0;
}
