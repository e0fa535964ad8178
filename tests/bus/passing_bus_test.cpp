#include "bus/passing_bus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <span>

namespace lidcam::bus {
namespace {

using ::testing::_;
using ::testing::Return;

class MockBus : public UsbBus {
 public:
  MOCK_METHOD(ControlResult, ControlTransfer, (const SetupPacket&, std::span<std::uint8_t>),
              (override));
  MOCK_METHOD(UsbStatus, SelectSetting, (std::uint8_t, std::uint8_t), (override));
  MOCK_METHOD(IsochronousResult, ReadIsochronous,
              (std::uint8_t, std::span<std::uint8_t>, std::span<IsochronousPacket>), (override));
  MOCK_METHOD(bool, HasReceived, (std::uint8_t, std::size_t), (override));
  MOCK_METHOD(void, Abort, (std::uint8_t), (override));
  MOCK_METHOD(std::uint32_t, FrameNumber, (), (override));
  MOCK_METHOD(void, Unplug, (), (override));
};

class PassingBusTest : public ::testing::Test {
 protected:
  ::testing::StrictMock<MockBus> camera_;
  PassingBus bus_{camera_};
};

TEST_F(PassingBusTest, ControlRequestAndItsAnswerPass) {
  const SetupPacket setup{0xC0, 0xA1, 1, 0xFF00, 2};
  std::array<std::uint8_t, 2> data{};
  EXPECT_CALL(camera_, ControlTransfer(_, _))
      .WillOnce([&](const SetupPacket& asked, std::span<std::uint8_t> answer) {
        EXPECT_EQ(asked.RequestType, 0xC0);
        EXPECT_EQ(asked.Index, 0xFF00);
        EXPECT_EQ(answer.data(), data.data());
        EXPECT_EQ(answer.size(), 2U);
        return ControlResult{UsbStatus::Stalled, 1};
      });
  EXPECT_EQ(bus_.ControlTransfer(setup, data), (ControlResult{UsbStatus::Stalled, 1}));
}

TEST_F(PassingBusTest, SettingAndItsRefusalPass) {
  EXPECT_CALL(camera_, SelectSetting(1, 7)).WillOnce(Return(UsbStatus::NoBandwidth));
  EXPECT_EQ(bus_.SelectSetting(1, 7), UsbStatus::NoBandwidth);
}

TEST_F(PassingBusTest, IsochronousReadPassesWithItsPackets) {
  std::array<std::uint8_t, 8> buffer{};
  std::array<IsochronousPacket, 2> packets{};
  EXPECT_CALL(camera_, ReadIsochronous(0x82, _, _))
      .WillOnce([&](std::uint8_t, std::span<std::uint8_t> bytes,
                    std::span<IsochronousPacket> microframes) {
        EXPECT_EQ(bytes.data(), buffer.data());
        EXPECT_EQ(bytes.size(), 8U);
        EXPECT_EQ(microframes.data(), packets.data());
        EXPECT_EQ(microframes.size(), 2U);
        return IsochronousResult{UsbStatus::EndOfCapture, 77};
      });
  EXPECT_EQ(bus_.ReadIsochronous(0x82, buffer, packets),
            (IsochronousResult{UsbStatus::EndOfCapture, 77}));
}

TEST_F(PassingBusTest, WhetherPacketsHaveComeIsAskedOfTheCamera) {
  EXPECT_CALL(camera_, HasReceived(0x82, 32)).WillOnce(Return(false)).WillOnce(Return(true));
  EXPECT_FALSE(bus_.HasReceived(0x82, 32));
  EXPECT_TRUE(bus_.HasReceived(0x82, 32));
}

TEST_F(PassingBusTest, AbortBusTimeAndUnplugPass) {
  EXPECT_CALL(camera_, Abort(0x82));
  EXPECT_CALL(camera_, FrameNumber()).WillOnce(Return(1234));
  EXPECT_CALL(camera_, Unplug());
  bus_.Abort(0x82);
  EXPECT_EQ(bus_.FrameNumber(), 1234U);
  bus_.Unplug();
}

}  // namespace
}  // namespace lidcam::bus
