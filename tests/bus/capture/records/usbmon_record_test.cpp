#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "bus/capture/records/usb_record.h"
#include "tests/bus/capture/capture_support.h"

namespace lidcam::bus::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Select of the sensor for reading: 40 A0 03 00 FF FF 00 00 to device 1.5.
const Bytes kControlSubmit =
    Hex("00 88 12 34 00 88 FF FF  53 02 00 05  01 00 00 00"
        "E8 03 00 00 00 00 00 00  40 E2 01 00  8D FF FF FF"
        "00 00 00 00  00 00 00 00  40 A0 03 00 FF FF 00 00"
        "00 00 00 00  00 00 00 00  00 00 00 00  00 00 00 00");

// The completion with the byte 76 read by C0 A1 01 00 0B FF 01 00.
const Bytes kControlComplete =
    Hex("40 88 12 34 00 88 FF FF  43 02 80 05  01 00 2D 00"
        "E8 03 00 00 00 00 00 00  BD E2 01 00  00 00 00 00"
        "01 00 00 00  01 00 00 00  00 00 00 00 00 00 00 00"
        "00 00 00 00  00 00 00 00  00 02 00 00  00 00 00 00"
        "76");

// Three microframes of 8 bytes each: 4 bytes, none, 3 bytes; the gaps stay.
const Bytes kIsochronousComplete =
    Hex("80 88 12 34 00 88 FF FF  43 00 82 05  01 00 2D 00"
        "E9 03 00 00 00 00 00 00  01 00 00 00  00 00 00 00"
        "07 00 00 00  43 00 00 00  01 00 00 00 03 00 00 00"
        "01 00 00 00  41 1F 00 00  02 02 00 00  03 00 00 00"
        "00 00 00 00  00 00 00 00  04 00 00 00  00 00 00 00"
        "B9 FF FF FF  08 00 00 00  00 00 00 00  00 00 00 00"
        "00 00 00 00  10 00 00 00  03 00 00 00  00 00 00 00"
        "FF D8 01 02 00 00 00 00  00 00 00 00 00 00 00 00  03 04 05");

// The submission of the same transfer: requested lengths, no data.
const Bytes kIsochronousSubmit =
    Hex("80 88 12 34 00 88 FF FF  53 00 82 05  01 00 2D 3C"
        "E8 03 00 00 00 00 00 00  3F 42 0F 00  8D FF FF FF"
        "18 00 00 00  30 00 00 00  00 00 00 00 03 00 00 00"
        "01 00 00 00  00 00 00 00  02 02 00 00  03 00 00 00"
        "EE FF FF FF  00 00 00 00  08 00 00 00  00 00 00 00"
        "EE FF FF FF  08 00 00 00  08 00 00 00  00 00 00 00"
        "EE FF FF FF  10 00 00 00  08 00 00 00  00 00 00 00");

// OUT data of a control transfer are in its submission, and flagged in its completion.
const Bytes kControlOutSubmit =
    Hex("01 00 00 00 00 00 00 00  53 02 00 05  01 00 00 00"
        "00 00 00 00 00 00 00 00  00 00 00 00  8D FF FF FF"
        "02 00 00 00  02 00 00 00  40 B0 00 00 00 00 02 00"
        "00 00 00 00  00 00 00 00  00 00 00 00  00 00 00 00"
        "AB CD");
const Bytes kControlOutComplete =
    Hex("01 00 00 00 00 00 00 00  43 02 00 05  01 00 2D 3E"
        "00 00 00 00 00 00 00 00  00 00 00 00  E0 FF FF FF"
        "00 00 00 00  00 00 00 00  00 00 00 00 00 00 00 00"
        "00 00 00 00  00 00 00 00  00 00 00 00  00 00 00 00");

UsbRecord DecodedUsbmon(const Bytes& bytes, std::size_t originalLength = 0) {
  UsbRecord record;
  DecodeUsbmonRecord(bytes, originalLength, record);
  return record;
}

std::string RefusalOfUsbmon(Bytes bytes, std::size_t at, const Bytes& patch) {
  std::ranges::copy(patch, bytes.begin() + static_cast<std::ptrdiff_t>(at));
  return ErrorOf([&] { DecodedUsbmon(bytes); });
}

