#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "apps/lidcam/output/frame_writer.h"
#include "apps/lidcam/output/output_file.h"
#include "apps/lidcam/output/output_form.h"
#include "apps/lidcam/output/pipeline/frame_output.h"
#include "apps/lidcam/output/yuy2.h"
#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

constexpr std::chrono::microseconds kPeriod{33333};

class OutputTest : public ::testing::Test {
 protected:
  OutputTest() {
    std::string name = (fs::temp_directory_path() / "lidcam-output-XXXXXX").string();
    folder_ = mkdtemp(name.data());
  }
  ~OutputTest() override { fs::remove_all(folder_); }

  [[nodiscard]] std::string PathOf(const std::string& name) const {
    return (folder_ / name).string();
  }

  [[nodiscard]] std::string ContentOf(const std::string& name) const {
    std::ifstream file(PathOf(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  [[nodiscard]] std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder_)) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }

 private:
  fs::path folder_;
};

TEST_F(OutputTest, AFileAppearsWhenItIsWhole) {
  OutputFile file(PathOf("a.txt"));
  file.Write("one");
  EXPECT_FALSE(fs::exists(PathOf("a.txt")));
  file.Write(" two");
  file.Commit();
  EXPECT_THAT(Names(), ElementsAre("a.txt"));
  EXPECT_EQ(ContentOf("a.txt"), "one two");
}

TEST_F(OutputTest, AnAbandonedFileLeavesNothingAndKeepsTheOneBefore) {
  std::ofstream(PathOf("a.txt")) << "before";
  {
    OutputFile file(PathOf("a.txt"));
    file.Write("after");
  }
  EXPECT_THAT(Names(), ElementsAre("a.txt"));
  EXPECT_EQ(ContentOf("a.txt"), "before");
}

/// Lets files grow to a size only, as a full disk does.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &old_);
    const rlimit limit{bytes, old_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &old_);
    std::signal(SIGXFSZ, handler_);
  }

 private:
  void (*handler_)(int);
  rlimit old_{};
};

TEST_F(OutputTest, OfADiskThatFillsUpTheWholePartsAreKept) {
  const FileSizeLimit limit(10);
  OutputFile file(PathOf("a.txt"));
  file.Write("1234");
  file.MarkWhole();
  file.Write("5678");
  file.MarkWhole();
  EXPECT_THROW(file.Write("9abc"), CommandError);
  EXPECT_FALSE(fs::exists(PathOf("a.txt")));
  file.Commit();
  EXPECT_THAT(Names(), ElementsAre("a.txt"));
  EXPECT_EQ(ContentOf("a.txt"), "12345678");
}

TEST_F(OutputTest, OfADiskWithoutRoomForAWholePartTheFileBeforeIsKept) {
  std::ofstream(PathOf("a.txt")) << "before";
  const FileSizeLimit limit(10);
  OutputFile file(PathOf("a.txt"));
  EXPECT_THROW(file.Write("123456789abc"), CommandError);
  file.Commit();
  EXPECT_THAT(Names(), ElementsAre("a.txt"));
  EXPECT_EQ(ContentOf("a.txt"), "before");
}

TEST_F(OutputTest, ALinkStaysALink) {
  std::ofstream(PathOf("real.txt")) << "before";
  fs::create_symlink("real.txt", PathOf("a.txt"));
  OutputFile file(PathOf("a.txt"));
  file.Write("new");
  file.Commit();
  EXPECT_TRUE(fs::is_symlink(PathOf("a.txt")));
  EXPECT_EQ(ContentOf("real.txt"), "new");
}

TEST_F(OutputTest, WhatCannotHaveItsNameIsKeptBesideIt) {
  OutputFile file(PathOf("a.txt"));
  file.Write("all of it");
  fs::create_directory(PathOf("a.txt"));
  try {
    file.Commit();
    FAIL() << "a folder has the name";
  } catch (const CommandError& error) {
    EXPECT_THAT(error.what(), ::testing::HasSubstr(".part', where it is complete"));
  }
  EXPECT_EQ(Names().size(), 2U);
}

TEST_F(OutputTest, FoldersAndMissingFoldersAreRefused) {
  EXPECT_THROW(OutputFile(PathOf("")), CommandError);
  EXPECT_THROW(OutputFile(""), CommandError);
  EXPECT_THROW(OutputFile(PathOf("missing/a.txt")), CommandError);
}

TEST_F(OutputTest, Y4mSeparatesThePlanes) {
  const auto writer = MakeFileWriter(PathOf("a.y4m"), {2, 2}, kPeriod);
  const std::array<std::uint8_t, 8> yuy2 = {1, 10, 2, 20, 3, 30, 4, 40};
  writer->Write({.Yuy2 = yuy2});
  writer->Finish();
  EXPECT_EQ(ContentOf("a.y4m"),
            "YUV4MPEG2 W2 H2 F1000000:33333 Ip A1:1 C422\nFRAME\n"
            "\x01\x02\x03\x04\x0A\x1E\x14\x28");
}

