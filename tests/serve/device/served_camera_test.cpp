#include "serve/device/served_camera.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/serve/supply.h"

namespace lidcam::serve {
namespace {

using bus::SetupPacket;
using bus::UsbStatus;
using testing::ElementsAre;

constexpr SetupPacket kSetConfiguration{0x00, 9, 1, 0, 0};
constexpr std::uint8_t kStream = 0x82;

SetupPacket SetInterface(std::uint16_t setting) {
  return {0x01, 11, setting, 0, 0};
}

TEST(ServedCamera, KnowsItsEndpointsByTheirAddresses) {
  CameraSupply supply(Simulated());
  const auto lease = supply.Take();
  const ServedCamera& camera = lease->Camera();
  EXPECT_EQ(camera.KindOf(0x00), EndpointKind::Control);
  EXPECT_EQ(camera.KindOf(0x80), EndpointKind::Control);
  EXPECT_EQ(camera.KindOf(0x81), EndpointKind::Interrupt);
  EXPECT_EQ(camera.KindOf(0x82), EndpointKind::Isochronous);
  EXPECT_EQ(camera.KindOf(0x01), EndpointKind::None);
  EXPECT_EQ(camera.KindOf(0x02), EndpointKind::None);
  EXPECT_EQ(camera.KindOf(0x83), EndpointKind::None);
}

TEST(ServedCamera, ASettingsPacketsIncludeAdditionalTransactions) {
  CameraSupply supply(Simulated());
  const auto lease = supply.Take();
  ServedCamera& camera = lease->Camera();
  EXPECT_EQ(camera.BytesPerMicroframe(kStream), 0U);
  EXPECT_EQ(camera.Control(kSetConfiguration, {}).Status, UsbStatus::Ok);
  const std::array<std::uint32_t, 8> sizes{0, 128, 512, 1024, 1536, 2048, 2688, 3072};
  std::uint16_t setting = 0;
  for (const std::uint32_t size : sizes) {
    EXPECT_EQ(camera.Control(SetInterface(setting++), {}).Status, UsbStatus::Ok);
    EXPECT_EQ(camera.BytesPerMicroframe(kStream), size);
  }
  EXPECT_EQ(camera.Control(kSetConfiguration, {}).Status, UsbStatus::Ok);
  EXPECT_EQ(camera.BytesPerMicroframe(kStream), 0U);
}

TEST(ServedCamera, ALateAnswerIsToldByHowMuchAndWaitsForNothing) {
  CameraSupply supply(Simulated("sim", "control 1 late 8s"));
  const auto lease = supply.Take();
  EXPECT_EQ(lease->Camera().Control(kSetConfiguration, {}).Delay, std::chrono::seconds(8));
  EXPECT_EQ(lease->Camera().Control(kSetConfiguration, {}).Delay, std::chrono::seconds(0));
}

// The server's own requests don't count in fault scripts.
TEST(ServedCamera, TheFirstRequestOfAScriptIsTheClientsFirst) {
  CameraSupply supply(Simulated("sim", "control 1 stall"));
  const auto lease = supply.Take();
  EXPECT_EQ(lease->Camera().Control(kSetConfiguration, {}).Status, UsbStatus::Stalled);
  EXPECT_EQ(lease->Camera().Control(kSetConfiguration, {}).Status, UsbStatus::Ok);
}

/// A recording without control requests.
class EmptyRecording final : public bus::UsbBus {
 public:
  bus::ControlResult ControlTransfer(const SetupPacket&, std::span<std::uint8_t>) override {
    return {UsbStatus::NotRecorded, 0};
  }
  UsbStatus SelectSetting(std::uint8_t, std::uint8_t) override { return UsbStatus::Ok; }
  bus::IsochronousResult ReadIsochronous(std::uint8_t, std::span<std::uint8_t>,
                                         std::span<bus::IsochronousPacket> packets) override {
    for (auto& packet : packets) packet = {0, 0, UsbStatus::EndOfCapture};
    return {UsbStatus::EndOfCapture, 0};
  }
  void Abort(std::uint8_t) override {}
  [[nodiscard]] std::uint32_t FrameNumber() override { return 0; }
  void Unplug() override {}
};

ServedCamera Recorded() {
  const CameraSupply supply(Simulated());
  return {std::make_unique<EmptyRecording>(), supply.Device(), std::nullopt};
}

TEST(ServedCamera, ARecordingAnswersByItsDescriptorsWhatItsHostNeverAsked) {
  ServedCamera camera = Recorded();
  std::array<std::uint8_t, 2> data{0xEE, 0xEE};
  EXPECT_EQ(camera.Control({0x80, 8, 0, 0, 1}, data).Transferred, 1U);
  EXPECT_EQ(data[0], 0);
  EXPECT_EQ(camera.Control(kSetConfiguration, {}).Status, UsbStatus::Ok);
  EXPECT_EQ(camera.Control({0x80, 8, 0, 0, 1}, data).Transferred, 1U);
  EXPECT_EQ(data[0], 1);
  EXPECT_EQ(camera.Control({0x00, 9, 2, 0, 0}, {}).Status, UsbStatus::Stalled);
  EXPECT_EQ(camera.Control(SetInterface(5), {}).Status, UsbStatus::Ok);
  EXPECT_EQ(camera.Control({0x81, 10, 0, 0, 1}, data).Transferred, 1U);
  EXPECT_EQ(data[0], 5);
  for (const std::uint8_t recipient : std::array<std::uint8_t, 3>{0x80, 0x81, 0x82}) {
    data = {0xEE, 0xEE};
    EXPECT_EQ(camera.Control({recipient, 0, 0, 0, 2}, data).Transferred, 2U);
    EXPECT_THAT(data, ElementsAre(0, 0));
  }
  EXPECT_EQ(camera.Control({0x02, 1, 0, 0x82, 0}, {}).Status, UsbStatus::Ok);
  EXPECT_EQ(camera.Control({0xC0, 0xA1, 0, 0xFF77, 1}, data).Status, UsbStatus::Stalled);
}

TEST(ServedCamera, ARecordingThatIsOverIsAnUnpluggedCamera) {
  ServedCamera camera = Recorded();
  EXPECT_EQ(camera.ReadStream(kStream, 8, [](const StreamPacket&) {}), UsbStatus::Disconnected);
}

TEST(ServedCamera, TheSupplyIsLimitedAndRefilled) {
  CameraSupply::Options options = Simulated();
  options.Limit = 2;
  CameraSupply supply(options);
  const auto first = supply.Take();
  auto second = supply.Take();
  EXPECT_EQ(supply.Take(), nullptr);
  second.reset();
  EXPECT_NE(supply.Take(), nullptr);
}

}  // namespace
}  // namespace lidcam::serve
