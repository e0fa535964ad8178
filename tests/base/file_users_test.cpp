#include "base/file_users.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace lidcam::base {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

class FileUsersTest : public ::testing::Test {
 protected:
  FileUsersTest() {
    std::string folder = fs::temp_directory_path() / "lidcam-users-XXXXXX";
    folder_ = mkdtemp(folder.data());
  }
  ~FileUsersTest() override { fs::remove_all(folder_); }

  void AddProcess(const std::string& number, const std::string& program, const fs::path& file) {
    const fs::path process = folder_ / "proc" / number;
    fs::create_directories(process / "fd");
    std::ofstream(process / "comm") << program << "\n";
    fs::create_symlink(file, process / "fd" / "3");
  }

  fs::path AddFile(const std::string& name) {
    fs::create_directories((folder_ / name).parent_path());
    std::ofstream(folder_ / name) << "x";
    return folder_ / name;
  }

  fs::path folder_;
};

TEST_F(FileUsersTest, ThoseThatHaveTheCamerasFileOpenAreNamedInOrder) {
  const fs::path device = AddFile("dev/video9");
  AddProcess("112", "obs", device);
  AddProcess("9", "ffplay", device);
  AddProcess("10", "bash", AddFile("dev/tty1"));
  EXPECT_THAT(UsersOf(device, folder_ / "proc"),
              ElementsAre(FileUser{9, "ffplay"}, FileUser{112, "obs"}));
}

TEST_F(FileUsersTest, AFileOfTheSameNameElsewhereIsAnotherOne) {
  const fs::path device = AddFile("dev/video9");
  AddProcess("112", "obs", AddFile("elsewhere/video9"));
  EXPECT_THAT(UsersOf(device, folder_ / "proc"), ElementsAre());
}

TEST_F(FileUsersTest, ADeviceThatIsGoneIsKnownByItsName) {
  AddProcess("112", "qemu", "/dev/bus/usb/001/250");
  EXPECT_THAT(UsersOf("/dev/bus/usb/001/250", folder_ / "proc"),
              ElementsAre(FileUser{112, "qemu"}));
}

TEST_F(FileUsersTest, WhatIsNoProcessIsLeftOut) {
  const fs::path device = AddFile("dev/video9");
  AddProcess("self", "lidcam", device);
  AddProcess("11x", "lidcam", device);
  EXPECT_THAT(UsersOf(device, folder_ / "proc"), ElementsAre());
}

TEST_F(FileUsersTest, ThisProcessIsOneOfTheUsers) {
  const fs::path device = AddFile("video9");
  const std::ifstream open(device);
  const auto users = UsersOf(fs::canonical(device));
  ASSERT_EQ(users.size(), 1U);
  EXPECT_EQ(users[0].Process, getpid());
}

}  // namespace
}  // namespace lidcam::base
