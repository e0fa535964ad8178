#pragma once

#include <string>

namespace lidcam::app {

/// Runs a script through gnuplot, without the user's own settings of it.
///
/// @return what the script has drawn to standard output
/// Throws CommandError if gnuplot is not there, naming the package that brings it, or fails.
[[nodiscard]] std::string RunGnuplot(const std::string& script);

}  // namespace lidcam::app
