#include "bus/capture/recording/recording_bus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <deque>
#include <thread>

#include "bus/capture/replay/capture_reader.h"
#include "tests/bus/capture/capture_support.h"

namespace lidcam::bus::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

/// The records of a file, with copies of their data.
struct KeptRecord {
  UsbRecord Record;
  Bytes Data;
};

std::vector<KeptRecord> Records(const std::string& path) {
  CaptureReader reader{path};
  std::vector<KeptRecord> records;
  UsbRecord record;
  while (reader.Next(record)) {
    records.push_back({record, Bytes(record.Data.begin(), record.Data.end())});
  }
  return records;
}

Bytes Image(const std::vector<Bytes>& records) {
  Bytes image = PcapImage{220}.Image();
  for (const Bytes& record : records) image.insert(image.end(), record.begin(), record.end());
  return image;
}

// Bus frame 1000 is second 1; the third transfer begins in it as well.
TEST(RecordingBus, RegisterReadIsRecordedByteForByte) {
  const TemporaryFolder folder;
  ScriptedBus camera;
  camera.Say({0xC0, 0xA1, 1, 0xFF0B, 1}, {UsbStatus::Ok, Hex("76")});
  RecordingBus bus{camera, folder.Path("a.pcap")};
  EXPECT_EQ(ReadRegister(bus, 3, 0x0B), 0x76);
  bus.Finish();
  const Bytes packetHeader = Hex("01 00 00 00  00 00 00 00  40 00 00 00  40 00 00 00");
  const Bytes longerHeader = Hex("01 00 00 00  00 00 00 00  41 00 00 00  41 00 00 00");
  EXPECT_EQ(ReadFile(folder.Path("a.pcap")),
            Image({packetHeader,
                   Hex("01 00 00 00 00 00 00 00  53 02 00 02  01 00 00 00"
                       "01 00 00 00 00 00 00 00  00 00 00 00  8D FF FF FF"
                       "00 00 00 00  00 00 00 00  40 A0 03 00 FF FF 00 00"
                       "00 00 00 00  00 00 00 00  00 00 00 00  00 00 00 00"),
                   packetHeader,
                   Hex("01 00 00 00 00 00 00 00  43 02 00 02  01 00 2D 3E"
                       "01 00 00 00 00 00 00 00  00 00 00 00  00 00 00 00"
                       "00 00 00 00  00 00 00 00  00 00 00 00 00 00 00 00"
                       "00 00 00 00  00 00 00 00  00 00 00 00  00 00 00 00"),
                   packetHeader,
                   Hex("02 00 00 00 00 00 00 00  53 02 80 02  01 00 00 3C"
                       "01 00 00 00 00 00 00 00  00 00 00 00  8D FF FF FF"
                       "01 00 00 00  00 00 00 00  C0 A1 01 00 0B FF 01 00"
                       "00 00 00 00  00 00 00 00  00 02 00 00  00 00 00 00"),
                   longerHeader,
                   Hex("02 00 00 00 00 00 00 00  43 02 80 02  01 00 2D 00"
                       "01 00 00 00 00 00 00 00  00 00 00 00  00 00 00 00"
                       "01 00 00 00  01 00 00 00  00 00 00 00 00 00 00 00"
                       "00 00 00 00  00 00 00 00  00 02 00 00  00 00 00 00"
                       "76")}));
}

