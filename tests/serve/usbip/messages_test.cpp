#include "serve/usbip/messages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "tests/serve/supply.h"

namespace lidcam::serve::usbip {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;
using testing::ElementsAreArray;

Bytes Part(const Bytes& bytes, std::size_t at, std::size_t count) {
  return {bytes.begin() + static_cast<std::ptrdiff_t>(at),
          bytes.begin() + static_cast<std::ptrdiff_t>(at + count)};
}

TEST(UsbipMessages, AnOperationHeaderIsVersionCodeAndStatus) {
  Bytes bytes;
  AppendOperationHeader(bytes, Operation::ReplyImport, OperationStatus::NoDevice);
  EXPECT_THAT(bytes, ElementsAre(0x01, 0x11, 0x00, 0x03, 0, 0, 0, 4));
  bytes.clear();
  AppendOperationHeader(bytes, Operation::ReplyDeviceList, OperationStatus::Ok);
  EXPECT_THAT(bytes, ElementsAre(0x01, 0x11, 0x00, 0x05, 0, 0, 0, 0));
  const OperationHeader header = DecodeOperationHeader(Bytes{0x01, 0x11, 0x80, 0x05, 0, 0, 0, 0});
  EXPECT_EQ(header.Version, 0x0111);
  EXPECT_EQ(header.Code, 0x8005);
}

TEST(UsbipMessages, TheCameraIsDescribedIn312Bytes) {
  const CameraSupply supply(Simulated("sim:1b17:6111,config=short"));
  Bytes bytes;
  AppendDevice(bytes, {"/some/path", "3-4", 3, 7}, supply.Device());
  ASSERT_EQ(bytes.size(), 312U);
  EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 11), std::string("/some/path\0", 11));
  EXPECT_EQ(std::string(bytes.begin() + 256, bytes.begin() + 260), std::string("3-4\0", 4));
  EXPECT_THAT(Part(bytes, 288, 24), ElementsAreArray<int>({
                                        0,    0,    0, 3,  // bus
                                        0,    0,    0, 7,  // device
                                        0,    0,    0, 3,  // high speed
                                        0x1B, 0x17,        // vendor
                                        0x61, 0x11,        // product
                                        0x01, 0x00,        // release
                                        0xFF, 0,    0,     // class, subclass, protocol
                                        1,                 // configuration in force
                                        1,                 // configurations
                                        1,                 // interfaces
                                    }));
}

TEST(UsbipMessages, ALongPathIsCutAndEndsWithAZero) {
  const CameraSupply supply(Simulated());
  Bytes bytes;
  AppendDevice(bytes, {std::string(300, 'x'), "1-1", 1, 2}, supply.Device());
  ASSERT_EQ(bytes.size(), 312U);
  EXPECT_EQ(bytes[254], 'x');
  EXPECT_EQ(bytes[255], 0);
}

TEST(UsbipMessages, ADeviceListHasFourBytesMoreForTheInterface) {
  const CameraSupply supply(Simulated());
  Bytes bytes;
  AppendDeviceList(bytes, {"/p", "1-1", 1, 2}, supply.Device());
  ASSERT_EQ(bytes.size(), 4U + 312 + 4);
  EXPECT_THAT(Part(bytes, 0, 4), ElementsAre(0, 0, 0, 1));
  EXPECT_THAT(Part(bytes, 316, 4), ElementsAre(0xFF, 0, 0, 0));
}

TEST(UsbipMessages, ASubmittedTransferIsReadFromItsPlaces) {
  const Bytes bytes{
      0, 0, 0,    1,                 // command
      0, 0, 0x0D, 0x05,              // sequence number
      0, 1, 0,    2,                 // device
      0, 0, 0,    1,                 // IN
      0, 0, 0,    2,                 // endpoint
      0, 0, 2,    0,                 // flags
      0, 0, 0x0C, 0x80,              // length
      0, 0, 0,    9,                 // start frame
      0, 0, 0,    0x20,              // packets
      0, 0, 0,    1,                 // interval
      1, 2, 3,    4,    5, 6, 7, 8,  // setup
  };
  const RequestHeader header = DecodeRequestHeader(bytes);
  EXPECT_EQ(header.Command, 1U);
  EXPECT_EQ(header.SequenceNumber, 0xD05U);
  EXPECT_EQ(header.DeviceId, 0x10002U);
  EXPECT_EQ(header.Direction, 1U);
  EXPECT_EQ(header.Endpoint, 2U);
  EXPECT_EQ(header.Length, 0xC80U);
  EXPECT_EQ(header.NumberOfPackets, 0x20U);
  EXPECT_THAT(header.Setup, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8));
}

TEST(UsbipMessages, AnUnlinkNamesItsRequestBehindTheBasicHeader) {
  Bytes bytes{0, 0, 0, 2, 0, 0, 0, 8, 0, 1, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x12, 0x34};
  bytes.resize(48, 0xEE);
  const RequestHeader header = DecodeRequestHeader(bytes);
  EXPECT_EQ(header.Command, 2U);
  EXPECT_EQ(header.SequenceNumber, 8U);
  EXPECT_EQ(header.UnlinkedSequenceNumber, 0x1234U);
  EXPECT_EQ(header.Length, 0U);
}

TEST(UsbipMessages, ACompletedTransferIsWrittenToItsPlaces) {
  Bytes bytes;
  AppendSubmitReply(bytes, {.SequenceNumber = 0xD05,
                            .Status = -32,
                            .ActualLength = 0x1C80,
                            .StartFrame = 77,
                            .NumberOfPackets = 32,
                            .ErrorCount = 2});
  EXPECT_THAT(bytes, ElementsAreArray<int>({
                         0,    0,    0,    3,                 // command
                         0,    0,    0x0D, 0x05,              // sequence number
                         0,    0,    0,    0,                 // device
                         0,    0,    0,    0,                 // direction
                         0,    0,    0,    0,                 // endpoint
                         0xFF, 0xFF, 0xFF, 0xE0,              // status
                         0,    0,    0x1C, 0x80,              // actual length
                         0,    0,    0,    77,                // start frame
                         0,    0,    0,    32,                // packets
                         0,    0,    0,    2,                 // errors
                         0,    0,    0,    0,    0, 0, 0, 0,  // padding
                     }));
}

TEST(UsbipMessages, TheAnswerToAnUnlinkHasItsStatusOnly) {
  Bytes bytes;
  AppendUnlinkReply(bytes, 8, -104);
  Bytes expected{0, 0, 0, 4, 0, 0, 0, 8};
  expected.resize(20);
  expected.insert(expected.end(), {0xFF, 0xFF, 0xFF, 0x98});
  expected.resize(48);
  EXPECT_EQ(bytes, expected);
}

TEST(UsbipMessages, APacketIsOffsetLengthActualLengthAndStatus) {
  const Bytes bytes{0, 0, 0x0C, 0, 0, 0, 4, 0, 0, 0, 0, 0x40, 0xFF, 0xFF, 0xFF, 0xB9};
  const PacketDescriptor packet = DecodePacketDescriptor(bytes);
  EXPECT_EQ(packet.Offset, 0xC00U);
  EXPECT_EQ(packet.Length, 0x400U);
  EXPECT_EQ(packet.ActualLength, 0x40U);
  EXPECT_EQ(packet.Status, -71);
  Bytes again;
  AppendPacketDescriptor(again, packet);
  EXPECT_EQ(again, bytes);
}

}  // namespace
}  // namespace lidcam::serve::usbip
