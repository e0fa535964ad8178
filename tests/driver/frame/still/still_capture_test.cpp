#include "driver/frame/still/still_capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "driver/core/base/camera_trace.h"
#include "driver/core/control/control_codes.h"
#include "platform/host/nt/system/wdm_version.h"
#include "tests/driver/frame/still/still_file_calls.h"
#include "tests/driver/frame/still/still_fixture.h"
#include "tests/driver/support/file_size_limit.h"
#include "tests/driver/support/unprivileged_user.h"

namespace lidcam::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

constexpr auto kAccessDenied = static_cast<NTSTATUS>(0xC0000022);
constexpr auto kDiskFull = static_cast<NTSTATUS>(0xC000007F);
constexpr auto kIsADirectory = static_cast<NTSTATUS>(0xC00000BA);
constexpr auto kInvalidHandle = static_cast<NTSTATUS>(0xC0000008);

struct SizeRow {
  std::uint32_t RawSizeMode;
  std::uint32_t Value;
  std::uint32_t FileBytes;
  const char* Width;
  const char* Height;
  const char* SizeIndex;
  Bytes Marks;
};

class StillSizes : public ::testing::TestWithParam<SizeRow> {};

TEST_P(StillSizes, FollowTheRawSizeAndMarkTheFileAndTheRawFrame) {
  const SizeRow& row = GetParam();
  StillFixture still;
  still.Ask(row.RawSizeMode, row.Value);
  Bytes pixels = Picture(row.FileBytes);
  const Bytes expected = WithMarks(pixels, row.Marks);
  pixels.resize(row.FileBytes + 16, 0xA5);

  CaptureStill(still.Context, pixels.data());

  EXPECT_TRUE(still.File() == expected);
  Bytes behind(pixels.begin() + row.FileBytes, pixels.end());
  EXPECT_THAT(behind, ::testing::Each(0xA5));
  pixels.resize(row.FileBytes);
  EXPECT_TRUE(pixels == expected);
  EXPECT_THAT(still.Debug.Messages(),
              ElementsAreArray(StillMessages(row.Width, row.Height, row.SizeIndex, true)));
  EXPECT_EQ(still.Context.StillRequested, 0U);
}

INSTANTIATE_TEST_SUITE_P(
    WholeTable, StillSizes,
    ::testing::Values(SizeRow{1, 0x1234, 614400, "640", "480", "3", {3, 0, 0x34, 0x12}},
                      SizeRow{2, 0x1234, 153600, "320", "240", "2", {2, 0, 0x34, 0x12}},
                      SizeRow{4, 0x1234, 38400, "160", "120", "1", {1, 0, 0x34, 0x12}},
                      SizeRow{6, 0x1234, 2621440, "1280", "1024", "4", {4, 0, 0x34, 0x12}}));
INSTANTIATE_TEST_SUITE_P(
    AnyOtherModeTakesTheValueForAllThree, StillSizes,
    ::testing::Values(SizeRow{0, 8, 128, "8", "8", "8", {8, 0, 8, 0}},
                      SizeRow{3, 2, 8, "2", "2", "2", {2, 0, 2, 0}},
                      SizeRow{5, 300, 180000, "300", "300", "300", {0x2C, 1, 0x2C, 1}},
                      SizeRow{7, 16, 512, "16", "16", "16", {16, 0, 16, 0}}));

TEST(StillCapture, OnlyTheRequestOneIsOne) {
  for (const std::uint32_t requested : {0U, 2U, 0x101U, 0xFFFFFFFFU}) {
    StillFixture still;
    still.Ask(4, 7);
    still.Context.StillRequested = requested;
    Bytes pixels = Picture(38400);
    CaptureStill(still.Context, pixels.data());
    EXPECT_FALSE(still.HasFile());
    EXPECT_TRUE(pixels == Picture(38400));
    EXPECT_EQ(still.Context.StillRequested, requested);
    EXPECT_THAT(still.Debug.Messages(), IsEmpty());
  }
}

