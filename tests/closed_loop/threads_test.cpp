// Two cameras streaming at once, each on its own thread, as with two applications.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <thread>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "driver/exposure/auto_exposure.h"
#include "library/camera/gates/bus_gates.h"
#include "testbed/transport_testbed.h"
#include "testbed/worlds.h"
#include "tests/closed_loop/closed_loop.h"
#include "tests/driver/support/shared_exposure.h"

namespace lidcam::app {
namespace {

void Stream(double lux, std::size_t frames, std::size_t& delivered) {
  bus::SimulatedBusOptions options;
  options.Camera.Light.Schedule = {{0, lux}};
  bus::SimulatedBus bus(options);
  SettingGate gate(bus);
  gate.Allow(SettingsFor({.Delivered = {160, 120}, .Raw = PictureSize{160, 120}},
                         {SensorTypeVGA0708, true}));
  testbed::RunInVirtualTime({.KeepsFreedPool = false}, [&] {
    testbed::WithTransportTestbed(gate, {}, [&](testbed::TransportTestbed& camera) {
      ASSERT_EQ(camera.Start(), STATUS_SUCCESS);
      ASSERT_EQ(camera.Acquire({.Width = 160, .Height = 120}), STATUS_SUCCESS);
      ASSERT_EQ(camera.Run(), STATUS_SUCCESS);
      EXPECT_TRUE(camera.WaitForFrames(frames, 100 * testbed::kSecond));
      delivered = camera.Counts().Delivered();
    });
  });
}

TEST(TwoCameras, OnTwoThreadsShareTheLoopAndBothDeliver) {
  constexpr std::size_t kFrames = 200;
  const LoopEnvironment environment;
  test::ResetSharedExposure();
  std::size_t bright = 0;
  std::size_t dark = 0;
  std::thread other([&] { Stream(2200, kFrames, bright); });
  Stream(1, kFrames, dark);
  other.join();
  EXPECT_GE(bright, kFrames);
  EXPECT_GE(dark, kFrames);
  const std::int32_t index = AeIndex;
  EXPECT_GE(index, 0);
  EXPECT_LE(index, 80);
}

}  // namespace
}  // namespace lidcam::app
