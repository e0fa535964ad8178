#include "apps/lidcam/output/output_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <utility>

#include "library/base/command_error.h"
#include "library/base/interrupt.h"

namespace lidcam::app {
namespace {

// The remedy, if the reason alone doesn't show it.
const char* HintFor(int error) {
  switch (error) {
    case ENOENT:
      return "; name a folder that exists";
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return "; free some space or choose another place";
    case EACCES:
    case EPERM:
    case EROFS:
      return "; choose a place that you may write to";
    default:
      return "";
  }
}

bool IsWrittenDirectly(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

std::string NameOf(const std::string& path) {
  return path == "-" ? "standard output" : "output '" + path + "'";
}

bool IsRegular(int file) {
  struct stat status {};
  return ::fstat(file, &status) == 0 && S_ISREG(status.st_mode);
}

// To a pipe that has room, a write of up to PIPE_BUF bytes does not wait.
bool HasRoomSoon(int file) {
  constexpr int kMilliseconds = 100;
  pollfd room{.fd = file, .events = POLLOUT, .revents = 0};
  return ::poll(&room, 1, kMilliseconds) > 0;
}

}  // namespace

OutputFile::OutputFile(std::string path) : path_(std::move(path)) {
  if (path_ == "-") {
    file_ = STDOUT_FILENO;
    return;
  }
  if (path_.empty())
    throw CommandError(
        "output '' can't be written: the name is empty; name a file or - for standard output");
  std::error_code ignored;
  if (std::filesystem::is_directory(path_, ignored)) {
    throw CommandError("output '" + path_ + "' can't be written: it is a folder");
  }
  if (IsWrittenDirectly(path_)) {
    file_ = ::open(path_.c_str(), O_WRONLY | O_CLOEXEC);
    if (file_ < 0) Fail("can't be written", errno);
    return;
  }
  if (const int error = replacement_.Open(path_); error != 0) Fail("can't be written", error);
  file_ = replacement_.Descriptor();
}

OutputFile::~OutputFile() {
  const bool isOwn = !replacement_.IsOpen() && file_ != STDOUT_FILENO;
  if (isOwn && file_ >= 0) ::close(file_);
}

void OutputFile::Write(std::span<const std::uint8_t> bytes) {
  const int error = Append(bytes);
  if (error == 0) return;
  hasFailed_ = true;
  if (error == EINTR) throw CommandError(NameOf(path_) + " is not read: interrupted");
  Fail("can't be written", error);
}

void OutputFile::Write(std::string_view text) {
  Write(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

int OutputFile::Append(std::span<const std::uint8_t> bytes) {
  const bool mayWait = !IsRegular(file_);
  while (!bytes.empty()) {
    if (mayWait && !HasRoomSoon(file_)) {
      if (IsInterrupted()) return EINTR;
      continue;
    }
    const std::size_t piece =
        mayWait ? std::min<std::size_t>(bytes.size(), PIPE_BUF) : bytes.size();
    const ssize_t count = ::write(file_, bytes.data(), piece);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0) return EIO;  // nothing was written, without an error number
    written_ += count;
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  return 0;
}

void OutputFile::Overwrite(std::int64_t at, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::pwrite(file_, bytes.data(), bytes.size(), at);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      const int error = count < 0 ? errno : EIO;
      hasFailed_ = true;
      Fail("can't be written", error);
    }
    at += count;
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
}

void OutputFile::MarkWhole() {
  whole_ = written_;
}

void OutputFile::Commit() {
  if (!replacement_.IsOpen()) {
    const bool isClosed = file_ == STDOUT_FILENO || ::close(std::exchange(file_, -1)) == 0;
    if (!isClosed && !hasFailed_) Fail("can't be written", errno);
    return;
  }
  file_ = -1;
  if (hasFailed_ && whole_ == 0) return replacement_.Discard();
  int error = hasFailed_ && ::ftruncate(replacement_.Descriptor(), whole_) != 0 ? errno : 0;
  if (error == 0) error = replacement_.Flush();
  // An output without separate parts is useless if it was not written completely.
  if (error != 0 && whole_ == 0) {
    replacement_.Discard();
  } else if (const int reason = replacement_.Rename(); reason != 0) {
    if (replacement_.IsOpen()) {
      Fail("can't be renamed from '" + replacement_.Keep() + "', where it is complete", reason);
    }
    error = reason;
  }
  if (error != 0) Fail("can't be written", error);
}

void OutputFile::Fail(const std::string& what, int error) const {
  throw CommandError(NameOf(path_) + " " + what + ": " + std::strerror(error) + HintFor(error));
}

}  // namespace lidcam::app
