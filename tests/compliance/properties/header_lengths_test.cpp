// Formats whose bitmap header is shorter than usual, or has bytes behind it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <vector>

#include "tests/compliance/support/compliance_world.h"
#include "tests/compliance/support/frame_rules.h"

namespace lidcam::compliance {
namespace {

using client::Block;
using client::Camera;
using client::Stream;
using client::VideoFormat;

constexpr std::size_t kBitmapInFormat = 112;

class HeaderLengths : public EveryCamera {};
LIDCAM_ON_EVERY_CAMERA(HeaderLengths);

/// Asks for the format that the camera makes of its first range with a bitmap header of this length.
Block RequestOfHeader(const Camera& camera, ULONG headerBytes) {
  struct {
    KSP_PIN Pin;
    KSMULTIPLE_ITEM Head;
    KS_DATARANGE_VIDEO Range;
  } asked{{}, {sizeof(KSMULTIPLE_ITEM) + sizeof(KS_DATARANGE_VIDEO), 1}, camera.Ranges()[0]};
  asked.Range.VideoInfoHeader.bmiHeader.biSize = headerBytes;
  asked.Range.VideoInfoHeader.bmiHeader.biSizeImage = 0x01020304;
  return Block(std::as_bytes(std::span(&asked, 1)));
}

Block FormatOfHeader(const Camera& camera, ULONG headerBytes) {
  Block format;
  EXPECT_EQ(camera.Properties().GetSized(KSPROPSETID_Pin, KSPROPERTY_PIN_DATAINTERSECTION,
                                         RequestOfHeader(camera, headerBytes), format),
            STATUS_SUCCESS);
  return format;
}

template <typename T>
T ValueAt(const Block& block, std::size_t offset) {
  T value{};
  EXPECT_LE(offset + sizeof(value), block.Size());
  if (offset + sizeof(value) <= block.Size())
    std::memcpy(&value, block.Data() + offset, sizeof(value));
  return value;
}

// A picture's bytes are those of its width, its height and its bits in a pixel, as far as the header contains them:
// the last byte of the bits is the sixteenth of the header.
TEST_P(HeaderLengths, DecideWhichFieldsAPicturesBytesAreMadeOf) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    for (const ULONG bytes : {4U, 8U, 12U, 14U, 15U, 16U, 17U, 23U, 24U, 40U}) {
      SCOPED_TRACE(bytes);
      const Block format = FormatOfHeader(camera, bytes);
      ASSERT_EQ(format.Size(), kBitmapInFormat + bytes);
      EXPECT_EQ(ValueAt<ULONG>(format, offsetof(KSDATAFORMAT, FormatSize)),
                kBitmapInFormat + bytes);
      EXPECT_EQ(ValueAt<ULONG>(format, offsetof(KSDATAFORMAT, SampleSize)),
                bytes < 16 ? 0U : 614400U);
    }
  });
}

// They are written into the header only if all four of their bytes are there.
TEST_P(HeaderLengths, DecideWhetherAHeaderTellsThePicturesBytes) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    constexpr std::size_t kSizeImage = kBitmapInFormat + offsetof(KS_BITMAPINFOHEADER, biSizeImage);
    EXPECT_EQ(ValueAt<ULONG>(FormatOfHeader(camera, 24), kSizeImage), 614400U);
    const Block without = FormatOfHeader(camera, 23);
    EXPECT_EQ(ValueAt<std::uint8_t>(without, kSizeImage), 0x04);
    EXPECT_EQ(ValueAt<USHORT>(without, kSizeImage + 1), 0x0203);
  });
}

TEST_P(HeaderLengths, AreNotCutToTheBufferOfAFormat) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Block request = RequestOfHeader(camera, 40);
    for (const std::size_t room : {151U, 64U, 1U}) {
      SCOPED_TRACE(room);
      Block format(room);
      ULONG_PTR information = 0;
      EXPECT_EQ(camera.Properties().Ask(KSPROPSETID_Pin, KSPROPERTY_PIN_DATAINTERSECTION,
                                        KSPROPERTY_TYPE_GET, request, format, information),
                STATUS_BUFFER_TOO_SMALL);
      EXPECT_TRUE(
          std::ranges::all_of(format.Bytes(), [](std::byte byte) { return byte == std::byte{}; }));
    }
  });
}

/// A format of 160x120 with eight bytes more than usual, of which its header takes some.
VideoFormat LongFormat(const Camera& camera, ULONG headerBytes) {
  VideoFormat usual = camera.FormatOf(160, 120);
  const std::size_t usualBytes = usual.Bytes().size();
  usual.Header().DataFormat.FormatSize = 160;
  Block bytes(usualBytes + 8);
  std::memcpy(bytes.Data(), usual.Bytes().data(), usualBytes);
  VideoFormat format(std::move(bytes));
  format.Header().VideoInfoHeader.bmiHeader.biSize = headerBytes;
  return format;
}

TEST_P(HeaderLengths, AreWhatAPinKeepsOfItsFormat) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    for (const ULONG header : {40U, 44U, 47U, 48U}) {
      SCOPED_TRACE(header);
      std::unique_ptr<Stream> stream;
      const std::vector<std::size_t> blocks = BlocksTakenBy(
          [&] { stream = std::make_unique<Stream>(camera, LongFormat(camera, header)); });
      EXPECT_THAT(blocks, ::testing::Contains(48 + header));
      EXPECT_THAT(blocks, ::testing::Not(::testing::Contains(48 + header + 1)));
      FrameRules rules(38400, 333333, false);
      stream->Run();
      EXPECT_EQ(TakeFrames(*stream, 2, rules), STATUS_SUCCESS);
    }
  });
}

}  // namespace
}  // namespace lidcam::compliance
