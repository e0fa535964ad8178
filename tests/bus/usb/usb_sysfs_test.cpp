// What Linux tells of the USB in its files.

#include "bus/usb/usb_sysfs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>

namespace lidcam::bus {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;

class UsbSysfsTest : public testing::Test {
 protected:
  UsbSysfsTest() : root_(fs::temp_directory_path() / ("lidcam-sysfs-" + std::to_string(getpid()))) {
    fs::create_directories(root_);
  }
  ~UsbSysfsTest() override { fs::remove_all(root_); }

  void Write(const std::string& name, const std::string& text) {
    fs::create_directories((root_ / name).parent_path());
    std::ofstream(root_ / name, std::ios::binary) << text;
  }

  // One interface with a setting without and one with a stream: an isochronous endpoint of three
  // times 1024 bytes, and an interrupt endpoint of 8 bytes every 4 microframes.
  void AddCamera(const std::string& path, const std::string& setting, const std::string& driver) {
    Write("usb/" + path + "/idVendor", "1af0\n");
    Write("usb/" + path + "/idProduct", "0511\n");
    Write("usb/" + path + "/product", "Camera \x1b[2J\n");
    Write("usb/" + path + "/speed", "480\n");
    Write("usb/" + path + "/bDeviceClass", "ff\n");
    using namespace std::string_literals;
    Write("usb/" + path + "/descriptors",
          "\x12\x01\x00\x02\xff\x00\x00\x40\xf0\x1a\x11\x05\x00\x01\x01\x02\x00\x01"s
          "\x09\x02\x00\x00\x01\x01\x00\x80\xfa"s
          "\x09\x04\x00\x00\x00\xff\x00\x00\x00"s
          "\x09\x04\x00\x01\x02\xff\x00\x00\x00"s
          "\x07\x05\x82\x05\x00\x14\x01"s
          "\x07\x05\x81\x03\x08\x00\x03"s);
    const std::string interface = "usb/" + path + "/" + path + ":1.0";
    Write(interface + "/bAlternateSetting", setting);
    fs::create_directory_symlink("../../../drivers/" + driver, root_ / interface / "driver");
  }

  [[nodiscard]] UsbSysfs Files() const { return UsbSysfs(root_ / "usb", root_ / "proc"); }

  fs::path root_;
};

TEST_F(UsbSysfsTest, ADeviceIsTakenForItsSettingInForce) {
  AddCamera("1-2", " 0\n", "uvcvideo");
  AddCamera("1-3", " 1\n", "usbfs");
  AddCamera("2-1", " 1\n", "usbfs");
  const auto devices = Files().DevicesOnBus(1);
  ASSERT_EQ(devices.size(), 2U);
  EXPECT_EQ(devices[0].ReservedBytes, 0U);
  // wMaxPacketSize 0x1400: 1024 bytes with two additional transactions.
  EXPECT_EQ(devices[1].ReservedBytes, 3072U + 2U);
  EXPECT_EQ(ReservedBytesOf(devices), 3074U);
  EXPECT_THAT(devices[0].Drivers, ElementsAre("uvcvideo"));
}

TEST_F(UsbSysfsTest, OtherDevicesAreNamedAndWhatTheySayIsHarmless) {
  AddCamera("1-2", " 0\n", "uvcvideo");
  AddCamera("1-3", " 0\n", "usbfs");
  EXPECT_EQ(NamesOf(Files().DevicesOnBus(1), "1-3"), "1-2 1af0:0511 Camera ?[2J (uvcvideo)");
}

TEST_F(UsbSysfsTest, HubsAreNoDevicesOfTheirBus) {
  AddCamera("1-2", " 0\n", "hub");
  Write("usb/1-2/bDeviceClass", "09\n");
  EXPECT_TRUE(Files().DevicesOnBus(1).empty());
}

TEST_F(UsbSysfsTest, AProcessThatHasADeviceOpenIsNamed) {
  Write("proc/77/comm", "qemu\n");
  fs::create_directories(root_ / "proc/77/fd");
  fs::create_symlink("/dev/bus/usb/001/004", root_ / "proc/77/fd/9");
  Write("proc/78/comm", "cat\n");
  EXPECT_THAT(Files().UsersOf("/dev/bus/usb/001/004"), ElementsAre("77 (qemu)"));
}

TEST_F(UsbSysfsTest, WithoutTheFilesNothingIsTold) {
  EXPECT_TRUE(Files().DevicesOnBus(1).empty());
  EXPECT_TRUE(Files().UsersOf("/dev/bus/usb/001/004").empty());
  EXPECT_EQ(Files().Device("1-2").Identity, "");
}

TEST_F(UsbSysfsTest, DescriptorsThatEndTooSoonReserveNothing) {
  AddCamera("1-2", " 1\n", "usbfs");
  Write("usb/1-2/descriptors", std::string("\x09\x04\x00\x01\x02", 5));
  EXPECT_EQ(Files().Device("1-2").ReservedBytes, 0U);
}

}  // namespace
}  // namespace lidcam::bus
