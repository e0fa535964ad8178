#include "library/still/still_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "driver/frame/still/still_capture.h"
#include "library/base/command_error.h"
#include "platform/host/nt/system/wdm_version.h"
#include "tests/driver/support/file_size_limit.h"
#include "tests/driver/support/system_root.h"
#include "tests/driver/support/unprivileged_user.h"

namespace lidcam::app {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

std::vector<std::uint8_t> FileOf(std::size_t bytes, std::uint8_t sizeIndex) {
  std::vector<std::uint8_t> file(bytes, 0x80);
  file[bytes - 4] = sizeIndex;
  file[bytes - 3] = 0;
  file[bytes - 2] = 0x34;
  file[bytes - 1] = 0x12;
  return file;
}

std::string ErrorOf(const std::function<void()>& act) {
  try {
    act();
  } catch (const CommandError& error) {
    return error.what();
  }
  return "no error";
}

struct SizeRow {
  std::uint8_t SizeIndex;
  std::size_t Bytes;
  PictureSize Size;
};

class StillFileSizes : public ::testing::TestWithParam<SizeRow> {};

TEST_P(StillFileSizes, FollowTheSizeIndex) {
  const SizeRow& row = GetParam();
  const StillPicture still = DecodeStill(FileOf(row.Bytes, row.SizeIndex), 0x51234);
  EXPECT_EQ(still.Size, row.Size);
  EXPECT_EQ(still.SizeIndex, row.SizeIndex);
  EXPECT_EQ(still.Value, 0x1234);
  EXPECT_TRUE(still.Yuy2 == FileOf(row.Bytes, row.SizeIndex));
}

INSTANTIATE_TEST_SUITE_P(WholeTable, StillFileSizes,
                         ::testing::Values(SizeRow{1, 38400, {160, 120}},
                                           SizeRow{2, 153600, {320, 240}},
                                           SizeRow{3, 614400, {640, 480}},
                                           SizeRow{4, 2621440, {1280, 1024}}));

TEST(StillFile, ThatIsNotWholeIsToldWithItsBytes) {
  EXPECT_THAT(ErrorOf([] { (void)DecodeStill({}, 0); }), HasSubstr("holds 0 bytes"));
  EXPECT_THAT(ErrorOf([] { (void)DecodeStill({1, 0, 0}, 0); }), HasSubstr("holds 3 bytes"));
  EXPECT_THAT(ErrorOf([] { (void)DecodeStill(FileOf(38398, 1), 0x1234); }), HasSubstr("38398"));
  EXPECT_THAT(ErrorOf([] { (void)DecodeStill(FileOf(38400, 2), 0x1234); }), HasSubstr("38400"));
  EXPECT_THAT(ErrorOf([] { (void)DecodeStill(FileOf(38400, 9), 0x1234); }), HasSubstr("38400"));
  EXPECT_THAT(ErrorOf([] { (void)DecodeStill(FileOf(38400, 1), 0x1235); }), HasSubstr("marks"));
}

TEST(StillFile, OfBeforeIsGoneBeforeANewOneIsTaken) {
  const test::TemporarySystemRoot disk;
  disk.Write("SnapFile.dat", FileOf(38400, 1));
  ClearStillFile();
  EXPECT_FALSE(fs::exists(StillFilePath()));
  EXPECT_THAT(ErrorOf([] { (void)ReadStillFile(0); }), HasSubstr("was not written by the driver"));
  disk.Write("SnapFile.dat", FileOf(38400, 1));
  EXPECT_EQ(ReadStillFile(0x1234).Size, (PictureSize{160, 120}));
}

// --- What the driver reports ---------------------------------------------------------------------

/// Takes a still of 160x120 with the value 5 while a report exists, and returns the report's error.
std::string ErrorOfStill() {
  const StillReport report;
  const auto context = std::make_unique<CameraContext>();
  context->RawSizeMode = RawMode160x120;
  context->StillRequestValue = 5;
  context->StillRequested = 1;
  std::vector<std::uint8_t> pixels(38400);
  CaptureStill(*context, pixels.data());
  return ErrorOf([&] { report.RequireWritten(); });
}

TEST(StillReport, OfAWrittenStillIsNoError) {
  const test::TemporarySystemRoot disk;
  EXPECT_EQ(ErrorOfStill(), "no error");
  EXPECT_EQ(ReadStillFile(5).Size, (PictureSize{160, 120}));
}

TEST(StillReport, OfAFullDiskAsksForSpace) {
  const test::TemporarySystemRoot disk;
  std::string error;
  {
    const test::FileSizeLimit limit(0);
    error = ErrorOfStill();
  }
  EXPECT_THAT(error, HasSubstr("SnapFile.dat"));
  EXPECT_THAT(error, HasSubstr("its disk is full; free some space on it"));
}

TEST(StillReport, OfDeniedAccessSaysSoAndAsksForNoSpace) {
  const test::TemporarySystemRoot disk;
  fs::permissions(disk.Drivers(), fs::perms::owner_read | fs::perms::owner_exec);
  std::string error;
  {
    const test::UnprivilegedUser user(disk.Root());
    if (!user.IsUnprivileged()) GTEST_SKIP() << "nothing is protected from the superuser";
    error = ErrorOfStill();
  }
  fs::permissions(disk.Drivers(), fs::perms::owner_all);
  EXPECT_THAT(error, HasSubstr("access is denied"));
  EXPECT_THAT(error, Not(HasSubstr("space")));
}

TEST(StillReport, OfAnotherStatusTellsItsNumber) {
  const test::TemporarySystemRoot disk;
  fs::create_directory(StillFilePath());
  const std::string error = ErrorOfStill();
  EXPECT_THAT(error, HasSubstr("C00000BA"));
  EXPECT_THAT(error, Not(HasSubstr("space")));
}

TEST(StillReport, WithoutAStillSaysThatNoneWasTaken) {
  const StillReport report;
  EXPECT_FALSE(report.Status());
  EXPECT_THAT(ErrorOf([&] { report.RequireWritten(); }), HasSubstr("was not taken"));
}

// The driver counts a still as written that it skips because of the platform's level.
TEST(StillFile, LeftOutForThePlatformsLevelIsToldWithTheReason) {
  const test::TemporarySystemRoot disk;
  host::SetWdmVersion(0);
  const std::string error = ErrorOfStill();
  host::SetWdmVersion(0x0130);
  EXPECT_EQ(error, "no error");
  EXPECT_THAT(ErrorOf([] { (void)ReadStillFile(5); }), HasSubstr("none of the levels"));
}

TEST(StillLock, IsHeldByOneAtATime) {
  const test::TemporarySystemRoot disk;
  {
    const StillLock lock(disk.Root());
    EXPECT_THAT(ErrorOf([&] { const StillLock second(disk.Root()); }),
                HasSubstr("held by another lidcam"));
  }
  EXPECT_EQ(ErrorOf([&] { const StillLock next(disk.Root()); }), "no error");
  EXPECT_THAT(ErrorOf([] { const StillLock nowhere("/nonexistent"); }),
              HasSubstr("No such file or directory"));
}

TEST(StillFile, HasItsFolderMade) {
  const test::TemporarySystemRoot disk;
  fs::remove_all(disk.Drivers().parent_path());
  ClearStillFile();
  EXPECT_TRUE(fs::is_directory(disk.Drivers()));
}

TEST(StillFile, OfBeforeThatAReadOnlyFolderKeepsIsToldAndStays) {
  const test::TemporarySystemRoot disk;
  disk.Write("SnapFile.dat", FileOf(38400, 1));
  fs::permissions(disk.Drivers(), fs::perms::owner_read | fs::perms::owner_exec);
  std::string error;
  {
    const test::UnprivilegedUser user(disk.Root());
    if (!user.IsUnprivileged()) GTEST_SKIP() << "nothing is protected from the superuser";
    error = ErrorOf(ClearStillFile);
  }
  fs::permissions(disk.Drivers(), fs::perms::owner_all);
  EXPECT_THAT(error, HasSubstr("SnapFile.dat"));
  EXPECT_THAT(error, HasSubstr("can't be replaced: Permission denied"));
  EXPECT_TRUE(fs::exists(StillFilePath()));
}

TEST(StillFile, WithAFolderInItsPlaceIsTold) {
  const test::TemporarySystemRoot disk;
  fs::create_directory(StillFilePath());
  EXPECT_THAT(ErrorOf(ClearStillFile), HasSubstr("it is a folder"));
}

}  // namespace
}  // namespace lidcam::app
