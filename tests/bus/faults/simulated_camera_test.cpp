// The simulated camera with the faults of a script, its control requests and its stream on two
// threads.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>

#include "bus/faults/fault_bus.h"
#include "bus/faults/random_faults.h"
#include "camera_model/bus_adapter/simulated_bus.h"

namespace lidcam::bus {
namespace {

using namespace std::chrono_literals;

constexpr std::uint8_t kEndpoint = 0x82;

/// A configured camera (so that `control 1` is the test's first request), and its stream.
class Desk {
 public:
  explicit Desk(FaultScript script)
      : bus{simulated,
            {std::move(script), [](std::uint64_t) {}, [this](const std::string&) { ++lines; }}} {
    simulated.ControlTransfer({0x00, 9, 1, 0, 0}, {});
    simulated.ControlTransfer({0x40, 0xA0, 3, 0xFFFF, 0}, {});
  }

  IsochronousResult Read() { return bus.ReadIsochronous(kEndpoint, buffer, packets); }

  ControlResult ReadRegister(std::array<std::uint8_t, 1>& data) {
    return bus.ControlTransfer({0xC0, 0xA1, 1, 0xFF02, 1}, data);
  }

  SimulatedBus simulated{SimulatedBusOptions{}};
  std::atomic<int> lines{0};
  FaultBus bus;
  std::vector<std::uint8_t> buffer = std::vector<std::uint8_t>(32 * 3072);
  std::vector<IsochronousPacket> packets = std::vector<IsochronousPacket>(32);
};

TEST(FaultsOfSimulatedCamera, RegisterIsReadRightAfterAStall) {
  Desk desk{ParseFaultScript("control 1 stall; control 2 corrupt")};
  std::array<std::uint8_t, 1> data{};
  EXPECT_EQ(desk.ReadRegister(data).Status, UsbStatus::Stalled);
  EXPECT_EQ(desk.ReadRegister(data).Status, UsbStatus::Ok);
  EXPECT_NE(data[0], 0x15);
  EXPECT_EQ(desk.ReadRegister(data).Status, UsbStatus::Ok);
  EXPECT_EQ(data[0], 0x15);
}

TEST(FaultsOfSimulatedCamera, RefusedSettingLeavesTheCameraInItsOwn) {
  Desk desk{ParseFaultScript("setting 7 refuse")};
  EXPECT_EQ(desk.bus.SelectSetting(0, 7), UsbStatus::NoBandwidth);
  EXPECT_EQ(desk.bus.SelectSetting(0, 6), UsbStatus::Ok);
  desk.simulated.WithCamera(
      [](camera_model::UsbDevice& camera) { EXPECT_EQ(camera.AlternateSetting(), 6); });
}

TEST(FaultsOfSimulatedCamera, UnpluggedInTheMiddleOfTheStream) {
  Desk desk{ParseFaultScript("at 100ms unplug")};
  ASSERT_EQ(desk.bus.SelectSetting(0, 7), UsbStatus::Ok);
  int good = 0;
  while (desk.Read().Status == UsbStatus::Ok) ++good;
  EXPECT_EQ(good, 25);
  EXPECT_EQ(desk.bus.SelectSetting(0, 0), UsbStatus::Disconnected);
  std::array<std::uint8_t, 1> data{};
  EXPECT_EQ(desk.ReadRegister(data).Status, UsbStatus::Disconnected);
}

TEST(FaultsOfSimulatedCamera, EqualSeedsGiveEqualStreams) {
  Desk first{RandomFaults(11, 1s, RandomFaultMix::Packets)};
  Desk second{ParseFaultScript(ToText(RandomFaults(11, 1s, RandomFaultMix::Packets)))};
  ASSERT_EQ(first.bus.SelectSetting(0, 7), UsbStatus::Ok);
  ASSERT_EQ(second.bus.SelectSetting(0, 7), UsbStatus::Ok);
  for (int count = 0; count < 300; ++count) {
    ASSERT_EQ(first.Read(), second.Read());
    ASSERT_EQ(first.packets, second.packets);
    ASSERT_TRUE(first.buffer == second.buffer);
  }
  EXPECT_GT(first.bus.Counts().Total(), 0U);
  EXPECT_EQ(first.bus.Counts(), second.bus.Counts());
}

// The faults of the stream do not depend on concurrent requests.
TEST(FaultsOfSimulatedCamera, RequestsAndStreamRunOnTwoThreads) {
  const FaultScript script = RandomFaults(3, 1s);
  Desk alone{script};
  Desk desk{script};
  std::atomic<bool> isOver{false};
  std::thread asking([&] {
    std::array<std::uint8_t, 1> data{};
    while (!isOver) {
      desk.ReadRegister(data);
      (void)desk.bus.Counts();
    }
  });
  for (Desk* const each : {&alone, &desk}) {
    while (each->bus.SelectSetting(0, 7) != UsbStatus::Ok) continue;
    for (int count = 0; count < 300; ++count) each->Read();
  }
  isOver = true;
  asking.join();
  for (const FaultForm& form : FaultForms()) {
    if (form.Place != FaultPlace::Time) continue;
    EXPECT_EQ(desk.bus.Counts().Of(form.Place, form.Kind),
              alone.bus.Counts().Of(form.Place, form.Kind))
        << WordOf(form.Kind);
  }
  EXPECT_GT(desk.lines, 0);
}

}  // namespace
}  // namespace lidcam::bus
