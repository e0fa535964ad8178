#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace lidcam::app {

/// A command failed: exit status 1. what() is one line that names the input and the reason.
class CommandError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
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
