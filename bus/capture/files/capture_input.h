#pragma once

#include <memory>
#include <string>

#include "bus/capture/files/decompression.h"

namespace lidcam::bus {

/// Appended to an error about a file that is no capture.
inline constexpr const char* kWantedCapture = "; a USB capture in pcap or pcapng format is needed";

/// A capture's name in messages: its path, or "standard input" for "-".
[[nodiscard]] std::string CaptureName(const std::string& path);

/// The bytes of a capture, from a file, a pipe or standard input ("-"), plain or compressed by
/// gzip, xz or Zstandard; the file's name does not matter.
///
/// A capture is read several times, but a pipe only once: its bytes are copied to a temporary file
/// at the first read, which serves the other reads until the process ends.
class CaptureInput {
 public:
  /// Throws CaptureError if the file is missing, empty or can't be read.
  explicit CaptureInput(const std::string& path);

  /// The stream of the capture's bytes. This object, which must outlive it, gets the cause of its
  /// end.
  [[nodiscard]] StreamHandle TakeStream() { return std::move(stream_); }

  /// Whether the compressed data are incomplete, once the stream has ended.
  [[nodiscard]] bool IsCut() const { return end_->IsCut; }
  /// Why the rest of the compressed data can't be read; empty if it can.
  [[nodiscard]] const std::string& Damage() const { return end_->Damage; }

 private:
  std::unique_ptr<DecompressionEnd> end_ = std::make_unique<DecompressionEnd>();
  StreamHandle stream_;
};

}  // namespace lidcam::bus
