#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "bus/capture/records/usb_record.h"

namespace lidcam::bus {

struct UsbIdentity {
  std::uint16_t Vendor = 0;
  std::uint16_t Product = 0;

  friend auto operator<=>(const UsbIdentity&, const UsbIdentity&) = default;
};

/// Isochronous IN traffic of one endpoint.
struct RecordedStream {
  std::uint64_t Packets = 0;
  std::uint64_t Bytes = 0;
  std::uint32_t FirstMicroframe = 0;  ///< bus time of the first packet; 0 if unknown

  friend bool operator==(const RecordedStream&, const RecordedStream&) = default;
};

/// A capture's information about one device.
struct RecordedDevice {
  DeviceAddress Address;
  std::optional<UsbIdentity> Identity;  ///< absent if the capture began after enumeration
  std::uint64_t Records = 0;
  std::uint64_t ControlTransfers = 0;
  std::uint64_t RegisterRequests = 0;              ///< vendor requests in the camera's form
  std::uint64_t SettingRequests = 0;               ///< SET_INTERFACE
  std::map<std::uint8_t, RecordedStream> Streams;  ///< by endpoint address
  std::uint64_t CutRecords = 0;                    ///< with missing data
  std::uint64_t MissingBytes = 0;                  ///< in these records
  std::size_t SnapLength = 0;                      ///< captured bytes of the longest cut record
  std::size_t LongestRecord = 0;                   ///< bytes, before it was cut

  /// Endpoint with the most isochronous IN data, the lowest of equals; absent without any.
  [[nodiscard]] std::optional<std::uint8_t> StreamEndpoint() const;
};

/// Whether the identity is one of the camera's seven.
[[nodiscard]] bool IsCameraIdentity(const UsbIdentity& identity);

/// A capture's contents.
struct CaptureSurvey {
  std::vector<RecordedDevice> Devices;  ///< by address
  std::uint64_t WholeRecords = 0;       ///< of all devices
  bool IsCutOff = false;                ///< it ends within a record, or within its compressed data
  std::uint64_t UselessRecords = 0;     ///< too short to decode
};

/// Reads a whole capture, holding one record at a time. Traffic to address 0, which every device
/// has until it is given its own, is assigned to none of them.
///
/// @param path  "-" for standard input
/// Throws CaptureError if the file can't be read to its end as a USB capture.
[[nodiscard]] CaptureSurvey SurveyCapture(const std::string& path);

/// The capture's missing parts, one line each for the user, with the remedy: its end, or the ends
/// of records.
[[nodiscard]] std::vector<std::string> NotesOn(const CaptureSurvey& survey);

/// The same for the missing ends of one device's records.
[[nodiscard]] std::vector<std::string> NotesOn(const RecordedDevice& device);

/// One line for the user: address, identity, amounts of traffic, and unknown properties.
[[nodiscard]] std::string Describe(const RecordedDevice& device);

/// The properties that a replay of the device lacks, for the user: identity, sensor, picture
/// format. Empty if the capture contains all of them.
[[nodiscard]] std::vector<std::string> UnknownOf(const RecordedDevice& device);

/// A capture file and the camera found in it.
class CaptureSource {
 public:
  /// Finds the camera by its descriptors, else by its register requests, else by isochronous IN
  /// traffic; a device known to be another one is skipped.
  ///
  /// @param path     "-" for standard input
  /// @param address  selects the device, without any further check
  /// Throws CaptureError if the file can't be read, or contains no such device or several.
  explicit CaptureSource(const std::string& path, std::optional<DeviceAddress> address = {});

  [[nodiscard]] const std::string& Path() const { return path_; }
  [[nodiscard]] const RecordedDevice& Device() const { return device_; }
  /// Whether the capture is incomplete at its end.
  [[nodiscard]] bool IsCutOff() const { return isCutOff_; }
  /// The missing parts of the capture and of the device, one line each for the user.
  [[nodiscard]] const std::vector<std::string>& Notes() const { return notes_; }

  /// The endpoint of the picture stream. Throws CaptureError if the device sent no isochronous data.
  [[nodiscard]] std::uint8_t StreamEndpoint() const;

 private:
  std::string path_;
  RecordedDevice device_;
  bool isCutOff_ = false;
  std::vector<std::string> notes_;
};

}  // namespace lidcam::bus
