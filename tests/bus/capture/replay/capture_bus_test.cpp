#include "bus/capture/replay/capture_bus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <memory>

#include "bus/capture/recording/recording_bus.h"
#include "bus/enumeration.h"
#include "tests/bus/capture/capture_support.h"

namespace lidcam::bus::test {
namespace {

using testing::ElementsAre;

constexpr int kNotRecorded = 256 + static_cast<int>(UsbStatus::NotRecorded);
constexpr std::uint8_t kBridgeRead = 1;
constexpr std::uint8_t kSensorRead = 3;

SetupPacket RegisterRead(std::uint8_t address) {
  return {0xC0, 0xA1, 1, static_cast<std::uint16_t>(0xFF00 | address), 1};
}

/// A scripted camera, recorded and replayed.
class Replay : public testing::Test {
 protected:
  Replay() {
    SayDescriptors(camera_, 0x1AF0, 0x0511);
    recorder_ = std::make_unique<RecordingBus>(camera_, path_);
    static_cast<void>(EnumerateDevice(*recorder_));
  }

  CaptureBus& Play() {
    recorder_->Finish();
    bus_ = std::make_unique<CaptureBus>(CaptureSource{path_});
    return *bus_;
  }

  void Record(std::size_t packets, std::size_t share = 16) {
    Bytes buffer(packets * share);
    std::vector<IsochronousPacket> read(packets);
    recorder_->ReadIsochronous(0x82, buffer, read);
  }

