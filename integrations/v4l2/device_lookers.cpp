#include "integrations/v4l2/device_lookers.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
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

}  // namespace

DeviceLookers::DeviceLookers(const std::string& path)
    : path_(RealPath(path)), watch_(Watch(path_)), scanAt_(Clock::now()) {}

DeviceLookers::~DeviceLookers() {
  close(watch_);
}

std::optional<std::vector<base::FileUser>> DeviceLookers::AwaitChange(
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
      std::vector<base::FileUser> now = Scan();
      if (now != lookers_) return lookers_ = std::move(now);
    }
    if (Clock::now() >= end) return std::nullopt;
  }
}

std::vector<base::FileUser> DeviceLookers::Scan() const {
  std::vector<base::FileUser> lookers = base::UsersOf(path_);
  std::erase_if(lookers, [](const base::FileUser& user) { return user.Process == getpid(); });
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
