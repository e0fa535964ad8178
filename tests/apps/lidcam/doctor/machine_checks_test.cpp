#include "apps/lidcam/doctor/machine_checks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace lidcam::app {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::StartsWith;

/// A machine of files, on which all is well: a camera at port 1-2.
class DoctorTest : public ::testing::Test {
 protected:
  DoctorTest() {
    std::string name = (fs::temp_directory_path() / "lidcam-doctor-XXXXXX").string();
    root_ = mkdtemp(name.data());
    for (const auto& [file, text] :
         std::vector<std::pair<std::string, std::string>>{{"idVendor", "1af0"},
                                                          {"idProduct", "0511"},
                                                          {"busnum", "1"},
                                                          {"devnum", "4"},
                                                          {"speed", "480"}}) {
      Write("sys/bus/usb/devices/1-2/" + file, text);
    }
    Write("sys/module/usbcore/parameters/usbfs_memory_mb", "16");
    Write("sys/module/v4l2loopback/parameters/exclusive_caps", "Y,N,N");
    Write("run/pipewire-0", "");
    Write("sets/notes.txt", "no set file");
  }
  ~DoctorTest() override { fs::remove_all(root_); }

  void Write(const std::string& name, const std::string& text) const {
    fs::create_directories((root_ / name).parent_path());
    std::ofstream(root_ / name) << text << "\n";
  }

  void Remove(const std::string& name) const { fs::remove_all(root_ / name); }

  [[nodiscard]] std::vector<Finding> All() const {
    return Examine({.Root = root_,
                    .RuntimeFolder = root_ / "run",
                    .SetFolder = root_ / "sets",
                    .MayOpen = [this](const fs::path& file) {
                      asked_ = file;
                      return mayOpen_;
                    }});
  }

  [[nodiscard]] Finding FindingOf(const std::string& subject) const {
    const std::vector<Finding> all = All();
    const auto found = std::ranges::find_if(
        all, [&](const Finding& finding) { return finding.Subject.starts_with(subject); });
    return found == all.end() ? Finding{} : *found;
  }

  fs::path root_;
  bool mayOpen_ = true;
  mutable fs::path asked_;
};

TEST_F(DoctorTest, OnAMachineWithAllThatACameraNeedsNothingIsWrong) {
  std::vector<std::string> subjects;
  for (const Finding& finding : All()) {
    subjects.push_back(finding.Subject);
    EXPECT_EQ(finding.Level, finding.Subject == "set files" ? FindingLevel::Note : FindingLevel::Ok)
        << finding.Subject << ": " << finding.Text;
    EXPECT_EQ(finding.Remedy.empty(), finding.Level == FindingLevel::Ok);
  }
  EXPECT_THAT(subjects, ::testing::ElementsAre("camera usb:1-2:1af0:0511", "permission", "holder",
                                               "kernel driver", "bandwidth", "USB memory",
                                               "PipeWire", "v4l2loopback", "set files"));
}

TEST_F(DoctorTest, AFileThatTheUserMayNotOpenIsNamedWithTheCommand) {
  mayOpen_ = false;
  const Finding finding = FindingOf("permission");
  EXPECT_EQ(finding.Level, FindingLevel::Wrong);
  EXPECT_EQ(finding.Text, "this user may not open /dev/bus/usb/001/004");
  EXPECT_THAT(finding.Remedy, StartsWith("sudo "));
  EXPECT_EQ(asked_, root_ / "dev/bus/usb/001/004");
}

TEST_F(DoctorTest, AProcessThatHasTheCameraOpenIsNamed) {
  Write("proc/4711/comm", "cheese");
  fs::create_directories(root_ / "proc/4711/fd");
  fs::create_symlink("/dev/bus/usb/001/004", root_ / "proc/4711/fd/5");
  const Finding finding = FindingOf("holder");
  EXPECT_EQ(finding.Text, "process 4711 (cheese) has the camera open");
  EXPECT_EQ(finding.Level, FindingLevel::Wrong);
  EXPECT_EQ(finding.Remedy, "kill 4711");
}

