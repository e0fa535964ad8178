// A recording of the camera's bus as a camera of the library.

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "bus/capture/recording/recording_bus.h"
#include "camera_model/bus_adapter/simulated_bus.h"
#include "camera_model/device/camera_options.h"
#include "library/camera/bring_up/virtual_time.h"
#include "library/camera/streaming/camera_stream.h"
#include "library/settings/host_environment.h"
#include "testbed/worlds.h"
#include "tests/library/api/api_fixture.h"

namespace lidcam::api {
namespace {

class RecordingTest : public LibraryTest {
 protected:
  /// Records a simulated camera's stream. @return the recording's address
  std::string Record(const std::string& camera, std::uint64_t frames) {
    const std::string path = (Folder() / "bus.pcap").string();
    const auto simulated =
        bus::MakeSimulatedBus(camera_model::ParseCameraOptions(camera), bus::Pacing::FreeRunning);
    bus::RecordingBus recording(*simulated, path);
    const app::RunSettings settings =
        app::OpenHostEnvironment({.IsQuiet = true}, app::SetFiles::OfSimulatedCameras);
    app::RunInVirtualTime([&] {
      app::WithStream(recording, {.Size = {.Delivered = {160, 120}}, .MostFrames = frames},
                      [&](app::CameraStream& stream) {
                        while (stream.Counts().Delivered() < frames && stream.Advance()) {
                        }
                      });
    });
    recording.Finish();
    return "capture:" + path;
  }

  static lidcam_stream_options SmallPictures() {
    lidcam_stream_options options = LIDCAM_STREAM_OPTIONS_INIT;
    options.width = 160;
    options.height = 120;
    return options;
  }
};

TEST_F(RecordingTest, ItsFramesComeInTheirOwnTimeUpToTheEnd) {
  const OpenCamera camera(Record("sim", 12));
  EXPECT_EQ(lidcam_camera_get_info(camera)->kind, LIDCAM_KIND_RECORDING);
  EXPECT_STREQ(lidcam_camera_get_info(camera)->unit, "");
  const lidcam_stream_options options = SmallPictures();
  ASSERT_EQ(lidcam_start(camera, &options), LIDCAM_OK) << lidcam_error_text();
  int frames = 0;
  std::int64_t newest = -1;
  const lidcam_frame* frame = nullptr;
  lidcam_status status = LIDCAM_OK;
  while ((status = lidcam_next_frame(camera, kLongestWait, &frame)) == LIDCAM_OK) {
    ++frames;
    EXPECT_EQ(frame->size, 160U * 120 * 2);
    EXPECT_EQ(frame->monotonic_ns, 0);
    EXPECT_GT(frame->stream_time, newest);
    EXPECT_EQ(frame->drop_count, 0);
    newest = frame->stream_time;
    lidcam_frame_release(frame);
  }
  EXPECT_EQ(status, LIDCAM_END);
  EXPECT_GE(frames, 11);
  EXPECT_EQ(lidcam_stop(camera), LIDCAM_OK);
}

TEST_F(RecordingTest, ASlowReaderOfItLosesNothing) {
  const OpenCamera camera(Record("sim", 12));
  lidcam_stream_options options = SmallPictures();
  options.buffers = 1;
  ASSERT_EQ(lidcam_start(camera, &options), LIDCAM_OK) << lidcam_error_text();
  int frames = 0;
  const lidcam_frame* frame = nullptr;
  while (lidcam_next_frame(camera, kLongestWait, &frame) == LIDCAM_OK) {
    ++frames;
    EXPECT_EQ(frame->drop_count, 0);
    lidcam_frame_release(frame);
  }
  EXPECT_GE(frames, 11);
}

TEST_F(RecordingTest, OneThatIsOverSaysHowItIsPlayedAgain) {
  const std::string address = Record("sim", 6);
  const lidcam_stream_options options = SmallPictures();
  {
    const OpenCamera camera(address);
    ASSERT_EQ(lidcam_start(camera, &options), LIDCAM_OK) << lidcam_error_text();
    while (Skip(camera)) {
    }
    ASSERT_EQ(lidcam_stop(camera), LIDCAM_OK);
    EXPECT_EQ(lidcam_start(camera, &options), LIDCAM_ERROR_FAILED);
    EXPECT_THAT(lidcam_error_text(), testing::HasSubstr("the recording is over; open it again"));
  }
  const OpenCamera again(address);
  ASSERT_EQ(lidcam_start(again, &options), LIDCAM_OK) << lidcam_error_text();
  EXPECT_TRUE(Skip(again));
}

// A camera in the dark sends five frames a second, and a stream of thirty has times for six.
TEST_F(RecordingTest, TheTimesAtWhichACameraInTheDarkSendsNothingAreNoLosses) {
  const OpenCamera camera(Record("sim,light=1lx@0s", 70));
  const lidcam_stream_options options = SmallPictures();
  ASSERT_EQ(lidcam_start(camera, &options), LIDCAM_OK) << lidcam_error_text();
  std::int64_t missing = 0;
  std::int64_t drops = -1;
  int frames = 0;
  bool isDark = false;
  const lidcam_frame* frame = nullptr;
  while (lidcam_next_frame(camera, kLongestWait, &frame) == LIDCAM_OK) {
    ++frames;
    missing = frame->picture_number - frames;
    drops = frame->drop_count;
    isDark = frame->light_state == LIDCAM_LIGHT_LOW;
    lidcam_frame_release(frame);
  }
  EXPECT_TRUE(isDark);
  EXPECT_GT(missing, 20);
  EXPECT_EQ(drops, 0);
}

struct LightLog {
  std::mutex Mutex;
  std::vector<std::int32_t> States;

  static void Take(lidcam_camera*, const lidcam_event* event, void* user) {
    if (event->kind != LIDCAM_EVENT_LIGHT) return;
    auto& log = *static_cast<LightLog*>(user);
    const std::lock_guard lock(log.Mutex);
    log.States.push_back(event->value);
  }
};

TEST_F(RecordingTest, EachChangeOfTheLightStateIsAnEvent) {
  const OpenCamera camera(Record("sim,light=1lx@0s;300lx@4s", 150));
  LightLog log;
  ASSERT_EQ(lidcam_set_event_handler(camera, LightLog::Take, &log), LIDCAM_OK);
  const lidcam_stream_options options = SmallPictures();
  ASSERT_EQ(lidcam_start(camera, &options), LIDCAM_OK) << lidcam_error_text();
  while (Skip(camera)) {
  }
  ASSERT_EQ(lidcam_set_event_handler(camera, nullptr, nullptr), LIDCAM_OK);
  ASSERT_GE(log.States.size(), 2U);
  EXPECT_THAT(log.States, testing::Contains(LIDCAM_LIGHT_LOW));
  EXPECT_EQ(log.States.back(), LIDCAM_LIGHT_NORMAL);
  for (std::size_t i = 1; i < log.States.size(); ++i) EXPECT_NE(log.States[i], log.States[i - 1]);
}

}  // namespace
}  // namespace lidcam::api
