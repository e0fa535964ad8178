// Cameras that stream at the same time share the exposure without a lock: under any interleaving,
// the values written are those of the table.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <thread>

#include "driver/exposure/auto_exposure.h"
#include "driver/exposure/frame_exposure_control.h"
#include "driver/exposure/light_state.h"
#include "driver/sensor/registers/register_access.h"
#include "tests/driver/exposure/support/exposure_bench.h"
#include "tests/driver/exposure/support/operating_points.h"

namespace lidcam::test {
namespace {

constexpr int kFrames = 200000;

// Checks what arrives at the sensor and stores nothing.
class WatchedCamera {
 public:
  WatchedCamera() {
    context_.TransportContext = this;
    context_.WriteRequest = OnWrite;
    context_.ReadRequest = OnRead;
    context_.SensorType = SensorTypeVGA0708;
    context_.AutoExposure = 1;
    context_.Flicker = 1;
    context_.FlickerBandStep = 200;
    context_.LightState = LightStateInitial;
    context_.LED = 4;
  }
  WatchedCamera(const WatchedCamera&) = delete;
  WatchedCamera& operator=(const WatchedCamera&) = delete;

  CameraContext& Context() { return context_; }

  void Stream() {
    std::array<std::uint8_t, 24> header{};
    for (int frame = 0; frame < kFrames; ++frame) {
      header[23] = frame / 100 % 2 == 0 ? 10 : 200;
      RunFrameExposureControl(context_, header.data());
      const std::uint32_t exposure = AeOutput.Exposure;
      if (exposure > 20) strangers_ = strangers_ + 1;
      const std::uint32_t mode = AeLightMode;
      if (mode > 2) strangers_ = strangers_ + 1;
      const std::uint32_t state = context_.LightState;
      if (state > 3) strangers_ = strangers_ + 1;
    }
  }

  [[nodiscard]] int Strangers() const { return strangers_; }
  [[nodiscard]] int GainWrites() const { return gainWrites_; }

 private:
  static Status OnWrite(void* self, std::uint32_t, std::uint32_t index, std::uint32_t value, void*,
                        std::uint32_t*) {
    static_cast<WatchedCamera*>(self)->Look(index, value);
    return 0;
  }
  static Status OnRead(void*, std::uint32_t, std::uint32_t, std::uint32_t, void* buffer,
                       std::uint32_t*) {
    *static_cast<std::uint8_t*>(buffer) = 0;
    return 0;
  }
  // Only the exposure loop writes the two gain registers.
  void Look(std::uint32_t index, std::uint32_t value) {
    if (index != 0xFF60 && index != 0xFF5D) return;
    gainWrites_ = gainWrites_ + 1;
    const bool known = std::any_of(
        kOperatingPoints.begin(), kOperatingPoints.end(), [&](const OperatingPoint& row) {
          return value == (index == 0xFF60 ? row.CoarseGain : row.FineGain);
        });
    if (!known) strangers_ = strangers_ + 1;
  }

  CameraContext context_{};
  std::atomic<int> strangers_ = 0;
  std::atomic<int> gainWrites_ = 0;
};

// Restores the shared variables, so that each test starts from the same values.
class ExposureThreads : public testing::Test {
 protected:
  ExposureThreads() { ResetSharedExposure(); }
  ~ExposureThreads() override { ResetSharedExposure(); }
};

TEST_F(ExposureThreads, TwoStreamsAndAnApplicationKeepTheSharedExposureMadeOfTableValues) {
  WatchedCamera first;
  WatchedCamera second;
  std::atomic<bool> streaming{true};
  std::atomic<int> applicationWrites{0};
  std::thread firstStream([&] { first.Stream(); });
  std::thread secondStream([&] { second.Stream(); });
  std::thread application([&] {
    while (streaming) {
      WriteBridgeRegister(first.Context(), 0xFF77, 0x14);
      WriteSensorRegister(second.Context(), 0xFF0C, 0x01);
      applicationWrites = applicationWrites + 1;
      std::this_thread::yield();
    }
  });
  firstStream.join();
  secondStream.join();
  streaming = false;
  application.join();

  EXPECT_EQ(first.Strangers(), 0);
  EXPECT_EQ(second.Strangers(), 0);
  EXPECT_GE(AeIndex, 0);
  EXPECT_LE(AeIndex, 80);
  EXPECT_LE(AeHoldOff, 5);
  EXPECT_LE(LightMode, 2U);
  const std::uint8_t fine = AeOutput.FineGain;
  const std::uint8_t coarse = AeOutput.CoarseGain;
  const std::uint32_t exposure = AeOutput.Exposure;
  const auto hasRow = [](auto matches) {
    return std::any_of(kOperatingPoints.begin(), kOperatingPoints.end(), matches);
  };
  EXPECT_TRUE(hasRow([&](const OperatingPoint& row) { return row.FineGain == fine; }));
  EXPECT_TRUE(hasRow([&](const OperatingPoint& row) { return row.CoarseGain == coarse; }));
  EXPECT_TRUE(hasRow([&](const OperatingPoint& row) { return row.Exposure == exposure; }));
  EXPECT_GT(first.GainWrites() + second.GainWrites(), 0);
  EXPECT_GT(applicationWrites, 0);
  EXPECT_EQ(first.Context().DriverRegisterBusy, 0U);
  EXPECT_EQ(second.Context().DriverRegisterBusy, 0U);
}

// The control that restarts the light machine comes from the application's thread.
TEST_F(ExposureThreads, LightMachineRestartedFromAnotherThreadAlwaysStandsInAState) {
  WatchedCamera camera;
  std::atomic<bool> streaming{true};
  std::thread stream([&] { camera.Stream(); });
  std::thread application([&] {
    while (streaming) {
      ResetLightState(camera.Context());
      std::this_thread::yield();
    }
  });
  stream.join();
  streaming = false;
  application.join();
  EXPECT_EQ(camera.Strangers(), 0);
  EXPECT_LE(AeIndex, 80);
  EXPECT_GE(AeIndex, 0);
}

}  // namespace
}  // namespace lidcam::test
