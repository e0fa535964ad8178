#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bus/usb/usb_host.h"
#include "camera_model/bus_adapter/simulated_bus.h"
#include "tests/bus/usb/libusb_stand_in.h"

namespace lidcam::bus {

inline constexpr std::uint8_t kEndpoint = 0x82;
inline constexpr std::uint8_t kWidestSetting = 7;

/// A machine with one simulated camera on its USB, as the stand-in for libusb shows it.
class UsbPortTest : public testing::Test {
 protected:
  UsbPortTest() { stand_in::Reset(); }
  ~UsbPortTest() override {
    const stand_in::Record record = stand_in::Look();
    for (const std::string& misuse : record.Misuse) ADD_FAILURE() << misuse;
    stand_in::Reset();
  }

  void PlugCamera(stand_in::Device device = {}) {
    camera_ = std::make_shared<SimulatedBus>(SimulatedBusOptions{});
    // As the machine's own host does with whatever is plugged in.
    camera_->ControlTransfer({0x00, 9, 1, 0, 0}, {});
    device.Behind = camera_;
    stand_in::Plug(device);
  }

  std::unique_ptr<UsbBus> Open() {
    return host_.Open(
        host_.Devices().front(),
        {.Tell = [this](UsbNotice, const std::string& line) { told_.push_back(line); },
         .ControlLimit = std::chrono::milliseconds(200)});
  }

  /// Waits for what another thread brings about.
  template <typename Condition>
  static bool Comes(Condition condition) {
    for (int i = 0; i < 5000; ++i) {
      if (condition()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
  }

  std::shared_ptr<SimulatedBus> camera_;
  UsbHost host_;
  std::vector<std::string> told_;
};

/// A buffer for a read of some packets of the widest setting.
struct ReadBuffer {
  explicit ReadBuffer(std::size_t count, std::size_t share = 3072)
      : Bytes(count * share), Packets(count) {}

  std::vector<std::uint8_t> Bytes;
  std::vector<IsochronousPacket> Packets;

  IsochronousResult ReadFrom(UsbBus& bus) { return bus.ReadIsochronous(kEndpoint, Bytes, Packets); }
  /// The data of all packets, one behind the other.
  [[nodiscard]] std::vector<std::uint8_t> Data() const {
    std::vector<std::uint8_t> data;
    for (const IsochronousPacket& packet : Packets) {
      const auto begin = Bytes.begin() + packet.Offset;
      data.insert(data.end(), begin, begin + packet.Length);
    }
    return data;
  }
};

}  // namespace lidcam::bus
