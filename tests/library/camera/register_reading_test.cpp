#include "library/camera/controls/register_reading.h"

#include <gtest/gtest.h>

#include <thread>

#include "tests/driver/support/register_space.h"

namespace lidcam::app {
namespace {

TEST(RegisterReading, ReadsBothChips) {
  test::RegisterSpace space;
  space.Bridge[0x77] = 0x14;
  space.Sensor[0x0C] = 0x40;
  EXPECT_EQ(ReadRegisterOfStream(space.Context(), Chip::Bridge, 0xFF77), 0x14);
  EXPECT_EQ(ReadRegisterOfStream(space.Context(), Chip::Sensor, 0xFF0C), 0x40);
  EXPECT_EQ(space.AccessText(), "read bridge FF77 -> 14\nread sensor FF0C -> 40\n");
}

// ReadBridgeRegister() would never return.
TEST(RegisterReading, WaitsForTheEndOfAnAccessOfTheExposureControl) {
  test::RegisterSpace space;
  space.Sensor[0x0C] = 0x40;
  CameraContext& camera = space.Context();
  for (const Chip chip : {Chip::Bridge, Chip::Sensor}) {
    camera.DriverRegisterBusy = 1;
    bool wasBusy = true;
    space.OnRequest = [&](const test::WirePacket&) { wasBusy = camera.DriverRegisterBusy != 0; };
    std::thread control([&] {
      while (camera.AppRegisterBusy == 0) std::this_thread::yield();
      camera.DriverRegisterBusy = 0;
    });
    EXPECT_TRUE(ReadRegisterOfStream(camera, chip, 0xFF0C).has_value());
    EXPECT_FALSE(wasBusy);
    control.join();
  }
}

TEST(RegisterReading, KeepsTheExposureControlOffTheBusUntilItEnds) {
  test::RegisterSpace space;
  CameraContext& camera = space.Context();
  bool isUnderWay = true;
  Status refused = 0;
  space.OnRequest = [&](const test::WirePacket&) {
    if (isUnderWay) refused = DriverWriteSensorRegister(camera, 0xFF04, 1);
  };
  static_cast<void>(ReadRegisterOfStream(camera, Chip::Sensor, 0xFF0C));
  isUnderWay = false;
  EXPECT_EQ(refused, kRegisterAccessRefused);
  EXPECT_EQ(DriverWriteSensorRegister(camera, 0xFF04, 1), 0);
}

TEST(RegisterReading, ARegisterThatDoesNotAnswerHasNoValue) {
  test::RegisterSpace space;
  space.Failure = [](const std::string& access) {
    return access.starts_with("read") ? test::kRequestFailed : 0;
  };
  EXPECT_FALSE(ReadRegisterOfStream(space.Context(), Chip::Bridge, 0xFF77).has_value());
  EXPECT_EQ(space.Context().AppRegisterBusy, 0U);
}

}  // namespace
}  // namespace lidcam::app
