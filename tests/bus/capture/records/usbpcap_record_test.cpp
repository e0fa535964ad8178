#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "bus/capture/records/usb_record.h"
#include "bus/capture/replay/control_history.h"
#include "tests/bus/capture/capture_support.h"

namespace lidcam::bus::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Read of register 0xFF0B: C0 A1 01 00 0B FF 01 00 to device 2.7, and its answer 73.
const Bytes kSetupStage = Hex(
    "1C 00  10 20 30 40 50 60 70 80  00 00 00 00  17 00  00  02 00  07 00  80  02  08 00 00 00  00"
    "C0 A1 01 00 0B FF 01 00");
const Bytes kCompleteStage = Hex(
    "1C 00  10 20 30 40 50 60 70 80  00 00 00 00  17 00  01  02 00  07 00  80  02  01 00 00 00  03"
    "73");

// Two microframes from bus frame 1000 on, the second cut short by the bus.
const Bytes kIsochronous =
    Hex("3F 00  11 20 30 40 50 60 70 80  00 00 00 00  0A 00  01  02 00  07 00  82  00  0B 00 00 00"
        "E8 03 00 00  02 00 00 00  01 00 00 00"
        "00 00 00 00  04 00 00 00  00 00 00 00"
        "08 00 00 00  03 00 00 00  09 00 00 C0"
        "FF D8 01 02 00 00 00 00 03 04 05");

