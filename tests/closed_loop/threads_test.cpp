// Two cameras streaming at once, each on a thread of its own, as two applications have them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <thread>

#include "apps/lidcam/camera/core_camera.h"
#include "camera_model/bus_adapter/simulated_bus.h"
#include "driver/exposure/auto_exposure.h"
#include "tests/closed_loop/closed_loop.h"
#include "tests/closed_loop/native_stream.h"
#include "tests/driver/support/shared_exposure.h"

namespace lidcam::app {
namespace {

void StreamUntil(CoreCamera& camera, std::size_t frames, std::size_t& delivered) {
  constexpr PictureSize kSize{160, 120};
  NativeStream stream(camera, {.Delivered = kSize, .Raw = kSize},
                      [&delivered](const DeliveredFrame&) { ++delivered; });
  while (delivered < frames) stream.ReadTransfer();
}

bus::SimulatedBusOptions Lit(double lux) {
  bus::SimulatedBusOptions options;
  options.Camera.Light.Schedule = {{0, lux}};
  return options;
}

TEST(TwoCameras, OnTwoThreadsShareTheLoopAndBothDeliver) {
  constexpr std::size_t kFrames = 200;
  const LoopEnvironment environment;
  test::ResetSharedExposure();
  bus::SimulatedBus brightBus(Lit(2200));
  bus::SimulatedBus darkBus(Lit(1));
  CoreCamera brightCamera(brightBus);
  CoreCamera darkCamera(darkBus);
  std::size_t bright = 0;
  std::size_t dark = 0;
  std::thread other([&] { StreamUntil(brightCamera, kFrames, bright); });
  StreamUntil(darkCamera, kFrames, dark);
  other.join();
  EXPECT_GE(bright, kFrames);
  EXPECT_GE(dark, kFrames);
  const std::int32_t index = AeIndex;
  EXPECT_GE(index, 0);
  EXPECT_LE(index, 80);
}

}  // namespace
}  // namespace lidcam::app
