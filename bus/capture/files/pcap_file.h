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

/// Link types of the two USB capture systems, as they stand in the file header.
inline constexpr int kLinkTypeUsbmon = 220;
inline constexpr int kLinkTypeUsbpcap = 249;

/// Largest record that we write: the limit of the common tools for USB captures of Linux.
inline constexpr std::size_t kLargestRecord = 262144;

/// One record of a capture file. `Bytes` belongs to the reader and lives until its next record.
struct PcapPacket {
  std::int64_t TimeMicroseconds = 0;    ///< since 1970
  std::span<const std::uint8_t> Bytes;  ///< what was captured
  std::size_t OriginalLength = 0;       ///< bytes on the wire; more than captured if cut
};

/// Combines seconds and microseconds of a capture.
///
/// Throws CaptureError if the time can't be that of a capture: more than a million microseconds, or
/// more seconds than an unsigned 32-bit count holds four times over.
[[nodiscard]] std::int64_t CaptureTime(std::int64_t seconds, std::int64_t microseconds);

/// Reads a pcap or pcapng file, or pipe, record by record; never holds more than one record.
class PcapReader {
 public:
  /// @param path  "-" for standard input
  /// Throws CaptureError if the file is missing, empty, cut within its header or no capture.
  explicit PcapReader(std::string path);
  ~PcapReader();
  PcapReader(const PcapReader&) = delete;
  PcapReader& operator=(const PcapReader&) = delete;

  [[nodiscard]] const std::string& Path() const { return path_; }
  [[nodiscard]] int LinkType() const;
  /// Name of the link type for messages, its number where it has no name.
  [[nodiscard]] std::string LinkTypeName() const;

  /// Moves to the next record. False at the end of the file, also where that is within a record.
  ///
  /// Throws CaptureError, with the record's number, if the record can't be one.
  bool Next(PcapPacket& packet);

  /// Once the end has been reached: whether the file was cut off there.
  [[nodiscard]] bool IsCutOff() const { return isCutOff_; }

  /// Number of the record read last, from 1 as other tools count them; 0 before the first.
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

/// Writes a pcap file that appears under its name only when it is whole.
///
/// The records go to a temporary file in the same folder, which other programs see locked; Close()
/// brings it to the disk and renames it. A writer destroyed before that leaves nothing behind and a file
/// that stood under the name before as it was; of one that failed, KeepWhole() keeps what it has. A
/// device or pipe under the name is written to directly, as is standard output.
class PcapWriter {
 public:
  /// @param path  "-" for standard output
  /// Throws CaptureError if the file can't be made.
  PcapWriter(const std::string& path, int linkType);
  ~PcapWriter();
  PcapWriter(const PcapWriter&) = delete;
  PcapWriter& operator=(const PcapWriter&) = delete;

  /// Appends a record. Throws CaptureError if it is larger than kLargestRecord or can't be written.
  void Write(std::int64_t timeMicroseconds, std::span<const std::uint8_t> bytes);

  /// Completes the file. Throws CaptureError if any byte of it did not reach the disk.
  void Close();

  /// After a failure: brings the records that reached the file whole under its name. Nothing if there are
  /// none, or for a device or pipe. Throws CaptureError if the file can't be had.
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

  std::string path_;  ///< as messages tell it
  std::string finalPath_;
  base::FileReplacement replacement_;  ///< not open when written directly
  std::unique_ptr<pcap, Closer> file_;
  pcap_dumper* dumper_ = nullptr;
};

}  // namespace lidcam::bus