// The read begins at microframe 8000 = 1 s and ends three microframes later.
TEST(RecordingBus, IsochronousReadIsRecordedWithItsGaps) {
  const TemporaryFolder folder;
  ScriptedBus camera;
  camera.Packets = {{Hex("FF D8 01 02")}, {{}, UsbStatus::Failed}, {Hex("03 04 05")}};
  RecordingBus bus{camera, folder.Path("a.pcap")};
  Bytes buffer(24);
  std::array<IsochronousPacket, 3> packets{};
  EXPECT_EQ(bus.ReadIsochronous(0x82, buffer, packets), (IsochronousResult{UsbStatus::Ok, 8000}));
  EXPECT_THAT(packets, ElementsAre(IsochronousPacket{0, 4, UsbStatus::Ok},
                                   IsochronousPacket{8, 0, UsbStatus::Failed},
                                   IsochronousPacket{16, 3, UsbStatus::Ok}));
  bus.Finish();
  EXPECT_EQ(ReadFile(folder.Path("a.pcap")),
            Image({Hex("01 00 00 00  00 00 00 00  70 00 00 00  70 00 00 00"
                       "01 00 00 00 00 00 00 00  53 00 82 02  01 00 2D 3C"
                       "01 00 00 00 00 00 00 00  00 00 00 00  8D FF FF FF"
                       "18 00 00 00  30 00 00 00  00 00 00 00 03 00 00 00"
                       "01 00 00 00  00 00 00 00  02 02 00 00  03 00 00 00"
                       "EE FF FF FF  00 00 00 00  08 00 00 00  00 00 00 00"
                       "EE FF FF FF  08 00 00 00  08 00 00 00  00 00 00 00"
                       "EE FF FF FF  10 00 00 00  08 00 00 00  00 00 00 00"),
                   Hex("01 00 00 00  77 01 00 00  83 00 00 00  83 00 00 00"
                       "01 00 00 00 00 00 00 00  43 00 82 02  01 00 2D 00"
                       "01 00 00 00 00 00 00 00  77 01 00 00  00 00 00 00"
                       "07 00 00 00  43 00 00 00  01 00 00 00 03 00 00 00"
                       "01 00 00 00  40 1F 00 00  02 02 00 00  03 00 00 00"
                       "00 00 00 00  00 00 00 00  04 00 00 00  00 00 00 00"
                       "B9 FF FF FF  08 00 00 00  00 00 00 00  00 00 00 00"
                       "00 00 00 00  10 00 00 00  03 00 00 00  00 00 00 00"
                       "FF D8 01 02 00 00 00 00  00 00 00 00 00 00 00 00  03 04 05")}));
}

TEST(RecordingBus, SettingIsRecordedAsTheRequestThatCarriesIt) {
  const TemporaryFolder folder;
  ScriptedBus camera;
  camera.Refused = {7};
  RecordingBus bus{camera, folder.Path("a.pcap")};
  EXPECT_EQ(bus.SelectSetting(0, 7), UsbStatus::NoBandwidth);
  EXPECT_EQ(bus.SelectSetting(0, 6), UsbStatus::Ok);
  bus.Finish();
  const auto records = Records(folder.Path("a.pcap"));
  ASSERT_EQ(records.size(), 4U);
  EXPECT_EQ(records[0].Record.Setup, (SetupPacket{0x01, 0x0B, 7, 0, 0}));
  EXPECT_EQ(records[1].Record.Status, -28);
  EXPECT_EQ(records[2].Record.Setup, (SetupPacket{0x01, 0x0B, 6, 0, 0}));
  EXPECT_EQ(records[3].Record.Status, 0);
}

TEST(RecordingBus, OutDataAreRecordedWithTheSubmission) {
  const TemporaryFolder folder;
  ScriptedBus camera;
  RecordingBus bus{camera, folder.Path("a.pcap")};
  Bytes data = Hex("AB CD");
  const SetupPacket setup{0x40, 0xB0, 0, 0, 2};
  EXPECT_EQ(bus.ControlTransfer(setup, data), (ControlResult{UsbStatus::Ok, 2}));
  bus.Finish();
  EXPECT_THAT(camera.Heard, ElementsAre(std::pair{setup, data}));
  const auto records = Records(folder.Path("a.pcap"));
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(records[0].Data, data);
  EXPECT_THAT(records[1].Data, IsEmpty());
  EXPECT_EQ(records[1].Record.TransferLength, 2U);
}

TEST(RecordingBus, StallIsRecordedAndPassedOn) {
  const TemporaryFolder folder;
  ScriptedBus camera;
  camera.Say({0xC0, 0xA1, 1, 0xFF0B, 1}, {UsbStatus::Stalled, {}});
  RecordingBus bus{camera, folder.Path("a.pcap")};
  EXPECT_EQ(ReadRegister(bus, 1, 0x0B), 256 + static_cast<int>(UsbStatus::Stalled));
  bus.Finish();
  const auto records = Records(folder.Path("a.pcap"));
  ASSERT_EQ(records.size(), 4U);
  EXPECT_EQ(records[3].Record.Status, -32);
  EXPECT_THAT(records[3].Data, IsEmpty());
}

