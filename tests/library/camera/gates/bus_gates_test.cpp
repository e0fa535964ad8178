#include "library/camera/gates/bus_gates.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <vector>

namespace lidcam::app {
namespace {

using bus::IsochronousPacket;
using bus::UsbStatus;

constexpr std::uint8_t kEndpoint = 0x82;

/// A camera whose packets have a byte each.
class OneByteBus final : public bus::UsbBus {
 public:
  bus::ControlResult ControlTransfer(const bus::SetupPacket&, std::span<std::uint8_t>) override {
    return {UsbStatus::Ok, 0};
  }
  UsbStatus SelectSetting(std::uint8_t, std::uint8_t) override { return UsbStatus::Ok; }
  bus::IsochronousResult ReadIsochronous(std::uint8_t, std::span<std::uint8_t>,
                                         std::span<IsochronousPacket> packets) override {
    ++Reads;
    for (IsochronousPacket& packet : packets) packet = {0, 1, UsbStatus::Ok};
    return {UsbStatus::Ok, 0};
  }
  void Abort(std::uint8_t) override {}
  [[nodiscard]] std::uint32_t FrameNumber() override { return 5; }
  void Unplug() override {}

  int Reads = 0;
};

class StreamGateTest : public ::testing::Test {
 protected:
  /// The bytes that a read of 32 packets brings.
  std::uint32_t Read() {
    std::vector<std::uint8_t> buffer(32 * 16);
    std::array<IsochronousPacket, 32> packets{};
    packets.fill({99, 99, UsbStatus::Failed});
    EXPECT_EQ(gate_.ReadIsochronous(kEndpoint, buffer, packets).Status, UsbStatus::Ok);
    std::uint32_t bytes = 0;
    for (const IsochronousPacket& packet : packets) {
      EXPECT_EQ(packet.Status, UsbStatus::Ok);
      bytes += packet.Length;
    }
    return bytes;
  }

  OneByteBus camera_;
  StreamGate gate_{camera_};
};

TEST_F(StreamGateTest, LetsThroughUntilItEnds) {
  EXPECT_EQ(Read(), 32U);
  gate_.End();
  EXPECT_EQ(Read(), 0U);
  EXPECT_EQ(camera_.Reads, 1) << "undelivered data are not read";
}

TEST_F(StreamGateTest, EndsBehindTheReadThatHasTheLastMicroframe) {
  gate_.EndAfter(33);
  EXPECT_EQ(Read(), 32U);
  EXPECT_EQ(Read(), 32U);
  EXPECT_EQ(Read(), 0U);
  EXPECT_EQ(camera_.Reads, 2);
}

TEST_F(StreamGateTest, EmptyPacketsLieInTheirPlaces) {
  gate_.End();
  std::vector<std::uint8_t> buffer(2 * 16);
  std::array<IsochronousPacket, 2> packets{};
  gate_.ReadIsochronous(kEndpoint, buffer, packets);
  EXPECT_EQ(packets[0], (IsochronousPacket{0, 0, UsbStatus::Ok}));
  EXPECT_EQ(packets[1], (IsochronousPacket{16, 0, UsbStatus::Ok}));
}

}  // namespace
}  // namespace lidcam::app
