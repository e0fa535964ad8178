#include "bus/capture/files/capture_input.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <thread>

#include "bus/capture/files/capture_error.h"
#include "bus/capture/files/pcap_file.h"
#include "tests/bus/capture/capture_support.h"
#include "tests/driver/support/file_size_limit.h"

namespace lidcam::bus::test {
namespace {

using lidcam::test::FileSizeLimit;
using testing::HasSubstr;

/// Reads a capture's whole stream.
Bytes Read(CaptureInput& input) {
  const StreamHandle stream = input.TakeStream();
  Bytes bytes;
  std::array<std::uint8_t, 1000> block{};
  for (std::size_t got = 0; (got = std::fread(block.data(), 1, block.size(), stream.get())) != 0;) {
    bytes.insert(bytes.end(), block.begin(), block.begin() + static_cast<std::ptrdiff_t>(got));
  }
  return bytes;
}

/// Bytes that can be compressed a little.
Bytes SomeBytes(std::size_t count) {
  Bytes bytes(count);
  std::uint32_t state = 1;
  for (std::uint8_t& byte : bytes) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<std::uint8_t>(state >> 28);
  }
  return bytes;
}

TEST(CaptureInput, GivesAFileAsItIs) {
  const TemporaryFolder folder;
  const Bytes content = SomeBytes(300'000);
  WriteFile(folder.Path("a"), content);
  CaptureInput input{folder.Path("a")};
  EXPECT_TRUE(Read(input) == content);
  EXPECT_FALSE(input.IsCut());
}

struct Form {
  const char* Name;
  const char* Program;  ///< that compresses to standard output
};

class CompressedCapture : public testing::TestWithParam<Form> {
 protected:
  void SetUp() override {
    const std::string program = GetParam().Program;
    const std::string name = program.substr(0, program.find(' '));
    if (!RunCommand("command -v " + name).Succeeded) GTEST_SKIP() << "no " << name << " here";
    WriteFile(folder_.Path("plain"), content_);
    ASSERT_TRUE(RunCommand(program + " " + folder_.Path("plain") + " >" + path_).Succeeded);
    compressed_ = ReadFile(path_);
    ASSERT_LT(compressed_.size(), content_.size());
  }

  TemporaryFolder folder_;
  const Bytes content_ = SomeBytes(300'000);
  const std::string path_ = folder_.Path("a");  // the file's suffix does not matter
  Bytes compressed_;
};

TEST_P(CompressedCapture, IsDecompressed) {
  CaptureInput input{path_};
  EXPECT_TRUE(Read(input) == content_);
  EXPECT_FALSE(input.IsCut());
  EXPECT_EQ(input.Damage(), "");
}

TEST_P(CompressedCapture, OfWhichTheEndIsMissingGivesItsBeginAndTellsIt) {
  compressed_.resize(compressed_.size() * 3 / 4);
  WriteFile(path_, compressed_);
  CaptureInput input{path_};
  const Bytes begin = Read(input);
  EXPECT_TRUE(input.IsCut());
  EXPECT_EQ(input.Damage(), "");
  EXPECT_LT(begin.size(), content_.size());
  EXPECT_TRUE(std::equal(begin.begin(), begin.end(), content_.begin()));
}

TEST_P(CompressedCapture, CutAnywhereIsSurvived) {
  for (std::size_t length = 1; length < compressed_.size(); length += 1 + length / 7) {
    WriteFile(path_, std::span(compressed_).first(length));
    CaptureInput input{path_};
    const Bytes begin = Read(input);
    // Data too short to be recognised as compressed are returned unchanged.
    if (length > kCompressionMarkSize) {
      EXPECT_TRUE(input.IsCut()) << length;
      EXPECT_LT(begin.size(), content_.size()) << length;
    }
  }
}

TEST_P(CompressedCapture, OfNothingIsEmpty) {
  WriteFile(folder_.Path("plain"), {});
  ASSERT_TRUE(
      RunCommand(std::string(GetParam().Program) + " " + folder_.Path("plain") + " >" + path_)
          .Succeeded);
  CaptureInput input{path_};
  EXPECT_EQ(Read(input).size(), 0U);
  EXPECT_EQ(input.Damage(), "");
}

INSTANTIATE_TEST_SUITE_P(Forms, CompressedCapture,
                         testing::Values(Form{"Gzip", "gzip -c"}, Form{"Xz", "xz -c -0"},
                                         Form{"Zstandard", "zstd -c -q"}),
                         [](const auto& tested) { return std::string(tested.param.Name); });

// Each block of these formats has a check sum, so that damage is detected.
TEST(DamagedCapture, IsNamedWithTheReason) {
  if (!RunCommand("command -v xz").Succeeded) GTEST_SKIP() << "no xz here";
  const TemporaryFolder folder;
  PcapWriter writer{folder.Path("a.pcap"), kLinkTypeUsbmon};
  for (int i = 0; i < 100; ++i) writer.Write(i, SomeBytes(2000 + static_cast<std::size_t>(i)));
  writer.Close();
  ASSERT_TRUE(RunCommand("xz -0 -k " + folder.Path("a.pcap")).Succeeded);
  const std::string path = folder.Path("a.pcap.xz");
  Bytes bytes = ReadFile(path);
  bytes[bytes.size() / 2] ^= 0x55;
  WriteFile(path, bytes);
  EXPECT_THAT(ErrorOf([&] {
                PcapReader reader{path};
                PcapPacket packet;
                while (reader.Next(packet)) {
                }
              }),
              testing::AllOf(HasSubstr(path + ": "),
                             HasSubstr("(Lzma library error: Corrupted input data)")));
}

TEST(CaptureFromAPipe, CanBeReadMoreThanOnce) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const Bytes content = SomeBytes(300'000);
  std::thread writer([&] { WriteFile(path, content); });
  CaptureInput first{path};
  writer.join();
  CaptureInput second{path};
  EXPECT_TRUE(Read(first) == content);
  EXPECT_TRUE(Read(second) == content);
}

TEST(CaptureFromAPipe, WithoutAByteIsAnEmptyFile) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  std::thread writer([&] { WriteFile(path, {}); });
  EXPECT_THAT(ErrorOf([&] { CaptureInput{path}; }), HasSubstr(path + ": the file is empty"));
  writer.join();
}

TEST(CaptureFromAPipe, ForWhichThereIsNoRoomIsToldSo) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  setenv("TMPDIR", folder.Path("").c_str(), 1);
  const auto handler = std::signal(SIGPIPE, SIG_IGN);  // the pipe is closed before its end
  std::thread writer([&] { WriteFile(path, SomeBytes(300'000)); });
  std::string error;
  {
    const FileSizeLimit limit(1000);
    error = ErrorOf([&] { CaptureInput{path}; });
  }
  writer.join();
  std::signal(SIGPIPE, handler);
  unsetenv("TMPDIR");
  EXPECT_THAT(error, HasSubstr("no room for a copy of it in the folder of temporary files: "));
  EXPECT_THAT(folder.Names(), testing::ElementsAre("pipe")) << "no temporary file is left";
}

TEST(CaptureName, OfADashIsStandardInput) {
  EXPECT_EQ(CaptureName("-"), "standard input");
  EXPECT_EQ(CaptureName("./-"), "./-");
}

}  // namespace
}  // namespace lidcam::bus::test
