#include "bus/enumeration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/bus/capture/capture_support.h"

namespace lidcam::bus::test {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

std::string RefusalOf(const Bytes& configuration) {
  try {
    static_cast<void>(ParseConfiguration(configuration));
  } catch (const EnumerationError& error) {
    return error.what();
  }
  return "";
}

std::string RefusalOf(UsbBus& bus) {
  try {
    static_cast<void>(EnumerateDevice(bus));
  } catch (const EnumerationError& error) {
    return error.what();
  }
  return "";
}

// One interface, settings 0 and 1, each with an interrupt and an isochronous IN endpoint.
const Bytes kConfiguration =
    Hex("09 02 37 00 01 01 00 80 FA"
        "09 04 00 00 02 FF 00 00 00  07 05 81 03 01 00 01  07 05 82 01 00 00 01"
        "09 04 00 01 02 FF 00 00 00  07 05 81 03 01 00 01  07 05 82 01 00 14 01");

Bytes Patched(std::size_t at, const Bytes& patch) {
  Bytes bytes = kConfiguration;
  std::ranges::copy(patch, bytes.begin() + static_cast<std::ptrdiff_t>(at));
  return bytes;
}

TEST(Enumeration, ReadsDescriptorsAndSelectsTheConfigurationInTheHostsOrder) {
  ScriptedBus bus;
  SayDescriptors(bus, 0x1AF0, 0x0511);
  const UsbDeviceInfo info = EnumerateDevice(bus);
  EXPECT_EQ(info.Vendor, 0x1AF0);
  EXPECT_EQ(info.Product, 0x0511);
  EXPECT_THAT(info.DeviceDescriptor,
              ElementsAre(0x12, 1, 0, 2, 0, 0, 0, 0x40, 0xF0, 0x1A, 0x11, 0x05, 0, 1, 0, 0, 0, 1));
  EXPECT_EQ(info.Configuration, kConfiguration);
  EXPECT_THAT(info.AlternateSettings,
              ElementsAre(AlternateSetting{0, 0, 0x82, 0}, AlternateSetting{0, 1, 0x82, 3072}));
  EXPECT_THAT(bus.Heard, ElementsAre(std::pair{SetupPacket{0x80, 6, 0x0100, 0, 18}, Bytes{}},
                                     std::pair{SetupPacket{0x80, 6, 0x0200, 0, 9}, Bytes{}},
                                     std::pair{SetupPacket{0x80, 6, 0x0200, 0, 55}, Bytes{}},
                                     std::pair{SetupPacket{0x00, 9, 0x0001, 0, 0}, Bytes{}}));
}

// 9 + 8 x (9 + 7 + 7) bytes; the widest setting has three transactions of 1024 bytes.
TEST(Enumeration, LongConfigurationHasEightSettings) {
  Bytes bytes = Hex("09 02 C1 00 01 01 00 80 FA");
  const std::vector<Bytes> sizes = {Hex("00 00"), Hex("80 00"), Hex("00 01"), Hex("00 02"),
                                    Hex("00 03"), Hex("00 04"), Hex("00 0C"), Hex("00 14")};
  for (std::size_t setting = 0; setting < sizes.size(); ++setting) {
    Bytes part = Hex("09 04 00 00 02 FF 00 00 00  07 05 81 03 01 00 01  07 05 82 01 00 00 01");
    part[3] = static_cast<std::uint8_t>(setting);
    std::ranges::copy(sizes[setting], part.begin() + 20);
    bytes.insert(bytes.end(), part.begin(), part.end());
  }
  ASSERT_EQ(bytes.size(), 193U);
  EXPECT_THAT(ParseConfiguration(bytes),
              ElementsAre(AlternateSetting{0, 0, 0x82, 0}, AlternateSetting{0, 1, 0x82, 128},
                          AlternateSetting{0, 2, 0x82, 256}, AlternateSetting{0, 3, 0x82, 512},
                          AlternateSetting{0, 4, 0x82, 768}, AlternateSetting{0, 5, 0x82, 1024},
                          AlternateSetting{0, 6, 0x82, 2048}, AlternateSetting{0, 7, 0x82, 3072}));
}

TEST(Enumeration, OnlyIsochronousInEndpointsCount) {
  // The second endpoint of setting 0 becomes OUT, that of setting 1 bulk.
  Bytes bytes = Patched(27, Hex("02"));
  bytes[51] = 2;
  EXPECT_THAT(ParseConfiguration(bytes),
              ElementsAre(AlternateSetting{0, 0, 0, 0}, AlternateSetting{0, 1, 0, 0}));
}

TEST(Enumeration, DescriptorsOfOtherKindsArePassedOver) {
  Bytes bytes = kConfiguration;
  const Bytes classSpecific = Hex("05 24 01 02 03");
  bytes.insert(bytes.begin() + 18, classSpecific.begin(), classSpecific.end());
  bytes[2] = 60;
  EXPECT_EQ(ParseConfiguration(bytes).size(), 2U);
}

TEST(Enumeration, EveryMalformedConfigurationIsRefusedWithTheByte) {
  EXPECT_EQ(RefusalOf(Bytes{}), "configuration descriptor, byte 0: ends within its first 9 bytes");
  EXPECT_EQ(RefusalOf(Patched(0, Hex("08"))),
            "configuration descriptor, byte 0: length 8 is not 9");
  EXPECT_EQ(RefusalOf(Patched(1, Hex("03"))),
            "configuration descriptor, byte 1: type 3 is not a configuration");
  EXPECT_EQ(RefusalOf(Patched(2, Hex("38"))),
            "configuration descriptor, byte 2: total length 56, but 55 bytes came");
  EXPECT_EQ(RefusalOf(Patched(4, Hex("02"))),
            "configuration descriptor, byte 4: 2 interfaces announced, 1 described");
  EXPECT_EQ(RefusalOf(Patched(9, Hex("0A"))),
            "configuration descriptor, byte 9: length 10 is not 9");
  EXPECT_EQ(RefusalOf(Patched(9, Hex("00"))),
            "configuration descriptor, byte 9: length 0 with 46 bytes left");
  EXPECT_EQ(RefusalOf(Patched(9, Hex("01"))),
            "configuration descriptor, byte 9: length 1 with 46 bytes left");
  EXPECT_EQ(RefusalOf(Patched(48, Hex("08"))),
            "configuration descriptor, byte 48: length 8 with 7 bytes left");
  EXPECT_EQ(RefusalOf(Patched(13, Hex("03"))),
            "configuration descriptor, byte 13: 3 endpoints announced, 2 described");
  EXPECT_EQ(RefusalOf(Patched(36, Hex("01"))),
            "configuration descriptor, byte 36: 1 endpoints announced, 2 described");
  EXPECT_EQ(RefusalOf(Patched(10, Hex("05"))),
            "configuration descriptor, byte 9: length 9 is not 7");
  EXPECT_EQ(RefusalOf(Patched(52, Hex("01 04"))),
            "configuration descriptor, byte 52: packet size 1025 is not one of high speed");
  EXPECT_EQ(RefusalOf(Patched(52, Hex("00 1C"))),
            "configuration descriptor, byte 52: packet size 7168 is not one of high speed");
}

TEST(Enumeration, EndpointBeforeTheFirstInterfaceIsRefused) {
  EXPECT_EQ(RefusalOf(Hex("09 02 10 00 00 01 00 80 FA  07 05 82 01 00 14 01")),
            "configuration descriptor, byte 9: an endpoint before the first interface");
}

TEST(Enumeration, EveryShorterConfigurationIsRefused) {
  for (std::size_t length = 0; length < kConfiguration.size(); ++length) {
    const Bytes bytes(kConfiguration.begin(),
                      kConfiguration.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_THAT(RefusalOf(bytes), StartsWith("configuration descriptor, byte ")) << length;
  }
}

// Cut after 32 bytes, setting 0 is complete, and a valid configuration by itself.
TEST(Enumeration, ConfigurationCutAnywhereElseThanBehindASettingIsRefused) {
  for (std::size_t length = 9; length < kConfiguration.size(); ++length) {
    Bytes bytes(kConfiguration.begin(),
                kConfiguration.begin() + static_cast<std::ptrdiff_t>(length));
    bytes[2] = static_cast<std::uint8_t>(length);
    EXPECT_EQ(RefusalOf(bytes).empty(), length == 32) << length;
  }
}

TEST(Enumeration, FailedRequestEndsItWithTheStatus) {
  ScriptedBus bus;
  bus.Say({0x80, 6, 0x0100, 0, 18}, {UsbStatus::Stalled, {}});
  EXPECT_EQ(RefusalOf(bus), "device descriptor: the request ended with " +
                                std::string(ToString(UsbStatus::Stalled)));
  EXPECT_EQ(bus.Heard.size(), 1U);
}

TEST(Enumeration, ShortAndForeignDeviceDescriptorsAreRefused) {
  const SetupPacket request{0x80, 6, 0x0100, 0, 18};
  const Bytes good = Hex("12 01 00 02 00 00 00 40 F0 1A 11 05 00 01 00 00 00 01");
  ScriptedBus bus;
  Bytes bytes = good;
  bytes.resize(8);
  bus.Say(request, {UsbStatus::Ok, bytes});
  bytes = good;
  bytes[0] = 17;
  bus.Say(request, {UsbStatus::Ok, bytes});
  bytes = good;
  bytes[1] = 2;
  bus.Say(request, {UsbStatus::Ok, bytes});
  EXPECT_EQ(RefusalOf(bus), "device descriptor: 8 of 18 bytes came");
  EXPECT_EQ(RefusalOf(bus), "device descriptor, byte 0: length 17 is not 18");
  EXPECT_EQ(RefusalOf(bus), "device descriptor, byte 1: type 2 is not a device");
}

TEST(Enumeration, ConfigurationThatIsShorterThanItsOwnHeadIsRefused) {
  ScriptedBus bus;
  SayDescriptors(bus, 0x1AF0, 0x0511);
  bus.Say({0x80, 6, 0x0200, 0, 9}, {UsbStatus::Ok, Hex("09 02 08 00 01 01 00 80 FA")});
  static_cast<void>(EnumerateDevice(bus));  // uses up the valid answer
  EXPECT_EQ(RefusalOf(bus), "configuration descriptor, byte 2: total length 8 is below 9");
}

// A kernel configures a device when it is plugged in; the recording began later.
TEST(Enumeration, CameraThatWasConfiguredBeforeTheRecordingIsEnumerated) {
  ScriptedBus bus;
  SayDescriptors(bus, 0x1AF0, 0x0511);
  bus.Say({0x00, 9, 1, 0, 0}, {UsbStatus::NotRecorded, {}});
  EXPECT_EQ(EnumerateDevice(bus).Product, 0x0511);
}

TEST(Enumeration, RefusedConfigurationIsAnError) {
  ScriptedBus bus;
  SayDescriptors(bus, 0x1AF0, 0x0511);
  bus.Say({0x00, 9, 1, 0, 0}, {UsbStatus::TimedOut, {}});
  EXPECT_EQ(RefusalOf(bus), "configuration 1: selecting it ended with " +
                                std::string(ToString(UsbStatus::TimedOut)));
}

}  // namespace
}  // namespace lidcam::bus::test
