#include <algorithm>
#include <array>
#include <numeric>
#include <string>

#include "base/time_units.h"
#include "bus/capture/files/pcap_file.h"
#include "bus/capture/records/little_endian.h"
#include "bus/capture/records/record_data.h"
#include "bus/capture/records/usb_record.h"

namespace lidcam::bus {
namespace {

constexpr std::size_t kHeaderSize = 64;
constexpr std::size_t kDescriptorSize = 16;

// Byte positions in the header of a usbmon record.
enum HeaderField : std::size_t {
  kId = 0,
  kEvent = 8,
  kTransferType = 9,
  kEndpoint = 10,
  kDevice = 11,
  kBus = 12,
  kSetupFlag = 14,
  kDataFlag = 15,
  kSeconds = 16,
  kMicroseconds = 24,
  kStatus = 28,
  kTransferLength = 32,
  kDataLength = 36,
  kSetup = 40,  // isochronous: error count, then number of packets
  kErrorCount = 40,
  kPacketCount = 44,
  kInterval = 48,
  kStartFrame = 52,
  kTransferFlags = 56,
  kDescriptorCount = 60,
};

// The flags are 0 if the part is present, else a letter for the reason why not.
constexpr std::uint8_t kPresent = 0;
constexpr std::uint8_t kNoSetup = '-';
constexpr std::uint8_t kDataComesLater = '<';
constexpr std::uint8_t kDataWentBefore = '>';

RecordEvent DecodeEvent(std::uint8_t letter) {
  switch (letter) {
    case 'S':
      return RecordEvent::Submit;
    case 'C':
      return RecordEvent::Complete;
    case 'E':
      return RecordEvent::Refused;
    default:
      throw CaptureError("event type " + std::to_string(letter) + " is not S, C or E");
  }
}

std::uint8_t EncodeEvent(RecordEvent event) {
  switch (event) {
    case RecordEvent::Submit:
      return 'S';
    case RecordEvent::Complete:
      return 'C';
    case RecordEvent::Refused:
      break;
  }
  return 'E';
}

TransferType DecodeType(std::uint8_t number) {
  if (number > static_cast<std::uint8_t>(TransferType::Bulk)) {
    throw CaptureError("transfer type " + std::to_string(number) + " is above 3");
  }
  return static_cast<TransferType>(number);
}

void DecodeHeader(std::span<const std::uint8_t> bytes, UsbRecord& record) {
  record.Id = LoadLittle<std::uint64_t>(bytes, kId);
  record.Event = DecodeEvent(bytes[kEvent]);
  record.Type = DecodeType(bytes[kTransferType]);
  record.Endpoint = bytes[kEndpoint];
  record.Address = {LoadLittle<std::uint16_t>(bytes, kBus), bytes[kDevice]};
  record.TimeMicroseconds = CaptureTime(LoadLittle<std::int64_t>(bytes, kSeconds),
                                        LoadLittle<std::int32_t>(bytes, kMicroseconds));
  record.Status = LoadLittle<std::int32_t>(bytes, kStatus);
  record.TransferLength = LoadLittle<std::uint32_t>(bytes, kTransferLength);
  record.Interval = LoadLittle<std::uint32_t>(bytes, kInterval);
  record.StartMicroframe = LoadLittle<std::uint32_t>(bytes, kStartFrame);
  record.TransferFlags = LoadLittle<std::uint32_t>(bytes, kTransferFlags);
  record.Stage = record.Event == RecordEvent::Submit ? ControlStage::Setup : ControlStage::Complete;
  record.ErrorCount = 0;
  if (record.Type == TransferType::Isochronous) {
    record.ErrorCount = LoadLittle<std::uint32_t>(bytes, kErrorCount);
  }
  record.Setup.reset();
  if (record.Type == TransferType::Control && bytes[kSetupFlag] == kPresent) {
    std::array<std::uint8_t, 8> setup{};
    std::copy_n(bytes.begin() + kSetup, setup.size(), setup.begin());
    record.Setup = SetupPacket::FromBytes(setup);
  }
}

/// Removes the packet descriptors from the front of `rest`.
void DecodePackets(std::span<const std::uint8_t>& rest, std::uint32_t count, UsbRecord& record) {
  record.Packets.clear();
  if (count == 0) return;
  if (record.Type != TransferType::Isochronous) {
    throw CaptureError(std::to_string(count) + " packet descriptors in a transfer without packets");
  }
  if (count > rest.size() / kDescriptorSize) {
    throw CaptureError(std::to_string(count) + " packet descriptors, but " +
                       std::to_string(rest.size()) + " bytes behind the header");
  }
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t at = i * kDescriptorSize;
    record.Packets.push_back({LoadLittle<std::int32_t>(rest, at),
                              LoadLittle<std::uint32_t>(rest, at + 4),
                              LoadLittle<std::uint32_t>(rest, at + 8), 0});
  }
  rest = rest.subspan(count * kDescriptorSize);
}

std::uint8_t DataFlag(const UsbRecord& record) {
  if (record.IsIn() && record.Event == RecordEvent::Submit) return kDataComesLater;
  if (!record.IsIn() && record.Event == RecordEvent::Complete) return kDataWentBefore;
  return kPresent;
}

std::uint32_t EncodedTransferLength(const UsbRecord& record) {
  if (record.Type != TransferType::Isochronous) return record.TransferLength;
  return std::accumulate(
      record.Packets.begin(), record.Packets.end(), std::uint32_t{0},
      [](std::uint32_t sum, const RecordedPacket& packet) { return sum + packet.Length; });
}

void EncodeHeader(const UsbRecord& record, std::span<std::uint8_t> bytes) {
  const auto packetCount = static_cast<std::uint32_t>(record.Packets.size());
  const auto dataLength = static_cast<std::uint32_t>(bytes.size() - kHeaderSize);
  StoreLittle(bytes, kId, record.Id);
  bytes[kEvent] = EncodeEvent(record.Event);
  bytes[kTransferType] = static_cast<std::uint8_t>(record.Type);
  bytes[kEndpoint] = record.Endpoint;
  bytes[kDevice] = static_cast<std::uint8_t>(record.Address.Device);
  StoreLittle(bytes, kBus, record.Address.Bus);
  bytes[kSetupFlag] = record.Setup ? kPresent : kNoSetup;
  bytes[kDataFlag] = DataFlag(record);
  StoreLittle(bytes, kSeconds, record.TimeMicroseconds / base::kMicrosecondsPerSecond);
  StoreLittle(bytes, kMicroseconds,
              static_cast<std::int32_t>(record.TimeMicroseconds % base::kMicrosecondsPerSecond));
  StoreLittle(bytes, kStatus, record.Status);
  StoreLittle(bytes, kTransferLength, EncodedTransferLength(record));
  StoreLittle(bytes, kDataLength, dataLength);
  if (record.Setup) std::ranges::copy(record.Setup->ToBytes(), bytes.begin() + kSetup);
  if (record.Type == TransferType::Isochronous) {
    StoreLittle(bytes, kErrorCount, record.ErrorCount);
    StoreLittle(bytes, kPacketCount, packetCount);
  }
  StoreLittle(bytes, kInterval, record.Interval);
  StoreLittle(bytes, kStartFrame, record.StartMicroframe);
  StoreLittle(bytes, kTransferFlags, record.TransferFlags);
  StoreLittle(bytes, kDescriptorCount, packetCount);
}

}  // namespace