TEST(UsbmonRecord, ControlSubmissionCarriesTheSetupPacket) {
  const UsbRecord record = DecodedUsbmon(kControlSubmit);
  EXPECT_EQ(record.Id, 0xFFFF880034128800U);
  EXPECT_EQ(record.Event, RecordEvent::Submit);
  EXPECT_EQ(record.Type, TransferType::Control);
  EXPECT_EQ(record.Address, (DeviceAddress{1, 5}));
  EXPECT_EQ(record.Endpoint, 0);
  EXPECT_EQ(record.TimeMicroseconds, 1'000'123'456);
  EXPECT_EQ(record.Status, -115);
  ASSERT_TRUE(record.Setup);
  EXPECT_EQ(*record.Setup, (SetupPacket{0x40, 0xA0, 3, 0xFFFF, 0}));
  EXPECT_THAT(record.Data, IsEmpty());
  EXPECT_THAT(record.Packets, IsEmpty());
}

TEST(UsbmonRecord, ControlCompletionCarriesTheByteRead) {
  const UsbRecord record = DecodedUsbmon(kControlComplete);
  EXPECT_EQ(record.Event, RecordEvent::Complete);
  EXPECT_EQ(record.Endpoint, 0x80);
  EXPECT_EQ(record.Status, 0);
  EXPECT_EQ(record.TransferLength, 1U);
  EXPECT_EQ(record.TransferFlags, 0x200U);
  EXPECT_FALSE(record.Setup);
  EXPECT_THAT(record.Data, ElementsAre(0x76));
}

TEST(UsbmonRecord, IsochronousCompletionGivesEachPacketAtItsOffset) {
  const UsbRecord record = DecodedUsbmon(kIsochronousComplete);
  EXPECT_EQ(record.Type, TransferType::Isochronous);
  EXPECT_EQ(record.Endpoint, 0x82);
  EXPECT_EQ(record.TimeMicroseconds, 1'001'000'001);
  EXPECT_EQ(record.TransferLength, 7U);
  EXPECT_EQ(record.ErrorCount, 1U);
  EXPECT_EQ(record.Interval, 1U);
  EXPECT_EQ(record.StartMicroframe, 8001U);
  EXPECT_THAT(record.Packets, ElementsAre(RecordedPacket{0, 0, 4, 4}, RecordedPacket{-71, 8, 0, 0},
                                          RecordedPacket{0, 16, 3, 3}));
  EXPECT_THAT(PacketData(record, record.Packets[0]), ElementsAre(0xFF, 0xD8, 1, 2));
  EXPECT_THAT(PacketData(record, record.Packets[1]), IsEmpty());
  EXPECT_THAT(PacketData(record, record.Packets[2]), ElementsAre(3, 4, 5));
}

TEST(UsbmonRecord, IsochronousSubmissionHasLengthsWithoutData) {
  const UsbRecord record = DecodedUsbmon(kIsochronousSubmit);
  EXPECT_EQ(record.TransferLength, 24U);
  EXPECT_THAT(record.Packets,
              ElementsAre(RecordedPacket{-18, 0, 8, 0}, RecordedPacket{-18, 8, 8, 0},
                          RecordedPacket{-18, 16, 8, 0}));
  EXPECT_THAT(record.Data, IsEmpty());
}

TEST(UsbmonRecord, OutDataStandsInTheSubmission) {
  EXPECT_THAT(DecodedUsbmon(kControlOutSubmit).Data, ElementsAre(0xAB, 0xCD));
  EXPECT_EQ(DecodedUsbmon(kControlOutComplete).Status, -32);
  EXPECT_THAT(DecodedUsbmon(kControlOutComplete).Data, IsEmpty());
}

TEST(UsbmonRecord, EveryRecordIsEncodedAsItWasDecoded) {
  for (const Bytes& bytes : {kControlSubmit, kControlComplete, kIsochronousSubmit,
                             kIsochronousComplete, kControlOutSubmit, kControlOutComplete}) {
    Bytes encoded;
    EncodeUsbmonRecord(DecodedUsbmon(bytes), encoded);
    EXPECT_EQ(encoded, bytes);
  }
}

TEST(UsbmonRecord, SubmissionThatTheControllerRefusedIsAnEventOfItsOwn) {
  Bytes bytes = kControlOutComplete;
  bytes[8] = 'E';
  bytes[15] = 0;
  EXPECT_EQ(DecodedUsbmon(bytes).Event, RecordEvent::Refused);
  Bytes encoded;
  EncodeUsbmonRecord(DecodedUsbmon(bytes), encoded);
  EXPECT_EQ(encoded, bytes);
}

TEST(UsbmonRecord, PacketsBehindTheCutOfARecordAreMissingAndNotAnError) {
  Bytes cut = kIsochronousComplete;
  cut.resize(cut.size() - 2);
  const UsbRecord record = DecodedUsbmon(cut, kIsochronousComplete.size());
  EXPECT_THAT(record.Packets, ElementsAre(RecordedPacket{0, 0, 4, 4}, RecordedPacket{-71, 8, 0, 0},
                                          RecordedPacket{0, 16, 3, 1}));
  EXPECT_THAT(PacketData(record, record.Packets[2]), ElementsAre(3));
}

TEST(UsbmonRecord, DataThatTheCaptureSystemCouldNotReadAreMissing) {
  Bytes bytes = kIsochronousComplete;
  bytes[15] = 'D';
  const UsbRecord record = DecodedUsbmon(bytes);
  EXPECT_THAT(record.Data, IsEmpty());
  EXPECT_EQ(record.Packets[0], (RecordedPacket{0, 0, 4, 0}));
}

TEST(UsbmonRecord, BytesBehindTheAnnouncedDataAreNotData) {
  Bytes bytes = kControlComplete;
  bytes.push_back(0x99);
  EXPECT_THAT(DecodedUsbmon(bytes).Data, ElementsAre(0x76));
}

TEST(UsbmonRecord, EveryShorterHeadIsRefused) {
  for (std::size_t length = 0; length < 64; ++length) {
    const Bytes head(kControlSubmit.begin(),
                     kControlSubmit.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_EQ(ErrorOf([&] { DecodedUsbmon(head); }),
              std::to_string(length) + " bytes, but a usbmon header has 64");
  }
}

TEST(UsbmonRecord, EveryContradictionIsNamed) {
  EXPECT_EQ(RefusalOfUsbmon(kControlSubmit, 8, Hex("54")), "event type 84 is not S, C or E");
  EXPECT_EQ(RefusalOfUsbmon(kControlSubmit, 9, Hex("04")), "transfer type 4 is above 3");
  EXPECT_EQ(RefusalOfUsbmon(kControlSubmit, 16, Hex("FF FF FF FF FF FF FF FF")),
            "time stamp of -1 s and 123456 us");
  EXPECT_EQ(RefusalOfUsbmon(kControlSubmit, 16, Hex("00 00 00 00 00 00 00 70")),
            "time stamp of 8070450532247928832 s and 123456 us");
  EXPECT_EQ(RefusalOfUsbmon(kControlSubmit, 24, Hex("40 42 0F 00")),
            "time stamp of 1000 s and 1000000 us");
  EXPECT_EQ(RefusalOfUsbmon(kControlSubmit, 60, Hex("01")),
            "1 packet descriptors in a transfer without packets");
  EXPECT_EQ(RefusalOfUsbmon(kControlComplete, 36, Hex("02")),
            "data length 2, but 1 bytes behind the header");
  EXPECT_EQ(RefusalOfUsbmon(kControlComplete, 36, Hex("FF FF FF FF")),
            "data length 4294967295, but 1 bytes behind the header");
  EXPECT_EQ(RefusalOfUsbmon(kIsochronousComplete, 60, Hex("05")),
            "5 packet descriptors, but 67 bytes behind the header");
  EXPECT_EQ(RefusalOfUsbmon(kIsochronousComplete, 60, Hex("FF FF FF FF")),
            "4294967295 packet descriptors, but 67 bytes behind the header");
  EXPECT_EQ(RefusalOfUsbmon(kIsochronousComplete, 64 + 32 + 8, Hex("04")),
            "isochronous packet 2 ends at byte 20 of 19");
  EXPECT_EQ(RefusalOfUsbmon(kIsochronousComplete, 64 + 4, Hex("FF FF FF FF")),
            "isochronous packet 0 ends at byte 4294967299 of 19");
}

TEST(UsbmonRecord, DecoderForgetsTheRecordBefore) {
  UsbRecord record;
  DecodeUsbmonRecord(kControlSubmit, 0, record);
  DecodeUsbmonRecord(kIsochronousComplete, 0, record);
  EXPECT_FALSE(record.Setup);
  DecodeUsbmonRecord(kControlComplete, 0, record);
  EXPECT_THAT(record.Packets, IsEmpty());
  EXPECT_EQ(record.ErrorCount, 0U);
}

}  // namespace
}  // namespace lidcam::bus::test
