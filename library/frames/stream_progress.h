#pragma once

#include <cstdint>
#include <optional>

#include "library/frames/replay_pipeline.h"

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

}  // namespace lidcam::app
