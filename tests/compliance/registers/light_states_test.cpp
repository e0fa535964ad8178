// At which exposure and luminance the light states change, by what the camera's pictures say of themselves.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "bus/passing_bus.h"
#include "camera_model/bus_adapter/simulated_bus.h"
#include "platform/host/nt/system/debug_print.h"
#include "tests/compliance/support/compliance_world.h"
#include "tests/compliance/support/frame_rules.h"
#include "tests/compliance/support/property_table.h"

namespace lidcam::compliance {
namespace {

using client::Camera;
using client::Stream;

struct Light {
  std::uint8_t Exposure = 0;
  std::uint8_t Luma = 0;
};

/// Writes both into the header of each picture.
class StatedLight final : public bus::PassingBus {
 public:
  explicit StatedLight(bus::UsbBus& bus) : PassingBus(bus) {}

  bus::IsochronousResult ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                         std::span<bus::IsochronousPacket> packets) override {
    constexpr std::size_t kExposureAt = 16;
    constexpr std::size_t kLumaAt = 23;
    const bus::IsochronousResult result = PassingBus::ReadIsochronous(endpoint, buffer, packets);
    for (const bus::IsochronousPacket& packet : packets) {
      std::uint8_t* const data = buffer.data() + packet.Offset;
      if (packet.Length <= kLumaAt || data[0] != 0xFF || data[1] != 0xD8) continue;
      data[kExposureAt] = light_.Exposure;
      data[kLumaAt] = light_.Luma;
    }
    return result;
  }

  void Set(Light light) { light_ = light; }

 private:
  Light light_;
};

/// A running stream of a camera whose exposure is set by hand: the light states then follow what the pictures say.
class LightStates : public ::testing::Test {
 protected:
  void Run(const std::function<void()>& scenario, Light first) {
    light_.Set(first);
    RunOver(light_, [&](Host& host) {
      const Camera camera = host.Open();
      camera.SetLevel(kCameraControl, 4, {50, 2});
      Stream stream(camera, camera.FormatOf(160, 120));
      stream_ = &stream;
      stream.Run();
      EXPECT_EQ(TakeFrames(stream, 3), STATUS_SUCCESS);
      scenario();
    });
  }

  /// Whether more pictures of this light than any change takes lead to one with this message.
  bool Changes(Light light, const char* message) {
    const host::DebugPrintCapture debug;
    light_.Set(light);
    EXPECT_EQ(TakeFrames(*stream_, 20), STATUS_SUCCESS);
    const auto messages = debug.Messages();
    return std::ranges::any_of(messages, [message](const std::string& line) {
      return line.find(message) != std::string::npos;
    });
  }

 private:
  std::unique_ptr<bus::SimulatedBus> camera_ = bus::MakeSimulatedBus({}, bus::Pacing::FreeRunning);
  StatedLight light_{*camera_};
  Stream* stream_ = nullptr;
};

TEST_F(LightStates, ChangeAtTheirThresholdsOnly) {
  constexpr const char* kFromNormal = "From Normal to Dummy";
  constexpr const char* kFromLowLight = "From LowLight to Dummy";
  constexpr const char* kToLowLight = "From Dummy to LowLight";
  constexpr const char* kToNormal = "From Dummy to Normal";
  Run(
      [&] {
        EXPECT_FALSE(Changes({7, 49}, "From"));
        EXPECT_FALSE(Changes({6, 48}, "From"));
        EXPECT_TRUE(Changes({7, 48}, kFromNormal));
        EXPECT_FALSE(Changes({19, 22}, "From"));
        EXPECT_FALSE(Changes({18, 21}, "From"));
        EXPECT_TRUE(Changes({19, 21}, kToLowLight));
        EXPECT_FALSE(Changes({19, 63}, "From"));
        EXPECT_FALSE(Changes({20, 64}, "From"));
        EXPECT_TRUE(Changes({19, 64}, kFromLowLight));
        EXPECT_FALSE(Changes({8, 80}, "From"));
        EXPECT_FALSE(Changes({9, 81}, "From"));
        EXPECT_TRUE(Changes({8, 81}, kToNormal));
      },
      {0, 255});
}

TEST_F(LightStates, BeginByTheFirstPicturesExposure) {
  Run([&] { EXPECT_TRUE(Changes({7, 48}, "From Normal to Dummy")); }, {4, 128});
  Run([&] { EXPECT_TRUE(Changes({19, 64}, "From LowLight to Dummy")); }, {5, 128});
}

}  // namespace
}  // namespace lidcam::compliance
