#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "library/lidcam.h"

namespace lidcam::api {

/// Milliseconds. Under ThreadSanitizer on a loaded machine a picture can take seconds.
inline constexpr std::int32_t kLongestWait = 60'000;

/// A folder of its own for settings and locks, and cameras that are closed at the end.
class LibraryTest : public testing::Test {
 protected:
  LibraryTest() {
    std::string name = (std::filesystem::temp_directory_path() / "lidcam-library-XXXXXX").string();
    folder_ = ::mkdtemp(name.data());
    ::setenv("LIDCAM_HOME", folder_.c_str(), 1);
    ::setenv("XDG_RUNTIME_DIR", folder_.c_str(), 1);
  }

  ~LibraryTest() override {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  [[nodiscard]] const std::filesystem::path& Folder() const { return folder_; }

 private:
  std::filesystem::path folder_;
};

/// An open camera.
class OpenCamera {
 public:
  explicit OpenCamera(const std::string& address, const lidcam_open_options* options = nullptr) {
    EXPECT_EQ(lidcam_open(address.c_str(), options, &camera_), LIDCAM_OK) << lidcam_error_text();
  }
  OpenCamera(const OpenCamera&) = delete;
  OpenCamera& operator=(const OpenCamera&) = delete;
  ~OpenCamera() { lidcam_close(camera_); }

  // NOLINTNEXTLINE(google-explicit-constructor): stands for its camera in every call
  operator lidcam_camera*() const { return camera_; }

 private:
  lidcam_camera* camera_ = nullptr;
};

/// Takes the next frame and gives it back; false without one.
inline bool Skip(lidcam_camera* camera) {
  const lidcam_frame* frame = nullptr;
  if (lidcam_next_frame(camera, kLongestWait, &frame) != LIDCAM_OK) return false;
  lidcam_frame_release(frame);
  return true;
}

}  // namespace lidcam::api
