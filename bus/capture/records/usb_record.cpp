#include "bus/capture/records/usb_record.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>

namespace lidcam::bus {
namespace {

struct StatusRow {
  UsbStatus Status;
  std::int32_t Errno;
};

/// The first row of a status is used for writing.
constexpr std::array kStatusTable{
    StatusRow{UsbStatus::Ok, 0},
    StatusRow{UsbStatus::Stalled, -EPIPE},
    StatusRow{UsbStatus::NoBandwidth, -ENOSPC},
    StatusRow{UsbStatus::Disconnected, -ESHUTDOWN},
    StatusRow{UsbStatus::Disconnected, -ENODEV},
    StatusRow{UsbStatus::TimedOut, -ETIMEDOUT},
    StatusRow{UsbStatus::Aborted, -ENOENT},
    StatusRow{UsbStatus::Aborted, -ECONNRESET},
    StatusRow{UsbStatus::EndOfCapture, -ENODATA},
    StatusRow{UsbStatus::NotRecorded, -ENOSYS},
    StatusRow{UsbStatus::Failed, -EPROTO},
};

bool ParseNumber(const char* begin, const char* end, std::uint16_t& number) {
  const auto [stop, error] = std::from_chars(begin, end, number);
  return error == std::errc{} && stop == end;
}

}  // namespace

std::string ToString(const DeviceAddress& address) {
  return std::to_string(address.Bus) + "." + std::to_string(address.Device);
}

DeviceAddress ParseDeviceAddress(const std::string& text) {
  DeviceAddress address;
  const std::size_t dot = text.find('.');
  const char* begin = text.data();
  if (dot == std::string::npos || !ParseNumber(begin, begin + dot, address.Bus) ||
      !ParseNumber(begin + dot + 1, begin + text.size(), address.Device)) {
    throw CaptureError("device '" + text + "': not BUS.DEVICE in decimal, as in 1.5");
  }
  return address;
}

std::span<const std::uint8_t> PacketData(const UsbRecord& record, const RecordedPacket& packet) {
  if (packet.Captured == 0) return {};
  return record.Data.subspan(packet.Offset, packet.Captured);
}

std::int32_t ErrnoFromStatus(UsbStatus status) {
  const auto* row = std::ranges::find(kStatusTable, status, &StatusRow::Status);
  return row == kStatusTable.end() ? -EPROTO : row->Errno;
}

UsbStatus StatusFromErrno(std::int32_t status) {
  const auto* row = std::ranges::find(kStatusTable, status, &StatusRow::Errno);
  return row == kStatusTable.end() ? UsbStatus::Failed : row->Status;
}

}  // namespace lidcam::bus