TEST(StillCapture, OfTheValueSixteenBitsAreStored) {
  StillFixture still;
  still.Ask(4, 0x12345);
  Bytes pixels = Picture(38400);
  CaptureStill(still.Context, pixels.data());
  EXPECT_TRUE(still.File() == WithMarks(Picture(38400), {1, 0, 0x45, 0x23}));
  EXPECT_EQ(still.Context.StillRequestValue, 0x12345U);
}

TEST(StillCapture, BothWorkBufferFlagsTogetherMakeItTheLargestSize) {
  struct Row {
    std::uint8_t Present;
    std::uint8_t Ready;
    std::size_t FileBytes;
    std::uint8_t SizeIndex;
  };
  for (const Row& row : {Row{0, 0, 38400, 1}, Row{1, 0, 38400, 1}, Row{0, 1, 38400, 1},
                         Row{1, 1, 614400, 3}, Row{0x80, 2, 614400, 3}}) {
    StillFixture still;
    still.Ask(4, 5);
    still.Context.WorkBuffersPresent = row.Present;
    still.Context.WorkBuffersReady = row.Ready;
    Bytes pixels = Picture(614400);
    CaptureStill(still.Context, pixels.data());
    pixels = Picture(614400);
    pixels.resize(row.FileBytes);
    EXPECT_TRUE(still.File() == WithMarks(pixels, {row.SizeIndex, 0, 5, 0}));
  }
}

TEST(StillCapture, ASecondStillLeavesNothingOfALongerOneBehind) {
  StillFixture still;
  still.Ask(2, 1);
  Bytes longer = Picture(153600, 1);
  CaptureStill(still.Context, longer.data());
  still.Ask(4, 2);
  Bytes shorter = Picture(38400, 2);
  CaptureStill(still.Context, shorter.data());
  EXPECT_TRUE(still.File() == WithMarks(Picture(38400, 2), {1, 0, 2, 0}));
}

TEST(StillCapture, OneRequestGivesOneStill) {
  StillFixture still;
  still.Ask(4, 1);
  Bytes pixels = Picture(38400);
  CaptureStill(still.Context, pixels.data());
  fs::remove(still.FilePath());
  CaptureStill(still.Context, pixels.data());
  EXPECT_FALSE(still.HasFile());
}

TEST(StillCapture, ASecondRequestBeforeTheFrameReplacesTheValue) {
  StillFixture still;
  still.Context.RawSizeMode = RawMode160x120;
  for (const std::int32_t value : {5, 6}) {
    SetControl(still.Context,
               {.Code = 43, .Value = value, .Value2 = 0, .Flags = 0, .Caps = 0, .Words = {}});
  }
  Bytes pixels = Picture(38400);
  CaptureStill(still.Context, pixels.data());
  EXPECT_TRUE(still.File() == WithMarks(Picture(38400), {1, 0, 6, 0}));
  EXPECT_EQ(still.Debug.Messages().size(), 5U);
}

TEST(StillCapture, SaysItsSizeBeforeItOpensTheFileAndTheRestAfterIt) {
  StillFixture still;
  still.Ask(4, 1);
  Bytes pixels = Picture(38400);
  StillFileCalls calls;
  Messages atOpen;
  calls.OnOpen = [&] { atOpen = still.Debug.Messages(); };
  CaptureStill(still.Context, pixels.data());
  EXPECT_THAT(atOpen, ElementsAre("ulWidth = 160, ulHeight = 120"));
  EXPECT_THAT(still.Debug.Messages(), ElementsAreArray(StillMessages("160", "120", "1", true)));
}

// The request is cleared last: one that an application makes meanwhile is used up with it.
TEST(StillCapture, IsUsedUpBehindItsFile) {
  StillFixture still;
  still.Ask(4, 1);
  Bytes pixels = Picture(38400);
  StillFileCalls calls;
  calls.OnOpen = [&] {
    EXPECT_EQ(still.Context.StillRequested, 1U);
    still.Ask(4, 2);
  };
  CaptureStill(still.Context, pixels.data());
  EXPECT_EQ(still.Context.StillRequested, 0U);
  EXPECT_EQ(still.Context.StillRequestValue, 2U);
  EXPECT_TRUE(still.File() == WithMarks(Picture(38400), {1, 0, 1, 0}));
}