TEST(RecordingBus, EqualTrafficGivesEqualFiles) {
  const TemporaryFolder folder;
  for (const char* name : {"a.pcap", "b.pcap"}) {
    ScriptedBus camera;
    camera.Packets = {{Hex("FF D8")}};
    RecordingBus bus{camera, folder.Path(name)};
    WriteRegister(bus, 0, 0x0A, 0x11);
    Bytes buffer(8);
    std::array<IsochronousPacket, 1> packets{};
    bus.ReadIsochronous(0x82, buffer, packets);
    bus.Finish();
  }
  EXPECT_EQ(ReadFile(folder.Path("a.pcap")), ReadFile(folder.Path("b.pcap")));
}

TEST(RecordingBus, ClockGivesTheTimesButNeverBackwards) {
  const TemporaryFolder folder;
  ScriptedBus camera;
  std::deque<std::int64_t> times = {5'000'000, 7'000'000, 6'000'000, 8'000'001};
  RecordingOptions options;
  options.Clock = [&times] {
    const std::int64_t time = times.front();
    times.pop_front();
    return time;
  };
  RecordingBus bus{camera, folder.Path("a.pcap"), options};
  WriteRegister(bus, 0, 0x0A, 0x11);
  bus.Finish();
  std::vector<std::int64_t> recorded;
  for (const auto& [record, data] : Records(folder.Path("a.pcap"))) {
    recorded.push_back(record.TimeMicroseconds);
  }
  EXPECT_THAT(recorded, ElementsAre(5'000'000, 7'000'000, 7'000'000, 8'000'001));
}

