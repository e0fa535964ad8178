#include "bus/capture/files/pcap_file.h"

#include <fcntl.h>
#include <pcap/pcap.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "base/time_units.h"

namespace lidcam::bus {
namespace {

bool IsTruncation(const std::string& reason) {
  return reason.find("truncated") != std::string::npos;
}

constexpr const char* kStandardOutput = "-";

bool IsDeviceOrPipe(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

/// File offset of the end of the last whole record, by the lengths in the records' headers.
off_t LengthOfWholeRecords(int file) {
  constexpr off_t kFileHeader = 24;
  struct stat status {};
  if (fstat(file, &status) != 0) return 0;
  off_t whole = 0;
  off_t next = kFileHeader;
  std::array<std::uint32_t, 4> header{};  // seconds, microseconds, captured length, length
  constexpr ssize_t kHeaderSize = sizeof(header);
  while (next <= status.st_size) {
    whole = next;
    if (pread(file, header.data(), sizeof(header), whole) != kHeaderSize) break;
    next = whole + kHeaderSize + static_cast<off_t>(header[2]);
  }
  return whole > kFileHeader ? whole : 0;
}

/// Flushes a file to the disk; pipes and devices fail with these errors.
int FlushDirectly(int descriptor) {
  const bool isFlushed =
      fsync(descriptor) == 0 || errno == EINVAL || errno == ENOTSUP || errno == EROFS;
  if (!isFlushed) return errno;
  // pcap_dump_close() does not return the result of closing: a duplicate is closed before it.
  const int duplicate = dup(descriptor);
  return duplicate >= 0 && close(duplicate) == 0 ? 0 : errno;
}

}  // namespace

std::int64_t CaptureTime(std::int64_t seconds, std::int64_t microseconds) {
  constexpr std::int64_t kLatest = std::int64_t{4} << 32;
  if (seconds < 0 || seconds > kLatest || microseconds < 0 ||
      microseconds >= base::kMicrosecondsPerSecond) {
    throw CaptureError("time stamp of " + std::to_string(seconds) + " s and " +
                       std::to_string(microseconds) + " us");
  }
  return seconds * base::kMicrosecondsPerSecond + microseconds;
}

void PcapReader::Closer::operator()(pcap* file) const {
  pcap_close(file);
}

PcapReader::PcapReader(std::string path) : path_(std::move(path)), input_(path_) {
  StreamHandle stream = input_.TakeStream();
  std::array<char, PCAP_ERRBUF_SIZE> reason{};
  file_.reset(pcap_fopen_offline(stream.get(), reason.data()));
  if (!file_) RefuseHeader(reason.data());
  static_cast<void>(stream.release());  // closed with file_
}

void PcapReader::RefuseHeader(const std::string& reason) const {
  std::string text = ": not a capture file (" + reason + ")";
  if (IsTruncation(reason)) text = ": cut off within the file header";
  if (!input_.Damage().empty()) text = ": damaged (" + input_.Damage() + ")";
  throw CaptureError(CaptureName(path_) + text + kWantedCapture);
}

PcapReader::~PcapReader() = default;

int PcapReader::LinkType() const {
  return pcap_datalink(file_.get());
}

std::string PcapReader::LinkTypeName() const {
  const char* name = pcap_datalink_val_to_name(LinkType());
  return name != nullptr ? name : std::to_string(LinkType());
}

bool PcapReader::Next(PcapPacket& packet) {
  pcap_pkthdr* header = nullptr;
  const u_char* bytes = nullptr;
  const int result = pcap_next_ex(file_.get(), &header, &bytes);
  if (result == PCAP_ERROR_BREAK) {
    isCutOff_ = input_.IsCut();
    return false;
  }
  const std::string where = CaptureName(path_) + ": record " + std::to_string(recordNumber_ + 1);
  if (result != 1) {
    const std::string text = pcap_geterr(file_.get());
    isCutOff_ = IsTruncation(text) && input_.Damage().empty();
    if (isCutOff_) return false;
    ++recordNumber_;
    throw CaptureError(where + " can't be read (" +
                       (input_.Damage().empty() ? text : input_.Damage()) + ")");
  }
  ++recordNumber_;
  try {
    packet.TimeMicroseconds = CaptureTime(header->ts.tv_sec, header->ts.tv_usec);
  } catch (const CaptureError& error) {
    throw CaptureError(where + ": " + error.what());
  }
  packet.Bytes = {bytes, header->caplen};
  packet.OriginalLength = header->len;
  return true;
}

void PcapWriter::Closer::operator()(pcap* file) const {
  pcap_close(file);
}

PcapWriter::PcapWriter(const std::string& path, int linkType)
    : path_(path == kStandardOutput ? "standard output" : path), finalPath_(path) {
  // Checked now: at the end, the failure would lose all captured data.
  if (std::error_code ignored; std::filesystem::is_directory(finalPath_, ignored)) Fail(EISDIR);
  // The handle without a device gives the file header its link type and record limit.
  file_.reset(pcap_open_dead(linkType, static_cast<int>(kLargestRecord)));
  if (!file_) throw CaptureError(path_ + ": no memory for the capture file");
  OpenDumper(linkType);
}

PcapWriter::~PcapWriter() {
  Discard();
}

int PcapWriter::OpenFile() {
  if (finalPath_ == kStandardOutput) return fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  if (IsDeviceOrPipe(finalPath_)) return open(finalPath_.c_str(), O_WRONLY | O_CLOEXEC);
  if (const int error = replacement_.Open(finalPath_); error != 0) {
    errno = error;
    return -1;
  }
  return fcntl(replacement_.Descriptor(), F_DUPFD_CLOEXEC, 0);
}

void PcapWriter::OpenDumper(int linkType) {
  const int descriptor = OpenFile();
  if (descriptor < 0) Fail(errno);
  StreamHandle file{fdopen(descriptor, "wb")};
  if (!file) {
    const int error = errno;
    close(descriptor);
    Discard();
    Fail(error);
  }
  errno = 0;
  dumper_ = pcap_dump_fopen(file_.get(), file.get());
  if (dumper_ == nullptr) {
    const int error = errno;
    Discard();
    if (error == 0) {
      throw CaptureError(path_ + ": link type " + std::to_string(linkType) +
                         " can't be written to a capture file");
    }
    Fail(error);
  }
  static_cast<void>(file.release());  // closed with dumper_
}

void PcapWriter::Write(std::int64_t timeMicroseconds, std::span<const std::uint8_t> bytes) {
  if (dumper_ == nullptr) throw CaptureError(path_ + ": the capture is closed");
  if (bytes.size() > kLargestRecord) {
    throw CaptureError(path_ + ": a record of " + std::to_string(bytes.size()) +
                       " bytes; the largest has " + std::to_string(kLargestRecord));
  }
  const std::int64_t time = std::max<std::int64_t>(timeMicroseconds, 0);
  pcap_pkthdr header{};
  header.ts.tv_sec = static_cast<decltype(header.ts.tv_sec)>(time / base::kMicrosecondsPerSecond);
  header.ts.tv_usec = static_cast<decltype(header.ts.tv_usec)>(time % base::kMicrosecondsPerSecond);
  header.caplen = static_cast<bpf_u_int32>(bytes.size());
  header.len = header.caplen;
  errno = 0;
  pcap_dump(reinterpret_cast<u_char*>(dumper_), &header, bytes.data());
  if (std::ferror(pcap_dump_file(dumper_)) != 0) Fail(errno);
}

void PcapWriter::Close() {
  if (dumper_ == nullptr) throw CaptureError(path_ + ": the capture is closed");
  std::FILE* stream = pcap_dump_file(dumper_);
  errno = 0;
  if (pcap_dump_flush(dumper_) != 0 || std::ferror(stream) != 0) Fail(errno);
  const int error = replacement_.IsOpen() ? replacement_.Flush() : FlushDirectly(fileno(stream));
  if (error != 0) Fail(error);
  EndDump();
  if (!replacement_.IsOpen()) return;
  if (const int reason = replacement_.Rename(); reason != 0) Fail(reason);
}

void PcapWriter::KeepWhole() {
  EndDump();
  if (!replacement_.IsOpen()) return;
  const int file = replacement_.Descriptor();
  const off_t whole = LengthOfWholeRecords(file);
  if (whole == 0) return Discard();
  int error = ftruncate(file, whole) == 0 ? replacement_.Flush() : errno;
  if (error == 0) error = replacement_.Rename();
  if (error == 0) return;
  const std::string place = replacement_.IsOpen() ? replacement_.Keep() : finalPath_;
  throw CaptureError(path_ + ": can't be kept under its name: " + ErrorText(error) +
                     "; what was captured is in " + place);
}

// Writes as much of the buffer as possible.
void PcapWriter::EndDump() {
  if (dumper_ != nullptr) pcap_dump_close(dumper_);
  dumper_ = nullptr;
}

void PcapWriter::Discard() {
  EndDump();
  replacement_.Discard();
}

void PcapWriter::Fail(int error) {
  EndDump();
  throw CaptureError(path_ + ": can't write the capture: " + ErrorText(error != 0 ? error : EIO));
}

}  // namespace lidcam::bus
