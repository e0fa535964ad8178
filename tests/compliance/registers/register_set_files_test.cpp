// The files of register sets that are installed beside the driver.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "bus/passing_bus.h"
#include "camera_model/bus_adapter/simulated_bus.h"
#include "tests/compliance/support/compliance_world.h"
#include "tests/driver/sensor/register_sets/register_set_bytes.h"
#include "tests/driver/support/system_root.h"

namespace lidcam::compliance {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr std::uint8_t kRegister = 0x68;  // of the bridge: nothing but these files writes it

/// What is written to the register.
class NotedWrites final : public bus::PassingBus {
 public:
  explicit NotedWrites(bus::UsbBus& bus) : PassingBus(bus) {}

  bus::ControlResult ControlTransfer(const bus::SetupPacket& setup,
                                     std::span<std::uint8_t> data) override {
    constexpr std::uint8_t kVendorWrite = 0x40;
    if (setup.RequestType == kVendorWrite && setup.Index == (0xFF00 | kRegister))
      values_.push_back(setup.Value);
    return PassingBus::ControlTransfer(setup, data);
  }

  [[nodiscard]] const std::vector<std::uint16_t>& Values() const { return values_; }

 private:
  std::vector<std::uint16_t> values_;
};

/// Plugs a camera in with these files beside the driver.
class RegisterSetFiles : public ::testing::Test {
 protected:
  void PlugIn(const char* name, const test::Bytes& file) {
    disk_.Write(name, file);
    RunOver(writes_, [this](Host& host) {
      before_ = writes_.Values().size();
      blocks_ = BlocksTakenBy([&host] { host.Replug(); });
    });
  }

  /// By one start of the camera.
  [[nodiscard]] std::vector<std::uint16_t> Written() const {
    const auto begin = writes_.Values().begin() + static_cast<std::ptrdiff_t>(before_);
    return {begin, writes_.Values().end()};
  }
  [[nodiscard]] const std::vector<std::size_t>& Blocks() const { return blocks_; }

 private:
  test::TemporarySystemRoot disk_;
  std::unique_ptr<bus::SimulatedBus> camera_ = bus::MakeSimulatedBus({}, bus::Pacing::FreeRunning);
  NotedWrites writes_{*camera_};
  std::size_t before_ = 0;
  std::vector<std::size_t> blocks_;
};

TEST_F(RegisterSetFiles, OfTheSensorAreWrittenAtTheCamerasStart) {
  PlugIn(
      "S001.set",
      test::SetFile(
          {test::Section(1, {0x11, kRegister, 0x5B, 0x22, kRegister, 0x77, 0x11, kRegister, 0xA7}),
           test::Section(2, {0x11, kRegister, 0x01}), test::Section(3, {0x11, kRegister, 0x02})}));
  EXPECT_THAT(Written(), ElementsAre(0x5B, 0xA7));
}

TEST_F(RegisterSetFiles, OfOtherSensorsAreNotRead) {
  PlugIn("S002.set", test::SetFile({test::Section(1, {0x11, kRegister, 0x66})}));
  EXPECT_THAT(Written(), IsEmpty());
}

TEST_F(RegisterSetFiles, EndAtASectionOfNoTable) {
  PlugIn("S001.set", test::SetFile({test::Section(1, {0x11, kRegister, 0x5B}),
                                    test::Section(4, {0x11, kRegister, 0x66}),
                                    test::Section(1, {0x11, kRegister, 0xA7})}));
  EXPECT_THAT(Written(), ElementsAre(0x5B));
}

// The second section's length is that of three entries, of which the file has one.
TEST_F(RegisterSetFiles, EndAtASectionThatIsNotWhole) {
  test::Bytes cut = test::Section(1, {0x11, kRegister, 0xA7});
  cut[0] = 8 + 9;
  PlugIn("S001.set", test::SetFile({test::Section(1, {0x11, kRegister, 0x5B}), cut}));
  EXPECT_THAT(Written(), ElementsAre(0x5B));
}

TEST_F(RegisterSetFiles, AreReadAsFarAsTheyGoIfTheyTellALongerBody) {
  PlugIn("S001.set", test::SetFileTelling(5000, {test::Section(1, {0x11, kRegister, 0x5B})}));
  EXPECT_THAT(Written(), ElementsAre(0x5B));
}

TEST_F(RegisterSetFiles, AreReadIntoABufferOf2000Bytes) {
  test::Bytes entries;
  for (int i = 0; i < 600; ++i)
    entries.insert(entries.end(), {0x11, kRegister, static_cast<std::uint8_t>(i & 0xFF)});
  PlugIn("S001.set", test::SetFile({test::Section(1, entries)}));
  ASSERT_EQ(Written().size(), 600U);
  EXPECT_EQ(Written().back(), 599 & 0xFF);
  EXPECT_THAT(Blocks(), Contains(2000U));
  EXPECT_THAT(Blocks(), Not(Contains(2001U)));
}

// A file that tells a longer body is looked at for 1,980 bytes: a section that ends there is the last one.
TEST_F(RegisterSetFiles, AreReadFor1980BytesOfSections) {
  constexpr std::size_t kBytes = 1980;
  constexpr std::size_t kSectionHeader = 8;
  test::Bytes entries;
  while (entries.size() < kBytes - kSectionHeader)
    entries.push_back(entries.size() % 3 == 0 ? 0x11 : kRegister);
  PlugIn("S001.set", test::SetFileTelling(5000, {test::Section(1, entries),
                                                 test::Section(1, {0x11, kRegister, 0xA7})}));
  EXPECT_EQ(Written(), std::vector<std::uint16_t>(600, kRegister));
}

}  // namespace
}  // namespace lidcam::compliance
