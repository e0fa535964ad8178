// The transfers that the driver asks the bus for.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <utility>

#include "bus/passing_bus.h"
#include "camera_model/bus_adapter/simulated_bus.h"
#include "platform/host/nt/system/wdm_version.h"
#include "tests/compliance/support/compliance_world.h"
#include "tests/compliance/support/frame_rules.h"

namespace lidcam::compliance {
namespace {

using client::Camera;
using client::Stream;
using ::testing::ElementsAre;

/// Notes how many packets the isochronous transfers have.
class NotedTransfers final : public bus::PassingBus {
 public:
  explicit NotedTransfers(bus::UsbBus& bus) : PassingBus(bus) {}

  bus::IsochronousResult ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                         std::span<bus::IsochronousPacket> packets) override {
    packets_.insert(packets.size());
    return PassingBus::ReadIsochronous(endpoint, buffer, packets);
  }

  [[nodiscard]] const std::set<std::size_t>& Packets() const { return packets_; }

 private:
  std::set<std::size_t> packets_;
};

/// A version of the driver model, as the major one's byte and the minor one's, and the packets of a transfer.
class TransfersOf : public ::testing::TestWithParam<std::pair<std::uint16_t, std::size_t>> {
 protected:
  TransfersOf() { host::SetWdmVersion(GetParam().first); }
  ~TransfersOf() override { host::SetWdmVersion(0x0130); }
};

TEST_P(TransfersOf, APlatformHaveItsNumberOfPackets) {
  const auto camera = bus::MakeSimulatedBus({}, bus::Pacing::FreeRunning);
  NotedTransfers transfers(*camera);
  RunOver(transfers, [](Host& host) {
    const Camera opened = host.Open();
    Stream stream(opened, opened.FormatOf(160, 120));
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 2), STATUS_SUCCESS);
  });
  EXPECT_THAT(transfers.Packets(), ElementsAre(GetParam().second));
}

INSTANTIATE_TEST_SUITE_P(, TransfersOf,
                         ::testing::Values(std::pair(0, 32), std::pair(0x0100, 4),
                                           std::pair(0x0105, 4), std::pair(0x0110, 4),
                                           std::pair(0x0120, 32), std::pair(0x0130, 32)),
                         [](const auto& test) { return "Of" + std::to_string(test.param.first); });

}  // namespace
}  // namespace lidcam::compliance
