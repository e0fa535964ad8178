#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "bus/capture/files/capture_error.h"
#include "bus/usb_bus.h"
#include "bus/usb_types.h"

namespace lidcam::bus {

/// A device's bus and address in a capture. Written "bus.device" in decimal.
struct DeviceAddress {
  std::uint16_t Bus = 0;
  std::uint16_t Device = 0;

  friend auto operator<=>(const DeviceAddress&, const DeviceAddress&) = default;
};

[[nodiscard]] std::string ToString(const DeviceAddress& address);

/// Reads "bus.device". Throws CaptureError, naming the text and the expected form.
[[nodiscard]] DeviceAddress ParseDeviceAddress(const std::string& text);

enum class TransferType : std::uint8_t {
  Isochronous = 0,
  Interrupt = 1,
  Control = 2,
  Bulk = 3,
  Other = 4,  ///< notes of the capture system itself, without USB traffic
};

enum class RecordEvent : std::uint8_t {
  Submit,    ///< the host submits the transfer to its controller
  Complete,  ///< the transfer is completed
  Refused,   ///< the controller did not take the transfer
};

/// The part of a control transfer that a record describes. usbmon writes one record for the
/// submission and one for the completion, older USBPcap one for each stage.
enum class ControlStage : std::uint8_t { Setup = 0, Data = 1, Status = 2, Complete = 3 };

/// One microframe in a record. `Offset` counts from the begin of the record's data.
struct RecordedPacket {
  std::int32_t Status = 0;  ///< negative errno or 0
  std::uint32_t Offset = 0;
  std::uint32_t Length = 0;    ///< bytes requested (submit) or transferred (complete)
  std::uint32_t Captured = 0;  ///< bytes of it in the record; set by the decoders

  friend bool operator==(const RecordedPacket&, const RecordedPacket&) = default;
};

/// One event on the bus, independent of the system that captured it.
struct UsbRecord {
  std::uint64_t Id = 0;  ///< equal in all records of a transfer; reused after its end
  std::int64_t TimeMicroseconds = 0;
  RecordEvent Event = RecordEvent::Submit;
  TransferType Type = TransferType::Control;
  DeviceAddress Address;
  std::uint8_t Endpoint = 0;         ///< endpoint address, bit 7 set for IN
  std::int32_t Status = 0;           ///< negative errno or 0; -EINPROGRESS at submission
  std::uint32_t TransferLength = 0;  ///< bytes requested (submit) or transferred (complete)
  ControlStage Stage = ControlStage::Setup;
  std::optional<SetupPacket> Setup;
  std::uint32_t Interval = 0;         ///< microframes between two packets; 0 for control
  std::uint32_t StartMicroframe = 0;  ///< bus time of the first packet; 0 if unknown
  std::uint32_t ErrorCount = 0;       ///< packets that failed
  std::uint32_t TransferFlags = 0;
  std::vector<RecordedPacket> Packets;
  std::span<const std::uint8_t> Data;  ///< part of the decoded bytes, and valid as long as they are
  std::size_t OriginalLength = 0;      ///< of the whole record, before the capture system cut it
  std::size_t MissingBytes = 0;        ///< bytes that the capture system cut off

  [[nodiscard]] bool IsIn() const { return (Endpoint & 0x80) != 0; }
};

/// The captured bytes of one of the record's isochronous packets.
[[nodiscard]] std::span<const std::uint8_t> PacketData(const UsbRecord& record,
                                                       const RecordedPacket& packet);

/// Converts a status to usbmon's negative errno, and back. An errno without a counterpart gives
/// UsbStatus::Failed.
[[nodiscard]] std::int32_t ErrnoFromStatus(UsbStatus status);
[[nodiscard]] UsbStatus StatusFromErrno(std::int32_t status);

/// Decodes a record of link type 220: 64-byte header, packet descriptors, data at its offsets.
///
/// @param originalLength  bytes before the capture system cut the record: packets beyond the cut
///                        have `Captured` below `Length`. In a record that was not cut, data
///                        beyond its end are an error.
/// @param record          all fields are overwritten
/// Throws CaptureError with the reason if the record is inconsistent.
void DecodeUsbmonRecord(std::span<const std::uint8_t> bytes, std::size_t originalLength,
                        UsbRecord& record);

/// Decodes a record of link type 249: packed header, control stage or isochronous part, data.
/// Start frames, which are milliseconds there, and status codes are converted to those of
/// UsbRecord. Cut records and errors as with DecodeUsbmonRecord().
void DecodeUsbpcapRecord(std::span<const std::uint8_t> bytes, std::size_t originalLength,
                         std::int64_t timeMicroseconds, UsbRecord& record);

/// Encodes a record for link type 220. The length of an isochronous transfer is the sum of its
/// packets; if the record carries data, `Data` must reach to the end of the last packet.
///
/// @param bytes  replaced by the encoded record
void EncodeUsbmonRecord(const UsbRecord& record, std::vector<std::uint8_t>& bytes);

}  // namespace lidcam::bus
