#include "serve/usbip/messages.h"

#include <algorithm>
#include <set>

namespace lidcam::serve::usbip {
namespace {

constexpr std::uint32_t kHighSpeed = 3;
constexpr std::size_t kPathSize = 256;

std::uint32_t Long(std::span<const std::uint8_t> bytes, std::size_t at) {
  return std::uint32_t{bytes[at]} << 24 | std::uint32_t{bytes[at + 1]} << 16 |
         std::uint32_t{bytes[at + 2]} << 8 | bytes[at + 3];
}

std::uint16_t Word(std::span<const std::uint8_t> bytes, std::size_t at) {
  return static_cast<std::uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

void AppendWord(std::vector<std::uint8_t>& to, std::uint16_t word) {
  to.push_back(static_cast<std::uint8_t>(word >> 8));
  to.push_back(static_cast<std::uint8_t>(word & 0xFF));
}

void AppendLong(std::vector<std::uint8_t>& to, std::uint32_t number) {
  AppendWord(to, static_cast<std::uint16_t>(number >> 16));
  AppendWord(to, static_cast<std::uint16_t>(number & 0xFFFF));
}

/// A text in a field of `size` bytes, of which at least the last is 0.
void AppendText(std::vector<std::uint8_t>& to, std::string_view text, std::size_t size) {
  const std::string_view kept = text.substr(0, size - 1);
  to.insert(to.end(), kept.begin(), kept.end());
  to.insert(to.end(), size - kept.size(), 0);
}

std::set<std::uint8_t> InterfacesOf(const bus::UsbDeviceInfo& device) {
  std::set<std::uint8_t> interfaces;
  for (const bus::AlternateSetting& setting : device.AlternateSettings) {
    interfaces.insert(setting.Interface);
  }
  return interfaces;
}

/// Class, subclass and protocol of an interface's setting 0.
std::array<std::uint8_t, 3> ClassOf(const bus::UsbDeviceInfo& device, std::uint8_t interface) {
  constexpr std::uint8_t kInterfaceType = 4;
  constexpr std::size_t kInterfaceSize = 9;
  const std::vector<std::uint8_t>& bytes = device.Configuration;
  for (std::size_t at = 0; at + kInterfaceSize <= bytes.size() && bytes[at] != 0; at += bytes[at]) {
    if (bytes[at + 1] == kInterfaceType && bytes[at + 2] == interface) {
      return {bytes[at + 5], bytes[at + 6], bytes[at + 7]};
    }
  }
  return {};
}

void AppendHeader(std::vector<std::uint8_t>& to, Command command, std::uint32_t sequenceNumber) {
  AppendLong(to, static_cast<std::uint32_t>(command));
  AppendLong(to, sequenceNumber);
  // Device, direction and endpoint stay 0: the client knows them.
  to.insert(to.end(), 12, 0);
}

}  // namespace

OperationHeader DecodeOperationHeader(std::span<const std::uint8_t> bytes) {
  return {Word(bytes, 0), Word(bytes, 2)};
}

void AppendOperationHeader(std::vector<std::uint8_t>& to, Operation operation,
                           OperationStatus status) {
  AppendWord(to, kVersion);
  AppendWord(to, static_cast<std::uint16_t>(operation));
  AppendLong(to, static_cast<std::uint32_t>(status));
}

void AppendDevice(std::vector<std::uint8_t>& to, const DeviceName& name,
                  const bus::UsbDeviceInfo& device) {
  const auto& descriptor = device.DeviceDescriptor;
  AppendText(to, name.Path, kPathSize);
  AppendText(to, name.BusId, kBusIdSize);
  AppendLong(to, name.BusNumber);
  AppendLong(to, name.DeviceNumber);
  AppendLong(to, kHighSpeed);
  AppendWord(to, device.Vendor);
  AppendWord(to, device.Product);
  AppendWord(to, static_cast<std::uint16_t>(descriptor[13] << 8 | descriptor[12]));  // release
  to.insert(to.end(), {descriptor[4], descriptor[5], descriptor[6]});  // class, subclass, protocol
  to.push_back(device.Configuration[5]);                               // its value
  to.push_back(descriptor[17]);                                        // configurations
  to.push_back(device.Configuration[4]);                               // interfaces
}

void AppendDeviceList(std::vector<std::uint8_t>& to, const DeviceName& name,
                      const bus::UsbDeviceInfo& device) {
  AppendLong(to, 1);
  AppendDevice(to, name, device);
  for (const std::uint8_t interface : InterfacesOf(device)) {
    const auto triple = ClassOf(device, interface);
    to.insert(to.end(), triple.begin(), triple.end());
    to.push_back(0);
  }
}

RequestHeader DecodeRequestHeader(std::span<const std::uint8_t> bytes) {
  RequestHeader header{.Command = Long(bytes, 0),
                       .SequenceNumber = Long(bytes, 4),
                       .DeviceId = Long(bytes, 8),
                       .Direction = Long(bytes, 12),
                       .Endpoint = Long(bytes, 16)};
  if (header.Command == static_cast<std::uint32_t>(Command::Unlink)) {
    header.UnlinkedSequenceNumber = Long(bytes, 20);
  } else {
    header.Length = Long(bytes, 24);
    header.NumberOfPackets = Long(bytes, 32);
    std::copy_n(bytes.begin() + 40, header.Setup.size(), header.Setup.begin());
  }
  return header;
}

PacketDescriptor DecodePacketDescriptor(std::span<const std::uint8_t> bytes) {
  return {Long(bytes, 0), Long(bytes, 4), Long(bytes, 8),
          static_cast<std::int32_t>(Long(bytes, 12))};
}

void AppendPacketDescriptor(std::vector<std::uint8_t>& to, const PacketDescriptor& packet) {
  AppendLong(to, packet.Offset);
  AppendLong(to, packet.Length);
  AppendLong(to, packet.ActualLength);
  AppendLong(to, static_cast<std::uint32_t>(packet.Status));
}

void AppendSubmitReply(std::vector<std::uint8_t>& to, const SubmitReply& reply) {
  AppendHeader(to, Command::ReturnSubmit, reply.SequenceNumber);
  AppendLong(to, static_cast<std::uint32_t>(reply.Status));
  AppendLong(to, reply.ActualLength);
  AppendLong(to, reply.StartFrame);
  AppendLong(to, reply.NumberOfPackets);
  AppendLong(to, reply.ErrorCount);
  to.insert(to.end(), 8, 0);
}

void AppendUnlinkReply(std::vector<std::uint8_t>& to, std::uint32_t sequenceNumber,
                       std::int32_t status) {
  AppendHeader(to, Command::ReturnUnlink, sequenceNumber);
  AppendLong(to, static_cast<std::uint32_t>(status));
  to.insert(to.end(), 24, 0);
}

}  // namespace lidcam::serve::usbip
