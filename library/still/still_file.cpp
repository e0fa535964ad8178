#include "library/still/still_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "driver/frame/raw/raw_sizes.h"
#include "library/base/command_error.h"
#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/nt/files/files.h"
#include "platform/host/nt/system/status_words.h"
#include "testbed/installed_driver.h"

namespace lidcam::app {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMarksSize = 4;

constexpr mode_t kLockFileMode = 0644;

std::optional<PictureSize> SizeOfIndex(std::uint16_t sizeIndex) {
  for (const RawPictureSize& size : kRawPictureSizes) {
    if (size.StillIndex == sizeIndex) return PictureSize{size.Width, size.Height};
  }
  return std::nullopt;
}

[[noreturn]] void Fail(const std::string& reason) {
  throw CommandError("still '" + StillFilePath().string() + "' " + reason);
}

std::uint16_t MarkAt(const std::vector<std::uint8_t>& bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}

// The error and its remedy, as far as the status shows them.
std::string ReasonOf(std::uint32_t status) {
  if (status == static_cast<std::uint32_t>(STATUS_DISK_FULL)) {
    return "its disk is full; free some space on it";
  }
  if (status == static_cast<std::uint32_t>(STATUS_ACCESS_DENIED)) {
    return "access is denied; make its folder one that you may write to";
  }
  return host::StatusText(static_cast<NTSTATUS>(status));
}

}  // namespace

StillLock::StillLock(const fs::path& home) {
  const std::string name = (home / "still.lock").string();
  descriptor_ = ::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kLockFileMode);
  if (descriptor_ >= 0 && ::flock(descriptor_, LOCK_EX | LOCK_NB) == 0) return;
  const int error = errno;
  if (descriptor_ >= 0) ::close(descriptor_);
  if (error == EWOULDBLOCK) {
    throw CommandError("lock '" + name +
                       "' is held by another lidcam that takes a still: wait for it to end");
  }
  throw CommandError("lock '" + name + "' can't be taken: " + std::strerror(error));
}

StillLock::~StillLock() {
  ::close(descriptor_);
}

StillReport::StillReport() : observer_([this](std::string_view line) { See(line); }) {
  if (testbed::IsDriverOfImage())
    messages_.emplace([this](const std::string& message) { SeeMessage(message); });
}

// The last message of a still is its size's number; the one of success comes before it.
void StillReport::SeeMessage(std::string_view message) {
  const std::lock_guard lock(mutex_);
  if (message == "Write file true") isWritten_ = true;
  if (!message.starts_with("srcIndex = ")) return;
  status_ = isWritten_ ? 0 : static_cast<std::uint32_t>(STATUS_UNSUCCESSFUL);
}

void StillReport::See(std::string_view line) {
  constexpr std::string_view kStatus = " status=";
  const std::size_t at = line.rfind(kStatus);
  if (!line.starts_with("still ") || at == std::string_view::npos) return;
  std::uint32_t status = 0;
  constexpr int kHexadecimal = 16;
  const char* const end = line.data() + line.size();
  if (std::from_chars(line.data() + at + kStatus.size(), end, status, kHexadecimal).ptr == end) {
    const std::lock_guard lock(mutex_);
    status_ = status;
  }
}

std::optional<std::uint32_t> StillReport::Status() const {
  const std::lock_guard lock(mutex_);
  return status_;
}

void StillReport::RequireWritten() const {
  const std::optional<std::uint32_t> status = Status();
  if (!status) Fail("was not taken by the driver");
  if (*status != 0) Fail("can't be written: " + ReasonOf(*status));
}

fs::path StillFilePath() {
  return host::SystemRoot() / "system32" / "drivers" / "SnapFile.dat";
}

void ClearStillFile() {
  std::error_code error;
  fs::create_directories(StillFilePath().parent_path(), error);
  if (error) Fail("has no folder: " + error.message());
  if (fs::is_directory(StillFilePath(), error)) {
    Fail("can't be written: it is a folder; remove it");
  }
  fs::remove(StillFilePath(), error);
  if (error) Fail("can't be replaced: " + error.message());
}

StillPicture ReadStillFile(std::uint32_t value) {
  std::ifstream file(StillFilePath(), std::ios::binary);
  // On an unknown platform level the driver writes no still, and counts it as written.
  if (!file && errno == ENOENT) {
    Fail("was not written by the driver: the platform has none of the levels that it writes on");
  }
  if (!file) Fail(std::string("can't be read: ") + std::strerror(errno));
  return DecodeStill({std::istreambuf_iterator<char>(file), {}}, value);
}

StillPicture DecodeStill(std::vector<std::uint8_t> bytes, std::uint32_t value) {
  const std::string count = std::to_string(bytes.size());
  if (bytes.size() < kMarksSize) {
    Fail("holds " + count + " bytes, no picture; --debug shows what the driver says");
  }
  StillPicture still;
  still.SizeIndex = MarkAt(bytes, bytes.size() - 4);
  still.Value = MarkAt(bytes, bytes.size() - 2);
  const std::optional<PictureSize> size = SizeOfIndex(still.SizeIndex);
  if (!size || size->Yuy2Bytes() != bytes.size() || still.Value != (value & 0xFFFF)) {
    Fail("holds " + count +
         " bytes without the marks of a whole picture; --debug shows what the driver says");
  }
  still.Size = *size;
  still.Yuy2 = std::move(bytes);
  return still;
}

}  // namespace lidcam::app
