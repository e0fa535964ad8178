#include "library/base/units.h"

#include <gtest/gtest.h>

#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

using std::chrono::microseconds;

TEST(Units, SizesAreWidthTimesHeight) {
  EXPECT_EQ(ParsePictureSize("640x480"), (PictureSize{640, 480}));
  EXPECT_EQ(ParsePictureSize("1x1"), (PictureSize{1, 1}));
  EXPECT_EQ(ToString(PictureSize{320, 240}), "320x240");
  EXPECT_EQ((PictureSize{160, 120}).Yuy2Bytes(), 38400u);
}

TEST(Units, TextsThatAreNoSizeAreRefused) {
  for (const char* const text : {"", "640", "640x", "x480", "640x480x2", "0x480", "640x0", "-1x1",
                                 "640X480", " 640x480", "640x480 ", "99999999999x1"}) {
    EXPECT_THROW((void)ParsePictureSize(text), UsageError) << text;
  }
}

TEST(Units, TimesHaveAUnit) {
  EXPECT_EQ(ParseDuration("2s"), microseconds(2'000'000));
  EXPECT_EQ(ParseDuration("250ms"), microseconds(250'000));
  EXPECT_EQ(ParseDuration("1.5s"), microseconds(1'500'000));
  EXPECT_EQ(ParseDuration("0.25ms"), microseconds(250));
  EXPECT_EQ(ParseDuration("10min"), microseconds(600'000'000));
  EXPECT_EQ(ParseDuration("1.5h"), microseconds(5'400'000'000));
  EXPECT_EQ(ParseDuration("1000000s"), microseconds(1'000'000'000'000));
}

TEST(Units, TextsThatAreNoTimeAreRefused) {
  for (const char* const text : {"", "2", "s", "ms", "-1s", "0s", "2 s", "2m", "min", "2 min", "h",
                                 "1h30min", "278h", "1000001s", "1e3s", "nans"}) {
    EXPECT_THROW((void)ParseDuration(text), UsageError) << text;
  }
}

TEST(Units, NumbersAreDecimalOrHexadecimalUpToTheirHighest) {
  EXPECT_EQ(ParseNumber("10", 255, "value"), 10u);
  EXPECT_EQ(ParseNumber("0x1F", 255, "value"), 0x1Fu);
  EXPECT_EQ(ParseNumber("0Xff", 255, "value"), 0xFFu);
  for (const char* const text : {"", "0x", "256", "0x100", "-1", "1.5", "ten", "0x1G"}) {
    EXPECT_THROW((void)ParseNumber(text, 255, "value"), UsageError) << text;
  }
}

}  // namespace
}  // namespace lidcam::app
