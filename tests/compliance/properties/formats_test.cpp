// Each picture size as offered and delivered, and requests for other sizes.

#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "platform/host/client/client_error.h"
#include "tests/compliance/support/compliance_world.h"
#include "tests/compliance/support/frame_rules.h"

namespace lidcam::compliance {
namespace {

using client::Camera;
using client::Stream;
using client::VideoFormat;

struct Size {
  std::int32_t Width;
  std::int32_t Height;
  std::uint32_t Bytes;
  std::uint32_t MinimumRate;
  std::uint32_t MaximumRate;
  std::uint32_t Rate;
};

constexpr Size kSizes[] = {
    {640, 480, 614400, 4915200, 491520000, 147456000},
    {352, 288, 202752, 1622016, 162201600, 48660480},
    {320, 240, 153600, 1228800, 122880000, 36864000},
    {176, 144, 50688, 405504, 40550400, 12165120},
    {160, 120, 38400, 307200, 30720000, 9216000},
};

// The identifiers by which clients recognise the camera's pictures, typed again.
constexpr ULONG kYuy2 = 0x32595559;
constexpr GUID kVideo = {
    0x73646976, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
constexpr GUID kYuy2Pictures = {
    0x32595559, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
constexpr GUID kVideoInfo = {
    0x05589F80, 0xC356, 0x11CE, {0xBF, 0x01, 0x00, 0xAA, 0x00, 0x55, 0x59, 0x5A}};
constexpr GUID kVideoInfo2 = {
    0xF72A76A0, 0xEB0A, 0x11D0, {0xAC, 0xE4, 0x00, 0x00, 0xC0, 0xCC, 0x16, 0xBA}};
constexpr GUID kRgb24Pictures = {
    0xE436EB7D, 0x524F, 0x11CE, {0x9F, 0x53, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};

class FormatOfSize : public ::testing::TestWithParam<std::tuple<CameraKind, Size>> {};

TEST_P(FormatOfSize, IsDeliveredInWholeSanePictures) {
  const auto& [kind, size] = GetParam();
  RunOn(kind, [&size = size](Host& host) {
    const Camera camera = host.Open();
    const VideoFormat format = camera.FormatOf(size.Width, size.Height);
    EXPECT_EQ(format.Header().DataFormat.FormatSize, 152U);
    EXPECT_EQ(format.Header().DataFormat.SampleSize, size.Bytes);
    EXPECT_EQ(format.ImageBytes(), size.Bytes);
    Stream stream(camera, format);
    stream.UseClock();
    FrameRules rules(size.Bytes, 333333, true);
    stream.Run();
    for (int i = 0; i < 6; ++i) {
      const client::NextFrame next = stream.Next(kFrameWait);
      ASSERT_EQ(next.Status, STATUS_SUCCESS);
      rules.Take(*next.Picture);
      ExpectSanePicture(next.Picture->Bytes(), size.Width);
    }
  });
}

INSTANTIATE_TEST_SUITE_P(, FormatOfSize,
                         ::testing::Combine(::testing::Values(CameraKind::Simulated,
                                                              CameraKind::Recorded,
                                                              CameraKind::Disturbed),
                                            ::testing::ValuesIn(kSizes)),
                         [](const auto& test) {
                           const Size& size = std::get<1>(test.param);
                           return NameOf(std::get<0>(test.param)) + std::to_string(size.Width) +
                                  "x" + std::to_string(size.Height);
                         });

void ExpectRange(const KS_DATARANGE_VIDEO& range, const Size& size) {
  EXPECT_EQ(range.DataRange.FormatSize, 296U);
  EXPECT_EQ(range.DataRange.Flags, 0U);
  EXPECT_EQ(range.DataRange.SampleSize, size.Bytes);
  EXPECT_TRUE(IsSame(range.DataRange.MajorFormat, kVideo));
  EXPECT_TRUE(IsSame(range.DataRange.SubFormat, kYuy2Pictures));
  EXPECT_TRUE(IsSame(range.DataRange.Specifier, kVideoInfo));
  EXPECT_EQ(range.bFixedSizeSamples, 1);
  EXPECT_EQ(range.bTemporalCompression, 1);
  EXPECT_EQ(range.StreamDescriptionFlags, 2U);
  EXPECT_EQ(range.MemoryAllocationFlags, 0U);
  const KS_VIDEO_STREAM_CONFIG_CAPS& caps = range.ConfigCaps;
  EXPECT_TRUE(IsSame(caps.guid, kVideoInfo));
  EXPECT_EQ(caps.MinFrameInterval, 100000);
  EXPECT_EQ(caps.MaxFrameInterval, 10000000);
  EXPECT_EQ(caps.InputSize.cx, size.Width);
  EXPECT_EQ(caps.MaxOutputSize.cy, size.Height);
  EXPECT_EQ(caps.MinBitsPerSecond, static_cast<LONG>(size.MinimumRate));
  EXPECT_EQ(caps.MaxBitsPerSecond, static_cast<LONG>(size.MaximumRate));
  const KS_VIDEOINFOHEADER& info = range.VideoInfoHeader;
  EXPECT_EQ(info.dwBitRate, size.Rate);
  EXPECT_EQ(info.AvgTimePerFrame, 333333);
  EXPECT_EQ(info.bmiHeader.biSize, 40U);
  EXPECT_EQ(info.bmiHeader.biWidth, size.Width);
  EXPECT_EQ(info.bmiHeader.biHeight, size.Height);
  EXPECT_EQ(info.bmiHeader.biPlanes, 1);
  EXPECT_EQ(info.bmiHeader.biBitCount, 16);
  EXPECT_EQ(info.bmiHeader.biCompression, kYuy2);
  EXPECT_EQ(info.bmiHeader.biSizeImage, size.Bytes);
}

class Formats : public EveryCamera {};
LIDCAM_ON_EVERY_CAMERA(Formats);

TEST_P(Formats, AreFiveOfOneKindTheLargestFirst) {
  Run([](Host& host) {
    const std::vector<KS_DATARANGE_VIDEO> ranges = host.Open().Ranges();
    ASSERT_EQ(ranges.size(), 5U);
    for (std::size_t i = 0; i < 5; ++i) {
      SCOPED_TRACE(i);
      ExpectRange(ranges[i], kSizes[i]);
    }
  });
}

struct Change {
  const char* Name;
  void (*Make)(KS_DATAFORMAT_VIDEOINFOHEADER& format);
  NTSTATUS Status;
};

KS_BITMAPINFOHEADER& Bitmap(KS_DATAFORMAT_VIDEOINFOHEADER& format) {
  return format.VideoInfoHeader.bmiHeader;
}

constexpr Change kRefusedFormats[] = {
    {"Of800By600",
     [](auto& format) {
       Bitmap(format).biWidth = 800;
       Bitmap(format).biHeight = 600;
     },
     STATUS_NO_MATCH},
    {"Of640By481", [](auto& format) { Bitmap(format).biHeight = 481; }, STATUS_NO_MATCH},
    {"UpsideDown", [](auto& format) { Bitmap(format).biHeight = -480; }, STATUS_NO_MATCH},
    {"OfAnotherCompression", [](auto& format) { Bitmap(format).biCompression = 0x30323449; },
     STATUS_NO_MATCH},
    {"OfRgbPictures", [](auto& format) { format.DataFormat.SubFormat = kRgb24Pictures; },
     STATUS_NO_MATCH},
    {"OfAnotherSpecifier", [](auto& format) { format.DataFormat.Specifier = kVideoInfo2; },
     STATUS_NO_MATCH},
    {"Of151Bytes", [](auto& format) { format.DataFormat.FormatSize = 151; }, STATUS_NO_MATCH},
    {"WithAHeaderThatWraps", [](auto& format) { Bitmap(format).biSize = 0xFFFFFFF0; },
     STATUS_INVALID_PARAMETER},
    {"WithAHeaderThatWrapsWithTheFormat", [](auto& format) { Bitmap(format).biSize = 0xFFFFFFA0; },
     STATUS_INVALID_PARAMETER},
    {"WithAHeaderBeyondItsEnd", [](auto& format) { Bitmap(format).biSize = 41; },
     STATUS_INVALID_PARAMETER},
};

class RefusedFormat : public ::testing::TestWithParam<std::tuple<CameraKind, Change>> {};

TEST_P(RefusedFormat, ConnectsNoStream) {
  const auto& [kind, change] = GetParam();
  RunOn(kind, [&change = change](Host& host) {
    const Camera camera = host.Open();
    VideoFormat format = camera.FormatOf(640, 480);
    const VideoFormat good = format;
    change.Make(format.Header());
    EXPECT_EQ(StatusOf([&] { Stream stream(camera, format); }), change.Status);
    EXPECT_EQ(StatusOf([&] { Stream stream(camera, good); }), STATUS_SUCCESS);
  });
}

TEST_P(RefusedFormat, LeavesAStoppedStreamItsOldOneWhichStillStreams) {
  const auto& [kind, change] = GetParam();
  RunOn(kind, [&change = change](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    VideoFormat format = camera.FormatOf(640, 480);
    change.Make(format.Header());
    EXPECT_EQ(stream.SetFormat(format), change.Status);
    EXPECT_EQ(stream.Format().Width(), 160);
    EXPECT_EQ(stream.Framing().FramingItem[0].FramingRange.Range.MinFrameSize, 38400U);
    FrameRules rules(38400, 333333, false);
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 3, rules), STATUS_SUCCESS);
  });
}

INSTANTIATE_TEST_SUITE_P(, RefusedFormat,
                         ::testing::Combine(::testing::Values(CameraKind::Simulated,
                                                              CameraKind::Recorded,
                                                              CameraKind::Disturbed),
                                            ::testing::ValuesIn(kRefusedFormats)),
                         [](const auto& test) {
                           return NameOf(std::get<0>(test.param)) + std::get<1>(test.param).Name;
                         });

struct RangeChange {
  const char* Name;
  void (*Make)(KS_DATARANGE_VIDEO& range);
  NTSTATUS Status;
};

constexpr RangeChange kRefusedRanges[] = {
    {"of another specifier", [](auto& range) { range.DataRange.Specifier = kVideoInfo2; },
     STATUS_NO_MATCH},
    {"of 295 bytes", [](auto& range) { range.DataRange.FormatSize = 295; }, STATUS_NO_MATCH},
    {"of variable samples", [](auto& range) { range.bFixedSizeSamples = 0; }, STATUS_NO_MATCH},
    {"not compressed in time", [](auto& range) { range.bTemporalCompression = 0; },
     STATUS_NO_MATCH},
    {"of another kind of stream", [](auto& range) { range.StreamDescriptionFlags = 3; },
     STATUS_NO_MATCH},
    {"of other memory", [](auto& range) { range.MemoryAllocationFlags = 1; }, STATUS_NO_MATCH},
    {"of 800x600",
     [](auto& range) {
       range.ConfigCaps.InputSize = {800, 600};
       range.ConfigCaps.MaxOutputSize = {800, 600};
     },
     STATUS_NO_MATCH},
    {"of a slower slowest rate", [](auto& range) { range.ConfigCaps.MaxFrameInterval += 1; },
     STATUS_NO_MATCH},
    {"with a header that wraps",
     [](auto& range) { range.VideoInfoHeader.bmiHeader.biSize = 0xFFFFFFF0; },
     STATUS_INVALID_PARAMETER},
    {"with a header that wraps with the range",
     [](auto& range) { range.VideoInfoHeader.bmiHeader.biSize = 0xFFFFFF20; },
     STATUS_INVALID_PARAMETER},
    {"with a header beyond its end",
     [](auto& range) { range.VideoInfoHeader.bmiHeader.biSize = 41; }, STATUS_INVALID_PARAMETER},
};

TEST_P(Formats, AreNotMadeOfARangeThatIsNotTheCamerasOwn) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    for (const RangeChange& change : kRefusedRanges) {
      SCOPED_TRACE(change.Name);
      KS_DATARANGE_VIDEO range = camera.Ranges()[0];
      change.Make(range);
      EXPECT_EQ(StatusOf([&] { static_cast<void>(camera.Intersect(range)); }), change.Status);
    }
  });
}