TEST_F(OutputTest, RawOutputIsTheFramesBytes) {
  const auto writer = MakeFileWriter(PathOf("a.yuy2"), {2, 1}, kPeriod);
  writer->Write({.Yuy2 = std::array<std::uint8_t, 4>{'a', 'b', 'c', 'd'}});
  writer->Write({.Yuy2 = std::array<std::uint8_t, 4>{'e', 'f', 'g', 'h'}});
  writer->Finish();
  EXPECT_EQ(ContentOf("a.yuy2"), "abcdefgh");
}

// A camera that is plugged in again begins at 0, and the film goes on.
TEST_F(OutputTest, TimesOfAStreamThatContinuesCountFromTheFirstOnesStart) {
  FrameOutput output({.Path = PathOf("a.yuy2"),
                      .Size = {2, 1},
                      .FramePeriod = kPeriod,
                      .Timestamps = PathOf("times.txt")});
  constexpr std::array<std::uint8_t, 4> kYuy2{};
  output.BeginPart({});
  output.Write({.Yuy2 = kYuy2, .Time = std::chrono::milliseconds(100)});
  output.BeginPart(std::chrono::milliseconds(300));
  output.Write({.Yuy2 = kYuy2, .Time = std::chrono::milliseconds(50)});
  output.Finish();
  std::istringstream times(ContentOf("times.txt"));
  std::string header;
  double first = 0;
  double second = 0;
  std::getline(times, header);
  times >> first >> second;
  EXPECT_EQ(first, 100);
  EXPECT_EQ(second, 350);
}

TEST_F(OutputTest, APngSeriesIsNumbered) {
  const auto writer = MakeFileWriter(PathOf("shot.png"), {2, 1}, kPeriod);
  for (int frame = 0; frame < 2; ++frame) writer->Write({.Yuy2 = std::array<std::uint8_t, 4>{}});
  writer->Finish();
  EXPECT_THAT(Names(), ::testing::UnorderedElementsAre("shot-0001.png", "shot-0002.png"));
  EXPECT_EQ(writer->Place(), PathOf("shot-0001.png") + " to " + PathOf("shot-0002.png"));
}

TEST(OutputForms, FollowTheEndingInAnyCase) {
  EXPECT_EQ(FormOfOutput("a.y4m"), OutputForm::Y4m);
  EXPECT_EQ(FormOfOutput("-"), OutputForm::Y4m);
  EXPECT_EQ(FormOfOutput("a.YUY2"), OutputForm::RawYuy2);
  EXPECT_EQ(FormOfOutput("a.yuv"), OutputForm::RawYuy2);
  EXPECT_EQ(FormOfOutput("a.raw"), OutputForm::RawYuy2);
  EXPECT_EQ(FormOfOutput("a.b/c.Png"), OutputForm::PngSeries);
  EXPECT_EQ(FormOfOutput("/dev/null"), OutputForm::Y4m);
  EXPECT_EQ(FormOfOutput("a.jpg"), OutputForm::JpegSeries);
  EXPECT_EQ(FormOfOutput("a.MKV"), OutputForm::Matroska);
  EXPECT_EQ(FormOfOutput("a.mp4"), OutputForm::Mp4);
  EXPECT_EQ(FormOfOutput("a.avi"), OutputForm::Avi);
  EXPECT_EQ(FormOfOutput("a.mjpeg"), OutputForm::Mjpeg);
  EXPECT_THROW((void)FormOfOutput("a.gif"), UsageError);
  EXPECT_THROW((void)FormOfOutput("a"), UsageError);
}

// Colours of BT.601 in studio range: Y, U, V and the RGB that they stand for.
TEST(Yuy2, ColoursBecomeTheirRgb) {
  struct Colour {
    std::uint8_t Y, U, V;
    std::array<int, 3> Rgb;
  };
  constexpr Colour kColours[] = {
      {16, 128, 128, {0, 0, 0}},   {235, 128, 128, {255, 255, 255}},
      {81, 90, 240, {255, 0, 0}},  {145, 54, 34, {0, 255, 0}},
      {41, 240, 110, {0, 0, 255}}, {126, 128, 128, {128, 128, 128}},
  };
  for (const Colour& colour : kColours) {
    std::vector<std::uint8_t> rgb;
    ConvertToRgb(std::array{colour.Y, colour.U, colour.Y, colour.V}, {2, 1}, rgb);
    ASSERT_EQ(rgb.size(), 6u);
    for (std::size_t i = 0; i < 6; ++i) EXPECT_NEAR(rgb[i], colour.Rgb[i % 3], 2);
  }
}

}  // namespace
}  // namespace lidcam::app
