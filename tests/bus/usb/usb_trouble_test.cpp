// A reader, a requester and trouble at any moment, from a seed: nothing hangs, and libusb is used by its rules.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <random>

#include "tests/bus/usb/usb_port_support.h"

namespace lidcam::bus {
namespace {

class UsbTrouble : public UsbPortTest {
 protected:
  void Read(UsbBus& bus) {
    ReadBuffer read{32};
    while (!isOver_) {
      if (read.ReadFrom(bus).Status == UsbStatus::Disconnected) return;
      ++reads_;
    }
  }

  void Request(UsbBus& bus) {
    std::array<std::uint8_t, 1> data{};
    while (!isOver_) {
      const auto result = bus.ControlTransfer({0xC0, 0xA1, 1, 0xFF02, 1}, data);
      if (result.Status == UsbStatus::Disconnected) return;
    }
  }

  void MakeTrouble(UsbBus& bus, std::mt19937& random) {
    switch (random() % 6) {
      case 0:
        return bus.Abort(kEndpoint);
      case 1:
        return SetScript(
            {.HoldsIsochronous = true, .ShuffleSeed = static_cast<std::uint32_t>(random() % 3)});
      case 2:
        return SetScript({.HoldsControl = true, .CancelAnswer = -5});
      case 3:
        return SetScript({.ShuffleSeed = static_cast<std::uint32_t>(random())});
      case 4:
        static_cast<void>(bus.FrameNumber());
        return;
      default:
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
    }
  }

  static void SetScript(const stand_in::Script& script) { stand_in::SetScript(script); }

  std::atomic<bool> isOver_ = false;
  std::atomic<std::uint64_t> reads_ = 0;
};

TEST_F(UsbTrouble, ReadsAndRequestsEndWhateverHappens) {
  std::uint64_t reads = 0;
  for (unsigned seed = 1; seed <= 40; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    PlugCamera();
    auto bus = Open();
    ASSERT_EQ(bus->SelectSetting(0, kWidestSetting), UsbStatus::Ok);
    isOver_ = false;
    std::thread reader([&] { Read(*bus); });
    std::thread requester([&] { Request(*bus); });
    for (unsigned i = 0; i < 12; ++i) MakeTrouble(*bus, random);
    switch (seed % 3) {
      case 0:
        stand_in::Unplug(1);
        break;
      case 1:
        bus->Unplug();
        break;
      default:
        isOver_ = true;
        SetScript({});
    }
    reader.join();
    requester.join();
    bus.reset();
    EXPECT_EQ(stand_in::Look().OpenHandles, 0U);
    EXPECT_EQ(stand_in::Look().InFlight, 0U);
    EXPECT_EQ(stand_in::Look().DeviceMemory, 0U);
    stand_in::Unplug(1);
    SetScript({});
    reads += reads_;
  }
  EXPECT_GT(reads, 100U);
}

}  // namespace
}  // namespace lidcam::bus
