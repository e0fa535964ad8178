#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "bus/capture/usb_record.h"

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
  std::uint32_t FirstMicroframe = 0;  ///< bus time of the first packet; 0 if not told

  friend bool operator==(const RecordedStream&, const RecordedStream&) = default;
};

/// What a capture tells about one device.
struct RecordedDevice {
  DeviceAddress Address;
  std::optional<UsbIdentity> Identity;  ///< absent if the capture began after enumeration
  std::uint64_t Records = 0;
  std::uint64_t ControlTransfers = 0;
  std::uint64_t RegisterRequests = 0;              ///< vendor requests in the camera's form
  std::uint64_t SettingRequests = 0;               ///< SET_INTERFACE
  std::map<std::uint8_t, RecordedStream> Streams;  ///< by endpoint address

  /// Endpoint with the most isochronous IN data, the lowest of equals; absent without any.
  [[nodiscard]] std::optional<std::uint8_t> StreamEndpoint() const;
};

/// Whether the identity is one of the seven that the camera comes under.
[[nodiscard]] bool IsCameraIdentity(const UsbIdentity& identity);

/// All devices of a capture, by address. Traffic to address 0, which every device has until it gets
/// its own, belongs to none of them.
///
/// Reads the file from begin to end, holding one record at a time.
/// Throws CaptureError if the file can't be read to its end as a USB capture.
[[nodiscard]] std::vector<RecordedDevice> ListRecordedDevices(const std::string& path);

/// One line for the user: address, identity, amounts of traffic, and what can't be known.
[[nodiscard]] std::string Describe(const RecordedDevice& device);

/// What a replay of the device has to do without, for the user: identity, sensor, picture format.
/// Empty if the capture tells all of them.
[[nodiscard]] std::vector<std::string> UnknownOf(const RecordedDevice& device);

/// A capture file and the camera found in it.
class CaptureSource {
 public:
  /// Finds the camera by its descriptors, else by its register requests, else by isochronous IN
  /// traffic; a device known to be something else is passed over.
  ///
  /// @param address  names the device; nothing is then asked of it
  /// Throws CaptureError if the file can't be read, holds no such device or more than one.
  explicit CaptureSource(const std::string& path, std::optional<DeviceAddress> address = {});

  [[nodiscard]] const std::string& Path() const { return path_; }
  [[nodiscard]] const RecordedDevice& Device() const { return device_; }

  /// The endpoint of the picture stream. Throws CaptureError if the device sent no isochronous data.
  [[nodiscard]] std::uint8_t StreamEndpoint() const;

 private:
  std::string path_;
  RecordedDevice device_;
};

}  // namespace lidcam::bus
