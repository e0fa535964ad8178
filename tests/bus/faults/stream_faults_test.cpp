#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/bus/faults/fake_bus.h"

namespace lidcam::bus::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

// 250us is microframe 2.
TEST(StreamFaults, LostPacketsLeaveNothingAndSayNothing) {
  DisturbedBus camera{"at 250us lose 2"};
  EXPECT_EQ(camera.Read(5), (IsochronousResult{UsbStatus::Ok, 0}));
  EXPECT_THAT(camera.Lengths(), ElementsAre(16, 16, 0, 0, 16));
  EXPECT_THAT(camera.Statuses(), Each(UsbStatus::Ok));
  EXPECT_EQ(camera.bus.Counts().Of(FaultPlace::Time, FaultKind::Lose), 2U);
  EXPECT_EQ(ToText(camera.bus.Counts()), "stream: 2 lose");
  EXPECT_THAT(camera.Lines, ElementsAre("bus  fault at 250us lose 2"));
}

TEST(StreamFaults, EmptyMicroframesAreNoPackets) {
  DisturbedBus camera{"at 0s lose 3"};
  camera.Fake.EmptyDigit = 1;
  camera.Read(5);
  EXPECT_THAT(camera.Lengths(), ElementsAre(0, 0, 0, 0, 16));
  EXPECT_EQ(camera.bus.Counts().Total(), 3U);
}

TEST(StreamFaults, FaultWaitsForTheStreamAndGoesOnInTheNextRead) {
  DisturbedBus camera{"at 250us lose 3"};
  camera.Fake.Microframe = 100;
  camera.Read(2);
  EXPECT_THAT(camera.Lengths(), ElementsAre(0, 0));
  camera.Read(3);
  EXPECT_THAT(camera.Lengths(), ElementsAre(0, 16, 16));
  EXPECT_THAT(camera.Lines, ElementsAre("bus  fault at 12500us lose 3"));
}

TEST(StreamFaults, ShortPacketsKeepTheirFirstBytes) {
  DisturbedBus camera{"at 0s short 8"};
  camera.Read(9);
  for (std::size_t i = 0; i < 8; ++i) {
    EXPECT_GE(camera.Packets[i].Length, 1U);
    EXPECT_LE(camera.Packets[i].Length, 15U);
    EXPECT_EQ(camera.WrongBits(i), 0);
  }
  EXPECT_EQ(camera.Packets[8].Length, 16U);
}

TEST(StreamFaults, OversizedPacketFillsItsShareAndNoMore) {
  DisturbedBus camera{"at 125us oversize"};
  camera.Read(3);
  EXPECT_THAT(camera.Lengths(), ElementsAre(16, 32, 16));
  EXPECT_EQ(camera.Bytes(1)[15], 0x4F);
  EXPECT_EQ(camera.Bytes(1)[16], 0x55);
  EXPECT_EQ(camera.Bytes(1)[31], 0x55);
  EXPECT_EQ(camera.Bytes(2)[0], 0x40);
  EXPECT_EQ(camera.Buffer[15 + 1], kUntouched);
}

TEST(StreamFaults, CorruptPacketsDifferInSomeBitsAndSayNothing) {
  DisturbedBus camera{"at 125us corrupt 5"};
  camera.Read(7);
  EXPECT_EQ(camera.WrongBits(0), 0);
  EXPECT_EQ(camera.WrongBits(6), 0);
  for (std::size_t i = 1; i < 6; ++i) {
    EXPECT_GE(camera.WrongBits(i), 1);
    EXPECT_LE(camera.WrongBits(i), 8);
  }
  EXPECT_THAT(camera.Statuses(), Each(UsbStatus::Ok));
  EXPECT_THAT(camera.Lengths(), Each(16U));
}

TEST(StreamFaults, MarkerStandsWithinThePacketAndNotAtItsHead) {
  DisturbedBus camera{"at 0s marker 20"};
  camera.Read(20);
  for (std::size_t i = 0; i < 20; ++i) {
    const auto bytes = camera.Bytes(i);
    const std::vector<std::uint8_t> marker{0xFF, 0xD8};
    const auto at = std::search(bytes.begin(), bytes.end(), marker.begin(), marker.end());
    ASSERT_NE(at, bytes.end());
    EXPECT_NE(at, bytes.begin());
    EXPECT_EQ(bytes.size(), 16U);
  }
}