UsbRecord DecodedUsbpcap(const Bytes& bytes, std::size_t originalLength = 0) {
  UsbRecord record;
  DecodeUsbpcapRecord(bytes, originalLength, 1'000'123'456, record);
  return record;
}

std::string RefusalOfUsbpcap(Bytes bytes, std::size_t at, const Bytes& patch) {
  std::ranges::copy(patch, bytes.begin() + static_cast<std::ptrdiff_t>(at));
  return ErrorOf([&] { DecodedUsbpcap(bytes); });
}

TEST(UsbpcapRecord, SetupStageCarriesTheSetupPacket) {
  const UsbRecord record = DecodedUsbpcap(kSetupStage);
  EXPECT_EQ(record.Id, 0x8070605040302010U);
  EXPECT_EQ(record.Event, RecordEvent::Submit);
  EXPECT_EQ(record.Type, TransferType::Control);
  EXPECT_EQ(record.Stage, ControlStage::Setup);
  EXPECT_EQ(record.Address, (DeviceAddress{2, 7}));
  EXPECT_EQ(record.Endpoint, 0x80);
  EXPECT_EQ(record.TimeMicroseconds, 1'000'123'456);
  ASSERT_TRUE(record.Setup);
  EXPECT_EQ(*record.Setup, (SetupPacket{0xC0, 0xA1, 1, 0xFF0B, 1}));
  EXPECT_THAT(record.Data, IsEmpty());
}

TEST(UsbpcapRecord, CompleteStageCarriesTheAnswer) {
  const UsbRecord record = DecodedUsbpcap(kCompleteStage);
  EXPECT_EQ(record.Event, RecordEvent::Complete);
  EXPECT_EQ(record.Stage, ControlStage::Complete);
  EXPECT_FALSE(record.Setup);
  EXPECT_THAT(record.Data, ElementsAre(0x73));
}

TEST(UsbpcapRecord, OutDataFollowTheSetupPacket) {
  Bytes bytes = kSetupStage;
  bytes[23] = 10;
  bytes[28] = 0x40;
  bytes.push_back(0xAB);
  bytes.push_back(0xCD);
  EXPECT_THAT(DecodedUsbpcap(bytes).Data, ElementsAre(0xAB, 0xCD));
}

TEST(UsbpcapRecord, IsochronousPartGivesEachPacketAtItsOffset) {
  const UsbRecord record = DecodedUsbpcap(kIsochronous);
  EXPECT_EQ(record.Type, TransferType::Isochronous);
  EXPECT_EQ(record.Endpoint, 0x82);
  EXPECT_EQ(record.StartMicroframe, 8000U);
  EXPECT_EQ(record.ErrorCount, 1U);
  EXPECT_THAT(record.Packets,
              ElementsAre(RecordedPacket{0, 0, 4, 4}, RecordedPacket{-71, 8, 3, 3}));
  EXPECT_THAT(PacketData(record, record.Packets[0]), ElementsAre(0xFF, 0xD8, 1, 2));
  EXPECT_THAT(PacketData(record, record.Packets[1]), ElementsAre(3, 4, 5));
}

TEST(UsbpcapRecord, PacketsBehindTheCutOfARecordAreMissingAndNotAnError) {
  Bytes cut = kIsochronous;
  cut.resize(cut.size() - 4);
  const UsbRecord record = DecodedUsbpcap(cut, kIsochronous.size());
  EXPECT_THAT(record.Packets,
              ElementsAre(RecordedPacket{0, 0, 4, 4}, RecordedPacket{-71, 8, 3, 0}));
}

struct StatusRow {
  Bytes Word;
  std::int32_t Errno;
};

class UsbpcapStatus : public testing::TestWithParam<StatusRow> {};

TEST_P(UsbpcapStatus, BecomesTheErrnoOfTheSameMeaning) {
  Bytes bytes = kCompleteStage;
  std::ranges::copy(GetParam().Word, bytes.begin() + 10);
  EXPECT_EQ(DecodedUsbpcap(bytes).Status, GetParam().Errno);
}

INSTANTIATE_TEST_SUITE_P(
    All, UsbpcapStatus,
    testing::Values(StatusRow{Hex("00 00 00 00"), 0}, StatusRow{Hex("00 00 00 40"), -115},
                    StatusRow{Hex("04 00 00 C0"), -32}, StatusRow{Hex("05 00 00 C0"), -110},
                    StatusRow{Hex("00 07 00 80"), -28}, StatusRow{Hex("00 70 00 C0"), -108},
                    StatusRow{Hex("00 00 01 C0"), -2}, StatusRow{Hex("01 00 00 C0"), -71}));

TEST(UsbpcapRecord, NotesOfTheCaptureSystemAreNoTransfers) {
  Bytes bytes = kCompleteStage;
  bytes[22] = 0xFE;
  EXPECT_EQ(DecodedUsbpcap(bytes).Type, TransferType::Other);
}

TEST(UsbpcapRecord, EveryShorterHeadIsRefused) {
  for (std::size_t length = 0; length < 27; ++length) {
    const Bytes head(kSetupStage.begin(),
                     kSetupStage.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_EQ(ErrorOf([&] { DecodedUsbpcap(head); }),
              std::to_string(length) + " bytes, but a USBPcap header has 27");
  }
}

TEST(UsbpcapRecord, EveryContradictionIsNamed) {
  EXPECT_EQ(RefusalOfUsbpcap(kSetupStage, 0, Hex("1B")),
            "header length 27 in a record of 36 bytes");
  EXPECT_EQ(RefusalOfUsbpcap(kSetupStage, 0, Hex("25")),
            "header length 37 in a record of 36 bytes");
  EXPECT_EQ(RefusalOfUsbpcap(kIsochronous, 0, Hex("26")),
            "header length 38 in a record of 74 bytes");
  EXPECT_EQ(RefusalOfUsbpcap(kSetupStage, 27, Hex("04")), "control stage 4 is above 3");
  EXPECT_EQ(RefusalOfUsbpcap(kSetupStage, 23, Hex("07")), "setup packet of 7 bytes");
  EXPECT_EQ(RefusalOfUsbpcap(kSetupStage, 23, Hex("09")),
            "data length 9, but 8 bytes behind the header");
  EXPECT_EQ(RefusalOfUsbpcap(kIsochronous, 31, Hex("03")),
            "3 packet descriptors, but room for 2 in the header");
  EXPECT_EQ(RefusalOfUsbpcap(kIsochronous, 31, Hex("FF FF FF FF")),
            "4294967295 packet descriptors, but room for 2 in the header");
  EXPECT_EQ(RefusalOfUsbpcap(kIsochronous, 39 + 12 + 4, Hex("04")),
            "isochronous packet 1 ends at byte 12 of 11");
  EXPECT_EQ(RefusalOfUsbpcap(kIsochronous, 39 + 12, Hex("FF FF FF FF")),
            "isochronous packet 1 ends at byte 4294967298 of 11");
}

ControlExchange Together(const std::vector<Bytes>& records) {
  ControlHistory history;
  for (const Bytes& bytes : records) history.Add(DecodedUsbpcap(bytes));
  EXPECT_EQ(history.Exchanges().size(), 1U);
  return history.Exchanges().at(0);
}

TEST(UsbpcapControlTransfer, IsPutTogetherFromTwoRecords) {
  const ControlExchange exchange = Together({kSetupStage, kCompleteStage});
  EXPECT_EQ(exchange.Setup, (SetupPacket{0xC0, 0xA1, 1, 0xFF0B, 1}));
  EXPECT_THAT(exchange.Data, ElementsAre(0x73));
  EXPECT_TRUE(exchange.Completed);
}

TEST(UsbpcapControlTransfer, OfAnOlderVersionIsPutTogetherFromItsStages) {
  Bytes data = kCompleteStage;
  data[27] = 1;
  Bytes status = kCompleteStage;
  status[27] = 2;
  status[23] = 0;
  status.pop_back();
  const ControlExchange exchange = Together({kSetupStage, data, status});
  EXPECT_THAT(exchange.Data, ElementsAre(0x73));
  EXPECT_TRUE(exchange.Completed);
  EXPECT_EQ(exchange.Status, 0);
}

TEST(UsbpcapControlTransfer, OfAnOlderVersionHasItsOutDataInAStage) {
  Bytes setup = kSetupStage;
  setup[28] = 0x40;
  Bytes data = kCompleteStage;
  data[16] = 0;
  data[27] = 1;
  Bytes status = kCompleteStage;
  status[27] = 2;
  status[23] = 0;
  status[10] = 4;
  status[13] = 0xC0;
  status.pop_back();
  const ControlExchange exchange = Together({setup, data, status});
  EXPECT_THAT(exchange.Data, ElementsAre(0x73));
  EXPECT_EQ(exchange.Status, -32);
}

TEST(UsbpcapControlTransfer, BegunBeforeTheCaptureIsLeftOut) {
  ControlHistory history;
  history.Add(DecodedUsbpcap(kCompleteStage));
  EXPECT_THAT(history.Exchanges(), IsEmpty());
}

}  // namespace
}  // namespace lidcam::bus::test
