#include "bus/capture/replay/capture_source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>
#include <span>

#include "bus/capture/files/pcap_file.h"
#include "bus/capture/recording/recording_bus.h"
#include "bus/enumeration.h"
#include "tests/bus/capture/capture_support.h"

namespace lidcam::bus::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// A device of a capture, and its traffic.
struct Actor {
  DeviceAddress Address;
  std::uint16_t Vendor = 0;  ///< 0: was enumerated before the capture
  std::uint16_t Product = 0;
  bool Registers = false;
  std::size_t Packets = 0;
  bool Setting = false;
};

/// Records each device and puts the records into one capture.
void WriteCapture(const TemporaryFolder& folder, const std::string& path,
                  const std::vector<Actor>& actors) {
  PcapWriter writer{path, kLinkTypeUsbmon};
  for (const Actor& actor : actors) {
    const std::string part = folder.Path("part.pcap");
    ScriptedBus camera;
    SayDescriptors(camera, actor.Vendor, actor.Product);
    RecordingOptions options;
    options.Address = actor.Address;
    RecordingBus bus{camera, part, options};
    if (actor.Vendor != 0) static_cast<void>(EnumerateDevice(bus));
    if (actor.Registers) WriteRegister(bus, 0, 0x0A, 0x11);
    if (actor.Setting) bus.SelectSetting(0, 1);
    if (actor.Packets != 0) {
      camera.Packets.assign(actor.Packets, {Hex("01 02 03"), UsbStatus::Ok});
      Bytes buffer(actor.Packets * 8);
      std::vector<IsochronousPacket> packets(actor.Packets);
      bus.ReadIsochronous(0x82, buffer, packets);
    }
    bus.Finish();
    PcapReader reader{part};
    PcapPacket packet;
    while (reader.Next(packet)) writer.Write(packet.TimeMicroseconds, packet.Bytes);
  }
  writer.Close();
  std::filesystem::remove(folder.Path("part.pcap"));
}

class CaptureWithDevices : public testing::Test {
 protected:
  void Write(const std::vector<Actor>& actors) { WriteCapture(folder_, path_, actors); }

  std::string Refusal(std::optional<DeviceAddress> address = {}) {
    return ErrorOf([&] { CaptureSource{path_, address}; });
  }

  TemporaryFolder folder_;
  const std::string path_ = folder_.Path("a.pcap");
};

TEST_F(CaptureWithDevices, CameraIsFoundByItsDescriptors) {
  Write({{{1, 4}, 0x046D, 0xC52B, true, 10}, {{1, 5}, 0x1AF0, 0x0511}});
  const CaptureSource source{path_};
  EXPECT_EQ(source.Device().Address, (DeviceAddress{1, 5}));
  EXPECT_EQ(source.Device().Identity, (UsbIdentity{0x1AF0, 0x0511}));
}

TEST_F(CaptureWithDevices, CameraIsFoundByItsRegisterRequests) {
  Write({{{1, 4}, 0, 0, false, 10}, {{1, 5}, 0, 0, true, 0}, {{1, 6}, 0x046D, 0xC52B, true, 0}});
  EXPECT_EQ(CaptureSource{path_}.Device().Address, (DeviceAddress{1, 5}));
}

TEST_F(CaptureWithDevices, CameraIsFoundByItsStream) {
  Write({{{1, 4}, 0x046D, 0xC52B, false, 10}, {{1, 5}, 0, 0, false, 10}});
  EXPECT_EQ(CaptureSource{path_}.Device().Address, (DeviceAddress{1, 5}));
}

TEST_F(CaptureWithDevices, DescriptorsGoBeforeRequestsAndRequestsBeforeStreams) {
  Write({{{1, 4}, 0, 0, false, 10}, {{1, 5}, 0, 0, true, 0}, {{1, 6}, 0x1B17, 0x6111}});
  EXPECT_EQ(CaptureSource{path_}.Device().Address, (DeviceAddress{1, 6}));
}

TEST_F(CaptureWithDevices, AnyDeviceCanBeNamed) {
  Write({{{1, 4}, 0x046D, 0xC52B, false, 10}, {{1, 5}, 0x1AF0, 0x0511}});
  EXPECT_EQ(CaptureSource(path_, DeviceAddress{1, 4}).Device().Identity,
            (UsbIdentity{0x046D, 0xC52B}));
}

TEST_F(CaptureWithDevices, SeveralCamerasAreAnErrorThatNamesThem) {
  Write({{{1, 4}, 0x1AF0, 0x6010}, {{2, 5}, 0x1B17, 0x6110}});
  EXPECT_EQ(Refusal(), path_ +
                           ": more than one device may be the camera: 1.4 (1af0:6010), 2.5 "
                           "(1b17:6110); choose one with --device BUS.DEVICE");
}

