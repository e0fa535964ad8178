#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "apps/lidcam/frames/replay_pipeline.h"

namespace lidcam::app {

/// A frame's position in its stream, from its headers.
struct FramePosition {
  std::int64_t PictureNumber = 0;     ///< place among the frames that the stream's time has
  std::int64_t DropCount = 0;         ///< of those, how many the application hasn't got
  std::int64_t PresentationTime = 0;  ///< 100 ns since the stream ran

  friend bool operator==(const FramePosition&, const FramePosition&) = default;
};

/// How a stream goes.
struct StreamProgress {
  StreamCounts Counts{};
  std::optional<FramePosition> Position{};  ///< of the newest frame; none before it, or in a replay
  std::optional<bool> IsAutoExposure{};     ///< empty where unknown, as in a replay
  std::optional<std::uint32_t> LightState{};  ///< a lidcam::LightState; as above
};

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
