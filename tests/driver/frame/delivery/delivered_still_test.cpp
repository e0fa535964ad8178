// Stills as the frame path takes them: between the exposure control and the copy.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "driver/core/control/camera_lifecycle.h"
#include "driver/frame/delivery/frame_delivery.h"
#include "driver/frame/resampler/image_resampler.h"
#include "tests/driver/frame/still/still_fixture.h"
#include "tests/driver/support/register_space.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

constexpr std::size_t kHeader = 64;

/// A stream whose next frame is to be a still with the value 0x1234.
class StillStream : public StillFixture {
 public:
  StillStream(std::uint32_t rawSizeMode, std::int32_t width, std::int32_t height) {
    Ask(rawSizeMode, 0x1234);
    SetSize(width, height);
    Context.RequestedCompression = kFourccYuy2;
  }

  void SetSize(std::int32_t width, std::int32_t height) {
    Context.RequestedWidth = width;
    Context.RequestedHeight = height;
    Delivered.assign(static_cast<std::size_t>(width * height * 2), 0xA5);
  }

  void Deliver() {
    std::uint32_t written = 0;
    EXPECT_EQ(DeliverFrame(Context, Delivered.data(), 0, Raw.data(), 0, written), 0);
  }

  Bytes Raw = Picture(kHeader + 614400);
  Bytes Delivered;
};

Bytes RawPixels(std::size_t bytes) {
  const Bytes raw = Picture(kHeader + bytes);
  return {raw.begin() + kHeader, raw.end()};
}

struct NativeRow {
  std::uint32_t RawSizeMode;
  std::int32_t Width;
  std::int32_t Height;
  std::size_t Bytes;
  std::vector<std::uint8_t> Marks;
};

class NativeStill : public ::testing::TestWithParam<NativeRow> {};

TEST_P(NativeStill, MarksTheDeliveredFrameAsItMarksTheFile) {
  const NativeRow& row = GetParam();
  StillStream stream(row.RawSizeMode, row.Width, row.Height);
  stream.Deliver();
  const Bytes marked = WithMarks(RawPixels(row.Bytes), row.Marks);
  EXPECT_TRUE(stream.File() == marked);
  EXPECT_TRUE(stream.Delivered == marked);
  EXPECT_TRUE(Bytes(stream.Raw.begin(), stream.Raw.begin() + kHeader) == Picture(kHeader));
}

INSTANTIATE_TEST_SUITE_P(EachNativeSize, NativeStill,
                         ::testing::Values(NativeRow{1, 640, 480, 614400, {3, 0, 0x34, 0x12}},
                                           NativeRow{2, 320, 240, 153600, {2, 0, 0x34, 0x12}},
                                           NativeRow{4, 160, 120, 38400, {1, 0, 0x34, 0x12}}));

TEST(DeliveredStill, OfAResampledStreamHasTheRawSizeAndItsMarksGoThroughTheResampler) {
  StillStream stream(1, 352, 288);
  stream.Deliver();
  const Bytes marked = WithMarks(RawPixels(614400), {3, 0, 0x34, 0x12});
  EXPECT_TRUE(stream.File() == marked);

  Bytes resampled(352 * 288 * 2);
  ASSERT_EQ(ResampleFrame(resampled.data(), marked.data(), 640, 480, 352, 288, 1), 1U);
  EXPECT_TRUE(stream.Delivered == resampled);
  const Bytes unmarked = RawPixels(614400);
  Bytes otherwise(352 * 288 * 2);
  ASSERT_EQ(ResampleFrame(otherwise.data(), unmarked.data(), 640, 480, 352, 288, 1), 1U);
  EXPECT_FALSE(resampled == otherwise) << "the marks show in the output";
}

TEST(DeliveredStill, StaysAskedForWhileTheFormatIsNotYuy2) {
  StillStream stream(4, 160, 120);
  for (const std::uint32_t compression : {0U, kFourccI420}) {
    stream.Context.RequestedCompression = compression;
    stream.Deliver();
    EXPECT_EQ(stream.Context.StillRequested, 1U);
    EXPECT_FALSE(stream.HasFile());
    EXPECT_TRUE(stream.Raw == Picture(kHeader + 614400));
  }
  stream.Context.RequestedCompression = kFourccYuy2;
  stream.Deliver();
  EXPECT_EQ(stream.Context.StillRequested, 0U);
  EXPECT_TRUE(stream.HasFile());
}