TEST_F(CaptureWithDevices, SeveralStreamsAreAnErrorThatNamesThem) {
  Write({{{1, 4}, 0, 0, false, 3}, {{1, 5}, 0, 0, false, 3}});
  EXPECT_EQ(Refusal(),
            path_ +
                ": more than one device may be the camera: 1.4 (unknown), 1.5 (unknown); "
                "choose one with --device BUS.DEVICE");
}

TEST_F(CaptureWithDevices, NoCameraIsAnErrorThatNamesTheDevices) {
  Write({{{1, 4}, 0x046D, 0xC52B}, {{1, 5}, 0, 0, false, 0, true}});
  EXPECT_EQ(Refusal(), path_ +
                           ": no camera in it; devices: 1.4 (046d:c52b), 1.5 (unknown); choose one "
                           "with --device BUS.DEVICE");
}

TEST_F(CaptureWithDevices, CaptureWithoutDevicesSaysSo) {
  Write({});
  EXPECT_EQ(Refusal(),
            path_ + ": no camera in it; devices: none; choose one with --device BUS.DEVICE");
  EXPECT_THAT(SurveyCapture(path_).Devices, IsEmpty());
}

TEST_F(CaptureWithDevices, UnknownDeviceIsAnErrorThatNamesTheDevices) {
  Write({{{1, 4}, 0x1AF0, 0x0511}});
  EXPECT_EQ(Refusal(DeviceAddress{1, 9}),
            path_ + ": no device 1.9 in it; devices: 1.4 (1af0:0511)");
}

TEST_F(CaptureWithDevices, MissingStreamIsAnErrorWhenItIsWanted) {
  Write({{{1, 4}, 0x1AF0, 0x0511}});
  const CaptureSource source{path_};
  EXPECT_EQ(ErrorOf([&] { static_cast<void>(source.StreamEndpoint()); }),
            path_ + ": device 1.4 sent no isochronous data; record it while the camera streams");
}

TEST_F(CaptureWithDevices, ForeignLinkTypeIsNamedWithTheOnesWanted) {
  WriteFile(path_, PcapImage{1}.Image());
  EXPECT_EQ(
      Refusal(),
      path_ + ": link type EN10MB is not USB traffic; usbmon (220) or USBPcap (249) is needed");
}

TEST_F(CaptureWithDevices, MalformedRecordIsNamedByItsNumber) {
  PcapImage image{220};
  image.Add(Hex("01 02 03"));
  WriteFile(path_, image.Image());
  EXPECT_EQ(Refusal(), path_ + ": record 1 is malformed: 3 bytes, but a usbmon header has 64");
}

TEST_F(CaptureWithDevices, ListTellsWhatIsKnownOfEach) {
  Write({{{1, 4}, 0x046D, 0xC52B, false, 0}, {{1, 5}, 0x1AF0, 0x0511, true, 10, true}});
  const std::vector<RecordedDevice> devices = SurveyCapture(path_).Devices;
  ASSERT_EQ(devices.size(), 2U);
  EXPECT_EQ(devices[1].ControlTransfers, 7U);
  EXPECT_EQ(devices[1].RegisterRequests, 2U);
  EXPECT_EQ(devices[1].SettingRequests, 1U);
  EXPECT_EQ(devices[1].Records, 16U);
  EXPECT_EQ(devices[1].Streams.at(0x82).Packets, 10U);
  EXPECT_EQ(devices[1].Streams.at(0x82).Bytes, 30U);
  EXPECT_EQ(Describe(devices[0]), "1.4 046d:c52b control=4 registers=0");
  EXPECT_EQ(Describe(devices[1]),
            "1.5 1af0:0511 camera control=7 registers=2 stream 0x82 packets=10 bytes=30");
  EXPECT_THAT(UnknownOf(devices[1]), IsEmpty());
}

TEST_F(CaptureWithDevices, StreamWithoutControlTrafficTellsWhatIsUnknown) {
  Write({{{1, 5}, 0, 0, false, 10}});
  const CaptureSource source{path_};
  EXPECT_THAT(UnknownOf(source.Device()), ElementsAre("identity", "sensor", "format"));
  EXPECT_EQ(Describe(source.Device()),
            "1.5 unknown control=0 registers=0 stream 0x82 packets=10 bytes=30 not recorded: "
            "identity, sensor, format");
  EXPECT_EQ(source.StreamEndpoint(), 0x82);
}

