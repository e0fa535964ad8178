#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "library/control_socket/control_client.h"
#include "tests/library/api/api_fixture.h"

namespace lidcam::api {
namespace {

using testing::HasSubstr;

using CameraTest = LibraryTest;

TEST_F(CameraTest, TheListHasTheSimulatedCamerasAndWhoUsesThem) {
  const OpenCamera camera("sim:1af0:6010");
  const lidcam_camera_info* const* cameras = nullptr;
  std::size_t count = 0;
  ASSERT_EQ(lidcam_cameras_list(&cameras, &count), LIDCAM_OK) << lidcam_error_text();
  EXPECT_GE(count, 7U);
  EXPECT_EQ(cameras[count], nullptr);
  bool isFound = false;
  for (std::size_t i = 0; i < count; ++i) {
    if (std::string(cameras[i]->address) != "sim:1af0:6010") continue;
    isFound = true;
    EXPECT_STREQ(cameras[i]->unit, lidcam_camera_get_info(camera)->unit);
    EXPECT_STREQ(cameras[i]->description, "Notebook camera 1af0:6010 (simulated)");
    EXPECT_THAT(cameras[i]->in_use_by, HasSubstr("process " + std::to_string(::getpid())));
  }
  EXPECT_TRUE(isFound);
  lidcam_cameras_free(cameras);
}

/// A camera of the list; the list stays.
const lidcam_camera_info& Listed(const std::string& address) {
  const lidcam_camera_info* const* cameras = nullptr;
  EXPECT_EQ(lidcam_cameras_list(&cameras, nullptr), LIDCAM_OK) << lidcam_error_text();
  static std::shared_ptr<const lidcam_camera_info* const> list;
  list.reset(cameras, lidcam_cameras_free);
  while (*cameras != nullptr && address != (*cameras)->address) ++cameras;
  if (*cameras == nullptr) throw std::runtime_error(address + " is not in the list");
  return **cameras;
}

void WriteShareLine(const std::filesystem::path& folder, const std::string& line) {
  std::filesystem::create_directory(folder / "lidcam");
  std::ofstream(folder / "lidcam" / "1af0-6010-seed1.share") << line << "\n";
}

TEST_F(CameraTest, TheListSaysByWhichOtherWayApplicationsGetACamera) {
  EXPECT_STREQ(Listed("sim:1af0:6010").shared_by, "");
  const std::string line = "process " + std::to_string(::getpid()) + " through PipeWire";
  WriteShareLine(Folder(), line);
  EXPECT_EQ(Listed("sim:1af0:6010").shared_by, line);
  EXPECT_STREQ(Listed("sim:1af0:0511").shared_by, "");
}

TEST_F(CameraTest, AProcessThatWasKilledSharesNothingAnyMore) {
  constexpr int kBeyondEveryProcess = 0x7FFFFFF;
  WriteShareLine(Folder(), "process " + std::to_string(kBeyondEveryProcess) + " through PipeWire");
  EXPECT_STREQ(Listed("sim:1af0:6010").shared_by, "");
}

TEST_F(CameraTest, TheListSaysWhichCameraCannotBeStreamed) {
  EXPECT_STREQ(Listed("sim:1b17:6100").obstacle, "its frame size is not known");
  EXPECT_STREQ(Listed("sim:1b17:6111").obstacle, "");
  EXPECT_STREQ(Listed("sim:1af0:0511").obstacle, "");
  EXPECT_STREQ(lidcam_camera_get_info(OpenCamera("sim:1b17:6100"))->obstacle,
               "its frame size is not known");
}

TEST_F(CameraTest, AWatchTellsWhenACameraIsSharedAndWhenItIsNotAnyMore) {
  std::atomic<int> changes = 0;
  const auto count = [](void* user) { ++*static_cast<std::atomic<int>*>(user); };
  const auto reach = [&changes](int number) {
    for (int round = 0; round < 1000 && changes < number; ++round) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return changes.load();
  };
  lidcam_watch* watch = nullptr;
  ASSERT_EQ(lidcam_watch_cameras(count, &changes, &watch), LIDCAM_OK) << lidcam_error_text();
  std::this_thread::sleep_for(std::chrono::milliseconds(500));  // it knows how it was before
  WriteShareLine(Folder(), "process " + std::to_string(::getpid()) + " through PipeWire");
  EXPECT_EQ(reach(1), 1);
  WriteShareLine(Folder(), "");
  EXPECT_EQ(reach(2), 2);
  lidcam_watch_end(watch);
  WriteShareLine(Folder(), "process " + std::to_string(::getpid()) + " through PipeWire");
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(changes, 2);
}

TEST_F(CameraTest, AWatchNeedsAHandlerAndAPlace) {
  lidcam_watch* watch = nullptr;
  EXPECT_EQ(lidcam_watch_cameras(nullptr, nullptr, &watch), LIDCAM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(lidcam_watch_cameras([](void*) {}, nullptr, nullptr), LIDCAM_ERROR_INVALID_ARGUMENT);
  lidcam_watch_end(nullptr);
}

TEST_F(CameraTest, ACameraSaysWhatItIs) {
  const OpenCamera camera("sim:1af0:6010,sensor=OV7670");
  const lidcam_camera_info* const info = lidcam_camera_get_info(camera);
  EXPECT_STREQ(info->address, "sim:1af0:6010,sensor=OV7670");
  EXPECT_EQ(info->vendor_id, 0x1AF0);
  EXPECT_EQ(info->product_id, 0x6010);
  EXPECT_EQ(info->kind, LIDCAM_KIND_SIMULATED);
  EXPECT_STREQ(lidcam_camera_sensor(camera), "OV7670");
}

TEST_F(CameraTest, ErrorsNameTheInputAndTheReason) {
  lidcam_camera* camera = nullptr;
  EXPECT_EQ(lidcam_open("nothing", nullptr, &camera), LIDCAM_ERROR_INVALID_ARGUMENT);
  EXPECT_THAT(lidcam_error_text(), HasSubstr("camera 'nothing' is of no known kind"));
  EXPECT_EQ(lidcam_open("usb:9-9", nullptr, &camera), LIDCAM_ERROR_NOT_FOUND);
  EXPECT_THAT(lidcam_error_text(), HasSubstr("camera 'usb:9-9' is not plugged in"));
  EXPECT_EQ(lidcam_open("capture:/no/such/file", nullptr, &camera), LIDCAM_ERROR_NOT_FOUND);
  EXPECT_THAT(lidcam_error_text(), HasSubstr("/no/such/file"));
  EXPECT_EQ(lidcam_open("sim", nullptr, nullptr), LIDCAM_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(camera, nullptr);
}

TEST_F(CameraTest, ASecondOpeningIsRefusedAndNamesTheProcess) {
  const OpenCamera first("sim");
  lidcam_camera* second = nullptr;
  EXPECT_EQ(lidcam_open("sim", nullptr, &second), LIDCAM_ERROR_IN_USE);
  EXPECT_THAT(lidcam_error_text(), HasSubstr("is in use by " + std::to_string(::getpid())));
}

TEST_F(CameraTest, TheFormatsAreThoseOfThePin) {
  const OpenCamera camera("sim");
  const lidcam_format* const* formats = nullptr;
  std::size_t count = 0;
  ASSERT_EQ(lidcam_formats_list(camera, &formats, &count), LIDCAM_OK);
  ASSERT_EQ(count, 5U);
  EXPECT_EQ(formats[5], nullptr);
  const std::vector<std::uint32_t> widths = {640, 352, 320, 176, 160};
  for (std::size_t i = 0; i < count; ++i) {
    EXPECT_EQ(formats[i]->width, widths[i]);
    EXPECT_EQ(formats[i]->image_bytes, formats[i]->width * formats[i]->height * 2);
    ASSERT_GT(formats[i]->interval_count, 0U);
    EXPECT_EQ(formats[i]->intervals[0], i == 0 ? 666666 : 333333);
    EXPECT_LE(formats[i]->shortest_interval, 333333);
    EXPECT_GE(formats[i]->longest_interval, 333333);
  }
}

TEST_F(CameraTest, AnotherProcessSeesWhoLooksAndSetsAControlThatPersists) {
  {
    const OpenCamera camera("sim");
    const char* const viewers[] = {"PipeWire: firefox (1234)", nullptr};
    ASSERT_EQ(lidcam_set_viewers(camera, viewers), LIDCAM_OK);
    ASSERT_EQ(lidcam_start(camera, nullptr), LIDCAM_OK);
    ASSERT_TRUE(Skip(camera));
    const auto client = app::ControlClient::Connect(lidcam_camera_get_info(camera)->unit);
    ASSERT_NE(client, nullptr);
    const nlohmann::json status = client->Ask({{"do", "status"}});
    EXPECT_EQ(status.at("viewers"), nlohmann::json({"PipeWire: firefox (1234)"}));
    EXPECT_EQ(status.at("size"), "640x480");
    const nlohmann::json answer = client->Ask({{"do", "set"}, {"set", {"Contrast=12"}}});
    EXPECT_EQ(answer.at("values"), nlohmann::json::parse(R"([["Contrast",12]])"));
    std::int32_t value = 0;
    ASSERT_EQ(lidcam_control_get(camera, "Contrast", &value), LIDCAM_OK);
    EXPECT_EQ(value, 12);
    EXPECT_EQ(client->Ask({{"do", "still"}}).at("width"), 640);
  }
  const OpenCamera again("sim");
  std::int32_t value = 0;
  ASSERT_EQ(lidcam_control_get(again, "Contrast", &value), LIDCAM_OK);
  EXPECT_EQ(value, 12);
}

struct EventLog {
  std::mutex Mutex;
  std::vector<std::string> Lines;

  static void Take(lidcam_camera*, const lidcam_event* event, void* user) {
    auto& log = *static_cast<EventLog*>(user);
    const std::lock_guard lock(log.Mutex);
    log.Lines.emplace_back(event->text);
  }
  std::vector<std::string> Copy() {
    const std::lock_guard lock(Mutex);
    return Lines;
  }
  bool Await(const std::string& line) {
    for (int i = 0; i < 1000; ++i) {
      for (const std::string& seen : Copy()) {
        if (seen == line) return true;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }
};

TEST_F(CameraTest, AnUnpluggedCameraIsAnEventAndCanBeOpenedAgain) {
  lidcam_open_options options = LIDCAM_OPEN_OPTIONS_INIT;
  options.faults = "at 3s unplug";
  EventLog log;
  const OpenCamera camera("sim", &options);
  ASSERT_EQ(lidcam_set_event_handler(camera, EventLog::Take, &log), LIDCAM_OK);
  ASSERT_EQ(lidcam_start(camera, nullptr), LIDCAM_OK);
  const lidcam_frame* frame = nullptr;
  lidcam_status status = LIDCAM_OK;
  while ((status = lidcam_next_frame(camera, kLongestWait, &frame)) == LIDCAM_OK)
    lidcam_frame_release(frame);
  EXPECT_EQ(status, LIDCAM_ERROR_UNPLUGGED);
  EXPECT_STREQ(lidcam_error_text(), "camera 'sim' was unplugged");
  EXPECT_TRUE(log.Await("camera 'sim' was unplugged"));
  EXPECT_TRUE(log.Await("camera 'sim' is plugged in again"));
  std::int32_t value = 0;
  EXPECT_EQ(lidcam_control_get(camera, "Contrast", &value), LIDCAM_ERROR_UNPLUGGED);
  EXPECT_EQ(lidcam_start(camera, nullptr), LIDCAM_ERROR_UNPLUGGED);
  const OpenCamera again("sim");
  ASSERT_EQ(lidcam_start(again, nullptr), LIDCAM_OK) << lidcam_error_text();
  EXPECT_TRUE(Skip(again));
}

TEST_F(CameraTest, AControlIsSetReadAndReset) {
  const OpenCamera camera("sim");
  EventLog log;
  ASSERT_EQ(lidcam_set_event_handler(camera, EventLog::Take, &log), LIDCAM_OK);
  std::int32_t value = 0;
  ASSERT_EQ(lidcam_control_set(camera, "contrast", 12), LIDCAM_OK) << lidcam_error_text();
  ASSERT_EQ(lidcam_control_get(camera, "Contrast", &value), LIDCAM_OK);
  EXPECT_EQ(value, 12);
  ASSERT_EQ(lidcam_control_reset(camera, "Contrast"), LIDCAM_OK);
  ASSERT_EQ(lidcam_control_get(camera, "Contrast", &value), LIDCAM_OK);
  EXPECT_EQ(value, 10);
  EXPECT_THAT(log.Copy(), testing::ElementsAre("Contrast=12", "Contrast=10"));
  EXPECT_EQ(lidcam_control_set(camera, "Contrast", 900), LIDCAM_ERROR_INVALID_ARGUMENT);
  EXPECT_THAT(lidcam_error_text(), HasSubstr("Contrast '900' is not a number from"));
  EXPECT_EQ(lidcam_control_get(camera, "Contrst", &value), LIDCAM_ERROR_INVALID_ARGUMENT);
  EXPECT_THAT(lidcam_error_text(), HasSubstr("control 'Contrst' is unknown"));
}

TEST_F(CameraTest, TheControlsAreListedWithTheirRanges) {
  const OpenCamera camera("sim");
  const lidcam_control* const* controls = nullptr;
  std::size_t count = 0;
  ASSERT_EQ(lidcam_controls_list(camera, &controls, &count), LIDCAM_OK);
  EXPECT_EQ(count, 16U);
  EXPECT_EQ(controls[count], nullptr);
  EXPECT_STREQ(controls[1]->name, "Contrast");
  EXPECT_EQ(controls[1]->default_value, 10);
  EXPECT_EQ(controls[1]->step, 1);
  for (std::size_t i = 0; i < count; ++i) {
    const std::string name = controls[i]->name;
    const bool isMenu = name == "Flicker" || name == "Effect" || name == "LED";
    EXPECT_EQ((controls[i]->flags & LIDCAM_CONTROL_MENU) != 0, isMenu) << name;
    EXPECT_EQ((controls[i]->flags & LIDCAM_CONTROL_SWITCH) != 0,
              controls[i]->minimum == 0 && controls[i]->maximum == 1)
        << name;
  }
}

TEST_F(CameraTest, OnlyASavedControlIsThereAtTheNextOpening) {
  {
    const OpenCamera camera("sim");
    ASSERT_EQ(lidcam_control_set(camera, "Contrast", 12), LIDCAM_OK);
    ASSERT_EQ(lidcam_control_set(camera, "Gamma", 7), LIDCAM_OK);
    ASSERT_EQ(lidcam_control_save(camera, "Contrast"), LIDCAM_OK) << lidcam_error_text();
  }
  const OpenCamera camera("sim");
  std::int32_t value = 0;
  ASSERT_EQ(lidcam_control_get(camera, "Contrast", &value), LIDCAM_OK);
  EXPECT_EQ(value, 12);
  ASSERT_EQ(lidcam_control_get(camera, "Gamma", &value), LIDCAM_OK);
  EXPECT_NE(value, 7);
}

TEST_F(CameraTest, CamerasOfOneIdentityDontGetEachOthersControls) {
  const OpenCamera first("sim:1af0:0511,seed=1");
  ASSERT_EQ(lidcam_control_set(first, "Contrast", 12), LIDCAM_OK);
  ASSERT_EQ(lidcam_start(first, nullptr), LIDCAM_OK);
  ASSERT_TRUE(Skip(first));
  ASSERT_EQ(lidcam_stop(first), LIDCAM_OK);  // the driver saves its settings then
  const OpenCamera second("sim:1af0:0511,seed=2");
  std::int32_t value = 0;
  ASSERT_EQ(lidcam_control_get(second, "Contrast", &value), LIDCAM_OK);
  EXPECT_EQ(value, 10);
}

TEST_F(CameraTest, ThreadsMayUseOneCameraAtOnce) {
  const OpenCamera camera("sim");
  ASSERT_EQ(lidcam_start(camera, nullptr), LIDCAM_OK);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 3; ++thread) {
    threads.emplace_back([&camera, thread] {
      for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(Skip(camera));
        EXPECT_EQ(lidcam_control_set(camera, "Contrast", 1 + thread + i), LIDCAM_OK);
        std::int32_t value = 0;
        EXPECT_EQ(lidcam_control_get(camera, "Contrast", &value), LIDCAM_OK);
        EXPECT_EQ(lidcam_control_set(camera, "Nothing", 1), LIDCAM_ERROR_INVALID_ARGUMENT);
        EXPECT_THAT(lidcam_error_text(), HasSubstr("'Nothing'"));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace lidcam::api
