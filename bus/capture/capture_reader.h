#pragma once

#include <cstdint>
#include <string>

#include "bus/capture/pcap_file.h"
#include "bus/capture/usb_record.h"

namespace lidcam::bus {

/// Reads the USB events of a capture of either system, one at a time.
class CaptureReader {
 public:
  /// Throws CaptureError if the file is no capture, or one of something else than USB.
  explicit CaptureReader(const std::string& path);

  [[nodiscard]] const std::string& Path() const { return file_.Path(); }
  [[nodiscard]] std::uint64_t RecordNumber() const { return file_.RecordNumber(); }

  /// Moves to the next event; its data live until the next call. False at the end of the file.
  ///
  /// Throws CaptureError, with file, record number and reason, on a record that is malformed.
  bool Next(UsbRecord& record);

 private:
  PcapReader file_;
};

}  // namespace lidcam::bus
