#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "driver/core/record/camera_context.h"
#include "library/frames/replay_pipeline.h"

namespace lidcam::app {
namespace {

constexpr PictureSize kStreamedSize{160, 120};
constexpr std::uint32_t kRawBytes = 38466;

// Feeds raw frames of chosen lengths, a packet of 512 bytes at a time.
class ReplayPipelineTest : public ::testing::Test {
 protected:
  ReplayPipelineTest() {
    const std::uint32_t bufferSize =
        SetRecordedFormat(*context_, kStreamedSize, kStreamedSize, kRawBytes);
    context_->FrameSettleCount = 5;
    path_ = std::make_unique<ReplayPipeline>(
        *context_, bufferSize, kStreamedSize,
        [this](const DeliveredFrame& frame) { firstPixels_.push_back(frame.Yuy2[0]); });
  }

  void Send(std::uint8_t content, std::uint32_t bytes) {
    std::vector<std::uint8_t> frame(bytes, content);
    frame[0] = 0xFF;
    frame[1] = 0xD8;
    for (std::uint32_t at = 0; at < bytes; at += 512) {
      const TransferPacket packet{at, std::min(512u, bytes - at)};
      path_->Take(frame, {&packet, 1});
    }
  }

  std::unique_ptr<CameraContext> context_ = std::make_unique<CameraContext>();
  std::vector<std::uint8_t> firstPixels_;
  std::unique_ptr<ReplayPipeline> path_;
};

TEST_F(ReplayPipelineTest, CountsGoodBadAndLostFrames) {
  Send(1, kRawBytes);        // behind a bad end: nothing was received before it
  Send(2, kRawBytes);        // good
  Send(3, kRawBytes - 512);  // bad, delivered all the same
  Send(4, kRawBytes);        // punished for the one before
  Send(5, kRawBytes);        // good
  Send(6, kRawBytes);        // still being received
  EXPECT_THAT(firstPixels_, ::testing::ElementsAre(2, 3, 5));
  EXPECT_EQ(path_->Counts().Good, 2u);
  EXPECT_EQ(path_->Counts().Bad, 1u);
  EXPECT_EQ(path_->Counts().StartUp, 1u);
  EXPECT_EQ(path_->Counts().Lost, 1u);
  EXPECT_EQ(path_->Counts().BusBytes, 6u * kRawBytes - 512u);
}

TEST_F(ReplayPipelineTest, TheRateIsThatOfTheDeliveredFrames) {
  for (std::uint8_t content = 1; content <= 3; ++content) Send(content, kRawBytes);
  EXPECT_EQ(path_->Counts().Delivered(), 1u);
  EXPECT_FALSE(path_->Counts().Rate().has_value()) << "one frame has none";
  for (std::uint8_t content = 4; content <= 6; ++content) Send(content, kRawBytes);
  EXPECT_EQ(path_->Counts().Delivered(), 4u);
  // 76 packets a frame, one a microframe.
  EXPECT_DOUBLE_EQ(path_->Counts().Seconds(), 6 * 76 / 8000.0);
  EXPECT_DOUBLE_EQ(path_->Counts().Rate().value(), 8000.0 / 76);
}

// Recorded frames may be a little shorter than their pixels, or longer than those of any camera.
TEST(RecordedFormat, RawBuffersHoldThePixelsOfTheRawSizeAndTheFramesAsRecorded) {
  CameraContext context{};
  EXPECT_GE(SetRecordedFormat(context, {352, 288}, {640, 480}, 600'000), 614'464u);
  EXPECT_EQ(context.RawSizeMode, 1u);
  EXPECT_EQ(context.RawFrameSize, 600'000u);
  EXPECT_EQ(context.RequestedWidth, 352);
  EXPECT_EQ(context.RequestedHeight, 288);
  EXPECT_GT(SetRecordedFormat(context, {640, 480}, {640, 480}, 2'000'000), 2'000'000u);
}

}  // namespace
}  // namespace lidcam::app
