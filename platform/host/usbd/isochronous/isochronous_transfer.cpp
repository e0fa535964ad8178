#include "platform/host/usbd/isochronous/isochronous_transfer.h"

#include <algorithm>
#include <cstring>
#include <span>

#include "platform/host/usbd/requests/usb_status.h"

namespace lidcam::host {
namespace {

constexpr ULONG kMostPackets = 1024;

std::span<USBD_ISO_PACKET_DESCRIPTOR> PacketsOf(_URB_ISOCH_TRANSFER& urb) {
  return {&urb.IsoPacket[0], urb.NumberOfPackets};
}

/// Bytes available for a packet: up to the offset of the next one.
ULONG RoomOf(const _URB_ISOCH_TRANSFER& urb, ULONG packet) {
  const USBD_ISO_PACKET_DESCRIPTOR* const packets = &urb.IsoPacket[0];
  const ULONG end =
      packet + 1 < urb.NumberOfPackets ? packets[packet + 1].Offset : urb.TransferBufferLength;
  return end - packets[packet].Offset;
}

/// Whether the bus can read directly into the driver's buffer: all packets are equally long.
bool IsCutEvenly(_URB_ISOCH_TRANSFER& urb, ULONG bytesPerMicroframe) {
  const ULONG share = urb.TransferBufferLength / urb.NumberOfPackets;
  ULONG offset = 0;
  for (const USBD_ISO_PACKET_DESCRIPTOR& packet : PacketsOf(urb)) {
    if (packet.Offset != offset) return false;
    offset += share;
  }
  return share >= bytesPerMicroframe;
}

/// Copies data that was read into another buffer to the driver's packets.
void CopyPackets(_URB_ISOCH_TRANSFER& urb, std::span<const std::uint8_t> read,
                 std::span<bus::IsochronousPacket> packets) {
  for (ULONG i = 0; i < urb.NumberOfPackets; ++i) {
    const USBD_ISO_PACKET_DESCRIPTOR& place = (&urb.IsoPacket[0])[i];
    const ULONG count = std::min<ULONG>(packets[i].Length, RoomOf(urb, i));
    if (count == 0) continue;
    std::memcpy(static_cast<std::uint8_t*>(urb.TransferBuffer) + place.Offset,
                read.data() + packets[i].Offset, count);
  }
}

/// Writes the packets' lengths and statuses into the URB.
void TellPackets(_URB_ISOCH_TRANSFER& urb, std::span<const bus::IsochronousPacket> packets) {
  ULONG errors = 0;
  ULONG end = urb.TransferBufferLength;
  for (ULONG i = urb.NumberOfPackets; i-- != 0;) {
    USBD_ISO_PACKET_DESCRIPTOR& shown = (&urb.IsoPacket[0])[i];
    const bus::IsochronousPacket& packet = packets[i];
    const ULONG room = end - shown.Offset;
    end = shown.Offset;
    shown.Length = std::min<ULONG>(packet.Length, room);
    if (packet.Length <= room && packet.Status == bus::UsbStatus::Ok) [[likely]] {
      shown.Status = USBD_STATUS_SUCCESS;
      continue;
    }
    shown.Status = packet.Length > room ? USBD_STATUS_DATA_OVERRUN : FromBus(packet.Status);
    if (shown.Status != USBD_STATUS_SUCCESS) ++errors;
  }
  urb.ErrorCount = errors;
}

}  // namespace

USBD_STATUS CheckIsochronousUrb(const _URB_ISOCH_TRANSFER& urb) {
  const ULONG count = urb.NumberOfPackets;
  const bool isLongEnough = urb.Hdr.Length >= offsetof(_URB_ISOCH_TRANSFER, IsoPacket) &&
                            count <= kMostPackets &&
                            urb.Hdr.Length >= offsetof(_URB_ISOCH_TRANSFER, IsoPacket) +
                                                  count * sizeof(USBD_ISO_PACKET_DESCRIPTOR);
  if (!isLongEnough || count == 0 || urb.TransferBuffer == nullptr ||
      urb.TransferBufferMDL != nullptr || urb.UrbLink != nullptr ||
      (urb.TransferFlags & USBD_TRANSFER_DIRECTION) != USBD_TRANSFER_DIRECTION_IN) {
    return USBD_STATUS_INVALID_PARAMETER;
  }
  const USBD_ISO_PACKET_DESCRIPTOR* const packets = &urb.IsoPacket[0];
  // Ascending up to the buffer's end, they all lie in it.
  ULONG end = urb.TransferBufferLength;
  for (ULONG i = count; i-- != 0;) {
    if (packets[i].Offset > end) return USBD_STATUS_INVALID_PARAMETER;
    end = packets[i].Offset;
  }
  return USBD_STATUS_SUCCESS;
}

USBD_STATUS ReadTransfer(bus::UsbBus& bus, const IsochronousTransfer& transfer,
                         _URB_ISOCH_TRANSFER& urb, std::vector<bus::IsochronousPacket>& packets) {
  const ULONG count = urb.NumberOfPackets;
  packets.assign(count, {});
  std::vector<std::uint8_t> aside;
  std::span<std::uint8_t> buffer;
  const bool isDirect = IsCutEvenly(urb, transfer.BytesPerMicroframe);
  if (isDirect) {
    const ULONG share = urb.TransferBufferLength / count;
    buffer = {static_cast<std::uint8_t*>(urb.TransferBuffer), std::size_t{share} * count};
  } else {
    aside.resize(std::size_t{transfer.BytesPerMicroframe} * count);
    buffer = aside;
  }

  const bus::IsochronousResult result = bus.ReadIsochronous(transfer.Endpoint, buffer, packets);
  if (result.Status == bus::UsbStatus::Silent) return USBD_STATUS_PENDING;
  if (!isDirect) CopyPackets(urb, buffer, packets);
  TellPackets(urb, packets);
  if (result.Status != bus::UsbStatus::Ok) return FromBus(result.Status);
  return urb.ErrorCount == count ? USBD_STATUS_ISOCH_REQUEST_FAILED : USBD_STATUS_SUCCESS;
}

void MarkNotAccessed(_URB_ISOCH_TRANSFER& urb) {
  urb.ErrorCount = urb.NumberOfPackets;
  for (USBD_ISO_PACKET_DESCRIPTOR& packet : PacketsOf(urb)) {
    packet.Length = 0;
    packet.Status = USBD_STATUS_NOT_ACCESSED;
  }
}

}  // namespace lidcam::host
