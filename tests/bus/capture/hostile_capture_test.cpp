#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <iterator>

#include "bus/capture/recording/recording_bus.h"
#include "bus/capture/replay/capture_bus.h"
#include "bus/capture/replay/capture_reader.h"
#include "bus/enumeration.h"
#include "tests/bus/capture/capture_support.h"

namespace lidcam::bus::test {
namespace {

/// The result of reading a capture: the records before its end or its error.
struct Outcome {
  std::size_t Records = 0;
  bool IsCutOff = false;
  std::string Error;
};

/// Reads a capture in all ways of the command line.
Outcome ReadAll(const std::string& path) {
  Outcome outcome;
  outcome.Error = ErrorOf([&] {
    CaptureReader reader{path};
    UsbRecord record;
    while (reader.Next(record)) {
      ++outcome.Records;
      for (const RecordedPacket& packet : record.Packets) {
        // Reads every byte, for the sanitizers.
        const auto data = PacketData(record, packet);
        static_cast<void>(Bytes(data.begin(), data.end()));
      }
    }
    outcome.IsCutOff = reader.IsCutOff();
  });
  static_cast<void>(ErrorOf([&] {
    for (const RecordedDevice& device : SurveyCapture(path).Devices) {
      static_cast<void>(Describe(device));
      CaptureBus bus{CaptureSource{path, device.Address}};
      Bytes buffer(64);
      std::array<IsochronousPacket, 4> packets{};
      for (int i = 0; i < 4; ++i) bus.ReadIsochronous(0x82, buffer, packets);
      ReadRegister(bus, 3, 0x0B);
    }
  }));
  return outcome;
}

Bytes UsbmonCapture(const TemporaryFolder& folder) {
  ScriptedBus camera;
  SayDescriptors(camera, 0x1AF0, 0x0511);
  camera.Packets = {
      {Hex("FF D8 01 02"), UsbStatus::Ok}, {{}, UsbStatus::Ok}, {Hex("03 04 05"), UsbStatus::Ok}};
  RecordingBus bus{camera, folder.Path("whole.pcap")};
  static_cast<void>(EnumerateDevice(bus));
  ReadRegister(bus, 3, 0x0B);
  Bytes buffer(24);
  std::array<IsochronousPacket, 3> packets{};
  bus.ReadIsochronous(0x82, buffer, packets);
  bus.Finish();
  return ReadFile(folder.Path("whole.pcap"));
}

Bytes WholeUsbpcapCapture() {
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
  return image.Image();
}

/// Begins of the records, found by the lengths in the file.
std::set<std::size_t> RecordBoundaries(const Bytes& image) {
  std::set<std::size_t> boundaries;
  std::size_t at = 24;
  while (at < image.size()) {
    boundaries.insert(at);
    at += 16U + image[at + 8] + image[at + 9] * 256U;
  }
  boundaries.insert(at);
  return boundaries;
}

void CutEverywhere(const Bytes& image) {
  constexpr std::size_t kFileHeader = 24;
  const TemporaryFolder folder;
  const std::string path = folder.Path("cut.pcap");
  const std::set<std::size_t> boundaries = RecordBoundaries(image);
  std::size_t whole = 0;
  for (std::size_t length = 0; length < image.size(); ++length) {
    WriteFile(path, std::span(image).first(length));
    const Outcome outcome = ReadAll(path);
    const bool atBoundary = boundaries.contains(length);
    if (atBoundary && length > kFileHeader) ++whole;
    EXPECT_EQ(outcome.Error.empty(), length >= kFileHeader) << length << " " << outcome.Error;
    EXPECT_EQ(outcome.IsCutOff, length >= kFileHeader && !atBoundary) << length;
    EXPECT_EQ(outcome.Records, whole) << length;
    EXPECT_EQ(outcome.Error.find('\n'), std::string::npos);
  }
}

TEST(HostileCapture, UsbmonCutAtAnyByteGivesTheWholeRecordsBefore) {
  const TemporaryFolder folder;
  CutEverywhere(UsbmonCapture(folder));
}

TEST(HostileCapture, UsbpcapCutAtAnyByteGivesTheWholeRecordsBefore) {
  CutEverywhere(WholeUsbpcapCapture());
}

/// Damages each byte in turn: the records before it are still read, and the rest is either read or
/// gives an error in one line.
void SpoilEverywhere(const Bytes& image) {
  constexpr std::array<std::uint8_t, 5> kValues{0x00, 0x01, 0x7F, 0x80, 0xFF};
  const TemporaryFolder folder;
  const std::string path = folder.Path("spoiled.pcap");
  const std::set<std::size_t> boundaries = RecordBoundaries(image);
  for (std::size_t at = 24; at < image.size(); ++at) {
    const auto before =
        static_cast<std::size_t>(std::distance(boundaries.begin(), boundaries.upper_bound(at)) - 1);
    for (const std::uint8_t value : kValues) {
      Bytes spoiled = image;
      spoiled[at] = value;
      WriteFile(path, spoiled);
      const Outcome outcome = ReadAll(path);
      EXPECT_GE(outcome.Records, before) << at;
      EXPECT_EQ(outcome.Error.find('\n'), std::string::npos) << outcome.Error;
    }
  }
}

TEST(HostileCapture, UsbmonWithAnyByteSpoiledIsSurvived) {
  const TemporaryFolder folder;
  SpoilEverywhere(UsbmonCapture(folder));
}

TEST(HostileCapture, UsbpcapWithAnyByteSpoiledIsSurvived) {
  SpoilEverywhere(WholeUsbpcapCapture());
}

}  // namespace
}  // namespace lidcam::bus::test
