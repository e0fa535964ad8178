#include "platform/host/nt/registry/registry_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

namespace lidcam::host {
namespace {

constexpr mode_t kNewFileMode = 0666;  // restricted by the user's umask
constexpr int kMostDamagedFiles = 10000;

std::string FolderOf(const std::string& path) {
  const std::string folder = std::filesystem::path(path).parent_path().string();
  return folder.empty() ? "." : folder;
}

}  // namespace

RegistryFileLock::RegistryFileLock(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(FolderOf(path), error);
  file_ = open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kNewFileMode);
  if (file_ < 0) {
    error_ = errno;
    return;
  }
  while (flock(file_, LOCK_EX) != 0) {
    if (errno == EINTR) continue;
    error_ = errno;
    return;
  }
}

RegistryFileLock::~RegistryFileLock() {
  if (file_ >= 0) close(file_);
}

RegistryFileReader::~RegistryFileReader() {
  Forget();
}

void RegistryFileReader::Forget() {
  if (file_ >= 0) close(file_);
  file_ = -1;
  wasAbsent_ = false;
}

int RegistryFileReader::Read(const std::string& path, std::string& content) {
  Forget();
  content.clear();
  // Without O_NONBLOCK, opening a pipe would wait for its other end.
  const int file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (file < 0) {
    wasAbsent_ = errno == ENOENT;
    return errno;
  }
  file_ = file;
  int error = fstat(file_, &seen_) == 0 ? 0 : errno;
  if (error == 0 && !S_ISREG(seen_.st_mode)) error = EINVAL;
  if (error == 0 && std::cmp_greater(seen_.st_size, kLargestRegistryFile)) error = EOVERFLOW;
  std::array<char, 16384> piece{};
  while (error == 0) {
    const ssize_t count = read(file_, piece.data(), piece.size());
    if (count == 0) return 0;
    if (count > 0) content.append(piece.data(), static_cast<std::size_t>(count));
    if (count < 0 && errno != EINTR) error = errno;
    if (content.size() > kLargestRegistryFile) error = EOVERFLOW;  // it has grown
  }
  content.clear();
  Forget();
  return error;
}

bool RegistryFileReader::IsCurrent(const std::string& path) const {
  struct stat now {};
  if (stat(path.c_str(), &now) != 0) return wasAbsent_ && errno == ENOENT;
  const auto same = [](const timespec& left, const timespec& right) {
    return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
  };
  return file_ >= 0 && now.st_dev == seen_.st_dev && now.st_ino == seen_.st_ino &&
         now.st_size == seen_.st_size && same(now.st_mtim, seen_.st_mtim);
}

int ReplaceRegistryFile(const std::string& path, std::string_view content,
                        const base::FileReplacementSteps& steps) {
  base::FileReplacement replacement(steps);
  int error = replacement.OpenAs(path, path + ".new");
  if (error == 0) error = replacement.Append(content);
  if (error == 0) error = replacement.Flush();
  return error == 0 ? replacement.Rename() : error;
}

int SetRegistryFileAside(const std::string& path, std::string& aside) {
  for (int number = 1; number <= kMostDamagedFiles; ++number) {
    aside = path + ".damaged-" + std::to_string(number);
    struct stat other {};
    if (lstat(aside.c_str(), &other) == 0) continue;
    return std::rename(path.c_str(), aside.c_str()) == 0 ? 0 : errno;
  }
  return EEXIST;
}

}  // namespace lidcam::host
