#include "camera_model/bus_adapter/simulated_bus.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bus/faults/fault_bus.h"

namespace lidcam::bus {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::uint8_t kEndpoint = 0x82;

/// A configured camera and a buffer for the packets of one read.
class Desk {
 public:
  explicit Desk(SimulatedBusOptions options = {}) : bus{std::move(options)} {
    bus.ControlTransfer({0x00, 9, 1, 0, 0}, {});
  }

  IsochronousResult Read() { return bus.ReadIsochronous(kEndpoint, buffer, packets); }

  /// @return lengths of the frames that ended within the microframes read
  std::vector<std::size_t> FrameLengths(std::size_t reads) {
    std::vector<std::size_t> lengths;
    std::size_t length = 0;
    for (std::size_t count = 0; count < reads; ++count) {
      Read();
      for (const IsochronousPacket& packet : packets) {
        if (packet.Length >= 2 && buffer[packet.Offset] == 0xFF &&
            buffer[packet.Offset + 1] == 0xD8) {
          if (length != 0) lengths.push_back(length);
          length = 0;
        }
        length += packet.Length;
      }
    }
    return lengths;
  }

  SimulatedBus bus;
  std::vector<std::uint8_t> buffer = std::vector<std::uint8_t>(32 * 3072);
  std::vector<IsochronousPacket> packets = std::vector<IsochronousPacket>(32);
};

TEST(SimulatedBus, ServesDescriptorsAndRegisters) {
  Desk desk;
  std::array<std::uint8_t, 18> descriptor{};
  EXPECT_EQ(desk.bus.ControlTransfer({0x80, 6, 0x0100, 0, 18}, descriptor),
            (ControlResult{UsbStatus::Ok, 18}));
  EXPECT_EQ(descriptor[8] | descriptor[9] << 8, 0x1AF0);
  EXPECT_EQ(desk.bus.ControlTransfer({0x40, 0xA0, 3, 0xFFFF, 0}, {}).Status, UsbStatus::Ok);
  std::array<std::uint8_t, 1> data{};
  EXPECT_EQ(desk.bus.ControlTransfer({0xC0, 0xA1, 1, 0xFF02, 1}, data),
            (ControlResult{UsbStatus::Ok, 1}));
  EXPECT_EQ(data[0], 0x15);
  EXPECT_EQ(desk.bus.ControlTransfer({0x40, 0xA7, 0, 0xFF00, 0}, {}).Status, UsbStatus::Stalled);
}

TEST(SimulatedBus, DataStageWithoutRoomFails) {
  Desk desk;
  EXPECT_EQ(desk.bus.ControlTransfer({0x80, 6, 0x0100, 0, 18}, {}).Status, UsbStatus::Failed);
}

TEST(SimulatedBus, FreeRunningReadsWholeFramesInVirtualTime) {
  Desk desk;
  ASSERT_EQ(desk.bus.SelectSetting(0, 7), UsbStatus::Ok);
  const IsochronousResult first = desk.Read();
  EXPECT_EQ(first.Status, UsbStatus::Ok);
  EXPECT_EQ(desk.Read().StartMicroframe, first.StartMicroframe + 32);
  EXPECT_EQ(desk.packets[3].Offset, 3 * 3072U);
  const auto lengths = desk.FrameLengths(100);
  ASSERT_GE(lengths.size(), 10U);
  for (std::size_t i = 1; i < lengths.size(); ++i) EXPECT_EQ(lengths[i], 614466U);
}

TEST(SimulatedBus, FrameNumberIsTheMicroframeClockInMilliseconds) {
  Desk desk;
  ASSERT_EQ(desk.bus.SelectSetting(0, 1), UsbStatus::Ok);
  const std::uint32_t begin = desk.bus.FrameNumber();
  for (int count = 0; count < 25; ++count) desk.Read();
  EXPECT_EQ(desk.bus.FrameNumber(), begin + 25 * 32 / 8);
}

TEST(SimulatedBus, SameSeedSameTraffic) {
  SimulatedBusOptions options;
  options.Camera.Seed = 9;
  Desk first{options};
  Desk second{options};
  ASSERT_EQ(first.bus.SelectSetting(0, 7), UsbStatus::Ok);
  ASSERT_EQ(second.bus.SelectSetting(0, 7), UsbStatus::Ok);
  for (int count = 0; count < 40; ++count) {
    EXPECT_EQ(first.Read(), second.Read());
    EXPECT_EQ(first.packets, second.packets);
    EXPECT_TRUE(first.buffer == second.buffer);
  }
}

TEST(SimulatedBus, NarrowBusRefusesWideSettings) {
  Desk desk{{.BandwidthLimit = 1024}};
  for (std::uint8_t setting = 7; setting > 3; --setting) {
    EXPECT_EQ(desk.bus.SelectSetting(0, setting), UsbStatus::NoBandwidth);
  }
  EXPECT_EQ(desk.bus.SelectSetting(0, 3), UsbStatus::Ok);
  EXPECT_EQ(desk.bus.SelectSetting(0, 7), UsbStatus::NoBandwidth);
  desk.bus.WithCamera(
      [](camera_model::UsbDevice& camera) { EXPECT_EQ(camera.AlternateSetting(), 3); });
}

TEST(SimulatedBus, SettingsThatDoNotExistStall) {
  Desk desk;
  EXPECT_EQ(desk.bus.SelectSetting(0, 8), UsbStatus::Stalled);
  EXPECT_EQ(desk.bus.SelectSetting(1, 0), UsbStatus::Stalled);
}

TEST(SimulatedBus, ReadWithoutStreamRoomOrEndpointFails) {
  Desk desk;
  EXPECT_EQ(desk.Read().Status, UsbStatus::Failed);
  ASSERT_EQ(desk.bus.SelectSetting(0, 7), UsbStatus::Ok);
  EXPECT_EQ(desk.bus.ReadIsochronous(0x83, desk.buffer, desk.packets).Status, UsbStatus::Failed);
  const auto small = std::span{desk.buffer}.first(32 * 3071);
  EXPECT_EQ(desk.bus.ReadIsochronous(kEndpoint, small, desk.packets).Status, UsbStatus::Failed);
  for (const IsochronousPacket& packet : desk.packets) EXPECT_EQ(packet.Length, 0U);
}

TEST(SimulatedBus, StallEndsTheReadUntilItIsCleared) {
  Desk desk;
  desk.bus.DisturbFrames(ParseFaultScript("frame 1 packet 4 stall"));
  ASSERT_EQ(desk.bus.SelectSetting(0, 7), UsbStatus::Ok);
  EXPECT_EQ(desk.Read().Status, UsbStatus::Stalled);
  EXPECT_EQ(desk.packets.back().Status, UsbStatus::Stalled);
  EXPECT_EQ(desk.packets.back().Length, 0U);
  EXPECT_EQ(desk.Read().Status, UsbStatus::Stalled);
  EXPECT_EQ(desk.bus.ControlTransfer({0x02, 1, 0, kEndpoint, 0}, {}).Status, UsbStatus::Ok);
  EXPECT_EQ(desk.Read().Status, UsbStatus::Ok);
}

TEST(SimulatedBus, CorruptedPacketsComeWithAnError) {
  Desk desk;
  desk.bus.DisturbFrames(ParseFaultScript("frame 1 packet 4 corrupt; frame 1 packet 4 error"));
  ASSERT_EQ(desk.bus.SelectSetting(0, 7), UsbStatus::Ok);
  EXPECT_EQ(desk.Read().Status, UsbStatus::Ok);
  int failed = 0;
  for (const IsochronousPacket& packet : desk.packets) {
    if (packet.Status == UsbStatus::Failed) {
      ++failed;
      EXPECT_EQ(packet.Length, 3072U);
    }
  }
  EXPECT_EQ(failed, 1);
}

TEST(SimulatedBus, FaultsOfFramesAreToldWithTheirPacketsAndCounted) {
  Desk desk;
  std::vector<std::string> lines;
  desk.bus.DisturbFrames(ParseFaultScript("frame 1 packet 4 lose 2; frame 1 packet 9 pause 1ms"),
                         [&lines](const std::string& line) { lines.push_back(line); });
  ASSERT_EQ(desk.bus.SelectSetting(0, 7), UsbStatus::Ok);
  desk.Read();
  EXPECT_EQ(lines, (std::vector<std::string>{"bus  fault frame 1 packet 4 lose 2",
                                             "bus  fault frame 1 packet 9 pause 1ms"}));
  EXPECT_EQ(ToText(desk.bus.FrameFaultCounts()), "frame: 2 lose, 1 pause");
}

TEST(SimulatedBus, ControlRequestsFailOrComeLateOnDemand) {
  Desk desk;
  std::uint64_t slept = 0;
  FaultBus bus{desk.bus,
               {.Script = ParseFaultScript("control 1 stall; control 2 fail; control 3 late 30ms"),
                .Sleep = [&slept](std::uint64_t time) { slept += time; }}};
  const SetupPacket select{0x40, 0xA0, 0, 0xFFFF, 0};
  EXPECT_EQ(bus.ControlTransfer(select, {}).Status, UsbStatus::Stalled);
  EXPECT_EQ(bus.ControlTransfer(select, {}).Status, UsbStatus::Failed);
  EXPECT_EQ(slept, 0U);
  EXPECT_EQ(bus.ControlTransfer(select, {}).Status, UsbStatus::Ok);
  EXPECT_EQ(slept, 30'000U);
  EXPECT_EQ(bus.ControlTransfer(select, {}).Status, UsbStatus::Ok);
  EXPECT_EQ(slept, 30'000U);
}

TEST(SimulatedBus, RealTimeReadsEndNoSoonerThanTheirLastMicroframe) {
  Desk desk{{.Pace = Pacing::RealTime}};
  ASSERT_EQ(desk.bus.SelectSetting(0, 7), UsbStatus::Ok);
  const auto begin = Clock::now();
  const std::uint32_t first = desk.Read().StartMicroframe;
  std::uint32_t last = first;
  for (int count = 0; count < 24; ++count) last = desk.Read().StartMicroframe;
  EXPECT_GE(Clock::now() - begin, 25 * 32 * 125us - 2ms);
  EXPECT_GE(last, first + 24 * 32);
}

TEST(SimulatedBus, AbortEndsAReadInProgress) {
  Desk desk{{.Pace = Pacing::RealTime}};
  ASSERT_EQ(desk.bus.SelectSetting(0, 7), UsbStatus::Ok);
  desk.packets.resize(32);
  std::atomic<bool> isDone{false};
  UsbStatus status = UsbStatus::Ok;
  std::thread reader([&] {
    while (status == UsbStatus::Ok) status = desk.Read().Status;
    isDone = true;
  });
  while (!isDone) {
    desk.bus.Abort(kEndpoint);
    std::this_thread::sleep_for(1ms);
  }
  reader.join();
  EXPECT_EQ(status, UsbStatus::Aborted);
  EXPECT_EQ(desk.packets.back().Status, UsbStatus::Aborted);
  EXPECT_EQ(desk.packets.back().Length, 0U);
  EXPECT_EQ(desk.Read().Status, UsbStatus::Ok);
}

TEST(SimulatedBus, AbortOfAnotherEndpointOrOfNoReadDoesNothing) {
  Desk desk;
  ASSERT_EQ(desk.bus.SelectSetting(0, 7), UsbStatus::Ok);
  desk.bus.Abort(kEndpoint);
  desk.bus.Abort(0x81);
  EXPECT_EQ(desk.Read().Status, UsbStatus::Ok);
}

TEST(SimulatedBus, UnplugEndsEverythingFromAnyThread) {
  Desk desk{{.Pace = Pacing::RealTime}};
  ASSERT_EQ(desk.bus.SelectSetting(0, 7), UsbStatus::Ok);
  UsbStatus status = UsbStatus::Ok;
  std::thread reader([&] {
    while (status == UsbStatus::Ok) status = desk.Read().Status;
  });
  std::this_thread::sleep_for(20ms);
  desk.bus.Unplug();
  reader.join();
  EXPECT_EQ(status, UsbStatus::Disconnected);
  EXPECT_EQ(desk.Read().Status, UsbStatus::Disconnected);
  EXPECT_EQ(desk.packets.front().Status, UsbStatus::Disconnected);
  EXPECT_EQ(desk.bus.ControlTransfer({0x40, 0xA0, 0, 0xFFFF, 0}, {}).Status,
            UsbStatus::Disconnected);
  EXPECT_EQ(desk.bus.SelectSetting(0, 0), UsbStatus::Disconnected);
}

TEST(SimulatedBus, ControlRequestsRunBesideTheStream) {
  Desk desk;
  ASSERT_EQ(desk.bus.SelectSetting(0, 7), UsbStatus::Ok);
  std::atomic<bool> isOver{false};
  std::thread writer([&] {
    for (std::uint8_t value = 0; !isOver; ++value) {
      desk.bus.ControlTransfer({0x40, 0xA0, 0, 0xFFFF, 0}, {});
      desk.bus.ControlTransfer({0x40, 0xA0, value, 0xFF77, 0}, {});
      std::this_thread::yield();
    }
  });
  const auto lengths = desk.FrameLengths(100);
  isOver = true;
  writer.join();
  ASSERT_GE(lengths.size(), 10U);
  for (std::size_t i = 1; i < lengths.size(); ++i) EXPECT_EQ(lengths[i], 614466U);
}

TEST(SimulatedBus, IsMadeFromAUsersWord) {
  const auto bus =
      MakeSimulatedBus(camera_model::ParseCameraOptions("sim:1af0:6011,sensor=K82,config=short"),
                       Pacing::FreeRunning);
  std::array<std::uint8_t, 521> data{};
  EXPECT_EQ(bus->ControlTransfer({0x80, 6, 0x0200, 0, 521}, data).Transferred, 101U);
  EXPECT_EQ(bus->ControlTransfer({0x80, 6, 0x0100, 0, 521}, data).Transferred, 18U);
  EXPECT_EQ(data[10] | data[11] << 8, 0x6011);
}

}  // namespace
}  // namespace lidcam::bus
