// What the values of controls, also those outside of their range, write into the bridge.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "bus/passing_bus.h"
#include "camera_model/bus_adapter/simulated_bus.h"
#include "tests/compliance/support/compliance_world.h"
#include "tests/compliance/support/property_table.h"

namespace lidcam::compliance {
namespace {

using client::Camera;
using ::testing::ElementsAre;

constexpr ULONG kEffect = 11;

/// Notes each write of a bridge register: its address and the value.
class BridgeWrites final : public bus::PassingBus {
 public:
  using Write = std::pair<int, int>;

  explicit BridgeWrites(bus::UsbBus& bus) : PassingBus(bus) {}

  bus::ControlResult ControlTransfer(const bus::SetupPacket& setup,
                                     std::span<std::uint8_t> data) override {
    constexpr std::uint8_t kVendorWrite = 0x40;
    constexpr std::uint16_t kFirstRegister = 0xFF00;
    constexpr std::uint16_t kSelection = 0xFFFF;  // precedes each access
    if (setup.RequestType == kVendorWrite && setup.Index >= kFirstRegister &&
        setup.Index != kSelection)
      writes_.emplace_back(setup.Index, setup.Value);
    return PassingBus::ControlTransfer(setup, data);
  }

  /// The writes since the call before.
  [[nodiscard]] std::vector<Write> Take() { return std::exchange(writes_, {}); }

 private:
  std::vector<Write> writes_;
};

// Only the third one is tinted. Values without an effect are those of no effect; the range is told, and not enforced.
TEST(ControlRegisters, OfTheEffectAreThoseOfNoEffectForValuesWithoutOne) {
  struct Row {
    LONG Value;
    int Bits;
    int Tint1;
    int Tint2;
  };
  const auto camera = bus::MakeSimulatedBus({}, bus::Pacing::FreeRunning);
  BridgeWrites writes(*camera);
  RunOver(writes, [&writes](Host& host) {
    const Camera opened = host.Open();
    for (const Row& row :
         {Row{1, 0x02, 0, 0}, Row{2, 0x08, 0, 0}, Row{3, 0x20, 0x30, 0xA0}, Row{4, 0x04, 0, 0},
          Row{5, 0x01, 0, 0}, Row{6, 0, 0, 0}, Row{7, 0, 0, 0}, Row{255, 0, 0, 0}, Row{-1, 0, 0, 0},
          Row{0x103, 0x20, 0x30, 0xA0}, Row{0, 0, 0, 0}}) {
      SCOPED_TRACE(row.Value);
      static_cast<void>(writes.Take());
      opened.SetLevel(kPrivate, kEffect, {row.Value});
      EXPECT_THAT(writes.Take(), ElementsAre(BridgeWrites::Write(0xFF42, row.Bits),
                                             BridgeWrites::Write(0xFF0B, row.Tint1),
                                             BridgeWrites::Write(0xFF0C, row.Tint2)));
    }
  });
}

}  // namespace
}  // namespace lidcam::compliance
