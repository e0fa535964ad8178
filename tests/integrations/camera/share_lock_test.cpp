#include "integrations/camera/share_lock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

namespace lidcam::integrations {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

class ShareLockTest : public ::testing::Test {
 protected:
  ShareLockTest() {
    std::string folder = std::filesystem::temp_directory_path() / "lidcam-lock-XXXXXX";
    folder_ = mkdtemp(folder.data());
    setenv("XDG_RUNTIME_DIR", folder_.c_str(), 1);
  }
  ~ShareLockTest() override {
    unsetenv("XDG_RUNTIME_DIR");
    std::filesystem::remove_all(folder_);
  }

  static CameraDescription Camera(const std::string& unit) {
    CameraDescription camera;
    camera.Address.Text = "usb";
    camera.Unit = unit;
    return camera;
  }

  static std::string ErrorFor(const std::string& unit) {
    try {
      const ShareLock lock(Camera(unit), "through V4L2");
    } catch (const ShareError& error) {
      return error.what();
    }
    return {};
  }

  std::filesystem::path folder_;
};

TEST_F(ShareLockTest, ACameraIsSharedOnceAndTheSecondIsToldByWhom) {
  std::optional<ShareLock> lock;
  lock.emplace(Camera("usb-1-2"), "through PipeWire");
  EXPECT_THAT(ErrorFor("usb-1-2"),
              AllOf(HasSubstr("camera 'usb' is shared already"),
                    HasSubstr("process " + std::to_string(getpid()) + " through PipeWire")));
  lock.reset();
  EXPECT_EQ(ErrorFor("usb-1-2"), "");
}

TEST_F(ShareLockTest, AnotherCameraIsSharedBesideIt) {
  const ShareLock lock(Camera("usb-1-2"), "through PipeWire");
  EXPECT_EQ(ErrorFor("usb-1-3"), "");
}

TEST_F(ShareLockTest, WithoutAFolderForItNothingIsHeld) {
  unsetenv("XDG_RUNTIME_DIR");
  const ShareLock lock(Camera("usb-1-2"), "through PipeWire");
  EXPECT_EQ(ErrorFor("usb-1-2"), "");
}

TEST_F(ShareLockTest, AFolderThatCannotBeWrittenIsTold) {
  setenv("XDG_RUNTIME_DIR", (folder_ / "missing").c_str(), 1);
  EXPECT_THAT(ErrorFor("usb-1-2"), HasSubstr("cannot be written"));
}

}  // namespace
}  // namespace lidcam::integrations