void DecodeUsbmonRecord(std::span<const std::uint8_t> bytes, std::size_t originalLength,
                        UsbRecord& record) {
  if (bytes.size() < kHeaderSize) {
    throw CaptureError(std::to_string(bytes.size()) + " bytes, but a usbmon header has " +
                       std::to_string(kHeaderSize));
  }
  DecodeHeader(bytes, record);
  const std::size_t original = std::max(originalLength, bytes.size()) - kHeaderSize;
  std::span<const std::uint8_t> rest = AnnouncedData(bytes.subspan(kHeaderSize), original,
                                                     LoadLittle<std::uint32_t>(bytes, kDataLength));
  const bool cut = original > bytes.size() - kHeaderSize;
  const std::size_t whole = cut ? original : rest.size();
  DecodePackets(rest, LoadLittle<std::uint32_t>(bytes, kDescriptorCount), record);
  const bool present = bytes[kDataFlag] == kPresent && CarriesData(record);
  record.Data = present ? rest : std::span<const std::uint8_t>{};
  if (present) PlacePackets(record, whole - record.Packets.size() * kDescriptorSize);
}

void EncodeUsbmonRecord(const UsbRecord& record, std::vector<std::uint8_t>& bytes) {
  const std::size_t dataAt = kHeaderSize + record.Packets.size() * kDescriptorSize;
  bytes.assign(dataAt + record.Data.size(), 0);
  EncodeHeader(record, bytes);
  std::size_t at = kHeaderSize;
  for (const RecordedPacket& packet : record.Packets) {
    StoreLittle<std::int32_t>(bytes, at, packet.Status);
    StoreLittle<std::uint32_t>(bytes, at + 4, packet.Offset);
    StoreLittle<std::uint32_t>(bytes, at + 8, packet.Length);
    at += kDescriptorSize;
  }
  std::ranges::copy(record.Data, bytes.begin() + static_cast<std::ptrdiff_t>(dataAt));
}

}  // namespace lidcam::bus
