#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "driver/avstream/descriptors/filter_descriptors.h"
#include "driver/avstream/properties/frame_rates.h"
#include "driver/usb/requests/usb_configuration.h"
#include "tests/driver/avstream/descriptors/guid_text.h"
#include "tests/driver/core/control/bring_up_world.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

struct FormatRow {
  int Position;
  std::uint32_t Width;
  std::uint32_t Height;
  std::uint32_t ImageSize;
  std::uint32_t MinBitsPerSecond;
  std::uint32_t MaxBitsPerSecond;
  std::uint32_t BitRate;
};

constexpr FormatRow kRows[] = {
    {0, 640, 480, 614400, 4915200, 491520000, 147456000},
    {1, 352, 288, 202752, 1622016, 162201600, 48660480},
    {2, 320, 240, 153600, 1228800, 122880000, 36864000},
    {3, 176, 144, 50688, 405504, 40550400, 12165120},
    {4, 160, 120, 38400, 307200, 30720000, 9216000},
};

const KS_DATARANGE_VIDEO& RecordAt(int list, int position) {
  return *reinterpret_cast<const KS_DATARANGE_VIDEO*>(CameraFormatList[list][position]);
}

// All 296 bytes, the gap in front of the frame intervals included.
std::array<std::uint32_t, 74> WordsOf(const KS_DATARANGE_VIDEO& record) {
  std::array<std::uint32_t, 74> words{};
  static_assert(sizeof(words) == 296 && sizeof(record) == 296);
  std::memcpy(words.data(), &record, sizeof(words));
  return words;
}

// The record as it lies in memory, a line for each group of fields.
std::array<std::uint32_t, 74> WordsOf(const FormatRow& row) {
  const std::uint32_t w = row.Width;
  const std::uint32_t h = row.Height;
  return {
      296,
      0,
      row.ImageSize,
      0,  // size, flags, sample size, reserved
      0x73646976,
      0x00100000,
      0xAA000080,
      0x719B3800,  // video
      0x32595559,
      0x00100000,
      0xAA000080,
      0x719B3800,  // YUY2
      0x05589F80,
      0x11CEC356,
      0xAA0001BF,
      0x5A595500,  // video info
      1,
      1,
      2,
      0,  // fixed, temporal, capture, allocation
      0x05589F80,
      0x11CEC356,
      0xAA0001BF,
      0x5A595500,  // video info
      0,           // video standard
      w,
      h,
      w,
      h,
      w,
      h,  // input, least and most cropping
      1,
      1,
      1,
      1,  // cropping: granularity, alignment
      w,
      h,
      w,
      h,  // least and most output
      1,
      1,  // output: granularity
      0,
      0,
      0,
      0,  // taps
      0,  // gap
      100000,
      0,
      10000000,
      0,  // frame intervals
      row.MinBitsPerSecond,
      row.MaxBitsPerSecond,  //
      0,
      0,
      0,
      0,
      0,
      0,
      0,
      0,  // source and target rectangle
      row.BitRate,
      0,
      333333,
      0,  // bit rate, error rate, frame time
      40,
      w,
      h,
      0x00100001,  // bitmap header: size, planes and bits
      0x32595559,
      row.ImageSize,
      0,
      0,
      0,
      0,  // "YUY2", image size, the rest
  };
}

class FilterFormats : public testing::TestWithParam<FormatRow> {};

