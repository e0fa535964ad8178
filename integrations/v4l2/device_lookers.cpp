#include "integrations/v4l2/device_lookers.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "integrations/camera/camera_description.h"

namespace lidcam::integrations::v4l2 {
namespace {

namespace fs = std::filesystem;

// Longer than a program takes that only lists devices, and much shorter than the second within which the camera
// is to run.
constexpr std::chrono::milliseconds kSettled{150};

/// That which /proc names: the device may be given by a link to it.
std::string RealPath(const std::string& path) {
  std::error_code error;
  const fs::path real = fs::canonical(path, error);
  if (error) throw ShareError("device '" + path + "' is not there: " + error.message());
  return real;
}

/// @throws ShareError
int Watch(const std::string& path) {
  const int watch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  if (watch >= 0 && inotify_add_watch(watch, path.c_str(), IN_OPEN | IN_CLOSE) >= 0) return watch;
  const std::string reason = std::strerror(errno);
  if (watch >= 0) close(watch);
  throw ShareError("who looks at '" + path + "' cannot be watched: " + reason);
}

bool IsSameFile(const struct stat& one, const struct stat& other) {
  if (S_ISCHR(one.st_mode)) return S_ISCHR(other.st_mode) && one.st_rdev == other.st_rdev;
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// Whether a process has a file open. One that ends meanwhile, or belongs to somebody else, has not.
bool HasOpen(const fs::path& process, const fs::path& name, const struct stat& file) {
  std::error_code error;
  for (fs::directory_iterator entry(process / "fd", error), end; !error && entry != end;
       entry.increment(error)) {
    // By the name first: to ask for the file behind a descriptor may take long where that is on a network.
    std::error_code gone;
    if (fs::read_symlink(entry->path(), gone).filename() != name || gone) continue;
    struct stat opened {};
    if (stat(entry->path().c_str(), &opened) == 0 && IsSameFile(file, opened)) return true;
  }
  return false;
}

std::optional<int> ProcessNumber(const fs::path& folder) {
  const std::string name = folder.filename();
  int number = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
  if (error != std::errc{} || end != name.data() + name.size()) return std::nullopt;
  return number;
}

std::string ProgramOf(const fs::path& process) {
  std::string program;
  std::getline(std::ifstream(process / "comm"), program);
  return program;
}

}  // namespace

DeviceLookers::DeviceLookers(const std::string& path)
    : path_(RealPath(path)), watch_(Watch(path_)), scanAt_(Clock::now()) {}

DeviceLookers::~DeviceLookers() {
  close(watch_);
}

std::optional<std::vector<DeviceLooker>> DeviceLookers::AwaitChange(
    std::chrono::milliseconds limit) {
  const Clock::time_point end = Clock::now() + limit;
  while (true) {
    const Clock::time_point until = scanAt_ ? std::min(*scanAt_, end) : end;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
    pollfd events{.fd = watch_, .events = POLLIN, .revents = 0};
    const int ready = poll(&events, 1, static_cast<int>(std::max<long>(left.count(), 0)));
    if (ready < 0) return std::nullopt;
    if (ready > 0 && TakeEvents() && !scanAt_) scanAt_ = Clock::now() + kSettled;
    if (scanAt_ && Clock::now() >= *scanAt_) {
      scanAt_.reset();
      std::vector<DeviceLooker> now = Scan();
      if (now != lookers_) return lookers_ = std::move(now);
    }
    if (Clock::now() >= end) return std::nullopt;
  }
}

std::vector<DeviceLooker> DeviceLookers::Scan() const {
  std::vector<DeviceLooker> lookers;
  struct stat file {};
  if (stat(path_.c_str(), &file) != 0) return lookers;
  const fs::path name = fs::path(path_).filename();
  std::error_code error;
  for (fs::directory_iterator entry("/proc", error), end; !error && entry != end;
       entry.increment(error)) {
    const std::optional<int> process = ProcessNumber(entry->path());
    if (!process || *process == getpid() || !HasOpen(entry->path(), name, file)) continue;
    lookers.push_back({.Process = *process, .Program = ProgramOf(entry->path())});
  }
  std::ranges::sort(lookers, {}, &DeviceLooker::Process);
  return lookers;
}

bool DeviceLookers::TakeEvents() {
  // What happened doesn't matter, and some may be lost: /proc says how it is now.
  alignas(inotify_event) std::array<char, 4096> events{};
  bool isAny = false;
  while (read(watch_, events.data(), events.size()) > 0) isAny = true;
  return isAny;
}

}  // namespace lidcam::integrations::v4l2
