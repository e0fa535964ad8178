#include "bus/capture/files/pcap_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tests/bus/capture/capture_support.h"

namespace lidcam::bus::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

constexpr std::int64_t kTime = 1'000'123'456;

TEST(PcapFile, IsWrittenByteForByteAsTheFormatSays) {
  const TemporaryFolder folder;
  const Bytes record = Hex("01 02 03 04 05");
  PcapWriter writer{folder.Path("a.pcap"), kLinkTypeUsbmon};
  writer.Write(kTime, record);
  writer.Close();
  PcapImage image{220};
  image.Add(record);
  EXPECT_EQ(ReadFile(folder.Path("a.pcap")), image.Image());
}

TEST(PcapFile, RecordsComeBackAsTheyWereWritten) {
  const TemporaryFolder folder;
  PcapWriter writer{folder.Path("a.pcap"), kLinkTypeUsbpcap};
  writer.Write(kTime, Hex("01 02 03"));
  writer.Write(kTime + 1, {});
  writer.Close();
  PcapReader reader{folder.Path("a.pcap")};
  EXPECT_EQ(reader.LinkType(), 249);
  PcapPacket packet;
  ASSERT_TRUE(reader.Next(packet));
  EXPECT_THAT(packet.Bytes, ElementsAre(1, 2, 3));
  EXPECT_EQ(packet.TimeMicroseconds, kTime);
  EXPECT_EQ(reader.RecordNumber(), 1U);
  ASSERT_TRUE(reader.Next(packet));
  EXPECT_THAT(packet.Bytes, IsEmpty());
  EXPECT_FALSE(reader.Next(packet));
  EXPECT_EQ(reader.RecordNumber(), 2U);
}

TEST(PcapFile, CutRecordTellsItsOriginalLength) {
  const TemporaryFolder folder;
  PcapImage image{220};
  image.Add(Hex("01 02"), 500);
  WriteFile(folder.Path("a.pcap"), image.Image());
  PcapReader reader{folder.Path("a.pcap")};
  PcapPacket packet;
  ASSERT_TRUE(reader.Next(packet));
  EXPECT_EQ(packet.Bytes.size(), 2U);
  EXPECT_EQ(packet.OriginalLength, 500U);
}

TEST(PcapFile, DoesNotStandUnderItsNameBeforeItIsWhole) {
  const TemporaryFolder folder;
  PcapWriter writer{folder.Path("a.pcap"), kLinkTypeUsbmon};
  writer.Write(kTime, Hex("01"));
  EXPECT_FALSE(std::filesystem::exists(folder.Path("a.pcap")));
  EXPECT_EQ(folder.Names().size(), 1U);
  writer.Close();
  EXPECT_THAT(folder.Names(), ElementsAre("a.pcap"));
}

TEST(PcapFile, AbandonedLeavesTheOldFileAndNothingElse) {
  const TemporaryFolder folder;
  const Bytes old = Hex("AA BB");
  WriteFile(folder.Path("a.pcap"), old);
  {
    PcapWriter writer{folder.Path("a.pcap"), kLinkTypeUsbmon};
    writer.Write(kTime, Hex("01"));
  }
  EXPECT_THAT(folder.Names(), ElementsAre("a.pcap"));
  EXPECT_EQ(ReadFile(folder.Path("a.pcap")), old);
}

TEST(PcapFile, TwoWritersOfOneNameDoNotMix) {
  const TemporaryFolder folder;
  PcapWriter first{folder.Path("a.pcap"), kLinkTypeUsbmon};
  PcapWriter second{folder.Path("a.pcap"), kLinkTypeUsbmon};
  first.Write(kTime, Hex("01"));
  second.Write(kTime, Hex("02"));
  first.Close();
  second.Close();
  EXPECT_THAT(folder.Names(), ElementsAre("a.pcap"));
  PcapImage image{220};
  image.Add(Hex("02"));
  EXPECT_EQ(ReadFile(folder.Path("a.pcap")), image.Image());
}

TEST(PcapFile, ReplacesTheTargetOfALinkAndNotTheLink) {
  const TemporaryFolder folder;
  WriteFile(folder.Path("real.pcap"), Hex("AA"));
  std::filesystem::create_symlink(folder.Path("real.pcap"), folder.Path("link.pcap"));
  PcapWriter writer{folder.Path("link.pcap"), kLinkTypeUsbmon};
  writer.Close();
  EXPECT_TRUE(std::filesystem::is_symlink(folder.Path("link.pcap")));
  EXPECT_EQ(ReadFile(folder.Path("real.pcap")), PcapImage{220}.Image());
}

