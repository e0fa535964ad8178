#include <array>
#include <atomic>
#include <cstddef>
#include <ctime>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "tests/library/api/api_fixture.h"

namespace lidcam::api {
namespace {

using StreamTest = LibraryTest;

std::int64_t MonotonicNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1'000'000'000 + now.tv_nsec;
}

TEST_F(StreamTest, ACameraGivesFramesOfTheUsualSizeWithTheirTime) {
  const OpenCamera camera("sim");
  const std::int64_t before = MonotonicNow();
  ASSERT_EQ(lidcam_start(camera, nullptr), LIDCAM_OK) << lidcam_error_text();
  std::int64_t newest = -1;
  for (int i = 0; i < 5; ++i) {
    const lidcam_frame* frame = nullptr;
    ASSERT_EQ(lidcam_next_frame(camera, kLongestWait, &frame), LIDCAM_OK) << lidcam_error_text();
    EXPECT_EQ(frame->width, 640U);
    EXPECT_EQ(frame->height, 480U);
    EXPECT_EQ(frame->stride, 1280U);
    EXPECT_EQ(frame->size, 614400U);
    EXPECT_EQ(frame->duration, 333333);
    EXPECT_GT(frame->stream_time, newest);
    EXPECT_GT(frame->monotonic_ns, before);
    EXPECT_LE(frame->monotonic_ns, MonotonicNow() + 1'000'000);
    EXPECT_GE(frame->drop_count, 0);
    newest = frame->stream_time;
    lidcam_frame_release(frame);
  }
  EXPECT_EQ(lidcam_stop(camera), LIDCAM_OK);
}

TEST_F(StreamTest, AFrameOutlivesItsStreamAndItsCamera) {
  const lidcam_frame* frame = nullptr;
  std::vector<std::uint8_t> copy;
  {
    const OpenCamera camera("sim");
    ASSERT_EQ(lidcam_start(camera, nullptr), LIDCAM_OK);
    ASSERT_EQ(lidcam_next_frame(camera, kLongestWait, &frame), LIDCAM_OK);
    copy.assign(frame->data, frame->data + frame->size);
    ASSERT_EQ(lidcam_stop(camera), LIDCAM_OK);
  }
  EXPECT_TRUE(std::equal(copy.begin(), copy.end(), frame->data));
  lidcam_frame_release(frame);
}

TEST_F(StreamTest, AStreamCanBeStartedAgainInAnotherSize) {
  const OpenCamera camera("sim");
  for (const auto& [width, height] : {std::pair{160U, 120U}, {640U, 480U}, {352U, 288U}}) {
    lidcam_stream_options options = LIDCAM_STREAM_OPTIONS_INIT;
    options.width = width;
    options.height = height;
    ASSERT_EQ(lidcam_start(camera, &options), LIDCAM_OK) << lidcam_error_text();
    const lidcam_frame* frame = nullptr;
    ASSERT_EQ(lidcam_next_frame(camera, kLongestWait, &frame), LIDCAM_OK) << lidcam_error_text();
    EXPECT_EQ(frame->width, width);
    EXPECT_EQ(frame->size, std::size_t{width} * height * 2);
    lidcam_frame_release(frame);
    ASSERT_EQ(lidcam_stop(camera), LIDCAM_OK);
  }
}

TEST_F(StreamTest, ASlowReaderLosesFramesThatAreCounted) {
  const OpenCamera camera("sim");
  lidcam_stream_options options = LIDCAM_STREAM_OPTIONS_INIT;
  options.buffers = 2;
  ASSERT_EQ(lidcam_start(camera, &options), LIDCAM_OK);
  std::int64_t lost = 0;
  // On a slow machine the camera may send nothing while the buffers are held.
  for (int attempt = 0; lost == 0 && attempt < 20; ++attempt) {
    std::array<const lidcam_frame*, 2> held{};
    for (auto& frame : held) ASSERT_EQ(lidcam_next_frame(camera, kLongestWait, &frame), LIDCAM_OK);
    const lidcam_frame* frame = nullptr;
    EXPECT_EQ(lidcam_next_frame(camera, 300, &frame), LIDCAM_TIMEOUT);
    for (const auto* each : held) lidcam_frame_release(each);
    ASSERT_EQ(lidcam_next_frame(camera, kLongestWait, &frame), LIDCAM_OK);
    lost = frame->drop_count;
    lidcam_frame_release(frame);
  }
  EXPECT_GT(lost, 0);
}

TEST_F(StreamTest, PicturesAreWrittenIntoTheApplicationsMemory) {
  constexpr std::size_t kPicture = std::size_t{2} * 160 * 120;
  constexpr std::size_t kPart = kPicture + 100;
  constexpr std::uint8_t kUntouched = 0xA5;
  std::vector<std::uint8_t> memory(3 * kPart, kUntouched);
  const OpenCamera camera("sim");
  lidcam_stream_options options = LIDCAM_STREAM_OPTIONS_INIT;
  options.width = 160;
  options.height = 120;
  options.buffers = 3;
  options.memory = memory.data();
  options.memory_size = memory.size();
  ASSERT_EQ(lidcam_start(camera, &options), LIDCAM_OK) << lidcam_error_text();
  for (int i = 0; i < 5; ++i) {
    const lidcam_frame* frame = nullptr;
    ASSERT_EQ(lidcam_next_frame(camera, kLongestWait, &frame), LIDCAM_OK) << lidcam_error_text();
    EXPECT_EQ(frame->size, kPicture);
    EXPECT_EQ((frame->data - memory.data()) % static_cast<std::ptrdiff_t>(kPart), 0);
    lidcam_frame_release(frame);
  }
  const lidcam_frame* kept = nullptr;
  ASSERT_EQ(lidcam_next_frame(camera, kLongestWait, &kept), LIDCAM_OK) << lidcam_error_text();
  ASSERT_EQ(lidcam_stop(camera), LIDCAM_OK);
  const std::size_t part = static_cast<std::size_t>(kept->data - memory.data()) / kPart;
  EXPECT_LT(part, 3U);
  lidcam_frame_release(kept);
  for (std::size_t i = 0; i < 3; ++i) {
    const auto behind = std::span(memory).subspan(i * kPart + kPicture, kPart - kPicture);
    EXPECT_THAT(behind, testing::Each(kUntouched)) << i;
  }
}

TEST_F(StreamTest, MemoryWithoutRoomOrWithoutANumberOfBuffersIsRefused) {
  std::vector<std::uint8_t> memory(std::size_t{2} * 640 * 480 * 3 - 1);
  const OpenCamera camera("sim");
  lidcam_stream_options options = LIDCAM_STREAM_OPTIONS_INIT;
  options.memory = memory.data();
  options.memory_size = memory.size();
  EXPECT_EQ(lidcam_start(camera, &options), LIDCAM_ERROR_INVALID_ARGUMENT);
  EXPECT_STREQ(lidcam_error_text(), "memory for buffers needs their number: buffers is 0");
  options.buffers = 3;
  EXPECT_EQ(lidcam_start(camera, &options), LIDCAM_ERROR_INVALID_ARGUMENT);
  EXPECT_STREQ(lidcam_error_text(), "memory of 1843199 bytes is too small for 3 buffers of 614400");
}

TEST_F(StreamTest, AHandlerGetsTheFramesOnTheCamerasThread) {
  struct Seen {
    std::atomic<int> Frames = 0;
    std::atomic<int> Refused = 0;
    std::thread::id Caller = std::this_thread::get_id();
    std::atomic<bool> IsOther = true;
  } seen;
  const OpenCamera camera("sim");
  lidcam_stream_options options = LIDCAM_STREAM_OPTIONS_INIT;
  options.user = &seen;
  options.handler = [](lidcam_camera* streaming, const lidcam_frame* frame, void* user) {
    auto& mine = *static_cast<Seen*>(user);
    if (std::this_thread::get_id() == mine.Caller) mine.IsOther = false;
    std::int32_t value = 0;
    EXPECT_EQ(lidcam_control_get(streaming, "Contrast", &value), LIDCAM_OK);
    if (lidcam_stop(streaming) == LIDCAM_ERROR_WRONG_STATE) ++mine.Refused;
    lidcam_frame_release(frame);
    ++mine.Frames;
  };
  ASSERT_EQ(lidcam_start(camera, &options), LIDCAM_OK);
  const lidcam_frame* frame = nullptr;
  EXPECT_EQ(lidcam_next_frame(camera, 0, &frame), LIDCAM_ERROR_WRONG_STATE);
  while (seen.Frames < 5) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  ASSERT_EQ(lidcam_stop(camera), LIDCAM_OK);
  EXPECT_EQ(seen.Refused, seen.Frames);
  EXPECT_TRUE(seen.IsOther);
}

TEST_F(StreamTest, AStopEndsAWaitForAFrame) {
  const OpenCamera camera("sim");
  lidcam_stream_options options = LIDCAM_STREAM_OPTIONS_INIT;
  options.buffers = 1;
  ASSERT_EQ(lidcam_start(camera, &options), LIDCAM_OK);
  const lidcam_frame* held = nullptr;
  ASSERT_EQ(lidcam_next_frame(camera, kLongestWait, &held), LIDCAM_OK);
  std::thread stopper([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(lidcam_stop(camera), LIDCAM_OK);
  });
  const lidcam_frame* none = nullptr;
  EXPECT_EQ(lidcam_next_frame(camera, -1, &none), LIDCAM_END);
  stopper.join();
  lidcam_frame_release(held);
}

TEST_F(StreamTest, SeveralCamerasStreamAtOnce) {
  const OpenCamera first("sim:1af0:0511");
  const OpenCamera second("sim:1af0:0511,seed=2");
  const OpenCamera third("sim:1af0:6010");
  const std::array<lidcam_camera*, 3> cameras = {first, second, third};
  for (lidcam_camera* camera : cameras) {
    ASSERT_EQ(lidcam_start(camera, nullptr), LIDCAM_OK) << lidcam_error_text();
  }
  for (int i = 0; i < 5; ++i) {
    for (lidcam_camera* camera : cameras) ASSERT_TRUE(Skip(camera)) << lidcam_error_text();
  }
}

TEST_F(StreamTest, AWrongSizeOrIntervalIsRefusedWithWhatThereIs) {
  const OpenCamera camera("sim");
  lidcam_stream_options options = LIDCAM_STREAM_OPTIONS_INIT;
  options.width = 800;
  options.height = 600;
  EXPECT_EQ(lidcam_start(camera, &options), LIDCAM_ERROR_INVALID_ARGUMENT);
  EXPECT_STREQ(
      lidcam_error_text(),
      "size 800x600 is not offered by camera 'sim': 640x480, 352x288, 320x240, 176x144, 160x120");
  options = LIDCAM_STREAM_OPTIONS_INIT;
  options.frame_interval = 1;
  EXPECT_EQ(lidcam_start(camera, &options), LIDCAM_ERROR_INVALID_ARGUMENT);
  EXPECT_THAT(lidcam_error_text(), testing::HasSubstr("frame interval 1 is not offered"));
  const lidcam_frame* frame = nullptr;
  EXPECT_EQ(lidcam_next_frame(camera, 0, &frame), LIDCAM_ERROR_WRONG_STATE);
}

TEST_F(StreamTest, AStillIsTakenOfTheRunningStream) {
  const OpenCamera camera("sim");
  ASSERT_EQ(lidcam_start(camera, nullptr), LIDCAM_OK);
  ASSERT_TRUE(Skip(camera));
  const lidcam_still* still = nullptr;
  ASSERT_EQ(lidcam_take_still(camera, &still), LIDCAM_OK) << lidcam_error_text();
  EXPECT_EQ(still->width, 640U);
  EXPECT_EQ(still->size, 614400U);
  lidcam_still_release(still);
  EXPECT_TRUE(Skip(camera));
}

}  // namespace
}  // namespace lidcam::api