TEST_P(FilterFormats, EveryFieldOfAFormatStandsAsTabled) {
  const FormatRow& row = GetParam();
  const KS_DATARANGE_VIDEO& record = RecordAt(0, row.Position);
  const auto width = static_cast<LONG>(row.Width);
  const auto height = static_cast<LONG>(row.Height);

  EXPECT_EQ(record.DataRange.FormatSize, 296U);
  EXPECT_EQ(record.DataRange.Flags, 0U);
  EXPECT_EQ(record.DataRange.SampleSize, row.ImageSize);
  EXPECT_EQ(record.DataRange.Reserved, 0U);
  EXPECT_EQ(Text(record.DataRange.MajorFormat), "73646976-0000-0010-8000-00AA00389B71");
  EXPECT_EQ(Text(record.DataRange.SubFormat), "32595559-0000-0010-8000-00AA00389B71");
  EXPECT_EQ(Text(record.DataRange.Specifier), "05589F80-C356-11CE-BF01-00AA0055595A");
  EXPECT_EQ(record.bFixedSizeSamples, 1);
  EXPECT_EQ(record.StreamDescriptionFlags, 2U);
  EXPECT_EQ(record.MemoryAllocationFlags, 0U);

  const KS_VIDEO_STREAM_CONFIG_CAPS& caps = record.ConfigCaps;
  EXPECT_EQ(Text(caps.guid), "05589F80-C356-11CE-BF01-00AA0055595A");
  EXPECT_EQ(caps.VideoStandard, 0U);
  for (const SIZE& size : {caps.InputSize, caps.MinCroppingSize, caps.MaxCroppingSize,
                           caps.MinOutputSize, caps.MaxOutputSize}) {
    EXPECT_EQ(size.cx, width);
    EXPECT_EQ(size.cy, height);
  }
  EXPECT_THAT((std::array{caps.CropGranularityX, caps.CropGranularityY, caps.CropAlignX,
                          caps.CropAlignY, caps.OutputGranularityX, caps.OutputGranularityY}),
              ElementsAre(1, 1, 1, 1, 1, 1));
  EXPECT_THAT(
      (std::array{caps.StretchTapsX, caps.StretchTapsY, caps.ShrinkTapsX, caps.ShrinkTapsY}),
      ElementsAre(0, 0, 0, 0));
  EXPECT_EQ(caps.MinFrameInterval, 100000);
  EXPECT_EQ(caps.MaxFrameInterval, 10000000);
  EXPECT_EQ(static_cast<std::uint32_t>(caps.MinBitsPerSecond), row.MinBitsPerSecond);
  EXPECT_EQ(static_cast<std::uint32_t>(caps.MaxBitsPerSecond), row.MaxBitsPerSecond);

  const KS_VIDEOINFOHEADER& header = record.VideoInfoHeader;
  for (const RECT& area : {header.rcSource, header.rcTarget}) {
    EXPECT_THAT((std::array{area.left, area.top, area.right, area.bottom}),
                ElementsAre(0, 0, 0, 0));
  }
  EXPECT_EQ(header.dwBitRate, row.BitRate);
  EXPECT_EQ(header.dwBitErrorRate, 0U);
  EXPECT_EQ(header.AvgTimePerFrame, 333333);
  EXPECT_EQ(header.bmiHeader.biSize, 40U);
  EXPECT_EQ(header.bmiHeader.biWidth, width);
  EXPECT_EQ(header.bmiHeader.biHeight, height);
  EXPECT_EQ(header.bmiHeader.biPlanes, 1);
  EXPECT_EQ(header.bmiHeader.biBitCount, 16);
  EXPECT_EQ(std::memcmp(&header.bmiHeader.biCompression, "YUY2", 4), 0);
  EXPECT_EQ(header.bmiHeader.biSizeImage, row.ImageSize);
  EXPECT_EQ(header.bmiHeader.biXPelsPerMeter, 0);
  EXPECT_EQ(header.bmiHeader.biYPelsPerMeter, 0);
  EXPECT_EQ(header.bmiHeader.biClrUsed, 0U);
  EXPECT_EQ(header.bmiHeader.biClrImportant, 0U);
}

// The intersection compares the bytes of these records, so every byte matters.
TEST_P(FilterFormats, EveryByteOfAFormatStandsAsTabled) {
  EXPECT_THAT(WordsOf(RecordAt(0, GetParam().Position)), ElementsAreArray(WordsOf(GetParam())));
}

TEST_P(FilterFormats, AFormatClaimsTemporalCompressionThoughTheStreamHasNone) {
  EXPECT_EQ(RecordAt(0, GetParam().Position).bTemporalCompression, 1);
}

TEST_P(FilterFormats, BitRatesAreThoseOfOneThirtyAndAHundredFramesASecond) {
  const FormatRow& row = GetParam();
  const KS_DATARANGE_VIDEO& record = RecordAt(0, row.Position);
  const std::uint64_t bits = std::uint64_t{row.Width} * row.Height * 16;
  EXPECT_EQ(static_cast<std::uint64_t>(record.ConfigCaps.MinBitsPerSecond), bits);
  EXPECT_EQ(static_cast<std::uint64_t>(record.VideoInfoHeader.dwBitRate), bits * 30);
  EXPECT_EQ(static_cast<std::uint64_t>(record.ConfigCaps.MaxBitsPerSecond), bits * 100);
}

INSTANTIATE_TEST_SUITE_P(AllFive, FilterFormats, testing::ValuesIn(kRows),
                         [](const testing::TestParamInfo<FormatRow>& row) {
                           return std::to_string(row.param.Width) + "x" +
                                  std::to_string(row.param.Height);
                         });

TEST(FilterFormatLists, TheFirstListHasSeventeenPlacesOfWhichFiveAreFilled) {
  for (int place = 0; place < 5; ++place) EXPECT_NE(CameraFormatList[0][place], nullptr) << place;
  for (int place = 5; place < 17; ++place) EXPECT_EQ(CameraFormatList[0][place], nullptr) << place;
}

