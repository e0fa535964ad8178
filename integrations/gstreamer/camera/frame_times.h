#pragma once

#include <gst/gst.h>

#include <cstdint>
#include <optional>

#include "library/lidcam.h"

namespace lidcam::gstreamer {

/// The running time of frames, from the times at which the camera completed them.
class FrameTimes {
 public:
  /// At a new stream.
  void StartAnew() { streamBegan_ = GST_CLOCK_TIME_NONE; }

  /// Of the next frame; never less than that of the one before.
  ///
  /// @param clock     the pipeline's; null: there is none, and so no running time
  /// @param baseTime  the element's
  [[nodiscard]] GstClockTime RunningTime(const lidcam_frame& frame, GstClock* clock,
                                         GstClockTime baseTime);

 private:
  [[nodiscard]] GstClockTime OfRecording(const lidcam_frame& frame, GstClockTime now);

  GstClockTime streamBegan_ = GST_CLOCK_TIME_NONE;  ///< running time of a recording's time 0
  GstClockTime last_ = 0;
};

/// The longest time from one frame to the next, which is the latency to plan with: the stream's frame interval, or
/// what has passed between two frames since it began, and 200 ms as soon as the light is low, in which cameras send
/// five frames a second. Gaps beyond that are no frame intervals. It never becomes shorter during a stream, since
/// each change of the latency disturbs the pipeline.
class LongestInterval {
 public:
  /// At a new stream.
  ///
  /// @param interval  that of the stream, 100 ns
  void StartAnew(std::int64_t interval);

  /// @return whether it has become longer
  bool Observe(const lidcam_frame& frame);

  [[nodiscard]] GstClockTime Value() const { return longest_; }

 private:
  GstClockTime longest_ = 0;
  std::optional<std::int64_t> lastStreamTime_;
};

}  // namespace lidcam::gstreamer
