#include "integrations/gstreamer/camera/frame_times.h"

#include <algorithm>
#include <ctime>

namespace lidcam::gstreamer {
namespace {

constexpr GstClockTime kUnit = 100;  ///< the camera's unit of time, in ns
constexpr GstClockTime kDarkInterval = 200 * GST_MSECOND;

GstClockTime MonotonicNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return GST_TIMESPEC_TO_TIME(now);
}

/// Whether a clock is the machine's own, which counts as the library does. Clocks of a network are also derived
/// from the system's class.
bool CountsAsTheCamera(GstClock* clock) {
  GstClock* const system = gst_system_clock_obtain();
  GstClockType type{};
  g_object_get(system, "clock-type", &type, nullptr);
  gst_object_unref(system);
  return clock == system && type == GST_CLOCK_TYPE_MONOTONIC;
}

GstClockTime Difference(GstClockTime later, GstClockTime earlier) {
  return later > earlier ? later - earlier : 0;
}

/// The frame's time on the pipeline's clock. On a clock that runs at its own speed, such as a sound card's, only
/// the frame's age counts.
GstClockTime ClockTime(const lidcam_frame& frame, GstClock* clock) {
  const auto completed = static_cast<GstClockTime>(frame.monotonic_ns);
  if (CountsAsTheCamera(clock)) return completed;
  const GstClockTime age = Difference(MonotonicNow(), completed);
  return Difference(gst_clock_get_time(clock), age);
}

}  // namespace

GstClockTime FrameTimes::OfRecording(const lidcam_frame& frame, GstClockTime now) {
  if (!GST_CLOCK_TIME_IS_VALID(streamBegan_)) streamBegan_ = now;
  return streamBegan_ + static_cast<GstClockTime>(frame.stream_time) * kUnit;
}

GstClockTime FrameTimes::RunningTime(const lidcam_frame& frame, GstClock* clock,
                                     GstClockTime baseTime) {
  if (clock == nullptr) return GST_CLOCK_TIME_NONE;
  const bool isRecorded = frame.monotonic_ns == 0;
  const GstClockTime time =
      isRecorded ? OfRecording(frame, Difference(gst_clock_get_time(clock), baseTime))
                 : Difference(ClockTime(frame, clock), baseTime);
  last_ = std::max(last_, time);
  return last_;
}

void LongestInterval::StartAnew(std::int64_t interval) {
  longest_ = static_cast<GstClockTime>(interval) * kUnit;
  lastStreamTime_.reset();
}

bool LongestInterval::Observe(const lidcam_frame& frame) {
  const bool isDark =
      frame.light_state == LIDCAM_LIGHT_LOW || frame.light_state == LIDCAM_LIGHT_DUMMY;
  // Cameras that expose by themselves have no light state, and become slower without notice.
  const GstClockTime passed =
      Difference(static_cast<GstClockTime>(frame.stream_time),
                 static_cast<GstClockTime>(lastStreamTime_.value_or(frame.stream_time))) *
      kUnit;
  lastStreamTime_ = frame.stream_time;
  const GstClockTime before = longest_;
  longest_ = std::max(longest_, isDark ? kDarkInterval : std::min(passed, kDarkInterval));
  return longest_ > before;
}

}  // namespace lidcam::gstreamer
