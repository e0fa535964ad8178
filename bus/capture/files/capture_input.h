#pragma once

#include <memory>
#include <string>

#include "bus/capture/files/decompression.h"

namespace lidcam::bus {

/// What an error adds about a file that is no capture.
inline constexpr const char* kWantedCapture = "; a USB capture in pcap or pcapng format is needed";

/// What messages call a capture: its path, or "standard input" for "-".
[[nodiscard]] std::string CaptureName(const std::string& path);

/// The bytes of a capture, from a file, a pipe or standard input ("-"), plain or compressed by gzip,
/// xz or Zstandard, whatever its name says.
///
/// A capture is read several times, and a pipe gives what it has only once: what comes out of one is
/// put into a temporary file at the first reading and stays there for the others, until the process
/// ends.
class CaptureInput {
 public:
  /// Throws CaptureError if the file is missing, empty or can't be read.
  explicit CaptureInput(const std::string& path);

  /// The stream of the capture's bytes; what ends it is told here, as long as this object lives.
  [[nodiscard]] StreamHandle TakeStream() { return std::move(stream_); }

  /// Whether the compressed data end before they should, once the stream has ended.
  [[nodiscard]] bool IsCut() const { return end_->IsCut; }
  /// Why the compressed data can't be read any further; empty if they can.
  [[nodiscard]] const std::string& Damage() const { return end_->Damage; }

 private:
  std::unique_ptr<DecompressionEnd> end_ = std::make_unique<DecompressionEnd>();
  StreamHandle stream_;
};

}  // namespace lidcam::bus
