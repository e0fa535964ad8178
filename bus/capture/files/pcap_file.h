#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "base/file_replacement.h"
#include "bus/capture/files/capture_error.h"
#include "bus/capture/files/capture_input.h"

struct pcap;
struct pcap_dumper;

namespace lidcam::bus {

/// Link types of the two USB capture systems, as in the file header.
inline constexpr int kLinkTypeUsbmon = 220;
inline constexpr int kLinkTypeUsbpcap = 249;

/// Largest record that is written: the limit of the common tools for USB captures of Linux.
inline constexpr std::size_t kLargestRecord = 262144;

/// One record of a capture file. The reader owns `Bytes`, which are valid until its next record.
struct PcapPacket {
  std::int64_t TimeMicroseconds = 0;    ///< since 1970
  std::span<const std::uint8_t> Bytes;  ///< the captured part
  std::size_t OriginalLength = 0;       ///< bytes on the wire; more than captured if cut
};

/// Combines seconds and microseconds of a capture.
///
/// Throws CaptureError for an implausible time: more than a million microseconds, or more than four
/// times the range of an unsigned 32-bit count of seconds.
[[nodiscard]] std::int64_t CaptureTime(std::int64_t seconds, std::int64_t microseconds);

/// Reads a pcap or pcapng file, or pipe, record by record; never holds more than one record.
class PcapReader {
 public:
  /// @param path  "-" for standard input
  /// Throws CaptureError if the file is missing, empty, cut within its header or not a capture.
  explicit PcapReader(std::string path);
  ~PcapReader();
  PcapReader(const PcapReader&) = delete;
  PcapReader& operator=(const PcapReader&) = delete;

  [[nodiscard]] const std::string& Path() const { return path_; }
  [[nodiscard]] int LinkType() const;
  /// Name of the link type for messages, or its number if it has no name.
  [[nodiscard]] std::string LinkTypeName() const;

  /// Reads the next record. False at the end of the file, also if that is within a record.
  ///
  /// Throws CaptureError, with the record's number, for an invalid record.
  bool Next(PcapPacket& packet);

  /// After the end has been reached: whether the last record is incomplete.
  [[nodiscard]] bool IsCutOff() const { return isCutOff_; }

  /// Number of the last record read, from 1 as in other tools; 0 before the first.
  [[nodiscard]] std::uint64_t RecordNumber() const { return recordNumber_; }

 private:
  struct Closer {
    void operator()(pcap* file) const;
  };

  [[noreturn]] void RefuseHeader(const std::string& reason) const;

  std::string path_;
  CaptureInput input_;
  std::unique_ptr<pcap, Closer> file_;
  std::uint64_t recordNumber_ = 0;
  bool isCutOff_ = false;
};

/// Writes a pcap file that gets its name only when it is complete.
///
/// The records go to a temporary file in the same folder, which is locked against other programs;
/// Close() flushes it to the disk and renames it. A writer destroyed before that leaves no new
/// file, and an existing file of the name unchanged; after a failure, KeepWhole() keeps the
/// complete records. A device or pipe of the name is written to directly, as is standard output.
class PcapWriter {
 public:
  /// @param path  "-" for standard output
  /// Throws CaptureError if the file can't be created.
  PcapWriter(const std::string& path, int linkType);
  ~PcapWriter();
  PcapWriter(const PcapWriter&) = delete;
  PcapWriter& operator=(const PcapWriter&) = delete;

  /// Appends a record. Throws CaptureError if it is larger than kLargestRecord or can't be written.
  void Write(std::int64_t timeMicroseconds, std::span<const std::uint8_t> bytes);

  /// Completes the file. Throws CaptureError if any byte of it did not reach the disk.
  void Close();

  /// After a failure: renames the file with the complete records that reached the disk. No effect
  /// without records, or for a device or pipe. Throws CaptureError if the file can't be renamed.
  void KeepWhole();

 private:
  struct Closer {
    void operator()(pcap* file) const;
  };

  int OpenFile();
  void OpenDumper(int linkType);
  void EndDump();
  void Discard();
  [[noreturn]] void Fail(int error);

  std::string path_;  ///< the name in messages
  std::string finalPath_;
  base::FileReplacement replacement_;  ///< not open if the path is written to directly
  std::unique_ptr<pcap, Closer> file_;
  pcap_dumper* dumper_ = nullptr;
};

}  // namespace lidcam::bus
