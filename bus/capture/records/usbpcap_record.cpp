#include <algorithm>
#include <array>
#include <cerrno>
#include <string>

#include "bus/capture/records/little_endian.h"
#include "bus/capture/records/record_data.h"
#include "bus/capture/records/usb_record.h"

namespace lidcam::bus {
namespace {

constexpr std::size_t kUsbpcapHeaderSize = 27;
constexpr std::size_t kControlHeaderSize = kUsbpcapHeaderSize + 1;
constexpr std::size_t kIsochronousHeaderSize = kUsbpcapHeaderSize + 12;
constexpr std::size_t kUsbpcapDescriptorSize = 12;
constexpr std::size_t kSetupSize = 8;
constexpr std::uint8_t kFromDevice = 0x01;

// Byte positions in the header of a USBPcap record.
enum UsbpcapField : std::size_t {
  kUsbpcapHeaderLength = 0,
  kUsbpcapId = 2,
  kUsbpcapStatus = 10,
  kUsbpcapInfo = 16,
  kUsbpcapBus = 17,
  kUsbpcapDevice = 19,
  kUsbpcapEndpoint = 21,
  kUsbpcapTransferType = 22,
  kUsbpcapDataLength = 23,
  kUsbpcapStage = 27,
  kUsbpcapStartFrame = 27,
  kUsbpcapPacketCount = 31,
  kUsbpcapErrorCount = 35,
};

struct WindowsStatus {
  std::uint32_t Status;
  std::int32_t Errno;
};

/// USBD_STATUS codes with a more precise meaning than "failed".
constexpr std::array kWindowsStatusTable{
    WindowsStatus{0x00000000, 0},             // success
    WindowsStatus{0x40000000, -EINPROGRESS},  // pending
    WindowsStatus{0xC0000004, -EPIPE},        // stall
    WindowsStatus{0xC0000005, -ETIMEDOUT},    // the device does not answer
    WindowsStatus{0x80000700, -ENOSPC},       // no bandwidth
    WindowsStatus{0xC0007000, -ESHUTDOWN},    // the device is gone
    WindowsStatus{0xC0010000, -ENOENT},       // cancelled
};

std::int32_t DecodeStatus(std::uint32_t status) {
  const auto* row = std::ranges::find(kWindowsStatusTable, status, &WindowsStatus::Status);
  return row == kWindowsStatusTable.end() ? -EPROTO : row->Errno;
}

TransferType UsbpcapType(std::uint8_t number) {
  return number <= static_cast<std::uint8_t>(TransferType::Bulk) ? static_cast<TransferType>(number)
                                                                 : TransferType::Other;
}

std::size_t SmallestHeader(TransferType type) {
  if (type == TransferType::Control) return kControlHeaderSize;
  return type == TransferType::Isochronous ? kIsochronousHeaderSize : kUsbpcapHeaderSize;
}

void DecodeUsbpcapHeader(std::span<const std::uint8_t> bytes, UsbRecord& record) {
  record.Id = LoadLittle<std::uint64_t>(bytes, kUsbpcapId);
  record.Status = DecodeStatus(LoadLittle<std::uint32_t>(bytes, kUsbpcapStatus));
  record.Event =
      (bytes[kUsbpcapInfo] & kFromDevice) != 0 ? RecordEvent::Complete : RecordEvent::Submit;
  record.Address = {LoadLittle<std::uint16_t>(bytes, kUsbpcapBus),
                    LoadLittle<std::uint16_t>(bytes, kUsbpcapDevice)};
  record.Endpoint = bytes[kUsbpcapEndpoint];
  record.Type = UsbpcapType(bytes[kUsbpcapTransferType]);
  record.TransferLength = LoadLittle<std::uint32_t>(bytes, kUsbpcapDataLength);
  record.Stage = ControlStage::Setup;
  record.Setup.reset();
  record.Interval = 0;
  record.StartMicroframe = 0;
  record.ErrorCount = 0;
  record.TransferFlags = 0;
  record.Packets.clear();
}

void DecodeControl(std::span<const std::uint8_t> bytes, UsbRecord& record) {
  const std::uint8_t stage = bytes[kUsbpcapStage];
  if (stage > static_cast<std::uint8_t>(ControlStage::Complete)) {
    throw CaptureError("control stage " + std::to_string(stage) + " is above 3");
  }
  record.Stage = static_cast<ControlStage>(stage);
  if (record.Stage != ControlStage::Setup || record.Event != RecordEvent::Submit) return;
  if (record.Data.size() < kSetupSize) {
    throw CaptureError("setup packet of " + std::to_string(record.Data.size()) + " bytes");
  }
  std::array<std::uint8_t, kSetupSize> setup{};
  std::copy_n(record.Data.begin(), setup.size(), setup.begin());
  record.Setup = SetupPacket::FromBytes(setup);
  record.Data = record.Data.subspan(kSetupSize);
}

void DecodeIsochronous(std::span<const std::uint8_t> header, std::size_t originalDataLength,
                       UsbRecord& record) {
  record.StartMicroframe =
      LoadLittle<std::uint32_t>(header, kUsbpcapStartFrame) * kMicroframesPerFrame;
  record.ErrorCount = LoadLittle<std::uint32_t>(header, kUsbpcapErrorCount);
  const auto count = LoadLittle<std::uint32_t>(header, kUsbpcapPacketCount);
  const std::size_t room = (header.size() - kIsochronousHeaderSize) / kUsbpcapDescriptorSize;
  if (count > room) {
    throw CaptureError(std::to_string(count) + " packet descriptors, but room for " +
                       std::to_string(room) + " in the header");
  }
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t at = kIsochronousHeaderSize + i * kUsbpcapDescriptorSize;
    record.Packets.push_back({DecodeStatus(LoadLittle<std::uint32_t>(header, at + 8)),
                              LoadLittle<std::uint32_t>(header, at),
                              LoadLittle<std::uint32_t>(header, at + 4), 0});
  }
  PlacePackets(record, originalDataLength);
}

}  // namespace

void DecodeUsbpcapRecord(std::span<const std::uint8_t> bytes, std::size_t originalLength,
                         std::int64_t timeMicroseconds, UsbRecord& record) {
  if (bytes.size() < kUsbpcapHeaderSize) {
    throw CaptureError(std::to_string(bytes.size()) + " bytes, but a USBPcap header has " +
                       std::to_string(kUsbpcapHeaderSize));
  }
  DecodeUsbpcapHeader(bytes, record);
  record.TimeMicroseconds = timeMicroseconds;
  const std::size_t headerLength = LoadLittle<std::uint16_t>(bytes, kUsbpcapHeaderLength);
  if (headerLength < SmallestHeader(record.Type) || headerLength > bytes.size()) {
    throw CaptureError("header length " + std::to_string(headerLength) + " in a record of " +
                       std::to_string(bytes.size()) + " bytes");
  }
  const std::size_t original = std::max(originalLength, bytes.size()) - headerLength;
  record.Data = AnnouncedData(bytes.subspan(headerLength), original, record.TransferLength);
  if (record.Type == TransferType::Control) DecodeControl(bytes, record);
  if (record.Type == TransferType::Isochronous) {
    DecodeIsochronous(bytes.first(headerLength), record.TransferLength, record);
  }
}

}  // namespace lidcam::bus
