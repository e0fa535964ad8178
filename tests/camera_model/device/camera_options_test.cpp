#include "camera_model/device/camera_options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace lidcam::camera_model {
namespace {

using testing::AllOf;
using testing::HasSubstr;

TEST(CameraOptions, TheSimplestWordMeansTheUsualCamera) {
  const CameraOptions options = ParseCameraOptions("sim");
  EXPECT_EQ(options, CameraOptions{});
  EXPECT_EQ(options.VendorId, 0x1AF0);
  EXPECT_EQ(options.ProductId, 0x0511);
  EXPECT_EQ(options.Sensor, SensorModel::VGA0708);
  EXPECT_EQ(options.Configuration, ConfigurationKind::Long);
}

TEST(CameraOptions, EveryOptionIsTaken) {
  const CameraOptions expected{
      0x1B17, 0x6111, SensorModel::OV7663, ConfigurationKind::Short, 42, "a b.png", 0, {}};
  EXPECT_EQ(ParseCameraOptions("sim:1b17:6111,sensor=OV7663,config=short,seed=42,scene=a b.png"),
            expected);
  EXPECT_EQ(ParseCameraOptions("sim:1B17:6111,scene=a b.png,seed=42,config=short,sensor=OV7663"),
            expected);
}

TEST(CameraOptions, MainsLightSwellsTwicePerCycle) {
  EXPECT_EQ(ParseCameraOptions("sim").MainsRate, 0u);
  EXPECT_EQ(ParseCameraOptions("sim,mains=50Hz").MainsRate, 100u);
  EXPECT_EQ(ToDeviceOptions(ParseCameraOptions("sim,mains=60Hz")).Light.MainsRate, 120u);
  EXPECT_THROW((void)ParseCameraOptions("sim,mains=50"), std::invalid_argument);
}

TEST(CameraOptions, LightOverTimeReachesTheDevice) {
  EXPECT_TRUE(ParseCameraOptions("sim").Light.empty());
  const LightSchedule expected{{0, 300}, {4, 5}, {12.5, 300}};
  const auto options = ParseCameraOptions("sim,light=300lx@0s;5lx@4s;300lx@12.5s,mains=50Hz");
  EXPECT_EQ(options.Light, expected);
  EXPECT_EQ(ToDeviceOptions(options).Light.Schedule, expected);
  EXPECT_EQ(ToDeviceOptions(options).Light.MainsRate, 100u);
}

TEST(CameraOptions, AnIdentityBringsItsUsualSensor) {
  EXPECT_EQ(ParseCameraOptions("sim:1af0:6011").Sensor, SensorModel::Mi1318);
  EXPECT_EQ(ParseCameraOptions("sim:1af0:6010,config=long").Sensor, SensorModel::OV7670);
}

TEST(CameraOptions, OptionsMayFollowSimAlone) {
  EXPECT_EQ(ParseCameraOptions("sim,sensor=VGA0408").Sensor, SensorModel::VGA0408);
  EXPECT_EQ(ParseCameraOptions("sim,seed=18446744073709551615").Seed, UINT64_MAX);
}

struct ErrorRow {
  const char* Text;
  const char* Wrong;
  const char* Right;
};

class BadOptions : public testing::TestWithParam<ErrorRow> {};

TEST_P(BadOptions, AreToldWithWhatWouldBeRight) {
  try {
    (void)ParseCameraOptions(GetParam().Text);
    FAIL() << GetParam().Text << " was accepted";
  } catch (const std::invalid_argument& error) {
    EXPECT_THAT(error.what(), AllOf(HasSubstr(GetParam().Text), HasSubstr(GetParam().Wrong),
                                    HasSubstr(GetParam().Right)));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Words, BadOptions,
    testing::Values(
        ErrorRow{"cam", "simulated camera is written", "sim[:vid:pid"},
        ErrorRow{"", "simulated camera is written", "sim[:vid:pid"},
        ErrorRow{"sim:1af0:6012", "\"1af0:6012\"",
                 "1af0:0511, 1af0:6010, 1af0:6011, 1b17:6100, 1b17:6101, 1b17:6110, 1b17:6111"},
        ErrorRow{"sim:1af0", "\"1af0\"", "1af0:0511"}, ErrorRow{"sim:", "\"\"", "1af0:0511"},
        ErrorRow{"sim:xyz:0511", "\"xyz:0511\"", "1af0:0511"},
        ErrorRow{"sim:1af0:0511:1", "\"1af0:0511:1\"", "1af0:0511"},
        ErrorRow{"sim:1af0:6010,sensor=VGA0708", "no sensor \"VGA0708\"",
                 "OV7670, OV7660, OV7663, VGA7648"},
        ErrorRow{"sim,sensor=", "no sensor \"\"", "VGA0708, VGA0408"},
        ErrorRow{"sim,config=medium", "\"medium\"", "long or short"},
        ErrorRow{"sim,seed=-1", "\"-1\"", "a number from 0"},
        ErrorRow{"sim,seed=1x", "\"1x\"", "a number from 0"},
        ErrorRow{"sim,scene=", "names no file", "PNG, JPEG or Y4M"},
        ErrorRow{"sim,colour=red", "no option \"colour\"",
                 "sensor=NAME, config=long|short, seed=N, scene=FILE, mains=50Hz|60Hz and "
                 "light=300lx@0s;5lx@4s"},
        ErrorRow{"sim,light=", "a step is empty", "5lx@4s"},
        ErrorRow{"sim,light=300lx@1s", "\"300lx@1s\" is the first step", "begin at 0s"},
        ErrorRow{"sim,light=300lx,5lx@4s", "no option \"5lx@4s\"", "light=300lx@0s;5lx@4s"},
        ErrorRow{"sim,seed=1,", "last comma", "nothing stands after"},
        ErrorRow{"sim,", "last comma", "nothing stands after"},
        ErrorRow{"sim,,seed=1", "no option \"\"", "seed=N"}));

TEST(CameraOptions, AMissingSceneFileIsNamed) {
  CameraOptions options;
  options.SceneFile = "/nowhere/picture.png";
  try {
    (void)ToDeviceOptions(options);
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), AllOf(HasSubstr("/nowhere/picture.png"), HasSubstr("opened")));
  }
}

TEST(CameraOptions, BecomeADevice) {
  const auto options = ToDeviceOptions(ParseCameraOptions("sim:1af0:6011,sensor=K82,config=short"));
  UsbDevice device{options};
  EXPECT_EQ(device.Chip().AttachedSensor().Model(), SensorModel::K82);
  EXPECT_EQ(device.BytesPerMicroframe(3), 1023U);
}

}  // namespace
}  // namespace lidcam::camera_model