TEST(FilterFormatLists, EveryFormatIsARecordOfItsOwn) {
  std::set<const void*> records;
  for (int place = 0; place < 5; ++place) records.insert(CameraFormatList[0][place]);
  EXPECT_EQ(records.size(), 5U);
}

TEST(FilterFormatLists, TheSecondListIsWellFormedWithVgaAlone) {
  ASSERT_NE(CameraFormatList[1][0], nullptr);
  EXPECT_THAT(WordsOf(RecordAt(1, 0)), ElementsAreArray(WordsOf(kRows[0])));
}

struct CameraRow {
  const char* Name;
  bool IsVga0708;
  std::uint32_t LongConfig;
};

class CreatedCamera : public testing::TestWithParam<CameraRow> {
 protected:
  // The pin of a camera of this kind after its creation.
  void SetUp() override {
    if (GetParam().IsVga0708) world_.BeVga0708();
    camera_ = world_.Create(GetParam().LongConfig);
    ASSERT_NE(camera_, nullptr);
    StoreCapabilities(usbDevice_, world_.Capabilities);
    FillPinDescriptor({}, usbDevice_.FormatListIndex, usbDevice_.FormatCount, Pin);
  }

  KSPIN_DESCRIPTOR_EX Pin{};

 private:
  BringUpWorld world_;
  CameraPointer camera_;
  UsbDeviceRecord usbDevice_{};
};

TEST_P(CreatedCamera, AClientListingThePinsRangesSeesFiveTheFirstVgaAndAllYuy2) {
  ASSERT_EQ(Pin.PinDescriptor.DataRangesCount, 5U);
  std::vector<std::pair<LONG, LONG>> sizes;
  for (ULONG i = 0; i < Pin.PinDescriptor.DataRangesCount; ++i) {
    const auto* range =
        reinterpret_cast<const KS_DATARANGE_VIDEO*>(Pin.PinDescriptor.DataRanges[i]);
    EXPECT_EQ(Text(range->DataRange.SubFormat), "32595559-0000-0010-8000-00AA00389B71") << i;
    sizes.emplace_back(range->VideoInfoHeader.bmiHeader.biWidth,
                       range->VideoInfoHeader.bmiHeader.biHeight);
  }
  EXPECT_THAT(sizes, ElementsAre(std::pair{640, 480}, std::pair{352, 288}, std::pair{320, 240},
                                 std::pair{176, 144}, std::pair{160, 120}));
}

TEST_P(CreatedCamera, TheSecondListIsNotSelectedByTheCamerasCreation) {
  EXPECT_EQ(Pin.PinDescriptor.DataRanges, CameraFormatList[0]);
  EXPECT_NE(Pin.PinDescriptor.DataRanges, CameraFormatList[1]);
}

INSTANTIATE_TEST_SUITE_P(Kinds, CreatedCamera,
                         testing::Values(CameraRow{"UnknownShort", false, 0},
                                         CameraRow{"UnknownLong", false, 1},
                                         CameraRow{"Vga0708Short", true, 0},
                                         CameraRow{"Vga0708Long", true, 1}),
                         [](const auto& row) { return row.param.Name; });

// The list's null entries reach the platform then. No camera's creation selects it.
TEST(FilterFormatLists, AnUnknownChoiceOfListWouldOfferSeventeenPlacesTwelveOfThemEmpty) {
  CameraCapabilities unknown{};
  unknown.FormatListIndex = 2;
  unknown.FormatCount = 5;
  UsbDeviceRecord device{};
  StoreCapabilities(device, unknown);
  KSPIN_DESCRIPTOR_EX pin{};
  FillPinDescriptor({}, device.FormatListIndex, device.FormatCount, pin);
  EXPECT_EQ(pin.PinDescriptor.DataRangesCount, 17U);
  int empty = 0;
  for (ULONG i = 0; i < pin.PinDescriptor.DataRangesCount; ++i) {
    if (pin.PinDescriptor.DataRanges[i] == nullptr) ++empty;
  }
  EXPECT_EQ(empty, 12);
}

TEST(FrameRateLists, NarrowPicturesHaveSevenIntervalsAndWideOnesFour) {
  EXPECT_THAT(FrameRatesSmall,
              ElementsAre(1000000, 833333, 666666, 555555, 500000, 400000, 333333));
  EXPECT_THAT(FrameRatesLarge, ElementsAre(1666666, 1000000, 833333, 666666));
  static_assert(sizeof(FrameRatesSmall) == 56 && sizeof(FrameRatesLarge) == 32);
}

}  // namespace
}  // namespace lidcam::test
