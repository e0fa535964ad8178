#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "library/frames/stream_progress.h"

namespace lidcam::app {

/// The line as it is shown, without its line end: as much of it as there is room for, the most important
/// first.
///
/// @param columns  that the line may have
[[nodiscard]] std::string ToText(const StreamProgress& progress, std::size_t columns);

/// The progress line of a stream on a terminal; nothing in a pipe.
class ProgressLine {
 public:
  /// @param isWanted  false keeps silent on a terminal, too
  explicit ProgressLine(bool isWanted);
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;
  /// Clears the line.
  ~ProgressLine();

  /// Shows the progress, at most ten times a second.
  void Show(const StreamProgress& progress);

 private:
  bool isShown_;
  bool hasText_ = false;
  std::chrono::steady_clock::time_point next_{};
};

}  // namespace lidcam::app
