#include "integrations/camera/share_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>

#include "base/run_time_folder.h"

namespace lidcam::integrations {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kOwnFolder = 0700;
constexpr mode_t kOwnFile = 0600;

/// @throws ShareError
int OpenFile(const fs::path& path) {
  mkdir(path.parent_path().c_str(), kOwnFolder);  // which fails if it is there
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kOwnFile);
  if (file < 0)
    throw ShareError("'" + path.string() + "' cannot be written: " + std::strerror(errno));
  return file;
}

std::string LineOf(int file) {
  std::array<char, 200> bytes{};
  const ssize_t size = pread(file, bytes.data(), bytes.size(), 0);
  const std::string text(bytes.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
  return text.substr(0, text.find('\n'));
}

// For the errors of other processes: the lock holds without it.
void WriteLine(int file, const std::string& line) {
  if (ftruncate(file, 0) != 0 || write(file, line.data(), line.size()) < 0) return;
}

}  // namespace

ShareLock::ShareLock(const CameraDescription& camera, const std::string& way) {
  const std::optional<fs::path> path = base::RunTimeFile(camera.Unit + ".share");
  if (!path) return;
  file_ = OpenFile(*path);
  if (flock(file_, LOCK_EX | LOCK_NB) == 0) {
    WriteLine(file_, "process " + std::to_string(getpid()) + " " + way + "\n");
    return;
  }
  const std::string holder = LineOf(file_);
  close(file_);
  throw ShareError("camera '" + camera.Address.Text + "' is shared already, by " +
                   (holder.empty() ? "another process" : holder) +
                   ": programs would list it twice");
}

ShareLock::~ShareLock() {
  if (file_ < 0) return;
  // The file stays: one that another process has just opened must not lose its name.
  WriteLine(file_, "");
  close(file_);
}

}  // namespace lidcam::integrations
