#include "library/settings/stream_size.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

using ::testing::HasSubstr;

constexpr std::int32_t kVga0708 = 9;
constexpr std::int32_t kOv7660 = 7;

std::string UsageErrorOf(PictureSize (*parse)(const std::string& text), const std::string& text) {
  try {
    (void)parse(text);
  } catch (const UsageError& error) {
    return error.what();
  }
  return "no error";
}

TEST(StreamSizes, AreTheFiveFormatsOfTheDriver) {
  for (const char* const text : {"640x480", "352x288", "320x240", "176x144", "160x120"}) {
    EXPECT_EQ(ToString(ParseStreamSize(text)), text);
  }
  for (const char* const text : {"800x600", "480x640", "1280x1024", "352x287"}) {
    EXPECT_THAT(UsageErrorOf(ParseStreamSize, text),
                HasSubstr("use 640x480, 352x288, 320x240, 176x144 or 160x120"));
  }
}

TEST(StreamSizes, OfTheRawFramesThereAreThree) {
  for (const char* const text : {"640x480", "320x240", "160x120"}) {
    EXPECT_EQ(ToString(ParseRawSize(text)), text);
  }
  for (const char* const text : {"352x288", "176x144", "1280x1024"}) {
    EXPECT_THAT(UsageErrorOf(ParseRawSize, text), HasSubstr("use 640x480, 320x240 or 160x120"));
  }
}

TEST(StreamSizes, OfARawSizeModeGoBothWays) {
  EXPECT_EQ(RawSizeModeOf({640, 480}), 1u);
  EXPECT_EQ(RawSizeModeOf({320, 240}), 2u);
  EXPECT_EQ(RawSizeModeOf({160, 120}), 4u);
  EXPECT_EQ(RawSizeOf(1), (PictureSize{640, 480}));
  EXPECT_EQ(RawSizeOf(2), (PictureSize{320, 240}));
  EXPECT_EQ(RawSizeOf(4), (PictureSize{160, 120}));
  for (const std::uint32_t mode : {0u, 3u, 5u, 6u, 7u}) EXPECT_EQ(RawSizeOf(mode), std::nullopt);
}

struct SettingsRow {
  PictureSize Delivered;
  std::optional<PictureSize> Raw;
  CameraKind Kind;
  std::vector<std::uint8_t> Settings;
};

class StreamSettings : public ::testing::TestWithParam<SettingsRow> {};

TEST_P(StreamSettings, AreTriedWidestFirst) {
  const SettingsRow& row = GetParam();
  EXPECT_EQ(SettingsFor({row.Delivered, row.Raw}, row.Kind), row.Settings);
}

INSTANTIATE_TEST_SUITE_P(
    WithoutARawSizeAllThatGiveAPicture, StreamSettings,
    ::testing::Values(SettingsRow{{640, 480}, {}, {kVga0708, true}, {7, 6, 5, 4, 3, 2}},
                      SettingsRow{{160, 120}, {}, {kVga0708, true}, {7, 6, 5, 4, 3, 2}},
                      SettingsRow{{640, 480}, {}, {kVga0708, false}, {3, 2}},
                      SettingsRow{{352, 288}, {}, {kOv7660, true}, {7, 6, 5, 4, 3, 2}}));

// The sensor that the host steers halves its picture at the widest setting for narrow streams.
INSTANTIATE_TEST_SUITE_P(
    WithARawSizeThoseThatGiveIt, StreamSettings,
    ::testing::Values(
        SettingsRow{{640, 480}, PictureSize{640, 480}, {kVga0708, true}, {7}},
        SettingsRow{{352, 288}, PictureSize{640, 480}, {kVga0708, true}, {7}},
        SettingsRow{{352, 288}, PictureSize{320, 240}, {kVga0708, true}, {6, 5, 4}},
        SettingsRow{{320, 240}, PictureSize{320, 240}, {kVga0708, true}, {7, 6, 5, 4}},
        SettingsRow{{160, 120}, PictureSize{320, 240}, {kVga0708, true}, {7, 6, 5, 4}},
        SettingsRow{{640, 480}, PictureSize{160, 120}, {kVga0708, true}, {3, 2}},
        SettingsRow{{320, 240}, PictureSize{640, 480}, {kOv7660, true}, {7}},
        SettingsRow{{320, 240}, PictureSize{320, 240}, {kOv7660, true}, {6, 5, 4}},
        SettingsRow{{640, 480}, PictureSize{160, 120}, {kOv7660, false}, {3, 2}}));

struct RefusedRow {
  PictureSize Delivered;
  PictureSize Raw;
  CameraKind Kind;
  const char* Reason;
};

class RefusedRawSizes : public ::testing::TestWithParam<RefusedRow> {};

TEST_P(RefusedRawSizes, AreToldWithTheReason) {
  const RefusedRow& row = GetParam();
  try {
    (void)SettingsFor({row.Delivered, row.Raw}, row.Kind);
    ADD_FAILURE() << "no error";
  } catch (const CommandError& error) {
    EXPECT_THAT(error.what(), HasSubstr("raw size " + ToString(row.Raw)));
    EXPECT_THAT(error.what(), HasSubstr(row.Reason));
  }
}

INSTANTIATE_TEST_SUITE_P(
    EachReason, RefusedRawSizes,
    ::testing::Values(
        RefusedRow{{640, 480}, {640, 480}, {kVga0708, false}, "sends 160x120 only"},
        RefusedRow{{640, 480}, {320, 240}, {kOv7660, false}, "sends 160x120 only"},
        RefusedRow{{320, 240}, {640, 480}, {kVga0708, true}, "not sent for a stream of 320x240"},
        RefusedRow{{176, 144}, {640, 480}, {kVga0708, true}, "not sent for a stream of 176x144"}));

}  // namespace
}  // namespace lidcam::app
