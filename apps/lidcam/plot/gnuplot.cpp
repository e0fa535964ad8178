#include "apps/lidcam/plot/gnuplot.h"

#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

[[noreturn]] void Fail(int error) {
  if (error == ENOENT) {
    throw CommandError(
        "gnuplot, which makes the drawing, is not there: install the Debian package gnuplot-nox");
  }
  throw CommandError(std::string("gnuplot can't be run: ") + std::strerror(error));
}

/// A file in memory that a child process can inherit.
class MemoryFile {
 public:
  explicit MemoryFile(const char* name) : file_(memfd_create(name, MFD_CLOEXEC)) {
    if (file_ < 0) Fail(errno);
  }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  ~MemoryFile() { close(file_); }

  [[nodiscard]] int Descriptor() const { return file_; }

  void Write(std::string_view text) const {
    while (!text.empty()) {
      const ssize_t count = write(file_, text.data(), text.size());
      if (count < 0) Fail(errno);
      text.remove_prefix(static_cast<std::size_t>(count));
    }
    lseek(file_, 0, SEEK_SET);
  }

  [[nodiscard]] std::string Read() const {
    lseek(file_, 0, SEEK_SET);
    std::string text;
    std::array<char, 65536> piece{};
    for (;;) {
      const ssize_t count = read(file_, piece.data(), piece.size());
      if (count < 0) Fail(errno);
      if (count == 0) return text;
      text.append(piece.data(), static_cast<std::size_t>(count));
    }
  }

 private:
  int file_;
};

pid_t Spawn(const MemoryFile& input, const MemoryFile& output, const MemoryFile& errors) {
  std::string program = "gnuplot";
  std::string withoutSettings = "--default-settings";
  std::array<char*, 3> arguments{program.data(), withoutSettings.data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input.Descriptor(), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output.Descriptor(), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, errors.Descriptor(), STDERR_FILENO);
  pid_t child = 0;
  const int error =
      posix_spawnp(&child, program.c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) Fail(error);
  return child;
}

// The place comes first, then the reason in a line of its own.
std::string ReasonIn(std::string errors) {
  while (errors.ends_with('\n')) errors.pop_back();
  return errors.substr(errors.rfind('\n') + 1);
}

}  // namespace

std::string RunGnuplot(const std::string& script) {
  const MemoryFile input("script");
  const MemoryFile output("drawing");
  const MemoryFile errors("errors");
  input.Write(script);
  const pid_t child = Spawn(input, output, errors);
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) Fail(errno);
  }
  if (status != 0) throw CommandError("gnuplot fails: " + ReasonIn(errors.Read()));
  return output.Read();
}

}  // namespace lidcam::app
