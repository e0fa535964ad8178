#include "tests/integrations/v4l2/loopback_stand_in.h"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "tests/integrations/lidcam_stand_in.h"

namespace lidcam::integrations::v4l2 {
namespace {

constexpr std::size_t kKept = 8;

int Fail(int error) {
  errno = error;
  return -1;
}

}  // namespace

LoopbackStandIn::LoopbackStandIn() {
  std::string folder = std::filesystem::temp_directory_path() / "lidcam-v4l2-XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) throw std::runtime_error("no folder for a test");
  folder_ = folder;
  path_ = folder_ / "video9";
  std::ofstream create(path_);
}

LoopbackStandIn::~LoopbackStandIn() {
  std::filesystem::remove_all(folder_);
}

int LoopbackStandIn::Open(const char* path) {
  const int descriptor = open(path, O_RDWR | O_CLOEXEC);
  if (descriptor >= 0) ++OpenCount;
  return descriptor;
}

int LoopbackStandIn::Control(int, unsigned long request, void* argument) {
  switch (request) {
    case VIDIOC_QUERYCAP: {
      auto& capability = *static_cast<v4l2_capability*>(argument);
      if (Driver.empty()) return Fail(ENOTTY);
      std::memcpy(capability.driver, Driver.c_str(), Driver.size());
      capability.device_caps = V4L2_CAP_READWRITE | V4L2_CAP_STREAMING;
      const bool isCapture = HasProducer || !HasExclusiveCaps;
      if (isCapture) capability.device_caps |= V4L2_CAP_VIDEO_CAPTURE;
      if (!HasProducer) capability.device_caps |= V4L2_CAP_VIDEO_OUTPUT;
      return 0;
    }
    case VIDIOC_S_FMT: {
      auto& picture = static_cast<v4l2_format*>(argument)->fmt.pix;
      Requests.push_back("format " + std::to_string(picture.width) + "x" +
                         std::to_string(picture.height));
      if (FixedWidth != 0) {
        picture.width = FixedWidth;
        picture.height = FixedHeight;
      }
      return 0;
    }
    case VIDIOC_S_PARM:
      Requests.emplace_back("rate");
      return 0;
    case VIDIOC_STREAMON:
      Requests.emplace_back("on");
      return 0;
    default:
      return Fail(ENOTTY);
  }
}

std::ptrdiff_t LoopbackStandIn::Write(int, std::span<const std::uint8_t> bytes) {
  const std::lock_guard lock(StandIn::The().Mutex);
  if (IsRemoved) return Fail(ENODEV);
  Pictures.emplace_back(bytes.begin(), bytes.end());
  if (Pictures.size() > kKept) Pictures.erase(Pictures.begin());
  ++PictureCount;
  StandIn::The().Changed.notify_all();
  return static_cast<std::ptrdiff_t>(bytes.size());
}

void LoopbackStandIn::Close(int descriptor) {
  --OpenCount;
  close(descriptor);
}

OtherProcess::OtherProcess(const std::string& path) {
  posix_spawn_file_actions_t actions{};
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 5, path.c_str(), O_RDONLY, 0);
  std::string program = "sleep";
  std::string time = "600";
  char* const arguments[] = {program.data(), time.data(), nullptr};
  if (posix_spawnp(&process_, "sleep", &actions, nullptr, arguments, environ) != 0) {
    throw std::runtime_error("no other process for a test");
  }
  posix_spawn_file_actions_destroy(&actions);
}

OtherProcess::~OtherProcess() {
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

}  // namespace lidcam::integrations::v4l2
