#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "bus/enumeration.h"
#include "bus/usb_types.h"

// The USB/IP protocol, version 1.1.1, as the kernel's documentation defines it. All numbers are
// big-endian.
namespace lidcam::serve::usbip {

inline constexpr std::uint16_t kVersion = 0x0111;
inline constexpr std::size_t kBusIdSize = 32;

// Messages before the import.

inline constexpr std::size_t kOperationHeaderSize = 8;

enum class Operation : std::uint16_t {
  RequestDeviceList = 0x8005,
  ReplyDeviceList = 0x0005,
  RequestImport = 0x8003,
  ReplyImport = 0x0003,
};

enum class OperationStatus : std::uint32_t { Ok = 0, Busy = 2, Failed = 3, NoDevice = 4 };

struct OperationHeader {
  std::uint16_t Version = 0;
  std::uint16_t Code = 0;
};

/// @param bytes  kOperationHeaderSize of them
[[nodiscard]] OperationHeader DecodeOperationHeader(std::span<const std::uint8_t> bytes);

void AppendOperationHeader(std::vector<std::uint8_t>& to, Operation operation,
                           OperationStatus status);

/// Names and numbers of a served device.
struct DeviceName {
  std::string_view Path;
  std::string_view BusId;
  std::uint32_t BusNumber = 0;
  std::uint32_t DeviceNumber = 0;

  /// The number by which requests name the device.
  [[nodiscard]] constexpr std::uint32_t Id() const { return BusNumber << 16 | DeviceNumber; }
};

/// The 312 bytes that describe a high-speed device.
void AppendDevice(std::vector<std::uint8_t>& to, const DeviceName& name,
                  const bus::UsbDeviceInfo& device);

/// The device list without its header: the number of devices, one device, and 4 bytes for each
/// interface.
void AppendDeviceList(std::vector<std::uint8_t>& to, const DeviceName& name,
                      const bus::UsbDeviceInfo& device);

// Messages after the import.

inline constexpr std::size_t kHeaderSize = 48;
inline constexpr std::size_t kPacketDescriptorSize = 16;

enum class Command : std::uint32_t { Submit = 1, Unlink = 2, ReturnSubmit = 3, ReturnUnlink = 4 };

/// The header of a request: Submit or Unlink.
struct RequestHeader {
  std::uint32_t Command = 0;
  std::uint32_t SequenceNumber = 0;
  std::uint32_t DeviceId = 0;
  std::uint32_t Direction = 0;  ///< 0 OUT, 1 IN
  std::uint32_t Endpoint = 0;   ///< without the direction bit

  // Submit:
  std::uint32_t Length = 0;           ///< of the transfer's buffer
  std::uint32_t NumberOfPackets = 0;  ///< 0 or 0xFFFFFFFF: the transfer is not isochronous
  std::array<std::uint8_t, 8> Setup{};

  // Unlink:
  std::uint32_t UnlinkedSequenceNumber = 0;
};

/// @param bytes  kHeaderSize of them
[[nodiscard]] RequestHeader DecodeRequestHeader(std::span<const std::uint8_t> bytes);

/// One packet of an isochronous transfer.
struct PacketDescriptor {
  std::uint32_t Offset = 0;
  std::uint32_t Length = 0;
  std::uint32_t ActualLength = 0;
  std::int32_t Status = 0;  ///< 0 or a negative errno
};

/// @param bytes  kPacketDescriptorSize of them
[[nodiscard]] PacketDescriptor DecodePacketDescriptor(std::span<const std::uint8_t> bytes);
void AppendPacketDescriptor(std::vector<std::uint8_t>& to, const PacketDescriptor& packet);

/// The header's fields of a completed transfer.
struct SubmitReply {
  std::uint32_t SequenceNumber = 0;
  std::int32_t Status = 0;  ///< 0 or a negative errno
  std::uint32_t ActualLength = 0;
  std::uint32_t StartFrame = 0;
  std::uint32_t NumberOfPackets = 0;
  std::uint32_t ErrorCount = 0;  ///< packets whose status is not 0
};

void AppendSubmitReply(std::vector<std::uint8_t>& to, const SubmitReply& reply);
void AppendUnlinkReply(std::vector<std::uint8_t>& to, std::uint32_t sequenceNumber,
                       std::int32_t status);

}  // namespace lidcam::serve::usbip