TEST_F(CaptureWithDevices, RequestsWithoutSelectionLeaveTheFormatUnknown) {
  Write({{{1, 5}, 0x1AF0, 0x0511, true, 0}});
  EXPECT_THAT(UnknownOf(CaptureSource{path_}.Device()), ElementsAre("format"));
}

TEST(CaptureSource, DeviceWithoutAddressIsNoDevice) {
  const TemporaryFolder folder;
  WriteCapture(folder, folder.Path("a.pcap"), {{{1, 0}, 0x1AF0, 0x0511}, {{1, 5}, 0x1AF0, 0x0511}});
  EXPECT_EQ(CaptureSource{folder.Path("a.pcap")}.Device().Address, (DeviceAddress{1, 5}));
}

TEST(CaptureSource, StreamIsTheEndpointWithTheMostData) {
  RecordedDevice device;
  EXPECT_EQ(device.StreamEndpoint(), std::nullopt);
  device.Streams[0x81] = {1000, 10, 0};
  device.Streams[0x82] = {10, 5000, 0};
  device.Streams[0x83] = {10, 5000, 0};
  EXPECT_EQ(device.StreamEndpoint(), 0x82);
}

class CameraIdentity : public testing::TestWithParam<UsbIdentity> {};

TEST_P(CameraIdentity, IsOneOfTheSeven) {
  EXPECT_TRUE(IsCameraIdentity(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(All, CameraIdentity,
                         testing::Values(UsbIdentity{0x1AF0, 0x0511}, UsbIdentity{0x1AF0, 0x6010},
                                         UsbIdentity{0x1AF0, 0x6011}, UsbIdentity{0x1B17, 0x6100},
                                         UsbIdentity{0x1B17, 0x6101}, UsbIdentity{0x1B17, 0x6110},
                                         UsbIdentity{0x1B17, 0x6111}));

TEST(CameraIdentityOfOthers, IsNone) {
  EXPECT_FALSE(IsCameraIdentity({0x1AF0, 0x6012}));
  EXPECT_FALSE(IsCameraIdentity({0x1B17, 0x0511}));
  EXPECT_FALSE(IsCameraIdentity({0x1B17, 0x6105}));
  EXPECT_FALSE(IsCameraIdentity({0x1AF0, 0x6100}));
}

/// A USBPcap capture typed by hand: device descriptor, a register read and two microframes.
PcapImage UsbpcapCapture() {
  PcapImage image{249};
  image.Add(
      Hex("1C 00  01 00 00 00 00 00 00 00  00 00 00 00  0B 00  00  02 00  07 00  80  02  08 00 00 "
          "00  00"
          "80 06 00 01 00 00 12 00"));
  image.Add(
      Hex("1C 00  01 00 00 00 00 00 00 00  00 00 00 00  08 00  01  02 00  07 00  80  02  12 00 00 "
          "00  03"
          "12 01 00 02 00 00 00 40 F0 1A 10 60 00 01 00 00 00 01"));
  image.Add(Hex(
      "3F 00  02 00 00 00 00 00 00 00  00 00 00 00  0A 00  01  02 00  07 00  82  00  0B 00 00 00"
      "E8 03 00 00  02 00 00 00  00 00 00 00"
      "00 00 00 00  04 00 00 00  00 00 00 00"
      "08 00 00 00  03 00 00 00  00 00 00 00"
      "FF D8 01 02 00 00 00 00 03 04 05"));
  return image;
}

TEST(CaptureSource, UsbpcapIsReadAsWell) {
  const TemporaryFolder folder;
  WriteFile(folder.Path("a.pcap"), UsbpcapCapture().Image());
  const CaptureSource source{folder.Path("a.pcap")};
  EXPECT_EQ(source.Device().Address, (DeviceAddress{2, 7}));
  EXPECT_EQ(source.Device().Identity, (UsbIdentity{0x1AF0, 0x6010}));
  EXPECT_EQ(source.Device().Streams.at(0x82), (RecordedStream{2, 7, 8000}));
}

/// The records of an image, cut to a length as by a capture program.
PcapImage CutTo(std::size_t snapLength, const std::vector<Bytes>& records) {
  PcapImage image{249};
  for (const Bytes& record : records) {
    const std::size_t kept = std::min(record.size(), snapLength);
    image.Add(std::span(record).first(kept), kept < record.size() ? record.size() : 0);
  }
  return image;
}

/// A transfer of one packet with 120 bytes after its header of 51.
Bytes UsbpcapTransfer() {
  Bytes record = Hex(
      "33 00  02 00 00 00 00 00 00 00  00 00 00 00  0A 00  01  02 00  07 00  82  00  78 00 00 00"
      "E8 03 00 00  01 00 00 00  00 00 00 00"
      "00 00 00 00  78 00 00 00  00 00 00 00");
  record.resize(record.size() + 120);
  return record;
}

TEST(CaptureSource, RecordsThatWereCutAreNamedWithTheRemedy) {
  const TemporaryFolder folder;
  WriteFile(folder.Path("a.pcap"), CutTo(100, {UsbpcapTransfer(), UsbpcapTransfer()}).Image());
  const CaptureSource source{folder.Path("a.pcap")};
  EXPECT_EQ(source.Device().CutRecords, 2U);
  EXPECT_EQ(source.Device().MissingBytes, 2U * 71U);
  EXPECT_THAT(
      source.Notes(),
      ElementsAre("the capture program cut 2 of 2 records of device 2.7 to 100 bytes, and 142 "
                  "bytes are missing; capture again with a snapshot length of 262144 (tcpdump "
                  "-s 262144, USBPcapCMD --snaplen 262144, in Wireshark the interface's "
                  "snapshot length)"));
}

// By default, the usual capture program of Windows keeps less of a record than one transfer of a
// camera.
TEST(CaptureSource, TheRemedyIsLongEnoughForTheLongestRecord) {
  const TemporaryFolder folder;
  PcapImage image{249};
  Bytes record = UsbpcapTransfer();
  image.Add(record, 300'051);
  WriteFile(folder.Path("a.pcap"), image.Image());
  EXPECT_THAT(CaptureSource{folder.Path("a.pcap")}.Notes(),
              ElementsAre(HasSubstr("with a snapshot length of 300051 (")));
}

TEST(CaptureSource, RecordsCutWithinTheirHeaderAreCountedAndTold) {
  const TemporaryFolder folder;
  WriteFile(folder.Path("a.pcap"), CutTo(20, {UsbpcapTransfer(), UsbpcapTransfer()}).Image());
  EXPECT_EQ(SurveyCapture(folder.Path("a.pcap")).UselessRecords, 2U);
  EXPECT_THAT(ErrorOf([&] { CaptureSource{folder.Path("a.pcap")}; }),
              HasSubstr("no camera in it; devices: none; choose one with --device BUS.DEVICE; the "
                        "capture program cut 2 records so short that they tell nothing; capture "
                        "again with a snapshot length of 262144"));
}

TEST(CaptureSource, WholeRecordsNeedNoNote) {
  const TemporaryFolder folder;
  WriteFile(folder.Path("a.pcap"), CutTo(1000, {UsbpcapTransfer()}).Image());
  EXPECT_THAT(CaptureSource{folder.Path("a.pcap")}.Notes(), IsEmpty());
}

TEST(CaptureSource, EndThatIsCutOffIsToldWithTheLastWholeRecord) {
  const TemporaryFolder folder;
  Bytes image = CutTo(1000, {UsbpcapTransfer(), UsbpcapTransfer()}).Image();
  image.pop_back();
  WriteFile(folder.Path("a.pcap"), image);
  const CaptureSource source{folder.Path("a.pcap")};
  EXPECT_EQ(source.Device().Records, 1U);
  EXPECT_THAT(source.Notes(),
              ElementsAre("the file is cut off behind record 1; it is used up to there"));
}

TEST(CaptureSource, PcapngIsReadAsWell) {
  if (!RunCommand("command -v editcap").Succeeded) GTEST_SKIP() << "no editcap here";
  const TemporaryFolder folder;
  WriteFile(folder.Path("a.pcap"), UsbpcapCapture().Image());
  ASSERT_TRUE(RunCommand("editcap -F pcapng " + folder.Path("a.pcap") + " " +
                         folder.Path("a.pcapng") + " 2>&1")
                  .Succeeded);
  EXPECT_EQ(CaptureSource{folder.Path("a.pcapng")}.Device().Identity,
            (UsbIdentity{0x1AF0, 0x6010}));
}

// The head of a descriptor, which hosts read first, ends before the identity.
TEST(CaptureSource, HeadOfADescriptorIdentifiesNoDevice) {
  const TemporaryFolder folder;
  ScriptedBus camera;
  camera.Say({0x80, 6, 0x0100, 0, 8}, {UsbStatus::Ok, Hex("12 01 00 02 00 00 00 40")});
  RecordingBus bus{camera, folder.Path("a.pcap")};
  std::array<std::uint8_t, 8> head{};
  bus.ControlTransfer({0x80, 6, 0x0100, 0, 8}, head);
  bus.Finish();
  EXPECT_EQ(SurveyCapture(folder.Path("a.pcap")).Devices.at(0).Identity, std::nullopt);
}

}  // namespace
}  // namespace lidcam::bus::test
