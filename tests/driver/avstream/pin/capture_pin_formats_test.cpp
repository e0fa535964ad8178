#include "driver/avstream/pin/capture_pin_formats.h"

#include <gtest/gtest.h>

#include "tests/driver/avstream/support/surface_world.h"
#include "tests/driver/support/statuses.h"

namespace lidcam::test {
namespace {

constexpr auto kTooSmall = static_cast<NTSTATUS>(0xC0000023);
constexpr auto kOverflow = static_cast<NTSTATUS>(0x80000005);

// Offsets of fields in a format; in a range all fields behind the format's head lie 144 bytes
// later.
constexpr std::size_t kSpecifierAt = 48;
constexpr std::size_t kBiSizeAt = 64 + 48;
constexpr std::size_t kWidthAt = kBiSizeAt + 4;
constexpr std::size_t kHeightAt = kBiSizeAt + 8;
constexpr std::size_t kCompressionAt = kBiSizeAt + 16;
constexpr std::size_t kRangeShift = 144;

const KSDATARANGE& VgaRange() {
  return *CameraFormatList[0][0];
}

/// A client's range: a copy of one of the camera's ranges, cut to so many bytes.
ExactBlock MakeRange(std::size_t bytes = 296) {
  ExactBlock range(bytes, 0xCD);
  std::memcpy(range.Data(), &VgaRange(), bytes < 296 ? bytes : 296);
  range.Put(0, static_cast<ULONG>(bytes));
  return range;
}

NTSTATUS Check(ExactBlock format, const KSDATARANGE& range = VgaRange()) {
  return CheckVideoFormat(format.As<KSDATAFORMAT>(), range);
}

TEST(PinFormat, AFormatOfARangesSizeIsTaken) {
  EXPECT_EQ(Check(MakeFormat(640, 480)), STATUS_SUCCESS);
  EXPECT_EQ(Check(MakeFormat(160, 120), *CameraFormatList[0][4]), STATUS_SUCCESS);
}

TEST(PinFormat, AFormatOf800By600Against640By480GivesNoMatch) {
  EXPECT_EQ(Check(MakeFormat(800, 600)), kNoMatch);
}

TEST(PinFormat, WidthHeightAndCompressionEachHaveToMatch) {
  EXPECT_EQ(Check(MakeFormat(640, 480).Put(kWidthAt, 641)), kNoMatch);
  EXPECT_EQ(Check(MakeFormat(640, 480).Put(kHeightAt, 481)), kNoMatch);
  EXPECT_EQ(Check(MakeFormat(640, 480).Put(kHeightAt, static_cast<ULONG>(-480))), kNoMatch);
  EXPECT_EQ(Check(MakeFormat(640, 480).Put(kCompressionAt, 0x56595559)), kNoMatch);
}

TEST(PinFormat, AnotherKindOfHeaderGivesNoMatch) {
  for (std::size_t byte = 0; byte < 16; ++byte) {
    ExactBlock format = MakeFormat(640, 480);
    format.Data()[kSpecifierAt + byte] ^= 1;
    EXPECT_EQ(Check(std::move(format)), kNoMatch) << byte;
  }
}

TEST(PinFormat, WhateverElseIsInTheHeaderIsNotLookedAt) {
  ExactBlock format = MakeFormat(640, 480);
  format.As<KS_DATAFORMAT_VIDEOINFOHEADER>().VideoInfoHeader.AvgTimePerFrame = 0;
  format.As<KS_DATAFORMAT_VIDEOINFOHEADER>().VideoInfoHeader.bmiHeader.biSizeImage = 7;
  EXPECT_EQ(Check(std::move(format)), STATUS_SUCCESS);
}

TEST(PinFormat, FormatsBelow152BytesGiveNoMatchWhateverTheyHold) {
  for (ULONG size = 64; size < 152; ++size) {
    EXPECT_EQ(Check(MakeFormat(640, 480, 40, size)), kNoMatch) << size;
    EXPECT_EQ(Check(MakeFormat(640, 480, 0xFFFFFFFF, size)), kNoMatch) << size;
  }
  EXPECT_EQ(Check(MakeFormat(640, 480, 40, 152)), STATUS_SUCCESS);
}

TEST(PinFormat, AHeaderMayFillItsFormatButNotReachBeyond) {
  for (ULONG biSize = 0; biSize <= 40; ++biSize) {
    EXPECT_EQ(Check(MakeFormat(640, 480, biSize)), STATUS_SUCCESS) << biSize;
  }
  EXPECT_EQ(Check(MakeFormat(640, 480, 41)), kInvalid);
  EXPECT_EQ(Check(MakeFormat(640, 480, 41, 153)), STATUS_SUCCESS);
  EXPECT_EQ(Check(MakeFormat(640, 480, 42, 153)), kInvalid);
  EXPECT_EQ(Check(MakeFormat(640, 480, 1064, 1176)), STATUS_SUCCESS);
}

// biSize + 48, and that + 64, wrap from these on.
TEST(PinFormat, ASizeThatWrapsIsInvalid) {
  for (const ULONG biSize : {0xFFFFFFFFU, 0xFFFFFFD0U, 0xFFFFFFCFU, 0xFFFFFF90U, 0xFFFFFF8FU,
                             0x80000000U, 0x7FFFFFFFU}) {
    EXPECT_EQ(Check(MakeFormat(640, 480, biSize)), kInvalid) << biSize;
  }
}

TEST(PinFormat, TheChecksComeInOrder) {
  ExactBlock all = MakeFormat(800, 600, 0xFFFFFFFF, 151);
  all.Data()[kSpecifierAt] ^= 1;
  EXPECT_EQ(Check(all), kNoMatch);
  EXPECT_EQ(Check(MakeFormat(800, 600, 0xFFFFFFFF, 151)), kNoMatch);
  EXPECT_EQ(Check(MakeFormat(800, 600, 0xFFFFFFFF, 152)), kInvalid);
  EXPECT_EQ(Check(MakeFormat(800, 600, 40, 152)), kNoMatch);
}

// A format that is applied again is its own range: its header has a format's offset, also in one
// that is as long as a range.
TEST(PinFormat, AFormatAsItsOwnRangeMatchesItself) {
  for (const ULONG size : {152U, 295U, 296U, 400U}) {
    ExactBlock format = MakeFormat(480, 640, size - 112, size);
    const KSDATAFORMAT& own = format.As<KSDATAFORMAT>();
    EXPECT_EQ(CheckVideoFormat(own, own), STATUS_SUCCESS) << size;
  }
}

TEST(PinFormat, ARangeTooShortForARangesHeaderIsReadAsAFormat) {
  const ExactBlock format = MakeFormat(640, 480);
  ExactBlock same = MakeFormat(640, 480);
  EXPECT_EQ(Check(format, same.As<KSDATARANGE>()), STATUS_SUCCESS);
  ExactBlock other = MakeFormat(320, 240);
  EXPECT_EQ(Check(format, other.As<KSDATARANGE>()), kNoMatch);
  ExactBlock none = MakeFormat(640, 480, 40, 151);
  EXPECT_EQ(Check(format, none.As<KSDATARANGE>()), kNoMatch);
}

TEST(PinFormat, TheHeadersLengthIsWhatItTellsAndNeverMoreThanThereIs) {
  const auto bytes = [](ULONG biSize, ULONG size) {
    ExactBlock format = MakeFormat(640, 480, biSize, size);
    return VideoHeaderBytes(format.As<KSDATAFORMAT>());
  };
  EXPECT_EQ(bytes(40, 152), 88U);
  EXPECT_EQ(bytes(0, 152), 48U);
  EXPECT_EQ(bytes(39, 152), 87U);
  EXPECT_EQ(bytes(41, 152), 88U);
  EXPECT_EQ(bytes(0xFFFFFFFF, 152), 88U);
  EXPECT_EQ(bytes(0xFFFFFFD0, 152), 88U);
  EXPECT_EQ(bytes(300, 1000), 348U);
  EXPECT_EQ(bytes(40, 115), 51U) << "its own length is cut off";
  EXPECT_EQ(bytes(40, 64), 0U);
}

// ---- Intersection.

struct Intersection {
  NTSTATUS Status;
  ULONG DataSize;
  ExactBlock Data;
};

constexpr ULONG kUnset = 0xABCD;

Intersection Intersect(ExactBlock caller, ULONG bufferSize,
                       const KSDATARANGE& descriptor = VgaRange()) {
  Intersection result{0, kUnset, ExactBlock(bufferSize, 0xEE)};
  result.Status = kPinEntries.IntersectHandler(
      nullptr, nullptr, nullptr, &caller.As<KSDATARANGE>(), const_cast<PKSDATARANGE>(&descriptor),
      bufferSize, bufferSize != 0 ? result.Data.Data() : nullptr, &result.DataSize);
  return result;
}

TEST(PinIntersection, ABufferOfNothingIsToldBiSizePlus112) {
  const Intersection usual = Intersect(MakeRange(), 0);
  EXPECT_EQ(usual.Status, kOverflow);
  EXPECT_EQ(usual.DataSize, 152U);
  for (ULONG biSize = 0; biSize <= 40; ++biSize) {
    EXPECT_EQ(Intersect(MakeRange().Put(kBiSizeAt + kRangeShift, biSize), 0).DataSize,
              biSize + 112);
  }
}

TEST(PinIntersection, ABufferTooSmallIsToldNothing) {
  for (ULONG size = 1; size < 152; ++size) {
    const Intersection result = Intersect(MakeRange(), size);
    EXPECT_EQ(result.Status, kTooSmall);
    EXPECT_EQ(result.DataSize, kUnset);
    EXPECT_EQ(result.Data.Bytes(), std::vector<std::uint8_t>(size, 0xEE));
  }
}

TEST(PinIntersection, HeadFromTheCameraAndHeaderFromTheClient) {
  ExactBlock caller = MakeRange();
  caller.As<KS_DATARANGE_VIDEO>().VideoInfoHeader.AvgTimePerFrame = 666666;
  caller.As<KS_DATARANGE_VIDEO>().VideoInfoHeader.bmiHeader.biSizeImage = 1;
  caller.As<KS_DATARANGE_VIDEO>().DataRange.SampleSize = 2;
  caller.As<KS_DATARANGE_VIDEO>().DataRange.Flags = 3;
  Intersection result = Intersect(std::move(caller), 153);
  EXPECT_EQ(result.Status, STATUS_SUCCESS);
  EXPECT_EQ(result.DataSize, 152U);
  EXPECT_EQ(result.Data.Bytes()[152], 0xEE);
  const auto& format = result.Data.As<KS_DATAFORMAT_VIDEOINFOHEADER>();
  EXPECT_EQ(format.DataFormat.FormatSize, 152U);
  EXPECT_EQ(format.DataFormat.Flags, 0U);
  EXPECT_EQ(format.DataFormat.SampleSize, 614400U);
  EXPECT_EQ(std::memcmp(&format.DataFormat.MajorFormat, &VgaRange().MajorFormat, 48), 0);
  EXPECT_EQ(format.VideoInfoHeader.AvgTimePerFrame, 666666);
  EXPECT_EQ(format.VideoInfoHeader.bmiHeader.biSizeImage, 614400U);
  EXPECT_EQ(format.VideoInfoHeader.bmiHeader.biWidth, 640);
}

struct ImageRow {
  LONG Width;
  LONG Height;
  WORD Bits;
  ULONG Image;
};

// Lines are whole 32-bit words; 31 bits are added before the division by 8, not by 32.
TEST(PinIntersection, ImageSizes) {
  for (const ImageRow& row : {ImageRow{640, 480, 16, 614400},
                              {640, -480, 16, 614400},
                              {352, 288, 16, 202752},
                              {160, 120, 16, 38400},
                              {3, 2, 24, 24},
                              {1, 1, 8, 4},
                              {1, 1, 1, 4},
                              {0, 5, 16, 0},
                              {5, 3, 16, 36},
                              {4, 1, 16, 8},
                              {640, 480, 0, 0},
                              {-640, 480, 16, 0xFFF6A000}}) {
    ExactBlock caller = MakeRange();
    KS_BITMAPINFOHEADER& bitmap = caller.As<KS_DATARANGE_VIDEO>().VideoInfoHeader.bmiHeader;
    bitmap.biWidth = row.Width;
    bitmap.biHeight = row.Height;
    bitmap.biBitCount = row.Bits;
    Intersection result = Intersect(std::move(caller), 152);
    EXPECT_EQ(result.Status, STATUS_SUCCESS);
    EXPECT_EQ(result.Data.As<KSDATAFORMAT>().SampleSize, row.Image) << row.Width << " " << row.Bits;
    EXPECT_EQ(result.Data.Word(64 + 48 + 20), row.Image);
  }
}

// A field that a short header lacks counts as 0, and nothing is written behind the header.
TEST(PinIntersection, AShortHeaderHasNoFieldsBehindItsEnd) {
  for (ULONG biSize = 0; biSize < 40; ++biSize) {
    SCOPED_TRACE(biSize);
    const ULONG needed = biSize + 112;
    Intersection result = Intersect(MakeRange().Put(kBiSizeAt + kRangeShift, biSize), needed);
    ASSERT_EQ(result.Status, STATUS_SUCCESS);
    EXPECT_EQ(result.DataSize, needed);
    EXPECT_EQ(result.Data.As<KSDATAFORMAT>().FormatSize, needed);
    // The bit count, at 14 and 15, is the last of the three factors.
    EXPECT_EQ(result.Data.As<KSDATAFORMAT>().SampleSize, biSize >= 16 ? 614400U : 0U);
    if (biSize >= 24) {
      EXPECT_EQ(result.Data.Word(64 + 48 + 20), 614400U);
    }
  }
}

TEST(PinIntersection, ALongHeaderIsCopiedWhole) {
  ExactBlock caller = MakeRange(300);
  caller.Put(kBiSizeAt + kRangeShift, 44);
  caller.Put(296, 0x12345678);
  Intersection result = Intersect(std::move(caller), 156);
  EXPECT_EQ(result.Status, STATUS_SUCCESS);
  EXPECT_EQ(result.DataSize, 156U);
  EXPECT_EQ(result.Data.Word(152), 0x12345678U);
}

TEST(PinIntersection, RangesBelow296BytesGiveNoMatch) {
  for (const std::size_t size : {64U, 152U, 295U}) {
    EXPECT_EQ(Intersect(MakeRange(size), 0).Status, kNoMatch) << size;
  }
}

TEST(PinIntersection, AnotherKindOfHeaderGivesNoMatch) {
  ExactBlock caller = MakeRange();
  caller.Data()[kSpecifierAt + 15] ^= 0x80;
  EXPECT_EQ(Intersect(std::move(caller), 0).Status, kNoMatch);
}

// Fixed samples, temporal compression, description and allocation flags, and all of the capabilities.
TEST(PinIntersection, EveryByteOfStreamAndCapabilitiesHasToBeTheSame) {
  for (std::size_t at = 64; at < 64 + 16 + 128; ++at) {
    ExactBlock caller = MakeRange();
    caller.Data()[at] ^= 1;
    const Intersection result = Intersect(std::move(caller), 152);
    EXPECT_EQ(result.Status, kNoMatch) << at;
    EXPECT_EQ(result.DataSize, kUnset) << at;
  }
}

TEST(PinIntersection, HeadersThatReachBeyondTheirRangeAreInvalid) {
  for (const ULONG biSize :
       {41U, 0x7FFFFFFFU, 0xFFFFFEFFU, 0xFFFFFF00U, 0xFFFFFFCFU, 0xFFFFFFD0U, 0xFFFFFFFFU}) {
    EXPECT_EQ(Intersect(MakeRange().Put(kBiSizeAt + kRangeShift, biSize), 0).Status, kInvalid)
        << biSize;
  }
}

TEST(PinIntersection, TheChecksComeInOrder) {
  ExactBlock caller = MakeRange(295);
  caller.Put(64, 9).Put(80, 9).Put(kBiSizeAt + kRangeShift, 0xFFFFFFFF);
  EXPECT_EQ(Intersect(caller, 0).Status, kNoMatch);
  caller = MakeRange();
  caller.Put(64, 9).Put(80, 9).Put(kBiSizeAt + kRangeShift, 0xFFFFFFFF);
  EXPECT_EQ(Intersect(caller, 0).Status, kNoMatch);
  caller = MakeRange();
  caller.Put(80, 9).Put(kBiSizeAt + kRangeShift, 0xFFFFFFFF);
  EXPECT_EQ(Intersect(caller, 0).Status, kNoMatch);
  EXPECT_EQ(Intersect(MakeRange().Put(kBiSizeAt + kRangeShift, 41), 0).Status, kInvalid);
  EXPECT_EQ(Intersect(MakeRange(), 0).Status, kOverflow);
}

TEST(PinIntersection, EveryRangeOfTheCameraMeetsItself) {
  for (int i = 0; i < 5; ++i) {
    const KSDATARANGE& offered = *CameraFormatList[0][i];
    ExactBlock caller(296);
    std::memcpy(caller.Data(), &offered, 296);
    Intersection result = Intersect(std::move(caller), 152, offered);
    EXPECT_EQ(result.Status, STATUS_SUCCESS);
    EXPECT_EQ(CheckVideoFormat(result.Data.As<KSDATAFORMAT>(), offered), STATUS_SUCCESS);
    EXPECT_EQ(result.Data.As<KSDATAFORMAT>().SampleSize, offered.SampleSize);
  }
}

}  // namespace
}  // namespace lidcam::test
