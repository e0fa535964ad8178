#include "library/camera/source/camera_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "library/base/command_error.h"
#include "library/base/interrupt.h"
#include "library/base/notices.h"
#include "library/settings/host_environment.h"

namespace lidcam::app {
namespace {

constexpr std::chrono::milliseconds kRetry{20};
constexpr std::chrono::seconds kBriefWait{10};
constexpr std::size_t kLongestText = 300;

/// The process that has a camera open, from the lock's file: number and command.
struct Holder {
  pid_t Process = 0;
  std::string Command{};

  [[nodiscard]] bool IsBrief() const {
    return Command.starts_with("lidcam set ") || Command.starts_with("lidcam registers ");
  }
  [[nodiscard]] std::string Text() const { return std::to_string(Process) + " (" + Command + ")"; }
};

// Nothing while the lock's holder has not yet written to the file: its contents are of an earlier
// process.
std::optional<Holder> ReadHolder(int file) {
  std::array<char, kLongestText + 40> bytes{};
  const ssize_t length = ::pread(file, bytes.data(), bytes.size(), 0);
  const std::string_view text(bytes.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
  Holder holder;
  const auto [rest, error] =
      std::from_chars(text.data(), text.data() + text.size(), holder.Process);
  if (error != std::errc{} || holder.Process <= 0) return std::nullopt;
  if (::kill(holder.Process, 0) != 0 && errno == ESRCH) return std::nullopt;
  const std::size_t begin = static_cast<std::size_t>(rest - text.data()) + 1;
  if (begin < text.size()) holder.Command = text.substr(begin, text.find('\n') - begin);
  return holder;
}

// For the error messages of other processes. The lock also works if this can't be written.
void WriteHolder(int file) {
  const std::string text = std::to_string(::getpid()) + " " + OwnCommand() + "\n";
  if (::ftruncate(file, 0) != 0) return;
  static_cast<void>(::pwrite(file, text.data(), text.size(), 0) == 0);
}

bool TryLock(int file, const std::string& name) {
  if (::flock(file, LOCK_EX | LOCK_NB) == 0) return true;
  if (errno == EWOULDBLOCK || errno == EINTR) return false;
  throw CommandError("lock '" + name + "' can't be taken: " + std::strerror(errno));
}

/// Waits for a lock for as long as this command's options and the holder's command allow.
class Wait {
 public:
  Wait(const CameraChoice& choice, const LockPatience& patience)
      : camera_("camera '" + choice.Camera + "'"), patience_(patience) {}

  void GoOn(const std::optional<Holder>& holder) {
    const std::string text = holder ? holder->Text() : "another lidcam";
    if (IsInterrupted()) {
      throw CommandError(InterruptText() + " while " + camera_ + " was in use by " + text);
    }
    const bool isBrief = (!holder || holder->IsBrief()) && Clock::now() < begin_ + kBriefWait;
    const bool isOver = patience_.Limit && Clock::now() >= begin_ + *patience_.Limit;
    if ((!patience_.Waits || isOver) && !isBrief) {
      throw CommandError(camera_ + " is in use by " + text + patience_.HowToWait, Failure::InUse);
    }
    if (!isBrief && !isTold_ && !patience_.IsQuiet) {
      TellUser("waiting for " + camera_ + ", in use by " + text);
      isTold_ = true;
    }
    std::this_thread::sleep_for(kRetry);
  }

 private:
  using Clock = std::chrono::steady_clock;

  const std::string camera_;
  const LockPatience& patience_;
  const Clock::time_point begin_ = Clock::now();
  bool isTold_ = false;
};

std::string LockFileOf(const std::string& unit) {
  return (HomeFolder() / ("camera-" + unit + ".lock")).string();
}

}  // namespace

std::string OwnCommand() {
  std::ifstream file("/proc/self/cmdline", std::ios::binary);
  std::string words{std::istreambuf_iterator<char>(file), {}};
  if (words.empty()) return "lidcam";
  words.pop_back();  // the last word's end
  const std::size_t end = std::min(words.find('\0'), words.size());
  const std::string program = std::filesystem::path(words.substr(0, end)).filename();
  words.replace(0, end, program.starts_with("lidcam") ? "lidcam" : program);
  for (char& letter : words) {
    if (letter == '\0') letter = ' ';
    if (std::iscntrl(static_cast<unsigned char>(letter)) != 0) letter = '?';
  }
  return words.substr(0, kLongestText);
}

std::string LockHolderOf(const std::string& unit) {
  const int file = ::open(LockFileOf(unit).c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return {};
  const std::optional<Holder> holder = ReadHolder(file);
  ::close(file);
  return holder ? holder->Text() : std::string();
}

CameraLock::CameraLock(const CameraChoice& choice, const LockPatience& patience) {
  const std::optional<std::string> unit = UnitOf(choice);
  if (!unit) return;
  constexpr mode_t kMode = 0666;  // reduced by the umask
  const std::string name = LockFileOf(*unit);
  file_ = ::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kMode);
  if (file_ < 0) {
    throw CommandError("lock '" + name + "' can't be taken: " + std::strerror(errno));
  }
  try {
    Wait wait(choice, patience);
    while (!TryLock(file_, name)) wait.GoOn(ReadHolder(file_));
  } catch (const CommandError&) {
    ::close(file_);
    throw;
  }
  WriteHolder(file_);
}

CameraLock::~CameraLock() {
  if (file_ < 0) return;
  static_cast<void>(::ftruncate(file_, 0) == 0);
  ::close(file_);
}

}  // namespace lidcam::app
