#pragma once

#include <cstdint>

namespace lidcam::app {

/// What the driver knows when an application takes a frame.
struct TakenFrameFacts {
  std::uint32_t FrameStarts = 0;  ///< frames that the camera has begun, of any stream; wraps around
  std::int64_t MissingTimes =
      0;  ///< as the pin's drop count: frame times of the stream without a frame
  std::uint32_t LightState = 0;
};

/// Counts the frames that a camera has sent and an application hasn't got. The pin's drop count contains the times at
/// which a camera that sends less often in the dark sends none.
///
/// The two frames that the driver leaves out when the light state changes are not lost.
class LostFrames {
 public:
  /// A frame was taken, in the order of the frames.
  ///
  /// @return frames that were lost behind the first one that was taken; never less than before
  std::int64_t Take(const TakenFrameFacts& facts);

 private:
  bool hasFirst_ = false;
  std::uint32_t starts_ = 0;  ///< at the newest frame
  std::int64_t begun_ = 0;    ///< frames begun since the first one was taken
  std::int64_t taken_ = 0;    ///< behind the first one
  std::int64_t usual_ = 0;    ///< how far taking lies behind where nothing is lost
  std::int64_t left_ = 0;     ///< missing at the newest frame
  std::uint32_t light_ = 0;
  std::int64_t timesAtFirst_ = 0;
  std::int64_t lost_ = 0;
};

}  // namespace lidcam::app