TEST(PcapFile, FullDeviceIsReportedWithItsName) {
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full here";
  PcapWriter writer{"/dev/full", kLinkTypeUsbmon};
  EXPECT_EQ(ErrorOf([&] { writer.Close(); }),
            "/dev/full: can't write the capture: No space left on device");
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/full"));
}

TEST(PcapFile, FullDeviceIsReportedByTheWriteThatMeetsIt) {
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full here";
  PcapWriter writer{"/dev/full", kLinkTypeUsbmon};
  EXPECT_EQ(ErrorOf([&] { writer.Write(kTime, Bytes(100'000)); }),
            "/dev/full: can't write the capture: No space left on device");
  EXPECT_EQ(ErrorOf([&] { writer.Write(kTime, Hex("01")); }), "/dev/full: the capture is closed");
}

TEST(PcapFile, DiskThatFillsUpLeavesTheOldFileAndNothingElse) {
  const TemporaryFolder folder;
  const Bytes old = Hex("AA BB");
  WriteFile(folder.Path("a.pcap"), old);
  std::string error;
  {
    const FileSizeLimit limit{10'000};
    PcapWriter writer{folder.Path("a.pcap"), kLinkTypeUsbmon};
    error = ErrorOf([&] {
      for (int i = 0; i < 100; ++i) writer.Write(kTime, Bytes(1000));
      writer.Close();
    });
  }
  EXPECT_EQ(error, folder.Path("a.pcap") + ": can't write the capture: File too large");
  EXPECT_THAT(folder.Names(), ElementsAre("a.pcap"));
  EXPECT_EQ(ReadFile(folder.Path("a.pcap")), old);
}

TEST(PcapFile, DiskThatIsFullAtTheLastByteIsReportedAtTheClose) {
  const TemporaryFolder folder;
  std::string error;
  {
    const FileSizeLimit limit{30};
    PcapWriter writer{folder.Path("a.pcap"), kLinkTypeUsbmon};
    writer.Write(kTime, Hex("01"));  // stays in the buffer
    error = ErrorOf([&] { writer.Close(); });
  }
  EXPECT_EQ(error, folder.Path("a.pcap") + ": can't write the capture: File too large");
  EXPECT_THAT(folder.Names(), IsEmpty());
}

TEST(PcapFile, MissingFolderIsReportedWithTheName) {
  EXPECT_EQ(ErrorOf([] {
              PcapWriter{"/nowhere/a.pcap", kLinkTypeUsbmon};
            }),
            "/nowhere/a.pcap: can't write the capture: No such file or directory");
}

TEST(PcapFile, OfADiskThatFillsUpTheWholeRecordsAreKept) {
  const TemporaryFolder folder;
  {
    const FileSizeLimit limit{10'000};
    PcapWriter writer{folder.Path("a.pcap"), kLinkTypeUsbmon};
    EXPECT_NE(ErrorOf([&] {
                for (int i = 0; i < 100; ++i) writer.Write(kTime, Bytes(1000));
                writer.Close();
              }),
              "");
    writer.KeepWhole();
  }
  EXPECT_THAT(folder.Names(), ElementsAre("a.pcap"));
  PcapImage image{220};
  // Nine of 1016 bytes fit behind the file's header of 24.
  for (int i = 0; i < 9; ++i) image.Add(Bytes(1000));
  EXPECT_EQ(ReadFile(folder.Path("a.pcap")), image.Image());
}

TEST(PcapFile, OfADiskWithoutRoomForARecordTheOldFileIsKept) {
  const TemporaryFolder folder;
  const Bytes old = Hex("AA BB");
  WriteFile(folder.Path("a.pcap"), old);
  {
    const FileSizeLimit limit{30};
    PcapWriter writer{folder.Path("a.pcap"), kLinkTypeUsbmon};
    writer.Write(kTime, Hex("01"));
    EXPECT_NE(ErrorOf([&] { writer.Close(); }), "");
    writer.KeepWhole();
  }
  EXPECT_THAT(folder.Names(), ElementsAre("a.pcap"));
  EXPECT_EQ(ReadFile(folder.Path("a.pcap")), old);
}

TEST(PcapFile, FolderInThePlaceOfTheFileIsReportedAheadOfTheFirstRecord) {
  const TemporaryFolder folder;
  std::filesystem::create_directory(folder.Path("a.pcap"));
  EXPECT_EQ(ErrorOf([&] {
              PcapWriter{folder.Path("a.pcap"), kLinkTypeUsbmon};
            }),
            folder.Path("a.pcap") + ": can't write the capture: Is a directory");
  EXPECT_THAT(folder.Names(), ElementsAre("a.pcap"));
}

// A folder of the same name is created during the capture.
TEST(PcapFile, WhatCannotHaveItsNameIsKeptBesideIt) {
  const TemporaryFolder folder;
  PcapWriter writer{folder.Path("a.pcap"), kLinkTypeUsbmon};
  writer.Write(kTime, Hex("01"));
  std::filesystem::create_directory(folder.Path("a.pcap"));
  EXPECT_NE(ErrorOf([&] { writer.Close(); }), "");
  EXPECT_THAT(
      ErrorOf([&] { writer.KeepWhole(); }),
      AllOf(StartsWith(folder.Path("a.pcap") +
                       ": can't be kept under its name: Is a directory; what was captured is in " +
                       folder.Path(".a.pcap.")),
            EndsWith(".part")));
  EXPECT_EQ(folder.Names().size(), 2U);
}

TEST(PcapFile, RecordBeyondTheLimitOfTheToolsIsRefused) {
  const TemporaryFolder folder;
  PcapWriter writer{folder.Path("a.pcap"), kLinkTypeUsbmon};
  writer.Write(kTime, Bytes(262144));
  EXPECT_EQ(ErrorOf([&] { writer.Write(kTime, Bytes(262145)); }),
            folder.Path("a.pcap") + ": a record of 262145 bytes; the largest has 262144");
}

TEST(PcapFile, SecondCloseIsAnError) {
  const TemporaryFolder folder;
  PcapWriter writer{folder.Path("a.pcap"), kLinkTypeUsbmon};
  writer.Close();
  EXPECT_EQ(ErrorOf([&] { writer.Close(); }), folder.Path("a.pcap") + ": the capture is closed");
}

constexpr const char* kWanted = "; a USB capture in pcap or pcapng format is needed";

TEST(PcapFile, EveryUnreadableInputIsNamedWithTheReason) {
  const TemporaryFolder folder;
  const auto refusal = [](const std::string& path) { return ErrorOf([&] { PcapReader{path}; }); };
  const std::string path = folder.Path("a.pcap");
  EXPECT_EQ(refusal(path), path + ": No such file or directory" + kWanted);
  WriteFile(path, {});
  EXPECT_EQ(refusal(path), path + ": the file is empty" + kWanted);
  WriteFile(path, Hex("FF D8 FF E0 00 10 4A 46 49 46 00 01 01 01 00 60 00 60 00 00 FF DB 00 43"));
  EXPECT_EQ(refusal(path), path + ": not a capture file (unknown file format)" + kWanted);
  WriteFile(path, Hex("D4 C3 B2 A1 02 00 04 00"));
  EXPECT_EQ(refusal(path), path + ": cut off within the file header" + kWanted);
  const std::string directory = folder.Path("folder");
  std::filesystem::create_directory(directory);
  EXPECT_EQ(refusal(directory), directory + ": is a directory" + kWanted);
}

TEST(PcapFile, CutOffWithinARecordEndsBehindTheOneBefore) {
  const TemporaryFolder folder;
  PcapImage image{220};
  image.Add(Hex("01 02 03"));
  image.Add(Hex("04 05 06"));
  Bytes bytes = image.Image();
  bytes.pop_back();
  WriteFile(folder.Path("a.pcap"), bytes);
  PcapReader reader{folder.Path("a.pcap")};
  PcapPacket packet;
  ASSERT_TRUE(reader.Next(packet));
  EXPECT_FALSE(reader.IsCutOff());
  EXPECT_FALSE(reader.Next(packet));
  EXPECT_TRUE(reader.IsCutOff());
  EXPECT_EQ(reader.RecordNumber(), 1U);
}

TEST(PcapFile, WholeIsNotCutOff) {
  const TemporaryFolder folder;
  PcapImage image{220};
  image.Add(Hex("01 02 03"));
  WriteFile(folder.Path("a.pcap"), image.Image());
  PcapReader reader{folder.Path("a.pcap")};
  PcapPacket packet;
  ASSERT_TRUE(reader.Next(packet));
  EXPECT_FALSE(reader.Next(packet));
  EXPECT_FALSE(reader.IsCutOff());
}

TEST(CaptureTime, RefusesWhatNoClockGives) {
  EXPECT_EQ(CaptureTime(1, 999'999), 1'999'999);
  EXPECT_EQ(ErrorOf([] { static_cast<void>(CaptureTime(1, 1'000'000)); }),
            "time stamp of 1 s and 1000000 us");
  EXPECT_EQ(ErrorOf([] { static_cast<void>(CaptureTime(-1, 0)); }), "time stamp of -1 s and 0 us");
}

}  // namespace
}  // namespace lidcam::bus::test