TEST_P(Formats, TakeTheRestOfTheirHeaderFromTheCaller) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    KS_DATARANGE_VIDEO range = camera.Ranges()[2];
    range.VideoInfoHeader.AvgTimePerFrame = 1234567;
    range.VideoInfoHeader.dwBitRate = 42;
    const VideoFormat format = camera.Intersect(range);
    EXPECT_EQ(format.FrameInterval(), 1234567);
    EXPECT_EQ(format.Header().VideoInfoHeader.dwBitRate, 42U);
    EXPECT_EQ(format.Header().DataFormat.SampleSize, 153600U);
  });
}

TEST_P(Formats, HaveTheBytesOfAPictureWhicheverWayItStands) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    KS_DATARANGE_VIDEO range = camera.Ranges()[0];
    range.VideoInfoHeader.bmiHeader.biHeight = -480;
    range.VideoInfoHeader.bmiHeader.biSizeImage = 7;
    const VideoFormat format = camera.Intersect(range);
    EXPECT_EQ(format.ImageBytes(), 614400U);
    EXPECT_EQ(format.Header().DataFormat.SampleSize, 614400U);
  });
}

TEST_P(Formats, StampTheIntervalThatTheClientAskedFor) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    for (const LONGLONG interval : {333333LL, 1000000LL, 50000LL}) {
      SCOPED_TRACE(interval);
      Stream stream(camera, camera.FormatOf(160, 120, interval));
      stream.UseClock();
      FrameRules rules(38400, interval, true);
      stream.Run();
      EXPECT_EQ(TakeFrames(stream, 4, rules), STATUS_SUCCESS);
    }
  });
}

}  // namespace
}  // namespace lidcam::compliance
