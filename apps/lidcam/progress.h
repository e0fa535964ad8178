#pragma once

#include <chrono>

#include "apps/lidcam/frame_path.h"

namespace lidcam::app {

/// The line at the foot of a terminal that tells how a stream goes; nothing in a pipe.
class ProgressLine {
 public:
  /// @param isWanted  false keeps silent on a terminal, too
  explicit ProgressLine(bool isWanted);
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;
  /// Clears the line.
  ~ProgressLine();

  /// Shows the counts, at most ten times a second.
  void Show(const StreamCounts& counts, const CameraContext& context);

 private:
  bool isShown_;
  bool hasText_ = false;
  std::chrono::steady_clock::time_point next_{};
};

}  // namespace lidcam::app
