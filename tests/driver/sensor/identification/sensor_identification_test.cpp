// The sensor type for each USB identity and each answer of the sensor, and the requests sent for
// it.

#include "driver/sensor/identification/sensor_identification.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "platform/host/nt/system/debug_print.h"
#include "tests/driver/support/register_space.h"
#include "tests/driver/support/trace_lines.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Packets = std::vector<WirePacket>;

Packets operator+(Packets first, const Packets& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Packets BridgeWrite(std::uint8_t number, std::uint8_t value) {
  return {{0x40, 0xA0, 0x00, 0x00, 0xFF, 0xFF, 0x00, 0x00},
          {0x40, 0xA0, value, 0x00, number, 0xFF, 0x00, 0x00}};
}

Packets SensorWrite(std::uint8_t number, std::uint8_t value) {
  return {{0x40, 0xA0, 0x02, 0x00, 0xFF, 0xFF, 0x00, 0x00},
          {0x40, 0xA0, value, 0x00, number, 0xFF, 0x00, 0x00}};
}

Packets SensorRead(std::uint8_t number) {
  return {{0x40, 0xA0, 0x03, 0x00, 0xFF, 0xFF, 0x00, 0x00},
          {0xC0, 0xA1, 0x01, 0x00, number, 0xFF, 0x01, 0x00}};
}

const Packets kBusOpening = BridgeWrite(0x09, 0x06) + BridgeWrite(0x2B, 0x42) +
                            BridgeWrite(0x5D, 0x00) + BridgeWrite(0x7E, 0x01) +
                            SensorWrite(0x12, 0x80);
const Packets kWideBusOpening = BridgeWrite(0x7E, 0x02) + BridgeWrite(0x09, 0x02) +
                                BridgeWrite(0x2B, 0xBA) + BridgeWrite(0x2E, 0x2F) +
                                BridgeWrite(0x5D, 0x00) + BridgeWrite(0x26, 0x10) +
                                BridgeWrite(0x7F, 0x00) + SensorWrite(0xF0, 0x00);
const Packets kVersionReads = SensorRead(0x0B) + SensorRead(0x0A);
const Packets kSecondAttempt = BridgeWrite(0x09, 0x02) + kVersionReads;

constexpr int kFlagBefore = 0x5A;  // shows whether SensorDH10 was touched

/// The result of an identification.
struct Finding {
  int Type = 0;
  int Dh10 = 0;
  std::vector<std::string> Messages;
  Packets Traffic;
  bool operator==(const Finding&) const = default;
};

void PrintTo(const Finding& finding, std::ostream* stream) {
  *stream << "type " << finding.Type << " DH10 " << finding.Dh10 << " messages "
          << testing::PrintToString(finding.Messages) << " packets " << finding.Traffic.size();
}

Finding Identify(RegisterSpace& space, unsigned vendor, unsigned product) {
  std::array<std::uint8_t, 18> descriptor{};
  descriptor.fill(0xEE);
  const auto put = [&descriptor](std::size_t at, unsigned word) {
    descriptor[at] = static_cast<std::uint8_t>(word & 0xFF);
    descriptor[at + 1] = static_cast<std::uint8_t>(word >> 8);
  };
  put(8, vendor);
  put(10, product);
  CameraContext& camera = space.Context();
  camera.SensorType = 1;
  camera.SensorDH10 = kFlagBefore;
  const host::DebugPrintCapture debug;
  IdentifySensor(camera, descriptor.data());
  return {camera.SensorType, camera.SensorDH10, debug.Messages(), space.Packets()};
}

// Set files, tables and branches are chosen by these numbers.
TEST(SensorTypes, HaveFixedNumbers) {
  EXPECT_EQ(SensorTypeVGA0408, 1);
  EXPECT_EQ(SensorTypeReserved3, 3);
  EXPECT_EQ(SensorTypeVGA7648, 5);
  EXPECT_EQ(SensorTypeK82, 6);
  EXPECT_EQ(SensorTypeOV7660, 7);
  EXPECT_EQ(SensorTypeOV7663, 8);
  EXPECT_EQ(SensorTypeVGA0708, 9);
  EXPECT_EQ(SensorTypeMi1318, 10);
  EXPECT_EQ(SensorTypeOV7670, 11);
}

// --- 1AF0:0511 ---

TEST(Camera1AF0_0511, TellsItsTwoSensorsByRegister02WithoutSettingTheBusUp) {
  for (unsigned answer = 0; answer < 256; ++answer) {
    RegisterSpace space;
    space.Sensor[0x02] = static_cast<std::uint8_t>(answer);
    Finding expected{.Type = 1, .Dh10 = 0, .Messages = {}, .Traffic = SensorRead(0x02)};
    if (answer == 0x15) {
      expected.Type = 9;
      expected.Messages = {"sensor type is VGA0708\n"};
    } else if (answer == 0x10) {
      expected.Messages = {"sensor type is VGA0408\n"};
    }
    EXPECT_EQ(Identify(space, 0x1AF0, 0x0511), expected) << answer;
  }
}

TEST(Camera1AF0_0511, KeepsType1InSilenceWhenRegister02Reads20) {
  RegisterSpace space;
  space.Sensor[0x02] = 0x20;
  const Finding finding = Identify(space, 0x1AF0, 0x0511);
  EXPECT_EQ(finding.Type, 1);
  EXPECT_THAT(finding.Messages, IsEmpty());
}

TEST(Camera1AF0_0511, KeepsType1InSilenceWhenTheReadFails) {
  RegisterSpace space;
  space.Sensor[0x02] = 0x15;
  space.Failure = [](const std::string&) { return -1; };
  EXPECT_EQ(Identify(space, 0x1AF0, 0x0511),
            (Finding{.Type = 1, .Dh10 = 0, .Messages = {}, .Traffic = SensorRead(0x02)}));
}

// --- 1AF0:6010 ---

struct Answers {
  unsigned Version;
  unsigned Product;
};

void GiveAnswers(RegisterSpace& space, Answers first, Answers second) {
  space.SensorAnswers[0x0B] = {static_cast<std::uint8_t>(first.Version),
                               static_cast<std::uint8_t>(second.Version)};
  space.SensorAnswers[0x0A] = {static_cast<std::uint8_t>(first.Product),
                               static_cast<std::uint8_t>(second.Product)};
}

const Finding kByElimination{.Type = 7,
                             .Dh10 = 1,
                             .Messages = {"sensor type is OV7660 with DH1.0\n"},
                             .Traffic = kBusOpening + kVersionReads + kSecondAttempt};

Finding FoundBySecondAttempt() {
  Finding finding = kByElimination;
  finding.Type = 11;
  finding.Dh10 = 0;
  finding.Messages = {"sensor type is OV7670\n"};
  return finding;
}

// All versions and products of the first attempt; the sensor doesn't answer in the second.
TEST(Camera1AF0_6010, FirstAttemptKnowsThreeVersionsOfProduct76) {
  for (unsigned product = 0; product < 256; ++product) {
    for (unsigned version = 0; version < 256; ++version) {
      RegisterSpace space;
      GiveAnswers(space, {version, product}, {0x00, 0x00});
      Finding expected = kByElimination;
      if (product == 0x76 && version == 0x60) {  // revision register 0x29 reads 0 here
        expected = {
            8, 0, {"sensor type is OV7663\n"}, kBusOpening + kVersionReads + SensorRead(0x29)};
      } else if (product == 0x76 && version == 0x73) {
        expected = {11, 0, {"sensor type is OV7670\n"}, kBusOpening + kVersionReads};
      } else if (product == 0x76 && version == 0x48) {
        expected = {5, 0, {"sensor type is SensorTypeVGA7648!\n"}, kBusOpening + kVersionReads};
      }
      ASSERT_EQ(Identify(space, 0x1AF0, 0x6010), expected) << version << " " << product;
    }
  }
}

TEST(Camera1AF0_6010, RevisionTellsOv7663FromOv7660AndWarnsOfOddValues) {
  for (unsigned revision = 0; revision < 256; ++revision) {
    RegisterSpace space;
    GiveAnswers(space, {0x60, 0x76}, {0x73, 0x76});
    space.Sensor[0x29] = static_cast<std::uint8_t>(revision);
    Finding expected{7,
                     0,
                     {"Warning!!! Read odd sensor value, set sensor type OV7660\n"},
                     kBusOpening + kVersionReads + SensorRead(0x29)};
    if (revision == 0x00) {
      expected.Type = 8;
      expected.Messages = {"sensor type is OV7663\n"};
    } else if (revision == 0x10) {
      expected.Messages = {"sensor type is OV7660\n"};
    }
    EXPECT_EQ(Identify(space, 0x1AF0, 0x6010), expected) << revision;
  }
}

TEST(Camera1AF0_6010, OddRevision20GivesOv7660WithTheWarningAndNotByElimination) {
  RegisterSpace space;
  GiveAnswers(space, {0x60, 0x76}, {0x60, 0x76});
  space.Sensor[0x29] = 0x20;
  const Finding finding = Identify(space, 0x1AF0, 0x6010);
  EXPECT_EQ(finding.Type, 7);
  EXPECT_EQ(finding.Dh10, 0);
  EXPECT_THAT(finding.Messages,
              ElementsAre("Warning!!! Read odd sensor value, set sensor type OV7660\n"));
}

// All versions and products of the second attempt, after a first without a result.
TEST(Camera1AF0_6010, SecondAttemptKnowsTheOv7670Only) {
  for (unsigned product = 0; product < 256; ++product) {
    for (unsigned version = 0; version < 256; ++version) {
      RegisterSpace space;
      GiveAnswers(space, {0xFF, 0xFF}, {version, product});
      const bool isOv7670 = product == 0x76 && version == 0x73;
      ASSERT_EQ(Identify(space, 0x1AF0, 0x6010), isOv7670 ? FoundBySecondAttempt() : kByElimination)
          << version << " " << product;
    }
  }
}

TEST(Camera1AF0_6010, UnknownVersion61OfProduct76TwiceEndsByElimination) {
  RegisterSpace space;
  GiveAnswers(space, {0x61, 0x76}, {0x61, 0x76});
  EXPECT_EQ(Identify(space, 0x1AF0, 0x6010), kByElimination);
}

TEST(Camera1AF0_6010, BothAttemptsSayTheSameWordsOfAnOv7670) {
  RegisterSpace first;
  GiveAnswers(first, {0x73, 0x76}, {0x00, 0x00});
  EXPECT_THAT(Identify(first, 0x1AF0, 0x6010).Messages, ElementsAre("sensor type is OV7670\n"));
  RegisterSpace second;
  GiveAnswers(second, {0x73, 0x75}, {0x73, 0x76});
  EXPECT_THAT(Identify(second, 0x1AF0, 0x6010).Messages, ElementsAre("sensor type is OV7670\n"));
}

TEST(Camera1AF0_6010, FailingReadsEndByElimination) {
  RegisterSpace space;
  space.Failure = [](const std::string& access) { return access.starts_with("read") ? -1 : 0; };
  EXPECT_EQ(Identify(space, 0x1AF0, 0x6010), kByElimination);
}

// A revision that can't be read is not that of an OV7663, though that chip's is 0.
TEST(Camera1AF0_6010, FailingRevisionReadIsNoOv7663) {
  RegisterSpace space;
  GiveAnswers(space, {0x60, 0x76}, {0x60, 0x76});
  space.Failure = [](const std::string& access) { return access == "read sensor FF29" ? -1 : 0; };
  const Finding finding = Identify(space, 0x1AF0, 0x6010);
  EXPECT_EQ(finding.Type, 7);
  EXPECT_EQ(finding.Dh10, 0);
}

TEST(Camera1AF0_6010, WriteFailuresChangeNothing) {
  RegisterSpace space;
  GiveAnswers(space, {0x00, 0x00}, {0x73, 0x76});
  space.Failure = [](const std::string& access) { return access.starts_with("write") ? -1 : 0; };
  EXPECT_EQ(Identify(space, 0x1AF0, 0x6010), FoundBySecondAttempt());
}

// --- 1AF0:6011 ---

TEST(Camera1AF0_6011, IsAnMi1318WhenRegister00Reads14AndAK82Otherwise) {
  for (unsigned answer = 0; answer < 256; ++answer) {
    RegisterSpace space;
    space.Sensor[0x00] = static_cast<std::uint8_t>(answer);
    Finding expected{6, kFlagBefore, {"sensor type is K82\n"}, kWideBusOpening + SensorRead(0x00)};
    if (answer == 0x14) {
      expected.Type = 10;
      expected.Messages = {"sensor type is Mi1318\n"};
    }
    EXPECT_EQ(Identify(space, 0x1AF0, 0x6011), expected) << answer;
  }
}

TEST(Camera1AF0_6011, IsAK82WhenTheReadFails) {
  RegisterSpace space;
  space.Sensor[0x00] = 0x14;
  space.Failure = [](const std::string&) { return -1; };
  const Finding finding = Identify(space, 0x1AF0, 0x6011);
  EXPECT_EQ(finding.Type, 6);
  EXPECT_THAT(finding.Messages, ElementsAre("sensor type is K82\n"));
}

// --- 1B17 ---

TEST(Cameras1B17, ThreeProductsAreTakenOnTrustWithoutTrafficOrMessage) {
  struct Row {
    unsigned Product;
    int Type;
  };
  for (const Row& row : {Row{0x6100, 3}, Row{0x6101, 1}, Row{0x6110, 5}}) {
    RegisterSpace space;
    space.Sensor.fill(0x76);
    EXPECT_EQ(Identify(space, 0x1B17, row.Product),
              (Finding{.Type = row.Type, .Dh10 = kFlagBefore, .Messages = {}, .Traffic = {}}));
  }
}

TEST(Camera1B17_6111, KnowsOneVersionOfProduct76AndHasNoSecondAttempt) {
  for (unsigned product = 0; product < 256; ++product) {
    for (unsigned version = 0; version < 256; ++version) {
      RegisterSpace space;
      GiveAnswers(space, {version, product}, {0x73, 0x76});
      Finding expected{7, 1, {}, kBusOpening + kVersionReads};
      if (product == 0x76 && version == 0x60) {
        expected = {8, 0, {}, kBusOpening + kVersionReads + SensorRead(0x29)};
      }
      ASSERT_EQ(Identify(space, 0x1B17, 0x6111), expected) << version << " " << product;
    }
  }
}

TEST(Camera1B17_6111, RevisionZeroIsAnOv7663AndAnyOtherAnOv7660) {
  for (unsigned revision = 0; revision < 256; ++revision) {
    RegisterSpace space;
    GiveAnswers(space, {0x60, 0x76}, {0x60, 0x76});
    space.Sensor[0x29] = static_cast<std::uint8_t>(revision);
    EXPECT_EQ(
        Identify(space, 0x1B17, 0x6111),
        (Finding{revision == 0 ? 8 : 7, 0, {}, kBusOpening + kVersionReads + SensorRead(0x29)}))
        << revision;
  }
}

TEST(Camera1B17_6111, TakesAnOv7670AndAVga7648ForAnOv7660) {
  for (const unsigned version : {0x73U, 0x48U}) {
    RegisterSpace space;
    GiveAnswers(space, {version, 0x76}, {version, 0x76});
    const Finding finding = Identify(space, 0x1B17, 0x6111);
    EXPECT_EQ(finding.Type, 7);
    EXPECT_EQ(finding.Dh10, 1);
  }
}

TEST(Camera1B17_6111, FailingReadsEndByElimination) {
  RegisterSpace space;
  space.Failure = [](const std::string&) { return -1; };
  EXPECT_EQ(Identify(space, 0x1B17, 0x6111), (Finding{7, 1, {}, kBusOpening + kVersionReads}));
}

TEST(Camera1B17_6111, FailingRevisionReadIsNoOv7663) {
  RegisterSpace space;
  GiveAnswers(space, {0x60, 0x76}, {0x60, 0x76});
  space.Failure = [](const std::string& access) { return access == "read sensor FF29" ? -1 : 0; };
  const Finding finding = Identify(space, 0x1B17, 0x6111);
  EXPECT_EQ(finding.Type, 7);
  EXPECT_EQ(finding.Dh10, 0);
}

// --- all others ---

Finding Nothing() {
  return {.Type = 1, .Dh10 = kFlagBefore, .Messages = {}, .Traffic = {}};
}

TEST(UnknownCamera, Of1AF0WithProduct6012KeepsType1WithoutTraffic) {
  RegisterSpace space;
  EXPECT_EQ(Identify(space, 0x1AF0, 0x6012), Nothing());
}

TEST(UnknownCamera, Of1B17WithProduct6105KeepsType1WithoutTraffic) {
  RegisterSpace space;
  EXPECT_EQ(Identify(space, 0x1B17, 0x6105), Nothing());
}

TEST(UnknownCamera, KeepsType1WithoutTrafficWhateverThePair) {
  const auto isKnown = [](unsigned vendor, unsigned product) {
    if (vendor == 0x1AF0) return product == 0x0511 || product == 0x6010 || product == 0x6011;
    return vendor == 0x1B17 &&
           (product == 0x6100 || product == 0x6101 || product == 0x6110 || product == 0x6111);
  };
  RegisterSpace space;
  for (const unsigned vendor : {0x0000U, 0x1AF0U, 0x1B17U, 0xF01AU, 0x171BU, 0x0511U}) {
    for (unsigned product = 0; product < 0x10000; ++product) {
      if (isKnown(vendor, product)) continue;
      ASSERT_EQ(Identify(space, vendor, product), Nothing()) << vendor << ":" << product;
    }
  }
}

// The result of the previous identification is cleared before the first request.
TEST(SensorDH10, IsClearedBeforeTheBusIsTouchedOnThreeIdentities) {
  struct Row {
    unsigned Vendor;
    unsigned Product;
    int AtFirst;
  };
  for (const Row& row : {Row{0x1AF0, 0x0511, 0}, Row{0x1AF0, 0x6010, 0}, Row{0x1B17, 0x6111, 0},
                         Row{0x1AF0, 0x6011, kFlagBefore}}) {
    RegisterSpace space;
    int atFirst = -1;
    space.OnRequest = [&](const WirePacket&) {
      if (atFirst < 0) atFirst = space.Context().SensorDH10;
    };
    Identify(space, row.Vendor, row.Product);
    EXPECT_EQ(atFirst, row.AtFirst) << std::hex << row.Vendor << ":" << row.Product;
  }
}

TEST(SensorTrace, TellsTheTypeOnceItIsKnown) {
  RegisterSpace space;
  space.Sensor[0x02] = 0x15;
  TraceLines trace;
  EXPECT_EQ(Identify(space, 0x1AF0, 0x0511).Type, 9);
  EXPECT_THAT(trace.Take(), ElementsAre("sensor type 9"));
  Identify(space, 0x1B17, 0x6101);
  EXPECT_THAT(trace.Take(), ElementsAre("sensor type 1"));
  Identify(space, 0x1B17, 0x6105);
  EXPECT_THAT(trace.Take(), IsEmpty());
}

}  // namespace
}  // namespace lidcam::test
