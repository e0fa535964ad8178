#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "bus/capture/replay/capture_reader.h"
#include "bus/capture/replay/capture_source.h"

namespace lidcam::bus {

/// One packet of the recorded picture stream.
struct IsochronousPayload {
  std::span<const std::uint8_t> Data;  ///< empty for a microframe without data
  UsbStatus Status = UsbStatus::Ok;
  std::uint32_t Microframe = 0;  ///< bus time; never decreases within a capture
};

/// Gives the isochronous IN packets of a recorded device in bus order.
///
/// Transfers that the recorded host cancelled are omitted, as the host ignored them. Holds one
/// record of the file at a time, so that captures may be larger than the memory.
class IsochronousPacketReader {
 public:
  /// Throws CaptureError if the device sent no isochronous data.
  explicit IsochronousPacketReader(const CaptureSource& source);
  /// Throws CaptureError if the file can't be opened; `endpoint` need not occur in it.
  IsochronousPacketReader(const std::string& path, DeviceAddress address, std::uint8_t endpoint);

  /// Reads the next packet; its data are valid until the next call. False at the end.
  ///
  /// A packet that the capture system cut comes with its remaining data and UsbStatus::Failed.
  /// Throws CaptureError for a malformed record.
  bool Next(IsochronousPayload& payload);

  /// After the end has been reached: whether the last record is incomplete.
  [[nodiscard]] bool IsCutOff() const { return reader_.IsCutOff(); }

  /// Bytes of the packets so far that were on the bus, but are not in the capture.
  [[nodiscard]] std::uint64_t MissingBytes() const { return missingBytes_; }

 private:
  bool NextRecord();

  CaptureReader reader_;
  DeviceAddress address_;
  std::uint8_t endpoint_;
  UsbRecord record_;
  std::size_t nextPacket_ = 0;
  std::uint32_t microframe_ = 0;
  std::uint64_t missingBytes_ = 0;
};

/// Size of a stream's frames, estimated from the stream alone.
struct FrameSizeEstimate {
  std::uint64_t Bytes = 0;        ///< most frequent distance between two start markers
  std::uint64_t Occurrences = 0;  ///< frames of that size
  std::uint64_t Frames = 0;       ///< frames between two start markers

  friend bool operator==(const FrameSizeEstimate&, const FrameSizeEstimate&) = default;
};

/// Estimates the raw frame size of a capture without the format, from the packets that begin with
/// 0xFF 0xD8. Reads the stream to its end; of equally frequent sizes the larger is used. Absent
/// with fewer than two start markers.
[[nodiscard]] std::optional<FrameSizeEstimate> EstimateRawFrameSize(
    IsochronousPacketReader& packets);

}  // namespace lidcam::bus
