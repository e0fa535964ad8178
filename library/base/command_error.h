#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace lidcam::app {

/// Why something failed, as far as a caller may act on it.
enum class Failure {
  Other,
  NotFound,      ///< no such camera is plugged in, no such file
  InUse,         ///< another process has the camera
  Unplugged,     ///< the camera is gone
  NoPermission,  ///< for the device's file
};

/// A command failed: exit status 1. what() is one line that names the input and the reason.
class CommandError : public std::runtime_error {
 public:
  explicit CommandError(const std::string& text, Failure kind = Failure::Other)
      : std::runtime_error(text), kind_(kind) {}

  [[nodiscard]] Failure Kind() const { return kind_; }

 private:
  Failure kind_;
};

/// Invalid arguments of a command: exit status 2. what() is one line that
/// names the input, the reason and what is expected.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Throws a CommandError if anything went wrong: with the last line, when those before it are shown.
void FailForTroubles(const std::vector<std::string>& troubles);

}  // namespace lidcam::app
