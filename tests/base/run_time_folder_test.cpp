#include "base/run_time_folder.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace lidcam::base {
namespace {

TEST(RunTimeFolder, AFileIsInTheFolderOfTheUsersSession) {
  setenv("XDG_RUNTIME_DIR", "/run/user/1000", 1);
  EXPECT_EQ(RunTimeFile("usb-1-2.share"), "/run/user/1000/lidcam/usb-1-2.share");
}

TEST(RunTimeFolder, WithoutAnAbsoluteFolderThereIsNone) {
  unsetenv("XDG_RUNTIME_DIR");
  EXPECT_EQ(RunTimeFile("usb-1-2.share"), std::nullopt);
  setenv("XDG_RUNTIME_DIR", "", 1);
  EXPECT_EQ(RunTimeFile("usb-1-2.share"), std::nullopt);
  setenv("XDG_RUNTIME_DIR", "here", 1);
  EXPECT_EQ(RunTimeFile("usb-1-2.share"), std::nullopt);
}

}  // namespace
}  // namespace lidcam::base