TEST(RecordingBus, AddressAndStartOfTimeAreThoseAskedFor) {
  const TemporaryFolder folder;
  ScriptedBus camera;
  RecordingOptions options;
  options.Address = {3, 9};
  options.StartMicroseconds = 1'700'000'000'000'000;
  RecordingBus bus{camera, folder.Path("a.pcap"), options};
  bus.SelectSetting(0, 1);
  bus.Finish();
  const auto records = Records(folder.Path("a.pcap"));
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(records[0].Record.Address, (DeviceAddress{3, 9}));
  EXPECT_EQ(records[0].Record.TimeMicroseconds, 1'700'000'001'000'000);
}

// 200 microframes of 3072 bytes exceed a record of the capture format.
TEST(RecordingBus, LongReadIsRecordedInPiecesOfTheFormatsSize) {
  const TemporaryFolder folder;
  ScriptedBus camera;
  for (int i = 0; i < 200; ++i) {
    camera.Packets.push_back({Bytes(3072, static_cast<std::uint8_t>(i)), UsbStatus::Ok});
  }
  RecordingBus bus{camera, folder.Path("a.pcap")};
  Bytes buffer(std::size_t{200} * 3072);
  std::vector<IsochronousPacket> packets(200);
  bus.ReadIsochronous(0x82, buffer, packets);
  bus.Finish();
  std::size_t packet = 0;
  std::size_t submitted = 0;
  for (const auto& [record, data] : Records(folder.Path("a.pcap"))) {
    if (record.Event == RecordEvent::Submit) {
      submitted += record.Packets.size();
      continue;
    }
    EXPECT_EQ(record.StartMicroframe, 8000 + packet);
    EXPECT_LE(record.Packets.size(), 128U);
    EXPECT_EQ(data.size(), record.Packets.size() * 3072);
    for (const RecordedPacket& piece : record.Packets) {
      EXPECT_THAT(std::span(data).subspan(piece.Offset, piece.Length),
                  Each(static_cast<std::uint8_t>(packet)));
      ++packet;
    }
  }
  EXPECT_EQ(packet, 200U);
  EXPECT_EQ(submitted, 200U);
}

TEST(RecordingBus, UnfinishedRecordingLeavesNothing) {
  const TemporaryFolder folder;
  ScriptedBus camera;
  {
    RecordingBus bus{camera, folder.Path("a.pcap")};
    WriteRegister(bus, 0, 0x0A, 0x11);
  }
  EXPECT_THAT(folder.Names(), IsEmpty());
}

TEST(RecordingBus, TrafficGoesOnWhenTheRecordingCannot) {
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full here";
  ScriptedBus camera;
  RecordingBus bus{camera, "/dev/full"};
  for (int i = 0; i < 200; ++i) WriteRegister(bus, 0, 0x0A, 0x11);
  EXPECT_EQ(camera.Heard.size(), 400U);
  EXPECT_EQ(ErrorOf([&] { bus.Finish(); }),
            "/dev/full: can't write the capture: No space left on device");
}

TEST(RecordingBus, ThatCannotBeWrittenAnyMoreTellsAndKeepsWhatItHas) {
  const TemporaryFolder folder;
  ScriptedBus camera;
  const FileSizeLimit limit{10'000};
  RecordingBus bus{camera, folder.Path("a.pcap")};
  EXPECT_EQ(bus.Failure(), "");
  for (int i = 0; i < 200; ++i) WriteRegister(bus, 0, 0x0A, 0x11);
  const std::string failure = folder.Path("a.pcap") + ": can't write the capture: File too large";
  EXPECT_EQ(bus.Failure(), failure);
  EXPECT_EQ(ErrorOf([&] { bus.Finish(); }), failure);
  PcapReader reader{folder.Path("a.pcap")};
  PcapPacket packet;
  while (reader.Next(packet)) {
  }
  EXPECT_GT(reader.RecordNumber(), 100U) << "each is 80 bytes long";
}

TEST(RecordingBus, TrafficBehindTheEndPassesUnrecorded) {
  const TemporaryFolder folder;
  ScriptedBus camera;
  RecordingBus bus{camera, folder.Path("a.pcap")};
  bus.Finish();
  bus.Finish();
  WriteRegister(bus, 0, 0x0A, 0x11);
  EXPECT_EQ(camera.Heard.size(), 2U);
  EXPECT_THAT(Records(folder.Path("a.pcap")), IsEmpty());
}

TEST(RecordingBus, AbortUnplugAndBusTimePassThrough) {
  const TemporaryFolder folder;
  ScriptedBus camera;
  RecordingBus bus{camera, folder.Path("a.pcap")};
  bus.Abort(0x82);
  bus.Unplug();
  EXPECT_THAT(camera.Aborted, ElementsAre(0x82));
  EXPECT_TRUE(camera.Unplugged);
  EXPECT_EQ(bus.FrameNumber(), 1000U);
}

TEST(RecordingBus, ReadWithoutPacketsIsNotRecorded) {
  const TemporaryFolder folder;
  ScriptedBus camera;
  RecordingBus bus{camera, folder.Path("a.pcap")};
  bus.ReadIsochronous(0x82, {}, {});
  bus.Finish();
  EXPECT_THAT(Records(folder.Path("a.pcap")), IsEmpty());
}

/// A bus that may be called from any thread.
class PatientBus final : public UsbBus {
 public:
  ControlResult ControlTransfer(const SetupPacket& /*setup*/,
                                std::span<std::uint8_t> /*data*/) override {
    return {};
  }
  UsbStatus SelectSetting(std::uint8_t /*interface*/, std::uint8_t /*setting*/) override {
    return UsbStatus::Ok;
  }
  IsochronousResult ReadIsochronous(std::uint8_t /*endpoint*/, std::span<std::uint8_t> /*buffer*/,
                                    std::span<IsochronousPacket> /*packets*/) override {
    return {};
  }
  void Abort(std::uint8_t /*endpoint*/) override {}
  [[nodiscard]] std::uint32_t FrameNumber() override { return 0; }
  void Unplug() override {}
};

TEST(RecordingBus, TwoThreadsOfTrafficGiveWholeRecords) {
  const TemporaryFolder folder;
  PatientBus camera;
  RecordingBus bus{camera, folder.Path("a.pcap")};
  constexpr int kRounds = 500;
  std::thread stream([&bus] {
    Bytes buffer(64);
    std::array<IsochronousPacket, 4> packets{};
    for (int i = 0; i < kRounds; ++i) bus.ReadIsochronous(0x82, buffer, packets);
  });
  for (int i = 0; i < kRounds; ++i) WriteRegister(bus, 0, 0x0A, 0x11);
  stream.join();
  bus.Finish();
  EXPECT_EQ(Records(folder.Path("a.pcap")).size(), 2U * kRounds + 4U * kRounds);
}

}  // namespace
}  // namespace lidcam::bus::test
