#include "viewer/camera/picture_recording.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace lidcam::viewer {
namespace {

using testing::ElementsAre;

/// What a test double of a file saw.
struct Written {
  std::vector<std::int64_t> Times{};  ///< microseconds
  int Finished = 0;
  int Failing = -1;   ///< number of the write that fails
  std::mutex Gate{};  ///< a test that holds it stops the writes
};

class Writer final : public PictureWriter {
 public:
  explicit Writer(Written& written) : written_(written) {}
  void Write(const Picture&, std::chrono::microseconds time) override {
    const std::lock_guard lock(written_.Gate);
    if (written_.Failing == static_cast<int>(written_.Times.size())) {
      throw std::runtime_error("the disk is full");
    }
    written_.Times.push_back(time.count());
  }
  void Finish() override { ++written_.Finished; }

 private:
  Written& written_;
};

MakePictureWriter Into(Written& written) {
  return [&written](const std::string&, app::PictureSize) {
    return std::make_unique<Writer>(written);
  };
}

std::shared_ptr<const Picture> At(double seconds, app::PictureSize size = {160, 120}) {
  return std::make_shared<const Picture>(Picture{.Yuy2 = {}, .Size = size, .Seconds = seconds});
}

TEST(PictureRecording, BeginsAtZeroWithItsFirstPicture) {
  Written written;
  PictureRecording recording(Into(written), "clip.mkv");
  recording.Take(At(5));
  recording.Take(At(5.5));
  EXPECT_EQ(recording.Finish().Frames, 2U);
  EXPECT_THAT(written.Times, ElementsAre(0, 500000));
  EXPECT_EQ(written.Finished, 1);
}

TEST(PictureRecording, GoesOnWhenTheCamerasStreamBeginsAnew) {
  Written written;
  PictureRecording recording(Into(written), "clip.mkv");
  recording.Take(At(2));
  recording.Take(At(3));
  recording.Take(At(0.5));
  recording.Take(At(1));
  EXPECT_EQ(recording.Finish().Frames, 4U);
  ASSERT_EQ(written.Times.size(), 4U);
  EXPECT_NEAR(static_cast<double>(written.Times[2]), 1033333, 1000);
  EXPECT_NEAR(static_cast<double>(written.Times[3]), 1533333, 1000);
}

TEST(PictureRecording, APictureOfAnotherSizeIsLostAndCounted) {
  Written written;
  PictureRecording recording(Into(written), "clip.mkv");
  recording.Take(At(0));
  recording.Take(At(1, {320, 240}));
  const auto result = recording.Finish();
  EXPECT_EQ(result.Frames, 1U);
  EXPECT_EQ(result.Lost, 1U);
}

TEST(PictureRecording, WithoutAPictureThereIsNoFile) {
  Written written;
  PictureRecording recording(Into(written), "clip.mkv");
  const auto result = recording.Finish();
  EXPECT_EQ(result.Error, "the camera has sent no picture");
  EXPECT_EQ(written.Finished, 0);
}

TEST(PictureRecording, AFullDiskKeepsWhatWasWrittenAndIsTold) {
  Written written;
  written.Failing = 2;
  PictureRecording recording(Into(written), "clip.mkv");
  for (int i = 0; i < 5; ++i) recording.Take(At(i));
  const auto result = recording.Finish();
  EXPECT_EQ(result.Frames, 2U);
  EXPECT_EQ(result.Error, "the disk is full");
  EXPECT_EQ(written.Finished, 1);
}

// A disk that stands still costs pictures, neither memory nor the camera's time.
TEST(PictureRecording, ASlowDiskLosesPicturesAndHoldsUpNothing) {
  Written written;
  PictureRecording recording(Into(written), "clip.mkv");
  {
    const std::lock_guard disk(written.Gate);
    for (int i = 0; i < 200; ++i) recording.Take(At(i));
  }
  const auto result = recording.Finish();
  EXPECT_EQ(result.Frames + result.Lost, 200U);
  EXPECT_GE(result.Lost, 200 - PictureRecording::kMostWaiting - 1);
}

}  // namespace
}  // namespace lidcam::viewer
