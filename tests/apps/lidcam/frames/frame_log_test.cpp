#include "apps/lidcam/frames/frame_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "driver/core/base/camera_trace.h"
#include "library/settings/trace_observer.h"

namespace lidcam::app {
namespace {

using ::testing::ElementsAre;

TEST(FrameLog, ARowHasTheFieldsInTheOrderOfTheHeader) {
  const FrameRow row{.Frame = 17,
                     .Seconds = 0.639875,
                     .Luma = 41,
                     .Level = 7,
                     .Index = 54,
                     .Exposure = 7,
                     .CoarseGain = 3,
                     .FineGain = 142,
                     .Lines = 1218,
                     .State = LightStateDummy,
                     .Mode = 2,
                     .Events = {.Steps = 1, .Commits = 2, .Refused = 3},
                     .Lux = 0.5,
                     .LuxSince = 0.25};
  EXPECT_EQ(kFrameLogHeader,
            "frame,time_s,luma,level,index,exposure,coarse_gain,fine_gain,lines,light_state,"
            "light_mode,steps,commits,refused,lux,lux_since_s");
  EXPECT_EQ(ToCsv(row), "17,0.639875,41,7,54,7,3,142,1218,Dummy,Dummy,1,2,3,0.5,0.25");
}

TEST(FrameLog, ACameraOfGlassHasNoLux) {
  EXPECT_EQ(ToCsv({.Frame = 1}), "1,0.000000,0,0,0,0,0,0,0,Initial,Normal,0,0,0,,");
}

TEST(FrameLog, StatesAndModesHaveNumbersOfTheirOwn) {
  EXPECT_EQ(LightStateName(0), "Normal");
  EXPECT_EQ(LightStateName(1), "LowLight");
  EXPECT_EQ(LightStateName(2), "Initial");
  EXPECT_EQ(LightStateName(3), "Dummy");
  EXPECT_EQ(LightStateName(4), "unknown");
  EXPECT_EQ(LightModeName(0), "Normal");
  EXPECT_EQ(LightModeName(1), "LowLight");
  EXPECT_EQ(LightModeName(2), "Dummy");
  EXPECT_EQ(LightStateOf("Dummy"), 3U);
  EXPECT_EQ(LightModeOf("Dummy"), 2U);
  EXPECT_EQ(LightModeOf("Initial"), std::nullopt);
}

TEST(FrameLog, EventsOfAFrameBeginAnewWithTheNextFramesEnd) {
  const ExposureEventCounter counter;
  TraceCamera(nullptr, "bus  write sensor FF2F=83");
  TraceCamera(nullptr, "frame end bytes=38466 expected=38466 good");
  EXPECT_EQ(counter.OfNewestFrame(), ExposureEvents{});
  TraceCamera(nullptr, "exposure index=54 exposure=7 coarse=3 fine=142 lines=1218");
  TraceCamera(nullptr, "bus  write sensor FF60=03");
  TraceCamera(nullptr, "bus  write sensor FF5D=8E refused");
  TraceCamera(nullptr, "bus  read  bridge FF09 refused");
  TraceCamera(nullptr, "bus  write sensor FF2F=83");
  TraceCamera(nullptr, "bus  write sensor FF2F=83");
  EXPECT_EQ(counter.OfNewestFrame(), (ExposureEvents{.Steps = 1, .Commits = 2, .Refused = 2}));
  TraceCamera(nullptr, "frame end bytes=38466 expected=38466 good");
  EXPECT_EQ(counter.OfNewestFrame(), ExposureEvents{});
}

// A commit that was refused or that failed reached no sensor.
TEST(FrameLog, OnlyACommitThatWasWrittenIsCounted) {
  const ExposureEventCounter counter;
  TraceCamera(nullptr, "bus  write sensor FF2F=83 refused");
  TraceCamera(nullptr, "bus  write sensor FF2F=83 failed -1");
  TraceCamera(nullptr, "bus  write bridge FF2F=83");
  TraceCamera(nullptr, "bus  write sensor FF2F=82");
  EXPECT_EQ(counter.OfNewestFrame(), (ExposureEvents{.Steps = 0, .Commits = 0, .Refused = 1}));
}

TEST(TraceObserver, ObserversSeeEachLineTogetherAndLeaveOneByOne) {
  std::vector<std::string> seen;
  const TraceObserver first(
      [&](std::string_view line) { seen.push_back("1 " + std::string(line)); });
  {
    const TraceObserver second(
        [&](std::string_view line) { seen.push_back("2 " + std::string(line)); });
    TraceCamera(nullptr, "stream on");
  }
  TraceCamera(nullptr, "stream off");
  EXPECT_THAT(seen, ElementsAre("1 stream on", "2 stream on", "1 stream off"));
}

}  // namespace
}  // namespace lidcam::app
