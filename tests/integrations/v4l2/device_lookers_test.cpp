#include "integrations/v4l2/device_lookers.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

#include "integrations/camera/camera_description.h"
#include "tests/integrations/v4l2/loopback_stand_in.h"

namespace lidcam::integrations::v4l2 {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DeviceLookersTest : public ::testing::Test {
 protected:
  LoopbackStandIn loopback_;
};

TEST_F(DeviceLookersTest, AProcessThatHasTheDeviceOpenIsNamedUntilItEnds) {
  DeviceLookers lookers(loopback_.Path());
  auto other = std::make_unique<OtherProcess>(loopback_.Path());
  const base::FileUser expected{.Process = other->Number(), .Program = "sleep"};
  auto now = lookers.AwaitChange(seconds{20});
  ASSERT_TRUE(now.has_value());
  EXPECT_THAT(*now, ElementsAre(expected));
  other.reset();
  now = lookers.AwaitChange(seconds{20});
  ASSERT_TRUE(now.has_value());
  EXPECT_THAT(*now, IsEmpty());
}

TEST_F(DeviceLookersTest, OneThatWasThereBeforeIsNamedToo) {
  const OtherProcess other(loopback_.Path());
  DeviceLookers lookers(loopback_.Path());
  const auto now = lookers.AwaitChange(seconds{20});
  ASSERT_TRUE(now.has_value());
  ASSERT_EQ(now->size(), 1U);
  EXPECT_EQ((*now)[0].Process, other.Number());
}

TEST_F(DeviceLookersTest, ALinkToTheDeviceIsTheDevice) {
  const std::string link = loopback_.Path() + "-link";
  std::filesystem::create_symlink(loopback_.Path(), link);
  DeviceLookers lookers(link);
  const OtherProcess other(loopback_.Path());
  EXPECT_TRUE(lookers.AwaitChange(seconds{20}).has_value());
}

TEST_F(DeviceLookersTest, AFileOfTheSameNameElsewhereIsAnotherOne) {
  const LoopbackStandIn elsewhere;
  const OtherProcess other(elsewhere.Path());
  DeviceLookers lookers(loopback_.Path());
  EXPECT_FALSE(lookers.AwaitChange(milliseconds{400}).has_value());
}

TEST_F(DeviceLookersTest, AProgramThatOnlyListsDevicesDoesNotLook) {
  DeviceLookers lookers(loopback_.Path());
  EXPECT_FALSE(lookers.AwaitChange(milliseconds{300}).has_value());
  close(open(loopback_.Path().c_str(), O_RDONLY));
  EXPECT_FALSE(lookers.AwaitChange(milliseconds{400}).has_value());
}

TEST_F(DeviceLookersTest, ADeviceThatIsNotThereIsAnError) {
  EXPECT_THROW(DeviceLookers{"/dev/video987"}, ShareError);
}

}  // namespace
}  // namespace lidcam::integrations::v4l2
