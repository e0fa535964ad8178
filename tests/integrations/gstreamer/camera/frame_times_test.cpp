#include "integrations/gstreamer/camera/frame_times.h"

#include <gst/check/gsttestclock.h>
#include <gtest/gtest.h>

#include <ctime>

#include "tests/integrations/gstreamer/support/source_harness.h"

namespace lidcam::gstreamer {
namespace {

lidcam_frame FrameAt(std::int64_t monotonic, std::int64_t streamTime = 0) {
  lidcam_frame frame{};
  frame.monotonic_ns = monotonic;
  frame.stream_time = streamTime;
  return frame;
}

class TimesOfFrames : public testing::Test {
 protected:
  TimesOfFrames() { test::InitGStreamer(); }

  GstClock* const system_ = gst_system_clock_obtain();
  FrameTimes times_;

  ~TimesOfFrames() override { gst_object_unref(system_); }
};

TEST_F(TimesOfFrames, OnTheMachinesClockTheRunningTimeIsExact) {
  EXPECT_EQ(times_.RunningTime(FrameAt(5'000'000'123), system_, 3'000'000'000), 2'000'000'123U);
}

TEST_F(TimesOfFrames, AFrameFromBeforeThePipelineRanHasTimeZero) {
  EXPECT_EQ(times_.RunningTime(FrameAt(2'000'000'000), system_, 3'000'000'000), 0U);
}

TEST_F(TimesOfFrames, ATimeNeverGoesBack) {
  EXPECT_EQ(times_.RunningTime(FrameAt(7'000), system_, 1'000), 6'000U);
  EXPECT_EQ(times_.RunningTime(FrameAt(6'500), system_, 1'000), 6'000U);
  EXPECT_EQ(times_.RunningTime(FrameAt(7'500), system_, 1'000), 6'500U);
}

TEST_F(TimesOfFrames, WithoutAClockThereIsNone) {
  EXPECT_EQ(times_.RunningTime(FrameAt(7'000), nullptr, 0), GST_CLOCK_TIME_NONE);
}

TEST_F(TimesOfFrames, OnAnotherClockTheAgeOfTheFrameCounts) {
  GstClock* const clock = gst_test_clock_new_with_start_time(10 * GST_SECOND);
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const auto second = static_cast<std::int64_t>(GST_SECOND);
  const auto frame = FrameAt(static_cast<std::int64_t>(GST_TIMESPEC_TO_TIME(now)) - second);
  const GstClockTime time = times_.RunningTime(frame, clock, 4 * GST_SECOND);
  // A second old, and older by what this test took since.
  EXPECT_LE(time, 5 * GST_SECOND);
  EXPECT_GE(time, 4 * GST_SECOND);
  gst_object_unref(clock);
}

TEST_F(TimesOfFrames, ARecordingRunsFromItsFirstFrameByItsOwnTime) {
  GstClock* const clock = gst_test_clock_new_with_start_time(10 * GST_SECOND);
  EXPECT_EQ(times_.RunningTime(FrameAt(0, 500'000), clock, 4 * GST_SECOND),
            6 * GST_SECOND + 50 * GST_MSECOND);
  gst_test_clock_advance_time(GST_TEST_CLOCK(clock), GST_SECOND);
  EXPECT_EQ(times_.RunningTime(FrameAt(0, 900'000), clock, 4 * GST_SECOND),
            6 * GST_SECOND + 90 * GST_MSECOND);
  gst_object_unref(clock);
}

lidcam_frame FrameIn(lidcam_light_state light, std::int64_t streamTime) {
  lidcam_frame frame{};
  frame.light_state = light;
  frame.stream_time = streamTime;
  return frame;
}

TEST(LongestIntervalOfAStream, IsTheStreamsOwnInTheLight) {
  LongestInterval interval;
  interval.StartAnew(400'000);
  interval.Observe(FrameIn(LIDCAM_LIGHT_NORMAL, 1'000'000));
  interval.Observe(FrameIn(LIDCAM_LIGHT_NORMAL, 1'400'000));
  EXPECT_EQ(interval.Value(), 40 * GST_MSECOND);
}

TEST(LongestIntervalOfAStream, IsThatOfFiveFramesASecondOnceTheLightIsTriedLow) {
  for (const lidcam_light_state dark : {LIDCAM_LIGHT_DUMMY, LIDCAM_LIGHT_LOW}) {
    LongestInterval interval;
    interval.StartAnew(333'333);
    interval.Observe(FrameIn(dark, 1'000'000));
    EXPECT_EQ(interval.Value(), 200 * GST_MSECOND);
    interval.Observe(FrameIn(LIDCAM_LIGHT_NORMAL, 1'333'333));
    EXPECT_EQ(interval.Value(), 200 * GST_MSECOND);
  }
}

TEST(LongestIntervalOfAStream, FollowsACameraThatBecomesSlowerByItself) {
  LongestInterval interval;
  interval.StartAnew(333'333);
  interval.Observe(FrameIn(LIDCAM_LIGHT_NORMAL, 1'000'000));
  interval.Observe(FrameIn(LIDCAM_LIGHT_NORMAL, 2'000'000));
  EXPECT_EQ(interval.Value(), 100 * GST_MSECOND);
  interval.Observe(FrameIn(LIDCAM_LIGHT_NORMAL, 4'000'000));
  EXPECT_EQ(interval.Value(), 200 * GST_MSECOND);
}

TEST(LongestIntervalOfAStream, DoesNotCountAGapInWhichNothingCame) {
  LongestInterval interval;
  interval.StartAnew(333'333);
  interval.Observe(FrameIn(LIDCAM_LIGHT_NORMAL, 1'000'000));
  interval.Observe(FrameIn(LIDCAM_LIGHT_NORMAL, 31'000'000));
  EXPECT_EQ(interval.Value(), 200 * GST_MSECOND);
}

TEST(LongestIntervalOfAStream, OfOneFrameASecondIsASecondInTheDarkToo) {
  LongestInterval interval;
  interval.StartAnew(10'000'000);
  interval.Observe(FrameIn(LIDCAM_LIGHT_LOW, 1'000'000));
  EXPECT_EQ(interval.Value(), GST_SECOND);
}

}  // namespace
}  // namespace lidcam::gstreamer