TEST(StreamFaults, FalseStartBeginsLikeAFrame) {
  DisturbedBus camera{"at 125us false-start"};
  camera.Read(3);
  EXPECT_EQ(camera.Bytes(0)[0], 0x40);
  EXPECT_EQ(camera.Bytes(1)[0], 0xFF);
  EXPECT_EQ(camera.Bytes(1)[1], 0xD8);
  EXPECT_EQ(camera.Bytes(1)[2], 0x42);
  EXPECT_EQ(camera.Bytes(2)[0], 0x40);
}

TEST(StreamFaults, PacketsTooShortForAFaultArePassedOver) {
  for (const char* const script : {"at 0s marker", "at 0s short", "at 0s false-start"}) {
    DisturbedBus camera{script};
    camera.Fake.PacketLength = 1;
    camera.Read(4);
    EXPECT_THAT(camera.Lengths(), Each(1U));
    EXPECT_EQ(camera.bus.Counts().Total(), 0U) << script;
    camera.Fake.PacketLength = 3;
    camera.Read(1);
    EXPECT_EQ(camera.bus.Counts().Total(), 1U) << script;
  }
}

TEST(StreamFaults, PacketErrorKeepsTheReadGood) {
  DisturbedBus camera{"at 125us error 2"};
  EXPECT_EQ(camera.Read(4).Status, UsbStatus::Ok);
  EXPECT_THAT(camera.Statuses(),
              ElementsAre(UsbStatus::Ok, UsbStatus::Failed, UsbStatus::Failed, UsbStatus::Ok));
  EXPECT_THAT(camera.Lengths(), Each(16U));
}

TEST(StreamFaults, SeveralFaultsMeetInOnePacket) {
  DisturbedBus camera{"at 0s oversize; at 0s error; at 0s false-start"};
  camera.Read(1);
  EXPECT_THAT(camera.Lengths(), ElementsAre(32));
  EXPECT_THAT(camera.Statuses(), ElementsAre(UsbStatus::Failed));
  EXPECT_EQ(camera.Bytes(0)[0], 0xFF);
}

struct WholeReadCase {
  const char* Word;
  UsbStatus Status;
};

class WholeReadFault : public testing::TestWithParam<WholeReadCase> {};

// 500us is microframe 4: it is in the second read of four.
TEST_P(WholeReadFault, TakesTheReadThatHoldsItsTimeAndTheNext) {
  DisturbedBus camera{"at 500us " + std::string(GetParam().Word) + " 2"};
  EXPECT_EQ(camera.Read(4).Status, UsbStatus::Ok);
  EXPECT_EQ(camera.Read(4), (IsochronousResult{GetParam().Status, 4}));
  EXPECT_THAT(camera.Lengths(), Each(0U));
  EXPECT_THAT(camera.Statuses(), Each(GetParam().Status));
  EXPECT_EQ(camera.Read(4).Status, GetParam().Status);
  EXPECT_EQ(camera.Read(4), (IsochronousResult{UsbStatus::Ok, 12}));
  EXPECT_THAT(camera.Lengths(), Each(16U));
  EXPECT_EQ(camera.bus.Counts().Total(), 2U);
}

INSTANTIATE_TEST_SUITE_P(All, WholeReadFault,
                         testing::Values(WholeReadCase{"fail", UsbStatus::Failed},
                                         WholeReadCase{"silent", UsbStatus::Silent}));

TEST(StreamFaults, PacketFaultsOutlastAFailedRead) {
  DisturbedBus camera{"at 0s fail; at 0s lose"};
  EXPECT_EQ(camera.Read(2).Status, UsbStatus::Failed);
  camera.Read(2);
  EXPECT_THAT(camera.Lengths(), ElementsAre(0, 16));
}

// 500us are four microframes, from the second on.
TEST(StreamFaults, SilenceEndsByTime) {
  DisturbedBus camera{"at 250us silence 500us"};
  camera.Read(3);
  EXPECT_THAT(camera.Lengths(), ElementsAre(16, 16, 0));
  EXPECT_EQ(camera.Read(5).Status, UsbStatus::Ok);
  EXPECT_THAT(camera.Lengths(), ElementsAre(0, 0, 0, 16, 16));
  EXPECT_EQ(camera.bus.Counts().Of(FaultPlace::Time, FaultKind::Silence), 4U);
  EXPECT_THAT(camera.Lines, ElementsAre("bus  fault at 250us silence 500us"));
}

