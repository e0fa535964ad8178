#pragma once

#include <cstdint>
#include <string>

#include "bus/capture/files/pcap_file.h"
#include "bus/capture/records/usb_record.h"

namespace lidcam::bus {

/// Reads the USB events of a capture of either system, one at a time.
class CaptureReader {
 public:
  /// Throws CaptureError if the file is no capture, or one of something else than USB.
  explicit CaptureReader(const std::string& path);

  [[nodiscard]] const std::string& Path() const { return file_.Path(); }
  [[nodiscard]] std::uint64_t RecordNumber() const { return file_.RecordNumber(); }

  /// Once the end has been reached: whether the file was cut off there.
  [[nodiscard]] bool IsCutOff() const { return file_.IsCutOff(); }
  /// Records so far of which the capture system left too little to tell what they were.
  [[nodiscard]] std::uint64_t UselessRecords() const { return uselessRecords_; }

  /// Moves to the next event; its data live until the next call. False at the end of the file.
  ///
  /// A record that the capture system cut brings what is left of it; one of which too little is left
  /// is passed over. Throws CaptureError, with file, record number and reason, on a record that is
  /// malformed.
  bool Next(UsbRecord& record);

 private:
  void Decode(const PcapPacket& packet, UsbRecord& record) const;

  PcapReader file_;
  std::uint64_t uselessRecords_ = 0;
};

}  // namespace lidcam::bus
