// The functions that parse a configuration descriptor and build the request for it.

#include "platform/host/usbd/configuration/configuration_descriptor.h"

#include <gtest/gtest.h>

#include "tests/platform/usbd/usb_test_support.h"

namespace lidcam::host {
namespace {

// A configuration with the interfaces' fields all different.
Bytes TwoInterfaces() {
  return {9, 2,    45,   0, 2,  1,    0, 0x80, 50,  //
          9, 4,    0,    0, 1,  0x0E, 1, 0,    0,   // at 9
          7, 5,    0x81, 3, 16, 0,    8,            // at 18
          4, 0x24, 1,    2,                         // at 25: of a class
          9, 4,    0,    1, 0,  0x0E, 2, 0,    0,   // at 29
          7, 4,    1,    0, 0,  0,    0};           // at 38: too short for an interface
}

PUSB_CONFIGURATION_DESCRIPTOR Configuration(Bytes& bytes) {
  return reinterpret_cast<PUSB_CONFIGURATION_DESCRIPTOR>(bytes.data());
}

// Offset of the descriptor found; -1 if none is.
int Find(Bytes& bytes, std::size_t start, LONG number, LONG setting, LONG deviceClass = -1,
         LONG subClass = -1, LONG protocol = -1) {
  const auto* const found = USBD_ParseConfigurationDescriptorEx(
      Configuration(bytes), bytes.data() + start, number, setting, deviceClass, subClass, protocol);
  return found == nullptr
             ? -1
             : static_cast<int>(reinterpret_cast<const std::uint8_t*>(found) - bytes.data());
}

TEST(ConfigurationDescriptor, GivesTheFirstInterfaceThatFits) {
  Bytes bytes = TwoInterfaces();
  EXPECT_EQ(Find(bytes, 0, -1, -1), 9);
  EXPECT_EQ(Find(bytes, 0, 0, -1), 9);
  EXPECT_EQ(Find(bytes, 0, 0, 1), 29);
  EXPECT_EQ(Find(bytes, 0, -1, -1, 0x0E), 9);
  EXPECT_EQ(Find(bytes, 0, -1, -1, -1, 2), 29);
  EXPECT_EQ(Find(bytes, 0, -1, -1, -1, -1, 1), -1);
  EXPECT_EQ(Find(bytes, 10 + 8, -1, -1), 29);
}

TEST(ConfigurationDescriptor, FindsNothingBehindTheEndNorInBrokenDescriptors) {
  Bytes bytes = TwoInterfaces();
  EXPECT_EQ(Find(bytes, 0, 1, -1), -1);  // only the short one has this number
  EXPECT_EQ(Find(bytes, 45, -1, -1), -1);
  EXPECT_EQ(USBD_ParseConfigurationDescriptorEx(Configuration(bytes), bytes.data() + 46, -1, -1, -1,
                                                -1, -1),
            nullptr);
  bytes[9] = 0;  // a descriptor of length 0 would cause an endless loop
  EXPECT_EQ(Find(bytes, 0, -1, -1), -1);
  bytes = TwoInterfaces();
  bytes[2] = 33;  // the second interface is cut off
  EXPECT_EQ(Find(bytes, 0, 0, 1), -1);
}

TEST(ConfigurationDescriptor, FindsTheEndpointsUpToTheNextInterface) {
  Bytes bytes = SmallConfiguration();
  const auto& interface = *reinterpret_cast<const USB_INTERFACE_DESCRIPTOR*>(bytes.data() + 32);
  const auto endpoints = EndpointsOf(bytes, interface);
  ASSERT_EQ(endpoints.size(), 2U);
  EXPECT_EQ(endpoints[0].bEndpointAddress, 0x81);
  EXPECT_EQ(endpoints[1].bEndpointAddress, 0x82);
  EXPECT_EQ(unsigned{endpoints[1].wMaxPacketSize}, 0x0A00U);
  bytes[36] = 3;  // more than there are endpoints
  EXPECT_EQ(EndpointsOf(bytes, interface).size(), 2U);
  bytes[36] = 1;
  EXPECT_EQ(EndpointsOf(bytes, interface).size(), 1U);
}

TEST(ConfigurationRequest, HasTheListedInterfacesWithTheirPipes) {
  Bytes bytes = SmallConfiguration();
  auto* const setting = reinterpret_cast<PUSB_INTERFACE_DESCRIPTOR>(bytes.data() + 32);
  USBD_INTERFACE_LIST_ENTRY list[2]{{setting, nullptr}, {nullptr, nullptr}};
  const std::size_t before = PoolUsageOfAll().Blocks;
  URB* const urb = USBD_CreateConfigurationRequestEx(Configuration(bytes), list);
  ASSERT_NE(urb, nullptr);
  const _URB_SELECT_CONFIGURATION& request = urb->UrbSelectConfiguration;
  EXPECT_EQ(request.Hdr.Function, 0x0000);
  EXPECT_EQ(request.Hdr.Length, sizeof(void*) == 8 ? 112 : 80);
  EXPECT_EQ(request.ConfigurationDescriptor, Configuration(bytes));
  EXPECT_EQ(list[0].Interface, &request.Interface);
  EXPECT_EQ(request.Interface.Length, sizeof(void*) == 8 ? 72 : 56);
  EXPECT_EQ(request.Interface.InterfaceNumber, 0);
  EXPECT_EQ(request.Interface.AlternateSetting, 1);
  EXPECT_EQ(request.Interface.NumberOfPipes, 2U);
  EXPECT_EQ((&request.Interface.Pipes[0])[1].MaximumTransferSize, 0xFFFFFFFFU);
  ExFreePool(urb);
  EXPECT_EQ(PoolUsageOfAll().Blocks, before);
}

TEST(ConfigurationRequest, WithoutInterfacesHasOnlyTheRoomOfOne) {
  Bytes bytes = SmallConfiguration();
  USBD_INTERFACE_LIST_ENTRY list[1]{};
  URB* const urb = USBD_CreateConfigurationRequestEx(Configuration(bytes), list);
  ASSERT_NE(urb, nullptr);
  EXPECT_EQ(urb->UrbHeader.Length, sizeof(void*) == 8 ? 40 : 24);
  EXPECT_EQ(urb->UrbSelectConfiguration.Interface.Length, 0);
  ExFreePool(urb);
}

TEST(ConfigurationRequest, IsNullWithoutMemory) {
  Bytes bytes = SmallConfiguration();
  USBD_INTERFACE_LIST_ENTRY list[1]{};
  FailPoolAllocation(1);
  EXPECT_EQ(USBD_CreateConfigurationRequestEx(Configuration(bytes), list), nullptr);
}

}  // namespace
}  // namespace lidcam::host