// --- The trace -----------------------------------------------------------------------------------

/// The trace lines while it lives, one object at a time.
class TraceLines {
 public:
  TraceLines() {
    Lines().clear();
    SetCameraTraceSink(Take);
  }
  TraceLines(const TraceLines&) = delete;
  TraceLines& operator=(const TraceLines&) = delete;
  ~TraceLines() { SetCameraTraceSink(nullptr); }

  static Messages& Lines() {
    static Messages lines;
    return lines;
  }

 private:
  [[gnu::format(printf, 2, 0)]] static void Take(const CameraContext*, const char* format,
                                                 std::va_list arguments) {
    char line[160];
    std::vsnprintf(line, sizeof(line), format, arguments);
    Lines().emplace_back(line);
  }
};

TEST(StillTrace, TellsSizeValueAndTheStatusOfTheFile) {
  StillFixture still;
  const TraceLines trace;
  Bytes pixels = Picture(614400);
  CaptureStill(still.Context, pixels.data());
  EXPECT_THAT(trace.Lines(), IsEmpty()) << "no still was requested";
  still.Ask(1, 0);
  CaptureStill(still.Context, pixels.data());
  still.Ask(2, 0x12345);
  {
    const FileSizeLimit limit(0);
    CaptureStill(still.Context, pixels.data());
  }
  still.Ask(4, 7);
  fs::remove(still.FilePath());
  fs::create_directory(still.FilePath());
  CaptureStill(still.Context, pixels.data());
  EXPECT_THAT(trace.Lines(), ElementsAre("still 640x480 index=3 value=0 status=00000000",
                                         "still 320x240 index=2 value=74565 status=C000007F",
                                         "still 160x120 index=1 value=7 status=C00000BA"));
}

// --- Calls of the platform -----------------------------------------------------------------------

TEST(StillFile, IsOpenedToBeReplacedAndWrittenFromItsStart) {
  StillFixture still;
  Bytes pixels = Picture(38400);
  StillFileCalls calls;
  EXPECT_EQ(WriteStillFile(still.Context, pixels.data(), 160, 120, 5, 1), 0);

  ASSERT_EQ(calls.Opens.size(), 1U);
  EXPECT_EQ(calls.Opens[0], (OpenCall{
                                .Name = u"\\SystemRoot\\system32\\drivers\\SnapFile.dat",
                                .AttributesLength = sizeof(OBJECT_ATTRIBUTES),
                                .RootDirectory = nullptr,
                                .Attributes = 0x80,
                                .Access = 2,
                                .HasAllocationSize = false,
                                .FileAttributes = 0x80,
                                .ShareAccess = 2,
                                .Disposition = 5,
                                .Options = 0x20,
                                .ExtendedAttributes = nullptr,
                                .ExtendedLength = 0,
                            }));
  ASSERT_EQ(calls.Writes.size(), 1U);
  const WriteCall& write = calls.Writes[0];
  EXPECT_FALSE(write.HasEvent);
  EXPECT_FALSE(write.HasRoutine);
  EXPECT_EQ(write.Bytes, pixels.data());
  EXPECT_EQ(write.Length, 38400U);
  EXPECT_EQ(write.Offset, 0);
  EXPECT_THAT(calls.Closes, ElementsAre(write.File));
}

struct LevelRow {
  const char* Name;
  WdmLevel Answering;
  std::vector<WdmLevel> Asked;
  NTSTATUS StatusOfFailedOpen;
  std::size_t Writes;  ///< after a failed open
};

class StillLevels : public ::testing::TestWithParam<LevelRow> {
 protected:
  StillLevels() {
    calls_.OnLevel = [](WdmLevel level) { return level == GetParam().Answering; };
  }

