#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "bus/capture/records/usb_record.h"

namespace lidcam::bus {

/// One control transfer of a capture, assembled from its records.
struct ControlExchange {
  SetupPacket Setup;
  std::vector<std::uint8_t> Data;  ///< of the data stage, in the direction of `Setup`
  std::int32_t Status = 0;         ///< negative errno or 0
  bool Completed = false;          ///< the capture contains its completion
};

/// Collects the control transfers of one device, in the order in which they were submitted.
class ControlHistory {
 public:
  /// Adds one record of the device; records of other transfers than control are ignored.
  void Add(const UsbRecord& record);

  [[nodiscard]] const std::vector<ControlExchange>& Exchanges() const { return exchanges_; }

 private:
  std::vector<ControlExchange> exchanges_;
  std::map<std::uint64_t, std::size_t> pending_;  ///< index of the open exchange by transfer id
};

/// GET_DESCRIPTOR to the device itself, for any descriptor.
[[nodiscard]] bool IsGetDescriptor(const SetupPacket& setup);
/// GET_DESCRIPTOR of the device descriptor.
[[nodiscard]] bool IsGetDeviceDescriptor(const SetupPacket& setup);
/// SET_INTERFACE: wIndex is the interface, wValue the alternate setting.
[[nodiscard]] bool IsSetInterface(const SetupPacket& setup);
/// One of the camera's register requests 0xA0 and 0xA1, addresses 0xFF00 to 0xFFFF.
[[nodiscard]] bool IsRegisterRequest(const SetupPacket& setup);
/// A write to the select register, which determines the meaning of the next request's addresses.
[[nodiscard]] bool IsSelectWrite(const SetupPacket& setup);

}  // namespace lidcam::bus
