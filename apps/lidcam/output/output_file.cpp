#include "apps/lidcam/output/output_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>

#include "apps/lidcam/base/command_error.h"
#include "apps/lidcam/base/interrupt.h"

namespace lidcam::app {
namespace {

// What would be right, where the reason alone does not say it.
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

std::string TemporaryName(const std::string& path, int attempt) {
  const std::filesystem::path place(path);
  const std::string number =
      std::to_string(getpid()) + (attempt == 0 ? "" : "-" + std::to_string(attempt));
  return (place.parent_path() / ("." + place.filename().string() + "." + number + ".part"))
      .string();
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
  } else {
    OpenTemporary();
  }
  if (file_ < 0) Fail("can't be written", errno);
}

OutputFile::~OutputFile() {
  Discard();
}

// A name that an earlier program left behind is passed over.
void OutputFile::OpenTemporary() {
  constexpr int kAttempts = 100;
  constexpr mode_t kMode = 0666;  // the user's mask takes its part
  for (int attempt = 0; attempt < kAttempts && file_ < 0; ++attempt) {
    const std::string name = TemporaryName(path_, attempt);
    file_ = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kMode);
    if (file_ >= 0) {
      temporaryPath_ = name;
    } else if (errno != EEXIST) {
      return;
    }
  }
  if (file_ >= 0) ::flock(file_, LOCK_EX | LOCK_NB);
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
    if (count == 0) return EIO;  // the file takes no more and does not say why
    written_ += count;
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  return 0;
}

void OutputFile::MarkWhole() {
  whole_ = written_;
}

void OutputFile::Commit() {
  if (temporaryPath_.empty()) {
    const bool isClosed = file_ == STDOUT_FILENO || ::close(std::exchange(file_, -1)) == 0;
    if (!isClosed && !hasFailed_) Fail("can't be written", errno);
    return;
  }
  if (hasFailed_ && whole_ == 0) return Discard();
  int error = hasFailed_ && ::ftruncate(file_, whole_) != 0 ? errno : 0;
  if (error == 0 && ::fsync(file_) != 0) error = errno;
  if (error == 0 && ::close(std::exchange(file_, -1)) != 0) error = errno;
  // What has no whole parts is of no use if the disk has not taken all of it.
  if (error != 0 && whole_ == 0) Discard();
  if (!temporaryPath_.empty()) {
    const std::string place = std::exchange(temporaryPath_, {});
    if (std::rename(place.c_str(), path_.c_str()) != 0) {
      const int reason = errno;
      Fail("can't be renamed from '" + place + "', where it is complete", reason);
    }
  }
  if (error != 0) Fail("can't be written", error);
}

void OutputFile::Fail(const std::string& what, int error) const {
  throw CommandError(NameOf(path_) + " " + what + ": " + std::strerror(error) + HintFor(error));
}

void OutputFile::Close() {
  if (file_ >= 0 && file_ != STDOUT_FILENO) ::close(file_);
  file_ = -1;
}

void OutputFile::Discard() {
  if (!temporaryPath_.empty()) std::remove(temporaryPath_.c_str());
  temporaryPath_.clear();
  Close();
}

}  // namespace lidcam::app
