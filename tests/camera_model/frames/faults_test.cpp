#include "bus/faults/frame_faults.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <string>

#include "camera_model/device/usb_device.h"

namespace lidcam::camera_model {
namespace {

struct Seen {
  std::vector<std::uint8_t> Bytes;
  bool HasBusError = false;
  bool IsStalled = false;
};

/// A camera that sends half-size frames of 51 packets (3072 bytes each, the last one 66).
class DisturbedCamera {
 public:
  DisturbedCamera() {
    device.Control({0x00, 9, 1, 0, 0}, {}, 0);
    WriteBridge(0x5D, 0x80);
    WriteBridge(0x0A, 0x10);
    device.Control({0x01, 11, 7, 0, 0}, {}, 0);
  }

  void WriteBridge(std::uint8_t address, std::uint8_t value) {
    device.Control({0x40, 0xA0, 0, 0xFFFF, 0}, {}, 0);
    device.Control({0x40, 0xA0, value, static_cast<std::uint16_t>(0xFF00 + address), 0}, {}, 0);
  }

  Seen Next() {
    Seen seen;
    seen.Bytes.resize(3072);
    const auto answer = device.Isochronous(++now, seen.Bytes);
    seen.Bytes.resize(answer.Length);
    seen.HasBusError = answer.HasBusError;
    seen.IsStalled = answer.IsStalled;
    return seen;
  }

  /// The microframes from the first marker on.
  std::vector<Seen> Run(std::size_t count) {
    Seen seen = Next();
    while (seen.Bytes.empty()) seen = Next();
    std::vector<Seen> all{seen};
    while (all.size() < count) all.push_back(Next());
    return all;
  }

  void Suffer(const std::string& script) {
    device.Stream().SetFaults(bus::ParseFaultScript(script));
  }

