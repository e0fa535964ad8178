// A client's formats and blocks.

#include "platform/host/client/video_format.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <span>
#include <string>

#include "platform/host/client/client_error.h"

namespace lidcam::client {
namespace {

Block FormatBlock(ULONG formatSize, std::size_t bytes) {
  KS_DATAFORMAT_VIDEOINFOHEADER format{};
  format.DataFormat.FormatSize = formatSize;
  format.VideoInfoHeader.AvgTimePerFrame = 333333;
  format.VideoInfoHeader.bmiHeader.biWidth = 320;
  format.VideoInfoHeader.bmiHeader.biHeight = -240;
  format.VideoInfoHeader.bmiHeader.biSizeImage = 153600;
  Block block(bytes);
  const auto all = std::as_bytes(std::span(&format, 1));
  std::copy_n(all.begin(), std::min(bytes, all.size()), block.Data());
  return block;
}

TEST(VideoFormat, TellsItsPicture) {
  const VideoFormat format(FormatBlock(152, 152));
  EXPECT_EQ(format.Width(), 320);
  EXPECT_EQ(format.Height(), -240);
  EXPECT_EQ(format.ImageBytes(), 153600U);
  EXPECT_EQ(format.FrameInterval(), 333333);
  EXPECT_EQ(format.Bytes().size(), 152U);
}

TEST(VideoFormat, KeepsWhatFollowsItsHeaderAndDropsWhatFollowsItself) {
  EXPECT_EQ(VideoFormat(FormatBlock(160, 200)).Bytes().size(), 160U);
}

TEST(VideoFormat, IsNotMadeOfTooFewBytes) {
  for (const auto& [size, bytes] :
       {std::pair{152U, 151U}, {151U, 152U}, {153U, 152U}, {152U, 0U}}) {
    try {
      const VideoFormat format(FormatBlock(size, bytes));
      ADD_FAILURE() << size << " of " << bytes;
    } catch (const ClientError& error) {
      EXPECT_EQ(error.Status(), STATUS_INVALID_BUFFER_SIZE);
    }
  }
}

TEST(VideoFormat, IsACopyOfItsOwn) {
  const VideoFormat format(FormatBlock(152, 152));
  VideoFormat other = format;
  other.Header().VideoInfoHeader.bmiHeader.biWidth = 160;
  EXPECT_EQ(format.Width(), 320);
  EXPECT_EQ(other.Width(), 160);
}

TEST(ClientBlock, BeginsWithZerosAtAMultipleOfEight) {
  for (const std::size_t bytes : {1U, 7U, 8U, 9U, 40U}) {
    const Block block(bytes);
    EXPECT_EQ(block.Size(), bytes);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block.Data()) % 8, 0U);
    for (const std::byte value : block.Bytes()) EXPECT_EQ(value, std::byte{0});
  }
}

TEST(ClientBlock, IsNeverLengthenedByShorten) {
  Block block(16);
  block.Shorten(20);
  EXPECT_EQ(block.Size(), 16U);
  block.Shorten(5);
  EXPECT_EQ(block.Size(), 5U);
}

TEST(ClientError, NamesWhatWasWantedAndTheStatus) {
  const ClientError error("run a stream", STATUS_SHARING_VIOLATION);
  EXPECT_STREQ(error.what(),
               "the camera's driver can't run a stream: status C0000043 (something else uses it)");
  EXPECT_EQ(error.Status(), static_cast<NTSTATUS>(0xC0000043));
}

TEST(ClientError, IsThrownForNoSuccessOnly) {
  EXPECT_NO_THROW(Check(STATUS_SUCCESS, "work"));
  EXPECT_NO_THROW(Check(STATUS_PENDING, "work"));
  EXPECT_THROW(Check(STATUS_UNSUCCESSFUL, "work"), ClientError);
  EXPECT_THROW(Check(STATUS_BUFFER_OVERFLOW, "work"), ClientError);
}

}  // namespace
}  // namespace lidcam::client
