#include "bus/capture/records/usb_record.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/bus/capture/capture_support.h"

namespace lidcam::bus::test {
namespace {

TEST(DeviceAddress, IsReadAndWrittenAsBusDotDevice) {
  EXPECT_EQ(ParseDeviceAddress("1.5"), (DeviceAddress{1, 5}));
  EXPECT_EQ(ParseDeviceAddress("65535.127"), (DeviceAddress{65535, 127}));
  EXPECT_EQ(ToString(DeviceAddress{3, 12}), "3.12");
}

class WrongDeviceAddress : public testing::TestWithParam<const char*> {};

TEST_P(WrongDeviceAddress, IsRefusedWithTheFormWanted) {
  const std::string text = GetParam();
  EXPECT_EQ(ErrorOf([&] { static_cast<void>(ParseDeviceAddress(text)); }),
            "device '" + text + "': not BUS.DEVICE in decimal, as in 1.5");
}

INSTANTIATE_TEST_SUITE_P(All, WrongDeviceAddress,
                         testing::Values("", "1", "1.", ".5", "1.5.2", "1:5", " 1.5", "1.5 ",
                                         "-1.5", "1.65536", "65536.1", "0x1.5"));

TEST(RecordedStatus, EveryStatusComesBackFromItsErrno) {
  for (const UsbStatus status :
       {UsbStatus::Ok, UsbStatus::Stalled, UsbStatus::NoBandwidth, UsbStatus::Disconnected,
        UsbStatus::TimedOut, UsbStatus::Aborted, UsbStatus::EndOfCapture, UsbStatus::NotRecorded,
        UsbStatus::Failed}) {
    EXPECT_EQ(StatusFromErrno(ErrnoFromStatus(status)), status) << ToString(status);
  }
}

TEST(RecordedStatus, HasTheNumbersThatUsbmonWrites) {
  EXPECT_EQ(ErrnoFromStatus(UsbStatus::Ok), 0);
  EXPECT_EQ(ErrnoFromStatus(UsbStatus::Stalled), -32);
  EXPECT_EQ(ErrnoFromStatus(UsbStatus::NoBandwidth), -28);
  EXPECT_EQ(ErrnoFromStatus(UsbStatus::Disconnected), -108);
  EXPECT_EQ(ErrnoFromStatus(UsbStatus::TimedOut), -110);
  EXPECT_EQ(ErrnoFromStatus(UsbStatus::Aborted), -2);
  EXPECT_EQ(ErrnoFromStatus(UsbStatus::Failed), -71);
  EXPECT_EQ(StatusFromErrno(-19), UsbStatus::Disconnected);
  EXPECT_EQ(StatusFromErrno(-104), UsbStatus::Aborted);
  EXPECT_EQ(StatusFromErrno(-18), UsbStatus::Failed);
}

}  // namespace
}  // namespace lidcam::bus::test