TEST_F(DoctorTest, ASlowPortIsWrong) {
  Write("sys/bus/usb/devices/1-2/speed", "12");
  EXPECT_EQ(FindingOf("camera").Level, FindingLevel::Wrong);
  EXPECT_THAT(FindingOf("camera").Text, StartsWith("12 Mbit/s: "));
}

TEST_F(DoctorTest, WithoutACameraTheMachineIsStillLookedAt) {
  Remove("sys/bus/usb/devices/1-2");
  EXPECT_EQ(FindingOf("camera").Level, FindingLevel::Note);
  EXPECT_EQ(All().size(), 5U);
}

TEST_F(DoctorTest, TooLittleMemoryForUsbProgramsIsWrong) {
  Write("sys/module/usbcore/parameters/usbfs_memory_mb", "1");
  EXPECT_EQ(FindingOf("USB memory").Level, FindingLevel::Wrong);
  EXPECT_THAT(FindingOf("USB memory").Remedy, HasSubstr("usbfs_memory_mb"));
  Write("sys/module/usbcore/parameters/usbfs_memory_mb", "0");
  EXPECT_EQ(FindingOf("USB memory").Level, FindingLevel::Ok);
}

TEST_F(DoctorTest, PipeWireAndV4l2loopbackAreOptional) {
  Remove("run/pipewire-0");
  Remove("sys/module/v4l2loopback");
  EXPECT_EQ(FindingOf("PipeWire").Level, FindingLevel::Note);
  EXPECT_EQ(FindingOf("v4l2loopback").Level, FindingLevel::Note);
}

TEST_F(DoctorTest, WhatIsNotInstalledIsInstalledBeforeItIsStarted) {
  Remove("run/pipewire-0");
  Remove("sys/module/v4l2loopback");
  EXPECT_THAT(FindingOf("PipeWire").Remedy, StartsWith("sudo apt-get install pipewire"));
  EXPECT_THAT(FindingOf("v4l2loopback").Remedy, StartsWith("sudo apt-get install v4l2loopback"));
  Write("usr/bin/pipewire", "");
  Write("proc/sys/kernel/osrelease", "6.1.0-13-amd64");
  Write(
      "lib/modules/6.1.0-13-amd64/modules.dep",
      "kernel/other.ko:\nupdates/dkms/v4l2loopback.ko: kernel/drivers/media/v4l2-core/videodev.ko");
  EXPECT_EQ(FindingOf("PipeWire").Remedy, "systemctl --user start pipewire");
  EXPECT_EQ(FindingOf("v4l2loopback").Remedy, "sudo modprobe v4l2loopback exclusive_caps=1");
}

TEST_F(DoctorTest, AModuleOfAnotherKernelCannotBeLoaded) {
  Remove("sys/module/v4l2loopback");
  Write("proc/sys/kernel/osrelease", "6.1.0-14-amd64");
  Write("lib/modules/6.1.0-13-amd64/modules.dep", "updates/dkms/v4l2loopback.ko:");
  EXPECT_THAT(FindingOf("v4l2loopback").Remedy, StartsWith("sudo apt-get install"));
}

TEST_F(DoctorTest, V4l2loopbackWithoutExclusiveCapsIsWrong) {
  Write("sys/module/v4l2loopback/parameters/exclusive_caps", "N,N");
  EXPECT_EQ(FindingOf("v4l2loopback").Level, FindingLevel::Wrong);
}

TEST_F(DoctorTest, ADamagedSetFileIsNamed) {
  Write("sets/S001.set", "no set");
  const Finding finding = FindingOf("set files");
  EXPECT_EQ(finding.Level, FindingLevel::Wrong);
  EXPECT_THAT(finding.Text, HasSubstr("S001.set"));
  EXPECT_EQ(finding.Remedy, "lidcam sets check " + (root_ / "sets/S001.set").string());
}

}  // namespace
}  // namespace lidcam::app
