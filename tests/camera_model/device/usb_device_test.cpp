#include "camera_model/device/usb_device.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace lidcam::camera_model {
namespace {

using testing::ElementsAreArray;

std::vector<std::uint8_t> Descriptor(UsbDevice& device, std::uint16_t value,
                                     std::uint16_t length = 521) {
  std::vector<std::uint8_t> data(length);
  const auto count = device.Control({0x80, 6, value, 0, length}, data, 0);
  if (!count.has_value()) return {};
  data.resize(*count);
  return data;
}

struct DeviceRow {
  std::uint16_t Vendor;
  std::uint16_t Product;
  std::vector<SensorModel> Sensors;
};

const DeviceRow kIdentities[] = {
    {0x1AF0, 0x0511, {SensorModel::VGA0708, SensorModel::VGA0408}},
    {0x1AF0,
     0x6010,
     {SensorModel::OV7670, SensorModel::OV7660, SensorModel::OV7663, SensorModel::VGA7648}},
    {0x1AF0, 0x6011, {SensorModel::Mi1318, SensorModel::K82}},
    {0x1B17, 0x6100, {SensorModel::Reserved3}},
    {0x1B17, 0x6101, {SensorModel::VGA0408}},
    {0x1B17, 0x6110, {SensorModel::VGA7648}},
    {0x1B17,
     0x6111,
     {SensorModel::OV7660, SensorModel::OV7663, SensorModel::OV7670, SensorModel::VGA7648}},
};

TEST(UsbDevice, SevenIdentitiesWithTheirSensors) {
  ASSERT_EQ(AllIdentities().size(), 7U);
  for (const DeviceRow& row : kIdentities) {
    const CameraIdentity* identity = FindIdentity(row.Vendor, row.Product);
    ASSERT_NE(identity, nullptr);
    EXPECT_THAT(std::vector(identity->Sensors.begin(), identity->Sensors.end()),
                ElementsAreArray(row.Sensors));
    UsbDevice device{{.VendorId = row.Vendor, .ProductId = row.Product}};
    EXPECT_EQ(device.Chip().AttachedSensor().Model(), row.Sensors.front());
  }
  EXPECT_EQ(FindIdentity(0x1AF0, 0x6012), nullptr);
  EXPECT_EQ(FindIdentity(0x1B17, 0x6105), nullptr);
}

TEST(UsbDevice, DeviceDescriptorTellsTheIdentity) {
  for (const DeviceRow& row : kIdentities) {
    UsbDevice device{{.VendorId = row.Vendor, .ProductId = row.Product}};
    const auto low = [](std::uint16_t word) { return static_cast<std::uint8_t>(word); };
    const auto high = [](std::uint16_t word) { return static_cast<std::uint8_t>(word >> 8); };
    EXPECT_THAT(
        Descriptor(device, 0x0100),
        ElementsAreArray(std::vector<std::uint8_t>{
            0x12, 0x01, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x40, low(row.Vendor), high(row.Vendor),
            low(row.Product), high(row.Product), 0x00, 0x01, 0x01, 0x02, 0x00, 0x01}));
  }
}

// An interface descriptor and its two endpoints, as in every setting.
std::vector<std::uint8_t> Setting(std::uint8_t number, std::uint8_t sizeLow,
                                  std::uint8_t sizeHigh) {
  return {0x09, 0x04, 0x00, number, 0x02, 0xFF, 0x00, 0x00, 0x00,    0x07,     0x05, 0x81,
          0x03, 0x01, 0x00, 0x09,   0x07, 0x05, 0x82, 0x05, sizeLow, sizeHigh, 0x01};
}

std::vector<std::uint8_t> Configuration(std::uint8_t total,
                                        const std::vector<std::array<std::uint8_t, 2>>& sizes) {
  std::vector<std::uint8_t> bytes{0x09, 0x02, total, 0x00, 0x01, 0x01, 0x00, 0x80, 0xFA};
  std::uint8_t number = 0;
  for (const auto& size : sizes) {
    const auto setting = Setting(number++, size[0], size[1]);
    bytes.insert(bytes.end(), setting.begin(), setting.end());
  }
  return bytes;
}

TEST(UsbDevice, LongConfigurationHas193BytesAndEightSettings) {
  UsbDevice device{{}};
  const auto bytes = Descriptor(device, 0x0200);
  EXPECT_EQ(bytes.size(), 193U);
  EXPECT_THAT(bytes, ElementsAreArray(Configuration(193, {{0x00, 0x00},
                                                          {0x80, 0x00},
                                                          {0x00, 0x02},
                                                          {0x00, 0x04},
                                                          {0x00, 0x0B},
                                                          {0x00, 0x0C},
                                                          {0x80, 0x13},
                                                          {0x00, 0x14}})));
}

TEST(UsbDevice, ShortConfigurationHas101BytesAndFourSettings) {
  UsbDevice device{{.Configuration = ConfigurationKind::Short}};
  const auto bytes = Descriptor(device, 0x0200);
  EXPECT_THAT(bytes, ElementsAreArray(Configuration(
                         101, {{0x00, 0x00}, {0x80, 0x00}, {0x00, 0x02}, {0xFF, 0x03}})));
}

TEST(UsbDevice, SettingsGiveTheirBytesPerMicroframe) {
  UsbDevice device{{}};
  const std::uint32_t kLong[] = {0, 128, 512, 1024, 1536, 2048, 2688, 3072, 0};
  for (std::uint8_t setting = 0; setting < 9; ++setting) {
    EXPECT_EQ(device.BytesPerMicroframe(setting), kLong[setting]);
  }
  UsbDevice small{{.Configuration = ConfigurationKind::Short}};
  const std::uint32_t kShort[] = {0, 128, 512, 1023, 0};
  for (std::uint8_t setting = 0; setting < 5; ++setting) {
    EXPECT_EQ(small.BytesPerMicroframe(setting), kShort[setting]);
  }
}

TEST(UsbDevice, DescriptorsAreCutToTheRequestedLength) {
  UsbDevice device{{}};
  const auto head = Descriptor(device, 0x0200, 9);
  EXPECT_THAT(head, ElementsAreArray({0x09, 0x02, 0xC1, 0x00, 0x01, 0x01, 0x00, 0x80, 0xFA}));
}

TEST(UsbDevice, StringsAreReadableAndOthersStall) {
  UsbDevice device{{}};
  EXPECT_THAT(Descriptor(device, 0x0300), ElementsAreArray({0x04, 0x03, 0x09, 0x04}));
  EXPECT_THAT(Descriptor(device, 0x0301),
              testing::ElementsAre(0x0E, 0x03, 'l', 0, 'i', 0, 'd', 0, 'c', 0, 'a', 0, 'm', 0));
  EXPECT_EQ(Descriptor(device, 0x0302).size(), 2 + 2 * 25U);
  EXPECT_TRUE(Descriptor(device, 0x0303).empty());
  EXPECT_TRUE(Descriptor(device, 0x0600).empty());
  EXPECT_TRUE(Descriptor(device, 0x0201).empty());
}

TEST(UsbDevice, TakesSettingsOnlyWhenConfigured) {
  UsbDevice device{{}};
  EXPECT_FALSE(device.Control({0x01, 11, 7, 0, 0}, {}, 0).has_value());
  EXPECT_FALSE(device.Control({0x00, 9, 2, 0, 0}, {}, 0).has_value());
  EXPECT_EQ(device.Control({0x00, 9, 1, 0, 0}, {}, 0), 0U);
  EXPECT_EQ(device.Control({0x01, 11, 7, 0, 0}, {}, 0), 0U);
  EXPECT_EQ(device.AlternateSetting(), 7);
  EXPECT_EQ(device.BytesPerMicroframe(), 3072U);
  EXPECT_FALSE(device.Control({0x01, 11, 8, 0, 0}, {}, 0).has_value());
  EXPECT_FALSE(device.Control({0x01, 11, 1, 1, 0}, {}, 0).has_value());
  std::array<std::uint8_t, 1> data{};
  EXPECT_EQ(device.Control({0x81, 10, 0, 0, 1}, data, 0), 1U);
  EXPECT_EQ(data[0], 7);
  EXPECT_EQ(device.Control({0x80, 8, 0, 0, 1}, data, 0), 1U);
  EXPECT_EQ(data[0], 1);
}

TEST(UsbDevice, ServesVendorRequestsBeforeItIsConfigured) {
  UsbDevice device{{}};
  std::array<std::uint8_t, 1> data{};
  EXPECT_EQ(device.Control({0x40, 0xA0, 3, 0xFFFF, 0}, {}, 0), 0U);
  EXPECT_EQ(device.Control({0xC0, 0xA1, 1, 0xFF02, 1}, data, 0), 1U);
  EXPECT_EQ(data[0], 0x15);
}

TEST(UsbDevice, WithoutABandwidthSettingNothingIsSent) {
  UsbDevice device{{}};
  device.Control({0x00, 9, 1, 0, 0}, {}, 0);
  std::vector<std::uint8_t> out(3072);
  for (std::uint64_t microframe = 0; microframe < 600; ++microframe) {
    EXPECT_EQ(device.Isochronous(microframe, out).Length, 0U);
  }
  EXPECT_EQ(device.Stream().FramesBegun(), 0U);
}

TEST(UsbDevice, ClearsAHaltOfItsOwnEndpointsOnly) {
  UsbDevice device{{}};
  EXPECT_EQ(device.Control({0x02, 1, 0, 0x82, 0}, {}, 0), 0U);
  EXPECT_EQ(device.Control({0x02, 1, 0, 0x81, 0}, {}, 0), 0U);
  EXPECT_FALSE(device.Control({0x02, 1, 0, 0x83, 0}, {}, 0).has_value());
  EXPECT_FALSE(device.Control({0x02, 1, 1, 0x82, 0}, {}, 0).has_value());
}

TEST(UsbDevice, RefusesWhatWasNeverBuilt) {
  EXPECT_THROW(UsbDevice({.VendorId = 0x1AF0, .ProductId = 0x6012}), std::invalid_argument);
  EXPECT_THROW(UsbDevice({.Sensor = SensorModel::OV7670}), std::invalid_argument);
}

}  // namespace
}  // namespace lidcam::camera_model