  UsbDevice device{UsbDeviceOptions{}};
  std::uint64_t now = 0;
};

std::size_t Bytes(const std::vector<Seen>& seen) {
  return std::accumulate(seen.begin(), seen.end(), std::size_t{0},
                         [](std::size_t sum, const Seen& one) { return sum + one.Bytes.size(); });
}

TEST(Faults, UndisturbedFrameHasItsBytes) {
  DisturbedCamera camera;
  const auto seen = camera.Run(60);
  EXPECT_EQ(Bytes(seen), 153666U);
  EXPECT_EQ(seen[50].Bytes.size(), 66U);
  EXPECT_TRUE(seen[51].Bytes.empty());
}

TEST(Faults, LostPacketLeavesAHole) {
  DisturbedCamera camera;
  camera.Suffer("frame 1 packet 6 error; frame 1 packet 6 lose");
  const auto seen = camera.Run(60);
  EXPECT_TRUE(seen[5].Bytes.empty());
  EXPECT_TRUE(seen[5].HasBusError);
  EXPECT_EQ(Bytes(seen), 153666U - 3072);
}

TEST(Faults, ShortPacketKeepsItsFirstBytes) {
  DisturbedCamera camera;
  camera.Suffer("frame 1 packet 6 short");
  const auto seen = camera.Run(60);
  DisturbedCamera clean;
  const std::vector<std::uint8_t> whole = clean.Run(6)[5].Bytes;
  const std::size_t left = seen[5].Bytes.size();
  ASSERT_GE(left, 1U);
  ASSERT_LT(left, 3072U);
  EXPECT_TRUE(std::equal(seen[5].Bytes.begin(), seen[5].Bytes.end(), whole.begin()));
  EXPECT_EQ(Bytes(seen), 153666U - 3072 + left);
}

TEST(Faults, OversizedPacketEndsAtTheEndpointsLimit) {
  DisturbedCamera camera;
  camera.Suffer("frame 1 packet 6 oversize; frame 1 packet 51 oversize");
  const auto seen = camera.Run(60);
  EXPECT_EQ(seen[5].Bytes.size(), 3072U);
  EXPECT_EQ(seen[50].Bytes.size(), 3072U);
  EXPECT_EQ(Bytes(seen), 153666U - 66 + 3072);
}

TEST(Faults, CorruptedPacketHasOtherBytesOfTheSameNumber) {
  DisturbedCamera clean;
  DisturbedCamera camera;
  camera.Suffer("frame 1 packet 6 corrupt; frame 1 packet 6 error");
  const auto good = clean.Run(60);
  const auto seen = camera.Run(60);
  EXPECT_TRUE(seen[5].HasBusError);
  EXPECT_EQ(seen[5].Bytes.size(), 3072U);
  EXPECT_NE(seen[5].Bytes, good[5].Bytes);
  EXPECT_EQ(seen[6].Bytes, good[6].Bytes);
}

TEST(Faults, MarkersStandWhereTheyAreAskedFor) {
  DisturbedCamera camera;
  camera.Suffer("frame 1 packet 6 false-start; frame 1 packet 7 marker");
  const auto seen = camera.Run(60);
  EXPECT_EQ(seen[5].Bytes[0], 0xFF);
  EXPECT_EQ(seen[5].Bytes[1], 0xD8);
  EXPECT_NE(seen[6].Bytes[0], 0xFF);
  constexpr std::array<std::uint8_t, 2> kMarker{0xFF, 0xD8};
  const auto& bytes = seen[6].Bytes;
  EXPECT_NE(std::search(bytes.begin(), bytes.end(), kMarker.begin(), kMarker.end()), bytes.end());
  EXPECT_EQ(Bytes(seen), 153666U);
}

TEST(Faults, EmptyRunDelaysTheFrameAndLosesNothing) {
  DisturbedCamera camera;
  camera.Suffer("frame 1 packet 6 pause 2500us");
  const auto seen = camera.Run(100);
  for (std::size_t i = 5; i < 25; ++i) EXPECT_TRUE(seen[i].Bytes.empty()) << i;
  EXPECT_EQ(seen[25].Bytes.size(), 3072U);
  EXPECT_EQ(Bytes(seen), 153666U);
}

TEST(Faults, SilenceLosesWhatGoesByMeanwhile) {
  DisturbedCamera camera;
  camera.Suffer("frame 1 packet 6 silence 2500us");
  const auto seen = camera.Run(100);
  for (std::size_t i = 5; i < 25; ++i) EXPECT_TRUE(seen[i].Bytes.empty()) << i;
  EXPECT_EQ(Bytes(seen), 153666U - 20 * 3072);
}

TEST(Faults, SilenceWithoutEndLastsUntilTheSettingIsChosenAnew) {
  DisturbedCamera camera;
  camera.Suffer("frame 2 packet 1 silence 500000s");
  EXPECT_EQ(Bytes(camera.Run(3000)), 153666U);
  camera.device.Control({0x01, 11, 7, 0, 0}, {}, camera.now);
  EXPECT_EQ(Bytes(camera.Run(200)), 153666U);
}

TEST(Faults, StalledEndpointWaitsToBeCleared) {
  DisturbedCamera camera;
  camera.Suffer("frame 1 packet 6 stall");
  const auto seen = camera.Run(300);
  for (std::size_t i = 5; i < 300; ++i) ASSERT_TRUE(seen[i].IsStalled) << i;
  camera.device.Control({0x02, 1, 0, 0x82, 0}, {}, camera.now);
  EXPECT_FALSE(camera.Next().IsStalled);
}

TEST(Faults, PacketOfTheWholeStreamIsMetOnce) {
  DisturbedCamera camera;
  camera.Suffer("frame 1 packet 60 error");
  const auto seen = camera.Run(800);
  int errors = 0;
  for (const Seen& one : seen) errors += one.HasBusError ? 1 : 0;
  EXPECT_EQ(errors, 1);
}

TEST(Faults, ChanceIsTheSameForTheSameSeed) {
  const auto run = [](std::uint64_t seed) {
    DisturbedCamera camera;
    camera.Suffer("bits " + std::to_string(seed) + "; frame 1 packet 20 short 200");
    std::vector<std::size_t> lengths;
    for (const Seen& one : camera.Run(5000)) lengths.push_back(one.Bytes.size());
    return lengths;
  };
  EXPECT_EQ(run(3), run(3));
  EXPECT_NE(run(3), run(4));
}

}  // namespace
}  // namespace lidcam::camera_model
