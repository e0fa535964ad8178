// The line at the foot of a terminal.

#include "apps/lidcam/frames/progress.h"

#include <gtest/gtest.h>

#include <string>

#include "driver/core/record/camera_context.h"

namespace lidcam::app {
namespace {

constexpr std::size_t kWide = 200;

StreamProgress SomeProgress() {
  return {
      .Counts =
          {.Good = 44, .Bad = 1, .Lost = 7, .FirstMicroframe = 2000, .NewestMicroframe = 13733},
      .Position = FramePosition{.PictureNumber = 54, .DropCount = 7, .PresentationTime = 16400000},
      .IsAutoExposure = true,
      .LightState = LightStateLowLight};
}

TEST(Progress, TellsTheFramesPlaceAsItsHeadersDo) {
  EXPECT_EQ(ToText(SomeProgress(), kWide),
            "45 frames  30.0/s  picture 54 at 1.640 s  7 lost  exposure auto  light low light");
}

TEST(Progress, ReportsNothingUnknown) {
  EXPECT_EQ(ToText({}, kWide), "0 frames");
}

TEST(Progress, TellsManualExposureWhereItIs) {
  EXPECT_EQ(ToText({.IsAutoExposure = false}, kWide), "0 frames  exposure manual");
}

TEST(Progress, FitsEveryTerminalAndKeepsWhatMattersMost) {
  for (std::size_t columns = 0; columns <= kWide; ++columns) {
    EXPECT_LE(ToText(SomeProgress(), columns).size(), columns);
  }
  EXPECT_EQ(ToText(SomeProgress(), 79),
            "45 frames  30.0/s  7 lost  exposure auto  light low light");
  EXPECT_EQ(ToText(SomeProgress(), 40), "45 frames  30.0/s  7 lost  exposure auto");
  EXPECT_EQ(ToText(SomeProgress(), 30), "45 frames  30.0/s  7 lost");
  EXPECT_EQ(ToText(SomeProgress(), 20), "45 frames  7 lost");
  EXPECT_EQ(ToText(SomeProgress(), 10), "45 frames");
  EXPECT_EQ(ToText(SomeProgress(), 4), "45 f");
}

}  // namespace
}  // namespace lidcam::app