  StillFixture still_;
  StillFileCalls calls_;
  Bytes pixels_ = Picture(38400);
};

TEST_P(StillLevels, EachKnownLevelOfTheDriverModelWritesTheFile) {
  EXPECT_EQ(WriteStillFile(still_.Context, pixels_.data(), 160, 120, 5, 1), 0);
  EXPECT_THAT(calls_.Levels, ElementsAreArray(GetParam().Asked));
  EXPECT_TRUE(still_.File() == WithMarks(Picture(38400), {1, 0, 5, 0}));
}

TEST_P(StillLevels, AFailedWriteBehindAGoodOpenIsReportedAndTheFileClosed) {
  const FileSizeLimit limit(0);
  EXPECT_EQ(WriteStillFile(still_.Context, pixels_.data(), 160, 120, 5, 1), kDiskFull);
  ASSERT_EQ(calls_.Writes.size(), 1U);
  EXPECT_NE(calls_.Writes[0].File, nullptr);
  EXPECT_THAT(calls_.Closes, ElementsAre(calls_.Writes[0].File));
}

TEST_P(StillLevels, AFailedOpenEndsItOnTheNewerLevelsOnly) {
  fs::create_directory(still_.FilePath());
  const LevelRow& row = GetParam();
  EXPECT_EQ(WriteStillFile(still_.Context, pixels_.data(), 160, 120, 5, 1), row.StatusOfFailedOpen);
  EXPECT_EQ(calls_.Opens.size(), 1U);
  // On the older ones the write uses the handle that the failed open left: null.
  ASSERT_EQ(calls_.Writes.size(), row.Writes);
  for (const WriteCall& write : calls_.Writes) EXPECT_EQ(write.File, nullptr);
  EXPECT_EQ(calls_.Closes.size(), row.Writes);
}

INSTANTIATE_TEST_SUITE_P(
    EachLevel, StillLevels,
    ::testing::Values(
        LevelRow{"Level10", {1, 0x10}, {{1, 0x10}}, kIsADirectory, 0},
        LevelRow{"Level20", {1, 0x20}, {{1, 0x10}, {1, 0x20}}, kIsADirectory, 0},
        LevelRow{"Level00", {1, 0}, {{1, 0x10}, {1, 0x20}, {1, 0}}, kInvalidHandle, 1},
        LevelRow{"Level05", {1, 5}, {{1, 0x10}, {1, 0x20}, {1, 0}, {1, 5}}, kInvalidHandle, 1}),
    [](const ::testing::TestParamInfo<LevelRow>& tested) { return tested.param.Name; });

TEST(StillFile, WithoutAKnownLevelThereIsNoneAndItIsReportedAsWritten) {
  StillFixture still;
  still.Ask(4, 0x1234);
  Bytes pixels = Picture(38400);
  StillFileCalls calls;
  calls.OnLevel = [](WdmLevel) { return false; };
  CaptureStill(still.Context, pixels.data());
  EXPECT_THAT(calls.Levels,
              ElementsAre(WdmLevel{1, 0x10}, WdmLevel{1, 0x20}, WdmLevel{1, 0}, WdmLevel{1, 5}));
  EXPECT_THAT(calls.Opens, IsEmpty());
  EXPECT_FALSE(still.HasFile());
  EXPECT_THAT(still.Debug.Messages(), ElementsAreArray(StillMessages("160", "120", "1", true)));
  EXPECT_TRUE(pixels == WithMarks(Picture(38400), {1, 0, 0x34, 0x12}));
  EXPECT_EQ(still.Context.StillRequested, 0U);
}

TEST(StillFile, AHostOfNoDriverModelVersionHasNone) {
  StillFixture still;
  Bytes pixels = Picture(38400);
  host::SetWdmVersion(0);
  EXPECT_EQ(WriteStillFile(still.Context, pixels.data(), 160, 120, 5, 1), 0);
  host::SetWdmVersion(0x0130);
  EXPECT_FALSE(still.HasFile());
}

