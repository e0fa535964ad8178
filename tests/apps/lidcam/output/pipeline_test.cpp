#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/lidcam/output/pipeline/constant_rate.h"
#include "apps/lidcam/output/pipeline/motion.h"
#include "apps/lidcam/output/pipeline/picture_stamp.h"
#include "apps/lidcam/output/pipeline/segmented_output.h"

namespace lidcam::app {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// What an output was given.
struct Taken {
  std::vector<std::uint64_t> Numbers;
  std::vector<microseconds> Times;
  int Finished = 0;
};

class TakingWriter : public FrameWriter {
 public:
  explicit TakingWriter(Taken& taken) : taken_(taken) {}
  void Write(const OutputFrame& frame) override {
    taken_.Numbers.push_back(frame.Number);
    taken_.Times.push_back(frame.Time);
  }
  void Finish() override { ++taken_.Finished; }
  [[nodiscard]] std::string Place() const override { return "clip.y4m"; }

 private:
  Taken& taken_;
};

OutputFrame FrameAt(std::uint64_t number, milliseconds time) {
  static const std::vector<std::uint8_t> kBytes(8, 128);
  return {.Yuy2 = kBytes, .Time = time, .Number = number};
}

constexpr microseconds kTenth{100'000};

TEST(ConstantRate, AFrameIsRepeatedUntilTheNextOneComes) {
  Taken taken;
  ConstantRate rate(std::make_unique<TakingWriter>(taken), kTenth);
  rate.Write(FrameAt(1, milliseconds(130)));
  rate.Write(FrameAt(2, milliseconds(440)));
  EXPECT_THAT(taken.Numbers, ElementsAre(1, 1, 1, 2));
  EXPECT_THAT(taken.Times, ElementsAre(milliseconds(130), milliseconds(230), milliseconds(330),
                                       milliseconds(430)));
  EXPECT_EQ(rate.Note(), "constant rate: 2 frames repeated, 0 left out");
  EXPECT_EQ(rate.Kept(), 4U);
}

TEST(ConstantRate, OfTwoFramesInOnePeriodTheSecondIsLeftOut) {
  Taken taken;
  ConstantRate rate(std::make_unique<TakingWriter>(taken), kTenth);
  for (std::uint64_t number = 1; number <= 5; ++number) {
    rate.Write(FrameAt(number, milliseconds(40) * static_cast<int>(number - 1)));
  }
  // At 0, 40, 80, 120 and 160 ms: the periods' middles are at 50 and 150 ms.
  EXPECT_THAT(taken.Numbers, ElementsAre(1, 3, 5));
}

TEST(FixedRateNotice, AFilmThatPlaysAsLongAsItTookHasNoNote) {
  Taken taken;
  FixedRateNotice notice(std::make_unique<TakingWriter>(taken), kTenth);
  for (std::uint64_t number = 1; number <= 20; ++number) {
    notice.Write(FrameAt(number, milliseconds(102) * static_cast<int>(number)));
  }
  EXPECT_THAT(notice.Note(), IsEmpty());
}

TEST(FixedRateNotice, AFilmThatPlaysTooFastSaysSo) {
  Taken taken;
  FixedRateNotice notice(std::make_unique<TakingWriter>(taken), kTenth);
  for (std::uint64_t number = 1; number <= 11; ++number) {
    notice.Write(FrameAt(number, milliseconds(200) * static_cast<int>(number)));
  }
  EXPECT_THAT(notice.Note(), ::testing::HasSubstr("it plays in 1.0 s what took 2.0 s; "));
}

TEST(SegmentedOutput, AFrameAtTheLimitBeginsTheNextFileAndTimesCountFromThere) {
  std::vector<std::unique_ptr<Taken>> files;
  SegmentedOutput output("clip.mkv", microseconds(1'000'000), [&](std::uint64_t number) {
    EXPECT_EQ(number, files.size() + 1);
    files.push_back(std::make_unique<Taken>());
    return std::make_unique<TakingWriter>(*files.back());
  });
  for (const int time : {10, 990, 1000, 3500}) {
    output.Write(FrameAt(static_cast<std::uint64_t>(time), milliseconds(time)));
  }
  ASSERT_EQ(files.size(), 3U);
  EXPECT_THAT(files[0]->Times, ElementsAre(milliseconds(10), milliseconds(990)));
  EXPECT_EQ(files[0]->Finished, 1);
  EXPECT_THAT(files[1]->Times, ElementsAre(milliseconds(0)));
  EXPECT_THAT(files[2]->Times, ElementsAre(milliseconds(500)));
  EXPECT_EQ(files[2]->Finished, 0);
  output.Finish();
  EXPECT_EQ(files[2]->Finished, 1);
  EXPECT_EQ(output.Kept(), 4U);
  EXPECT_EQ(output.Place(), "clip-0001.mkv to clip-0003.mkv");
}

constexpr PictureSize kPicture{64, 48};  // four blocks by three

std::vector<std::uint8_t> PlainPicture(std::uint8_t luma) {
  std::vector<std::uint8_t> picture(kPicture.Yuy2Bytes());
  for (std::size_t at = 0; at < picture.size(); at += 2) {
    picture[at] = luma;
    picture[at + 1] = 128;
  }
  return picture;
}

// A bright square of one block, at a column.
std::vector<std::uint8_t> SquareAt(int column) {
  std::vector<std::uint8_t> picture = PlainPicture(60);
  for (int y = 0; y < 16; ++y) {
    for (int x = 0; x < 16; ++x) {
      picture[static_cast<std::size_t>((y * kPicture.Width + column + x) * 2)] = 200;
    }
  }
  return picture;
}

TEST(MotionWatch, WhatMovesForTwoFramesIsMotion) {
  MotionWatch watch(kPicture);
  EXPECT_EQ(watch.PercentMoved(SquareAt(0)), 0);
  EXPECT_EQ(watch.PercentMoved(SquareAt(16)), 0);
  EXPECT_NEAR(watch.PercentMoved(SquareAt(32)), 100.0 * 2 / 12, 0.01);
  EXPECT_NEAR(watch.PercentMoved(SquareAt(32)), 0, 0.01);
}

TEST(MotionWatch, AStepOfTheExposureIsNoMotion) {
  MotionWatch watch(kPicture);
  EXPECT_EQ(watch.PercentMoved(SquareAt(16)), 0);
  EXPECT_EQ(watch.PercentMoved(PlainPicture(90)), 0);
  EXPECT_EQ(watch.PercentMoved(PlainPicture(90)), 0);
  for (const int luma : {100, 110, 120}) {
    EXPECT_EQ(watch.PercentMoved(PlainPicture(static_cast<std::uint8_t>(luma))), 0);
  }
}

TEST(PictureStamp, TheSmallestPictureHasRoomForADate) {
  constexpr PictureSize kSmallest{160, 120};
  std::vector<std::uint8_t> picture(kSmallest.Yuy2Bytes(), 77);
  const std::vector<std::string> lines = {"2026-11-22 13:05:12.345", "#123456789"};
  DrawStamp(picture, kSmallest, lines);
  // 19 rows of the 120, and 23 letters of 6 dots with an edge.
  const auto at = [&](int x, int y) {
    return picture[static_cast<std::size_t>(y * kSmallest.Width + x) * 2];
  };
  EXPECT_EQ(at(0, 100), 77);
  EXPECT_EQ(at(0, 101), 16);
  EXPECT_EQ(at(139, 119), 16);
  EXPECT_EQ(at(140, 119), 77);
  // The first letter, "2": its lowest row is all ink.
  for (int x = 1; x <= 5; ++x) EXPECT_EQ(at(x, 101 + 1 + 6), 235);
}

TEST(PictureStamp, ADateIsThatOfTheMachinesZone) {
  setenv("TZ", "UTC", 1);
  tzset();
  EXPECT_EQ(DateText(std::chrono::system_clock::time_point(milliseconds(1'795'352'712'345))),
            "2026-11-22 13:05:12.345");
}

}  // namespace
}  // namespace lidcam::app