TEST(DeliveredStill, StaysAskedForInARawModeWithoutANativeSize) {
  for (const std::uint32_t mode : {0U, 3U, 5U, 6U, 7U}) {
    StillStream stream(mode, 160, 120);
    stream.Deliver();
    EXPECT_EQ(stream.Context.StillRequested, 1U) << mode;
    EXPECT_FALSE(stream.HasFile());
    EXPECT_TRUE(stream.Raw == Picture(kHeader + 614400));
    EXPECT_THAT(stream.Debug.Messages(), IsEmpty());
  }
}

TEST(DeliveredStill, StaysAskedForOverTheEndOfAStream) {
  RegisterSpace space;
  StillStream stream(4, 160, 120);
  stream.Context.TransportContext = space.Transport().TransportContext;
  stream.Context.WriteRequest = space.Transport().WriteRequest;
  stream.Context.ReadRequest = space.Transport().ReadRequest;
  EndStream(stream.Context);
  StreamIdle(stream.Context);
  EXPECT_EQ(stream.Context.StillRequested, 1U);
  MarkStreaming(stream.Context);
  stream.Deliver();
  EXPECT_TRUE(stream.HasFile());
}

TEST(DeliveredStill, ThatFailsLeavesTheFrameMarkedAndDelivered) {
  StillStream stream(4, 160, 120);
  std::filesystem::create_directory(stream.FilePath());
  stream.Deliver();
  EXPECT_TRUE(stream.Delivered == WithMarks(RawPixels(38400), {1, 0, 0x34, 0x12}));
  EXPECT_EQ(stream.Context.StillRequested, 0U);
}

/// The camera with host-controlled exposure, on the first frame of a stream.
class SteeredStream : public StillStream {
 public:
  SteeredStream() : StillStream(4, 160, 120) {
    const CameraTransport transport = space_.Transport();
    Context.TransportContext = transport.TransportContext;
    Context.WriteRequest = transport.WriteRequest;
    Context.ReadRequest = transport.ReadRequest;
    Context.SensorType = SensorTypeVGA0708;
    Context.LED = LedPolicyFollowLight;
    Context.LightState = LightStateInitial;
    space_.OnRequest = [this](const WirePacket&) {
      OldRawFrame = Context.LastRawFrame == nullptr;
      ++Requests;
    };
  }

  int Requests = 0;
  bool OldRawFrame = false;  ///< at the last request

 private:
  RegisterSpace space_;
};

TEST(DeliveredFrame, IsGivenToTheExposureControlBeforeAnythingElse) {
  SteeredStream stream;
  stream.Deliver();
  EXPECT_GT(stream.Requests, 0);
  EXPECT_TRUE(stream.OldRawFrame);
  EXPECT_THAT(stream.Debug.Messages(),
              ElementsAreArray(Messages{"******** Initial state ********\n",
                                        "ulWidth = 160, ulHeight = 120", "Write file true",
                                        "ulWidth = 160", "ulHeight = 120", "srcIndex = 1"}));
}

TEST(DeliveredFrame, IsGivenToTheExposureControlInEveryFormatAndRawMode) {
  SteeredStream rgb;
  rgb.Context.RequestedCompression = 0;
  rgb.Deliver();
  EXPECT_GT(rgb.Requests, 0);
  EXPECT_NE(rgb.Context.LightState, std::uint32_t{LightStateInitial});

  SteeredStream unknownMode;
  unknownMode.Context.RawSizeMode = RawMode1280x1024;
  unknownMode.Deliver();
  EXPECT_GT(unknownMode.Requests, 0);
  EXPECT_NE(unknownMode.Context.LightState, std::uint32_t{LightStateInitial});
}

}  // namespace
}  // namespace lidcam::test