TEST(StillFile, ThatCannotBeOpenedIsNotReportedAndTheRequestIsUsedUp) {
  StillFixture still;
  fs::create_directory(still.FilePath());
  still.Ask(4, 5);
  Bytes pixels = Picture(38400);
  CaptureStill(still.Context, pixels.data());
  EXPECT_THAT(still.Debug.Messages(), ElementsAreArray(StillMessages("160", "120", "1", false)));
  EXPECT_TRUE(pixels == WithMarks(Picture(38400), {1, 0, 5, 0}));
  EXPECT_EQ(still.Context.StillRequested, 0U);
}

TEST(StillFile, InAReadOnlyFolderTheOneOfBeforeStaysInPlace) {
  StillFixture still;
  still.Disk.Write(kStillFileName, {1, 2, 3});
  fs::permissions(still.FilePath(), fs::perms::owner_read);
  fs::permissions(still.Disk.Drivers(), fs::perms::owner_read | fs::perms::owner_exec);
  Bytes pixels = Picture(38400);
  {
    const UnprivilegedUser user(still.Disk.Root());
    if (!user.IsUnprivileged()) GTEST_SKIP() << "nothing is protected from the superuser";
    EXPECT_EQ(WriteStillFile(still.Context, pixels.data(), 160, 120, 5, 1), kAccessDenied);
    still.Ask(4, 5);
    CaptureStill(still.Context, pixels.data());
  }
  fs::permissions(still.Disk.Drivers(), fs::perms::owner_all);
  EXPECT_THAT(still.Debug.Messages(), ElementsAreArray(StillMessages("160", "120", "1", false)));
  EXPECT_EQ(still.Context.StillRequested, 0U);
  EXPECT_THAT(still.File(), ElementsAre(1, 2, 3));
}

TEST(StillFile, OnAFullDiskIsNotReportedAndTheRequestIsUsedUp) {
  StillFixture still;
  const FileSizeLimit limit(0);
  Bytes pixels = Picture(38400);
  EXPECT_EQ(WriteStillFile(still.Context, pixels.data(), 160, 120, 5, 1), kDiskFull);
  still.Ask(4, 5);
  CaptureStill(still.Context, pixels.data());
  EXPECT_THAT(still.Debug.Messages(), ElementsAreArray(StillMessages("160", "120", "1", false)));
  EXPECT_EQ(still.Context.StillRequested, 0U);
}

TEST(StillFile, HasSixteenBitsOfTheSizeIndex) {
  StillFixture still;
  Bytes pixels = Picture(64);
  EXPECT_EQ(WriteStillFile(still.Context, pixels.data(), 8, 4, 0xFFFE, 0x8BCDE), 0);
  EXPECT_TRUE(still.File() == WithMarks(Picture(64), {0xDE, 0xBC, 0xFE, 0xFF}));
}

// Sizes that no raw mode has: bytes are counted in 32 bits, and each mark needs two of them.
TEST(StillFile, OfAPictureTooSmallForBothMarksHasThoseThatLieInsideIt) {
  struct Row {
    std::uint32_t Width;
    std::uint32_t Height;
    Bytes File;
  };
  const Row rows[] = {
      {0, 0, {}},           {0x10000, 0x8000, {}}, {1, 1, {5, 0}}, {0xFFFFFFFF, 0xFFFFFFFF, {5, 0}},
      {2, 1, {1, 0, 5, 0}},
  };
  for (const Row& row : rows) {
    StillFixture still;
    Bytes pixels = Picture(16);
    EXPECT_EQ(WriteStillFile(still.Context, pixels.data(), row.Width, row.Height, 5, 1), 0);
    Bytes expected = Picture(16);
    std::copy(row.File.begin(), row.File.end(), expected.begin());
    EXPECT_TRUE(pixels == expected);
    EXPECT_TRUE(still.HasFile());
    EXPECT_TRUE(still.File() == row.File);
  }
}

}  // namespace
}  // namespace lidcam::test
