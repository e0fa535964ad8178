#pragma once

#include <cstdint>
#include <string>

#include "bus/capture/files/pcap_file.h"
#include "bus/capture/records/usb_record.h"

namespace lidcam::bus {

/// Reads the USB events of a capture of either system, one at a time.
class CaptureReader {
 public:
  /// Throws CaptureError if the file is no capture, or not a USB capture.
  explicit CaptureReader(const std::string& path);

  [[nodiscard]] const std::string& Path() const { return file_.Path(); }
  [[nodiscard]] std::uint64_t RecordNumber() const { return file_.RecordNumber(); }

  /// After the end has been reached: whether the last record is incomplete.
  [[nodiscard]] bool IsCutOff() const { return file_.IsCutOff(); }
  /// Number of records so far that the capture system cut so short that they can't be decoded.
  [[nodiscard]] std::uint64_t UselessRecords() const { return uselessRecords_; }

  /// Reads the next event; its data are valid until the next call. False at the end of the file.
  ///
  /// A record that the capture system cut comes with the remaining data; one that is too short
  /// to decode is skipped. Throws CaptureError, with file, record number and reason, for a
  /// malformed record.
  bool Next(UsbRecord& record);

 private:
  void Decode(const PcapPacket& packet, UsbRecord& record) const;

  PcapReader file_;
  std::uint64_t uselessRecords_ = 0;
};

}  // namespace lidcam::bus
