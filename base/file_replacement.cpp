#include "base/file_replacement.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

namespace lidcam::base {
namespace {

constexpr mode_t kNewFileMode = 0666;  // restricted by the user's umask
constexpr mode_t kPermissionBits = 07777;

std::string TemporaryName(const std::string& path, int attempt) {
  const std::filesystem::path place(path);
  const std::string number =
      std::to_string(getpid()) + (attempt == 0 ? "" : "-" + std::to_string(attempt));
  return (place.parent_path() / ("." + place.filename().string() + "." + number + ".part"))
      .string();
}

std::string FolderOf(const std::string& path) {
  const std::string folder = std::filesystem::path(path).parent_path().string();
  return folder.empty() ? "." : folder;
}

}  // namespace

std::string FollowLink(const std::string& path) {
  constexpr int kMostLinks = 40;
  std::filesystem::path place(path);
  std::error_code error;
  for (int i = 0; i < kMostLinks && std::filesystem::is_symlink(place, error); ++i) {
    const std::filesystem::path target = std::filesystem::read_symlink(place, error);
    if (error) break;
    place = target.is_absolute() ? target : place.parent_path() / target;
  }
  return place.string();
}

FileReplacement::FileReplacement(FileReplacementSteps steps) : steps_(std::move(steps)) {}

FileReplacement::~FileReplacement() {
  Discard();
}

// A temporary file left behind by an earlier process: try the next name.
int FileReplacement::Open(const std::string& path) {
  constexpr int kAttempts = 100;
  path_ = FollowLink(path);
  int error = EEXIST;
  for (int attempt = 0; attempt < kAttempts && error == EEXIST; ++attempt) {
    error = Create(TemporaryName(path_, attempt));
  }
  return error;
}

int FileReplacement::OpenAs(const std::string& path, const std::string& temporary) {
  path_ = FollowLink(path);
  unlink(temporary.c_str());
  return Create(temporary);
}

int FileReplacement::Create(const std::string& temporary) {
  file_ = open(temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kNewFileMode);
  if (file_ < 0) return errno;
  temporary_ = temporary;
  flock(file_, LOCK_EX | LOCK_NB);
  const int error = TakePermissions();
  if (error != 0) Discard();
  return error;
}

int FileReplacement::TakePermissions() {
  struct stat old {};
  struct stat fresh {};
  if (stat(path_.c_str(), &old) != 0 || !S_ISREG(old.st_mode)) return 0;
  if (fstat(file_, &fresh) != 0) return errno;
  if (((old.st_mode ^ fresh.st_mode) & kPermissionBits) == 0) return 0;
  return fchmod(file_, old.st_mode & kPermissionBits) == 0 ? 0 : errno;
}

int FileReplacement::Append(std::string_view content) {
  while (!content.empty()) {
    const ssize_t count = steps_.Write ? steps_.Write(file_, content.data(), content.size())
                                       : write(file_, content.data(), content.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0) return EIO;  // the file accepts no more bytes, and the system gives no reason
    content.remove_prefix(static_cast<std::size_t>(count));
  }
  return 0;
}

int FileReplacement::Append(std::span<const std::uint8_t> content) {
  return Append({reinterpret_cast<const char*>(content.data()), content.size()});
}

// File systems without this operation return EINVAL or ENOTSUP.
int FileReplacement::Sync(int file) const {
  const int result = steps_.Sync ? steps_.Sync(file) : fsync(file);
  return result == 0 || errno == EINVAL || errno == ENOTSUP ? 0 : errno;
}

// Some file systems report only at close what they could not store: a duplicate is closed, so that
// the file stays locked until it is renamed.
int FileReplacement::Flush() {
  if (const int error = Sync(file_); error != 0) return error;
  const int duplicate = fcntl(file_, F_DUPFD_CLOEXEC, 0);
  return duplicate >= 0 && close(duplicate) == 0 ? 0 : errno;
}

int FileReplacement::Rename() {
  const int result = steps_.Rename ? steps_.Rename(temporary_.c_str(), path_.c_str())
                                   : std::rename(temporary_.c_str(), path_.c_str());
  if (result != 0) return errno;
  temporary_.clear();
  Close();
  return SyncFolder();
}

// A folder that is writable but not readable can't be flushed.
int FileReplacement::SyncFolder() const {
  const int folder = open(FolderOf(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return errno == EACCES ? 0 : errno;
  const int error = Sync(folder);
  close(folder);
  return error;
}

std::string FileReplacement::Keep() {
  Close();
  return std::exchange(temporary_, {});
}

void FileReplacement::Discard() {
  if (!temporary_.empty()) unlink(temporary_.c_str());
  temporary_.clear();
  Close();
}

void FileReplacement::Close() {
  if (file_ >= 0) close(file_);
  file_ = -1;
}

int ReplaceFile(const std::string& path, std::span<const std::uint8_t> content) {
  FileReplacement replacement;
  int error = replacement.Open(path);
  if (error == 0) error = replacement.Append(content);
  if (error == 0) error = replacement.Flush();
  return error == 0 ? replacement.Rename() : error;
}

}  // namespace lidcam::base