TEST(StreamFaults, SilenceBeforeTheStreamIsOver) {
  DisturbedBus camera{"at 250us silence 500us"};
  camera.Fake.Microframe = 6;
  camera.Read(4);
  EXPECT_THAT(camera.Lengths(), Each(16U));
  EXPECT_THAT(camera.Lines, IsEmpty());
}

TEST(StreamFaults, PlugIsPulledBetweenTwoPacketsOfARead) {
  DisturbedBus camera{"at 375us unplug; at 250us lose 2; at 375us fail"};
  EXPECT_EQ(camera.Read(5), (IsochronousResult{UsbStatus::Disconnected, 0}));
  EXPECT_THAT(camera.Lengths(), ElementsAre(16, 16, 0, 0, 0));
  EXPECT_THAT(camera.Statuses(), ElementsAre(UsbStatus::Ok, UsbStatus::Ok, UsbStatus::Ok,
                                             UsbStatus::Disconnected, UsbStatus::Disconnected));
  EXPECT_TRUE(camera.Fake.IsUnplugged);
  EXPECT_EQ(camera.Read(5).Status, UsbStatus::Disconnected);
  EXPECT_EQ(ToText(camera.bus.Counts()), "stream: 1 lose, 1 unplug");
}

TEST(StreamFaults, ReadThatEndedBadlyPassesAsItIs) {
  for (const UsbStatus status : {UsbStatus::Aborted, UsbStatus::Stalled, UsbStatus::EndOfCapture}) {
    DisturbedBus camera{"at 0s fail; at 0s lose"};
    camera.Fake.ReadStatus = status;
    EXPECT_EQ(camera.Read(2).Status, status);
    EXPECT_EQ(camera.bus.Counts().Total(), 0U);
  }
}

TEST(StreamFaults, PacketsOutsideTheBufferAreLeftAlone) {
  FaultScript script = ParseFaultScript("at 0s corrupt; at 0s oversize; at 0s marker");
  TimedFaults faults{script};
  std::vector<std::uint8_t> buffer(8);
  std::vector<IsochronousPacket> packets{{6, 4, UsbStatus::Ok}, {0xFFFFFFFF, 4, UsbStatus::Ok}};
  FaultCounts counts;
  std::vector<BusFault> begun;
  EXPECT_EQ(faults.Disturb(0, buffer, packets, counts, begun), UsbStatus::Ok);
  EXPECT_THAT(buffer, Each(0));
  EXPECT_EQ(counts.Total(), 0U);
}

struct Stream {
  std::vector<std::uint32_t> Lengths;
  std::vector<UsbStatus> Statuses;
  std::vector<std::uint8_t> Bytes;

  friend bool operator==(const Stream&, const Stream&) = default;
};

Stream StreamInReadsOf(std::size_t count, const std::string& script) {
  DisturbedBus camera{script};
  camera.Fake.EmptyDigit = 3;
  Stream stream;
  while (camera.Fake.Microframe < 960) {
    camera.Read(count);
    for (std::size_t i = 0; i < count; ++i) {
      stream.Lengths.push_back(camera.Packets[i].Length);
      stream.Statuses.push_back(camera.Packets[i].Status);
      const auto bytes = camera.Bytes(i);
      stream.Bytes.insert(stream.Bytes.end(), bytes.begin(), bytes.end());
    }
  }
  return stream;
}

TEST(StreamFaults, ReadsOfAnyLengthGiveTheSameStream) {
  const std::string script =
      "bits 5; at 1ms lose 30; at 2ms short 40; at 3ms corrupt 50; at 10ms silence 5ms;"
      "at 9ms marker 100; at 20ms oversize 7; at 20ms error 20; at 25ms false-start 9";
  const Stream stream = StreamInReadsOf(1, script);
  for (const std::size_t count : {8U, 32U, 96U, 960U}) {
    EXPECT_TRUE(StreamInReadsOf(count, script) == stream) << count;
  }
}

TEST(StreamFaults, BitsOfTheScriptChooseWhatIsWrong) {
  const std::string faults = "; at 0s corrupt 100; at 20ms short 100; at 50ms marker 100";
  EXPECT_TRUE(StreamInReadsOf(8, "bits 1" + faults) == StreamInReadsOf(8, "bits 1" + faults));
  EXPECT_FALSE(StreamInReadsOf(8, "bits 1" + faults) == StreamInReadsOf(8, "bits 2" + faults));
}

}  // namespace
}  // namespace lidcam::bus::test
