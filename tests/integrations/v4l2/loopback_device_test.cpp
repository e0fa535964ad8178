#include "integrations/v4l2/loopback_device.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/integrations/v4l2/loopback_stand_in.h"

namespace lidcam::integrations::v4l2 {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class LoopbackDeviceTest : public ::testing::Test {
 protected:
  LoopbackDevice::Options OptionsFor(const std::string& path) {
    return {.Path = path, .Size = {160, 120}, .Tell = [this](const std::string& line) {
              told_ += line + "\n";
            }};
  }

  std::string ErrorFor(const std::string& path) {
    try {
      const LoopbackDevice device(OptionsFor(path), loopback_);
    } catch (const ShareError& error) {
      return error.what();
    }
    return {};
  }

  LoopbackStandIn loopback_;
  std::string told_;
};

TEST_F(LoopbackDeviceTest, GetsItsFormatAndIsSwitchedOnBeforeTheFirstPicture) {
  LoopbackDevice device(OptionsFor(loopback_.Path()), loopback_);
  EXPECT_THAT(loopback_.Requests, ElementsAre("format 160x120", "rate", "on"));
  EXPECT_THAT(told_, IsEmpty());
  device.Write(std::vector<std::uint8_t>(38'400, 7));
  ASSERT_EQ(loopback_.Pictures.size(), 1U);
  EXPECT_EQ(loopback_.Pictures[0], std::vector<std::uint8_t>(38'400, 7));
}

TEST_F(LoopbackDeviceTest, ThatIsNotThereNamesTheCommandThatMakesIt) {
  EXPECT_THAT(ErrorFor("/dev/video987"),
              AllOf(HasSubstr("there is no device '/dev/video987'"),
                    HasSubstr("sudo modprobe v4l2loopback exclusive_caps=1 max_buffers=8 "
                              "card_label=lidcam video_nr=987'"),
                    HasSubstr("v4l2loopback-dkms")));
}

TEST_F(LoopbackDeviceTest, ThatIsAnotherDriversCameraIsLeftAlone) {
  loopback_.Driver = "uvcvideo";
  EXPECT_THAT(ErrorFor(loopback_.Path()), HasSubstr("one of the driver 'uvcvideo'"));
  EXPECT_THAT(loopback_.Requests, IsEmpty());
  EXPECT_EQ(loopback_.OpenCount, 0);
}

TEST_F(LoopbackDeviceTest, ThatIsNoVideoDeviceIsToldAsSuch) {
  loopback_.Driver = "";
  EXPECT_THAT(ErrorFor(loopback_.Path()), HasSubstr("is no video device"));
}

TEST_F(LoopbackDeviceTest, WithAnotherProducerIsRefused) {
  loopback_.HasProducer = true;
  EXPECT_THAT(ErrorFor(loopback_.Path()), HasSubstr("gets its pictures from another program"));
}

TEST_F(LoopbackDeviceTest, LoadedWithoutExclusiveCapsIsWarnedOf) {
  loopback_.HasExclusiveCaps = false;
  EXPECT_EQ(ErrorFor(loopback_.Path()), "");
  EXPECT_THAT(told_, HasSubstr("warning: v4l2loopback was loaded without exclusive_caps=1"));
}

TEST_F(LoopbackDeviceTest, WhoseSizeALookerHoldsIsNotWrittenInAnother) {
  loopback_.FixedWidth = 640;
  loopback_.FixedHeight = 480;
  EXPECT_THAT(ErrorFor(loopback_.Path()), HasSubstr("stays at 640x480"));
  EXPECT_EQ(loopback_.OpenCount, 0);
}

TEST_F(LoopbackDeviceTest, ThatIsGoneIsAnError) {
  LoopbackDevice device(OptionsFor(loopback_.Path()), loopback_);
  loopback_.IsRemoved = true;
  EXPECT_THROW(device.Write(std::vector<std::uint8_t>(38'400)), ShareError);
}

}  // namespace
}  // namespace lidcam::integrations::v4l2