  TemporaryFolder folder_;
  const std::string path_ = folder_.Path("a.pcap");
  ScriptedBus camera_;
  std::unique_ptr<RecordingBus> recorder_;
  std::unique_ptr<CaptureBus> bus_;
};

TEST_F(Replay, EnumeratesAsTheRecordedCamera) {
  const UsbDeviceInfo info = EnumerateDevice(Play());
  EXPECT_EQ(info.Vendor, 0x1AF0);
  EXPECT_EQ(info.Product, 0x0511);
  EXPECT_EQ(info.Configuration.size(), 55U);
  EXPECT_THAT(info.AlternateSettings,
              ElementsAre(AlternateSetting{0, 0, 0x82, 0}, AlternateSetting{0, 1, 0x82, 3072}));
}

TEST_F(Replay, RegisterReadsComeBackInTheirOrder) {
  for (const char* value : {"11", "22", "33"}) {
    camera_.Say(RegisterRead(0x0A), {UsbStatus::Ok, Hex(value)});
  }
  for (int i = 0; i < 3; ++i) ReadRegister(*recorder_, kBridgeRead, 0x0A);
  CaptureBus& bus = Play();
  EXPECT_EQ(ReadRegister(bus, kBridgeRead, 0x0A), 0x11);
  EXPECT_EQ(ReadRegister(bus, kBridgeRead, 0x0A), 0x22);
  EXPECT_EQ(ReadRegister(bus, kBridgeRead, 0x0A), 0x33);
}

TEST_F(Replay, AnswersAnewOnceItForgetsWhatItWasAsked) {
  for (const char* value : {"11", "22"}) {
    camera_.Say(RegisterRead(0x0A), {UsbStatus::Ok, Hex(value)});
  }
  for (int i = 0; i < 2; ++i) ReadRegister(*recorder_, kBridgeRead, 0x0A);
  CaptureBus& bus = Play();
  for (int i = 0; i < 3; ++i) ReadRegister(bus, kBridgeRead, 0x0A);
  bus.ForgetRequests();
  EXPECT_EQ(ReadRegister(bus, kBridgeRead, 0x0A), 0x11);
  EXPECT_EQ(ReadRegister(bus, kBridgeRead, 0x0A), 0x22);
}

TEST_F(Replay, TellsTheRequestsAheadOfTheFirstPacket) {
  camera_.Packets = {{Hex("01"), UsbStatus::Ok}};
  const std::size_t enumeration = camera_.Heard.size();
  recorder_->SelectSetting(0, 1);
  WriteRegister(*recorder_, 0, 0x0A, 0x11);
  Record(1);
  WriteRegister(*recorder_, 0, 0x0A, 0x12);
  const std::vector<SetupPacket> requests = Play().RequestsAheadOfStream();
  ASSERT_EQ(requests.size(), enumeration + 3);
  EXPECT_EQ(requests[enumeration], (SetupPacket{0x01, 0x0B, 1, 0, 0}));
  EXPECT_EQ(requests[enumeration + 1], (SetupPacket{0x40, 0xA0, 0, 0xFFFF, 0}));
  EXPECT_EQ(requests[enumeration + 2], (SetupPacket{0x40, 0xA0, 0x11, 0xFF0A, 0}));
}

TEST_F(Replay, ReadBeyondTheRecordedNumberHearsTheLastAnswerAgain) {
  camera_.Say(RegisterRead(0x0A), {UsbStatus::Ok, Hex("11")});
  camera_.Say(RegisterRead(0x0A), {UsbStatus::Ok, Hex("22")});
  ReadRegister(*recorder_, kBridgeRead, 0x0A);
  ReadRegister(*recorder_, kBridgeRead, 0x0A);
  CaptureBus& bus = Play();
  EXPECT_EQ(ReadRegister(bus, kBridgeRead, 0x0A), 0x11);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(ReadRegister(bus, kBridgeRead, 0x0A), 0x22);
}

TEST_F(Replay, SameAddressIsAnotherRegisterUnderAnotherSelect) {
  camera_.Say(RegisterRead(0x0B), {UsbStatus::Ok, Hex("B0")});
  camera_.Say(RegisterRead(0x0B), {UsbStatus::Ok, Hex("76")});
  ReadRegister(*recorder_, kBridgeRead, 0x0B);
  ReadRegister(*recorder_, kSensorRead, 0x0B);
  CaptureBus& bus = Play();
  EXPECT_EQ(ReadRegister(bus, kSensorRead, 0x0B), 0x76);
  EXPECT_EQ(ReadRegister(bus, kSensorRead, 0x0B), 0x76);
  EXPECT_EQ(ReadRegister(bus, kBridgeRead, 0x0B), 0xB0);
  EXPECT_EQ(ReadRegister(bus, kSensorRead, 0x0B), 0x76);
}

// Reads A at the begin and at the end, and B in between: after B the later A is returned first,
// then the earlier one, which was skipped.
TEST_F(Replay, SearchGoesForwardFromTheLastMatchAndThenFromTheBegin) {
  camera_.Say(RegisterRead(0x0A), {UsbStatus::Ok, Hex("A1")});
  camera_.Say(RegisterRead(0x0A), {UsbStatus::Ok, Hex("A2")});
  camera_.Say(RegisterRead(0x0B), {UsbStatus::Ok, Hex("B1")});
  ReadRegister(*recorder_, kBridgeRead, 0x0A);
  ReadRegister(*recorder_, kBridgeRead, 0x0B);
  ReadRegister(*recorder_, kBridgeRead, 0x0A);
  CaptureBus& bus = Play();
  EXPECT_EQ(ReadRegister(bus, kBridgeRead, 0x0B), 0xB1);
  EXPECT_EQ(ReadRegister(bus, kBridgeRead, 0x0A), 0xA2);
  EXPECT_EQ(ReadRegister(bus, kBridgeRead, 0x0A), 0xA1);
  EXPECT_EQ(ReadRegister(bus, kBridgeRead, 0x0A), 0xA2);
}

TEST_F(Replay, RequestNeverRecordedSaysSo) {
  WriteRegister(*recorder_, 0, 0x0A, 0x11);
  CaptureBus& bus = Play();
  EXPECT_EQ(ReadRegister(bus, kBridgeRead, 0x0A), kNotRecorded);
  EXPECT_EQ(bus.ControlTransfer({0x40, 0xA0, 0x11, 0xFF0A, 0}, {}).Status, UsbStatus::Ok);
  EXPECT_EQ(bus.ControlTransfer({0x40, 0xA0, 0x12, 0xFF0A, 0}, {}).Status, UsbStatus::NotRecorded);
}

TEST_F(Replay, WritesAreToldApartByTheirData) {
  const SetupPacket setup{0x40, 0xB0, 0, 0, 2};
  Bytes first = Hex("01 02");
  Bytes second = Hex("03 04");
  Bytes other = Hex("01 03");
  recorder_->ControlTransfer(setup, first);
  recorder_->ControlTransfer(setup, second);
  CaptureBus& bus = Play();
  EXPECT_EQ(bus.ControlTransfer(setup, second), (ControlResult{UsbStatus::Ok, 2}));
  EXPECT_EQ(bus.ControlTransfer(setup, first), (ControlResult{UsbStatus::Ok, 2}));
  EXPECT_EQ(bus.ControlTransfer(setup, other), (ControlResult{UsbStatus::NotRecorded, 0}));
}

TEST_F(Replay, RecordedFailureFailsAgain) {
  camera_.Say(RegisterRead(0x0A), {UsbStatus::Stalled, {}});
  ReadRegister(*recorder_, kBridgeRead, 0x0A);
  EXPECT_EQ(ReadRegister(Play(), kBridgeRead, 0x0A), 256 + static_cast<int>(UsbStatus::Stalled));
}

// Another host requests 521 bytes at once; the camera answers with its 55.
TEST_F(Replay, WholeDescriptorAnswersRequestsOfAnyLength) {
  CaptureBus& bus = Play();
  Bytes data(521);
  EXPECT_EQ(bus.ControlTransfer({0x80, 0x06, 0x0200, 0, 4}, data),
            (ControlResult{UsbStatus::Ok, 4}));
  // A request for exactly 55 bytes does not show that the descriptor ends there.
  EXPECT_EQ(bus.ControlTransfer({0x80, 0x06, 0x0200, 0, 521}, data).Status, UsbStatus::NotRecorded);
}

TEST_F(Replay, DescriptorShorterThanAskedForAnswersLongerRequests) {
  camera_.Say({0x80, 0x06, 0x0300, 0, 255}, {UsbStatus::Ok, Hex("04 03 09 04")});
  Bytes data(521);
  recorder_->ControlTransfer({0x80, 0x06, 0x0300, 0, 255}, data);
  EXPECT_EQ(Play().ControlTransfer({0x80, 0x06, 0x0300, 0, 521}, data),
            (ControlResult{UsbStatus::Ok, 4}));
}

TEST_F(Replay, SettingsAreThoseThatTheRecordedHostWasGiven) {
  camera_.Refused = {7};
  recorder_->SelectSetting(0, 7);
  recorder_->SelectSetting(0, 6);
  CaptureBus& bus = Play();
  EXPECT_EQ(bus.SelectSetting(0, 7), UsbStatus::NoBandwidth);
  EXPECT_EQ(bus.SelectSetting(0, 6), UsbStatus::Ok);
  EXPECT_EQ(bus.SelectSetting(0, 6), UsbStatus::Ok);
  EXPECT_EQ(bus.SelectSetting(0, 5), UsbStatus::NoBandwidth);
  EXPECT_EQ(bus.SelectSetting(1, 6), UsbStatus::NoBandwidth);
  EXPECT_EQ(bus.SelectSetting(0, 0), UsbStatus::Ok);
}

TEST_F(Replay, CaptureWithoutSelectionGivesEverySetting) {
  EXPECT_EQ(Play().SelectSetting(0, 7), UsbStatus::Ok);
}

TEST_F(Replay, PacketsComeAsManyAsAskedForAcrossTheRecordedTransfers) {
  for (std::uint8_t i = 1; i <= 5; ++i) camera_.Packets.push_back({Bytes(i, i), UsbStatus::Ok});
  camera_.Microframe = 16000;
  Record(3);
  Record(2);
  CaptureBus& bus = Play();
  EXPECT_EQ(bus.FrameNumber(), 2000U);
  Bytes buffer(32);
  std::array<IsochronousPacket, 4> packets{};
  EXPECT_EQ(bus.ReadIsochronous(0x82, buffer, packets), (IsochronousResult{UsbStatus::Ok, 16000}));
  EXPECT_THAT(packets, ElementsAre(IsochronousPacket{0, 1, UsbStatus::Ok},
                                   IsochronousPacket{8, 2, UsbStatus::Ok},
                                   IsochronousPacket{16, 3, UsbStatus::Ok},
                                   IsochronousPacket{24, 4, UsbStatus::Ok}));
  EXPECT_EQ(buffer, Hex("01 00 00 00 00 00 00 00  02 02 00 00 00 00 00 00"
                        "03 03 03 00 00 00 00 00  04 04 04 04 00 00 00 00"));
  EXPECT_EQ(bus.ReadIsochronous(0x82, buffer, packets), (IsochronousResult{UsbStatus::Ok, 16004}));
  EXPECT_THAT(packets, ElementsAre(IsochronousPacket{0, 5, UsbStatus::Ok},
                                   IsochronousPacket{8, 0, UsbStatus::EndOfCapture},
                                   IsochronousPacket{16, 0, UsbStatus::EndOfCapture},
                                   IsochronousPacket{24, 0, UsbStatus::EndOfCapture}));
  EXPECT_EQ(bus.ReadIsochronous(0x82, buffer, packets),
            (IsochronousResult{UsbStatus::EndOfCapture, 16005}));
  for (const IsochronousPacket& packet : packets) {
    EXPECT_EQ(packet.Length, 0U);
    EXPECT_EQ(packet.Status, UsbStatus::EndOfCapture);
  }
}

TEST_F(Replay, FailedMicroframeFailsAgain) {
  camera_.Packets = {{{}, UsbStatus::Failed}};
  Record(1);
  Bytes buffer(16);
  std::array<IsochronousPacket, 1> packets{};
  Play().ReadIsochronous(0x82, buffer, packets);
  EXPECT_EQ(packets[0], (IsochronousPacket{0, 0, UsbStatus::Failed}));
}

TEST_F(Replay, PacketLargerThanItsShareIsCutAndMarked) {
  camera_.Packets = {{Hex("01 02 03 04"), UsbStatus::Ok}, {Hex("05"), UsbStatus::Ok}};
  Record(2);
  CaptureBus& bus = Play();
  Bytes buffer(4);
  std::array<IsochronousPacket, 2> packets{};
  bus.ReadIsochronous(0x82, buffer, packets);
  EXPECT_THAT(packets, ElementsAre(IsochronousPacket{0, 2, UsbStatus::Failed},
                                   IsochronousPacket{2, 1, UsbStatus::Ok}));
  EXPECT_EQ(buffer, Hex("01 02 05 00"));
}

TEST_F(Replay, OtherEndpointWasNotRecorded) {
  camera_.Packets = {{Hex("01"), UsbStatus::Ok}};
  Record(1);
  Bytes buffer(4);
  std::array<IsochronousPacket, 1> packets{};
  EXPECT_EQ(Play().ReadIsochronous(0x83, buffer, packets).Status, UsbStatus::NotRecorded);
  EXPECT_EQ(packets[0].Status, UsbStatus::NotRecorded);
}

TEST_F(Replay, CaptureWithoutStreamHasNoEndpoint) {
  Bytes buffer(4);
  std::array<IsochronousPacket, 1> packets{};
  CaptureBus& bus = Play();
  EXPECT_EQ(bus.ReadIsochronous(0x82, buffer, packets).Status, UsbStatus::NotRecorded);
  EXPECT_EQ(bus.FrameNumber(), 0U);
}

TEST_F(Replay, BusTimeFollowsTheRecordedGapsButNeverRunsBackwards) {
  Record(8);
  camera_.Microframe = 9000;
  Record(8);
  camera_.Microframe = 16;  // the host controller's counter wraps around
  Record(8);
  CaptureBus& bus = Play();
  Bytes buffer(64);
  std::array<IsochronousPacket, 8> packets{};
  const std::uint32_t first = bus.ReadIsochronous(0x82, buffer, packets).StartMicroframe;
  EXPECT_LT(first, 9000U);
  EXPECT_EQ(bus.ReadIsochronous(0x82, buffer, packets).StartMicroframe, 9000U);
  EXPECT_EQ(bus.ReadIsochronous(0x82, buffer, packets).StartMicroframe, 9008U);
  EXPECT_EQ(bus.FrameNumber(), 9016U / 8);
}

TEST_F(Replay, AfterUnpluggingEveryRequestFindsNoDevice) {
  camera_.Packets = {{Hex("01"), UsbStatus::Ok}};
  Record(1);
  CaptureBus& bus = Play();
  bus.Abort(0x82);
  bus.Unplug();
  Bytes buffer(18);
  std::array<IsochronousPacket, 1> packets{};
  EXPECT_EQ(bus.ControlTransfer({0x80, 6, 0x0100, 0, 18}, buffer).Status, UsbStatus::Disconnected);
  EXPECT_EQ(bus.SelectSetting(0, 0), UsbStatus::Disconnected);
  EXPECT_EQ(bus.ReadIsochronous(0x82, buffer, packets).Status, UsbStatus::Disconnected);
  EXPECT_EQ(packets[0], (IsochronousPacket{0, 0, UsbStatus::Disconnected}));
}

TEST_F(Replay, FileThatChangesUnderTheStreamFailsIt) {
  for (int i = 0; i < 40; ++i) {
    camera_.Packets.push_back({Bytes(1000, 7), UsbStatus::Ok});
    Record(1, 1000);
  }
  CaptureBus& bus = Play();
  const Bytes image = ReadFile(path_);
  ASSERT_EQ(truncate(path_.c_str(), static_cast<off_t>(image.size() - 500)), 0);
  Bytes buffer(1000);
  std::array<IsochronousPacket, 1> packets{};
  int given = 0;
  UsbStatus status = UsbStatus::Ok;
  while ((status = bus.ReadIsochronous(0x82, buffer, packets).Status) == UsbStatus::Ok) ++given;
  EXPECT_EQ(status, UsbStatus::Failed);
  EXPECT_EQ(given, 39);
}

// The recording of a replay equals the original, except for the transfers' times and ids.
TEST_F(Replay, CanBeRecordedAndReplayedAgain) {
  camera_.Say(RegisterRead(0x0B), {UsbStatus::Ok, Hex("76")});
  camera_.Packets = {{Hex("FF D8 01"), UsbStatus::Ok}, {Hex("02"), UsbStatus::Failed}};
  ReadRegister(*recorder_, kSensorRead, 0x0B);
  recorder_->SelectSetting(0, 1);
  Record(2);
  CaptureBus& bus = Play();
  RecordingBus again{bus, folder_.Path("b.pcap")};
  static_cast<void>(EnumerateDevice(again));
  EXPECT_EQ(ReadRegister(again, kSensorRead, 0x0B), 0x76);
  again.SelectSetting(0, 1);
  Bytes buffer(32);
  std::array<IsochronousPacket, 2> packets{};
  again.ReadIsochronous(0x82, buffer, packets);
  again.Finish();
  CaptureBus second{CaptureSource{folder_.Path("b.pcap")}};
  EXPECT_EQ(EnumerateDevice(second).Product, 0x0511);
  EXPECT_EQ(ReadRegister(second, kSensorRead, 0x0B), 0x76);
  Bytes secondBuffer(32);
  std::array<IsochronousPacket, 2> secondPackets{};
  second.ReadIsochronous(0x82, secondBuffer, secondPackets);
  EXPECT_EQ(secondPackets, packets);
  EXPECT_EQ(secondBuffer, buffer);
}

}  // namespace
}  // namespace lidcam::bus::test
