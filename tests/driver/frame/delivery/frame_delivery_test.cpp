#include "driver/frame/delivery/frame_delivery.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "driver/core/record/camera_context.h"
#include "driver/frame/resampler/image_resampler.h"
#include "tests/driver/support/trace_lines.h"

namespace lidcam {
namespace {

constexpr Time100ns kInterval = 333333;
constexpr Time100ns kLatest = std::numeric_limits<Time100ns>::max();

TEST(FrameStamp, AClockThatStandsStillGivesTimesAnIntervalApart) {
  Time100ns last = 0;
  std::vector<Time100ns> times;
  for (std::int64_t counter = 2; counter < 5; ++counter) {
    const FrameStamp stamp = StampFrame(counter, 1000, last, kInterval);
    EXPECT_EQ(stamp.LastTime, stamp.Time);
    times.push_back(stamp.Time);
    last = stamp.LastTime;
  }
  EXPECT_EQ(times, (std::vector<Time100ns>{1000, 334333, 667666}));
}

TEST(FrameStamp, AClockTimeEqualToTheLastCountsAsNotLater) {
  EXPECT_EQ(StampFrame(3, 5000, 5000, kInterval).Time, 338333);
}

TEST(FrameStamp, AClockTimeOneUnitLaterIsTakenAsItIs) {
  EXPECT_EQ(StampFrame(3, 5001, 5000, kInterval).Time, 5001);
}

TEST(FrameStamp, AClockThatStepsBackGivesTheLastTimePlusAnInterval) {
  EXPECT_EQ(StampFrame(7, 100, 900000, kInterval).Time, 1233333);
}

TEST(FrameStamp, TheFirstFrameTakesTheClockEvenIfItIsNotLater) {
  EXPECT_EQ(StampFrame(2, 100, 900000, kInterval).Time, 100);
}

TEST(FrameStamp, CountersBelowTwoAreNoFirstFrame) {
  for (const std::int64_t counter : {0, 1}) {
    EXPECT_EQ(StampFrame(counter, 100, 900000, kInterval).Time, 1233333) << counter;
    EXPECT_EQ(StampFrame(counter, 900000, 900000, kInterval).Time, 1233333) << counter;
    EXPECT_EQ(StampFrame(counter, 900001, 900000, kInterval).Time, 900001) << counter;
  }
}

TEST(FrameStamp, AfterAPauseTheFirstFrameGoesThroughTheRisingRule) {
  EXPECT_EQ(StampFrame(40, 20 * kInterval, 39 * kInterval, kInterval).Time, 40 * kInterval);
}

struct CountRow {
  std::int64_t Counter;
  Time100ns ClockTime;
  std::int64_t DropCount;
  std::int64_t PictureNumber;
};

class DropCounts : public ::testing::TestWithParam<CountRow> {};

TEST_P(DropCounts, TellHowFarDeliveryLagsBehindTheStreamTime) {
  const CountRow& row = GetParam();
  const FrameStamp stamp = StampFrame(row.Counter, row.ClockTime, 0, kInterval);
  EXPECT_EQ(stamp.DropCount, row.DropCount);
  EXPECT_EQ(stamp.PictureNumber, row.PictureNumber);
}

INSTANTIATE_TEST_SUITE_P(ATimeBelowTheIntervalDropsNothing, DropCounts,
                         ::testing::Values(CountRow{2, 333332, 0, 2}, CountRow{3, 1, 0, 3},
                                           CountRow{2, -5, 0, 2}));
INSTANTIATE_TEST_SUITE_P(QuotientAgainstCounter, DropCounts,
                         ::testing::Values(CountRow{4, 3333330, 6, 10}, CountRow{4, 3333329, 5, 9},
                                           CountRow{10, 3333330, 0, 10},
                                           CountRow{12, 3333330, 0, 12}, CountRow{2, 333333, 0, 2},
                                           CountRow{0, 333333, 1, 1}, CountRow{2, 999999, 1, 3}));

TEST(FrameStamp, AnIntervalOfZeroDropsNothing) {
  const FrameStamp stamp = StampFrame(5, 7000, 6000, 0);
  EXPECT_EQ(stamp.Time, 7000);
  EXPECT_EQ(stamp.DropCount, 0);
  EXPECT_EQ(stamp.PictureNumber, 5);
}

TEST(FrameStamp, IntervalsThatNoCameraHasStayDefined) {
  EXPECT_EQ(StampFrame(3, 0, kLatest, 1).Time, std::numeric_limits<Time100ns>::min());
  EXPECT_EQ(StampFrame(3, kLatest, 0, -1).DropCount, 0);
  EXPECT_EQ(StampFrame(3, kLatest, 0, -1).PictureNumber, 3);
}

TEST(FrameStamp, CountersThatNoStreamReachesStayDefined) {
  constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
  struct Row {
    std::int64_t Counter;
    std::int64_t DropCount;
    std::int64_t PictureNumber;
  };
  // A lag beyond 63 bits wraps below 0, which counts as 0.
  for (const Row& row : {Row{kLeast, 0, kLeast}, Row{-1, 0, -1}, Row{-2, 0, -2},
                         Row{0, kLatest, kLatest}, Row{kLatest, 0, kLatest}}) {
    const FrameStamp stamp = StampFrame(row.Counter, kLatest, 0, 1);
    EXPECT_EQ(stamp.DropCount, row.DropCount) << row.Counter;
    EXPECT_EQ(stamp.PictureNumber, row.PictureNumber) << row.Counter;
  }
  EXPECT_EQ(StampFrame(-5, 999999, 0, kInterval).DropCount, 8);
  EXPECT_EQ(StampFrame(-5, 999999, 0, kInterval).PictureNumber, 3);
}

struct NativeRow {
  std::uint32_t RawSizeMode;
  std::int32_t Width;
  std::int32_t Height;
};

constexpr NativeRow kNativeRows[] = {{1, 640, 480}, {2, 320, 240}, {4, 160, 120}};

constexpr std::uint8_t kUntouched = 0xA5;

/// A raw frame and a destination with room behind it that must stay as it is.
class Delivery {
 public:
  Delivery(std::uint32_t rawSizeMode, std::int32_t width, std::int32_t height)
      : raw_(64 + 640 * 480 * 2 + 2), destination_(800 * 600 * 2 + 64, kUntouched) {
    context_.RawSizeMode = rawSizeMode;
    context_.RequestedWidth = width;
    context_.RequestedHeight = height;
    context_.RequestedCompression = kFourccYuy2;
    for (std::size_t i = 0; i < raw_.size(); ++i) raw_[i] = static_cast<std::uint8_t>(i * 7 / 3);
  }

  Status Deliver() {
    return DeliverFrame(context_, destination_.data(), 0, raw_.data(), 0, bytes_);
  }

  [[nodiscard]] bool HasPixels(std::size_t count) const {
    return std::equal(destination_.begin(), destination_.begin() + static_cast<long>(count),
                      raw_.begin() + 64);
  }

  [[nodiscard]] bool IsUntouchedFrom(std::size_t offset) const {
    return std::all_of(destination_.begin() + static_cast<long>(offset), destination_.end(),
                       [](std::uint8_t byte) { return byte == kUntouched; });
  }

  CameraContext& Context() { return context_; }
  [[nodiscard]] std::uint32_t Bytes() const { return bytes_; }
  std::uint8_t* Raw() { return raw_.data(); }
  std::uint8_t* Destination() { return destination_.data(); }

 private:
  CameraContext context_{};
  std::vector<std::uint8_t> raw_;
  std::vector<std::uint8_t> destination_;
  std::uint32_t bytes_ = 12345;
};

class NativeDelivery : public ::testing::TestWithParam<NativeRow> {};

TEST_P(NativeDelivery, CopiesThePixelsFromBehindTheHeaderAndNotAByteMore) {
  const NativeRow& row = GetParam();
  Delivery delivery(row.RawSizeMode, row.Width, row.Height);
  const auto bytes = static_cast<std::uint32_t>(row.Width * row.Height * 2);
  EXPECT_EQ(delivery.Deliver(), 0);
  EXPECT_EQ(delivery.Bytes(), bytes);
  EXPECT_TRUE(delivery.HasPixels(bytes));
  EXPECT_TRUE(delivery.IsUntouchedFrom(bytes));
  EXPECT_EQ(delivery.Context().LastRawFrame, delivery.Raw());
  EXPECT_EQ(delivery.Context().LastDestination, delivery.Destination());
}

INSTANTIATE_TEST_SUITE_P(WholeTable, NativeDelivery, ::testing::ValuesIn(kNativeRows));

TEST(FrameDelivery, ARawSizeModeWithoutANativeSizeCopiesNothingAndStillReportsTheBytes) {
  for (const std::uint32_t mode : {0U, 3U, 5U, 6U, 7U, 0x80000001U}) {
    for (const NativeRow& size : kNativeRows) {
      Delivery delivery(mode, size.Width, size.Height);
      EXPECT_EQ(delivery.Deliver(), 0);
      EXPECT_EQ(delivery.Bytes(), static_cast<std::uint32_t>(size.Width * size.Height * 2));
      EXPECT_TRUE(delivery.IsUntouchedFrom(0)) << "mode " << mode;
    }
  }
}

TEST(FrameDelivery, AFormatOtherThanYuy2LeavesTheBufferAndTheCountAlone) {
  for (const std::uint32_t compression : {0U, kFourccI420, 0x59565955U}) {
    Delivery delivery(1, 640, 480);
    delivery.Context().RequestedCompression = compression;
    EXPECT_EQ(delivery.Deliver(), 0);
    EXPECT_EQ(delivery.Bytes(), 12345U);
    EXPECT_TRUE(delivery.IsUntouchedFrom(0));
    EXPECT_EQ(delivery.Context().LastRawFrame, delivery.Raw());
    EXPECT_EQ(delivery.Context().LastDestination, delivery.Destination());
  }
}

TEST(FrameDelivery, AStreamOf352By288InTheLargestMode) {
  Delivery delivery(1, 352, 288);
  EXPECT_EQ(delivery.Deliver(), 0);
  EXPECT_EQ(delivery.Bytes(), 202752U);
}

struct StreamSize {
  std::int32_t Width;
  std::int32_t Height;
};

constexpr StreamSize kStreamSizes[] = {{640, 480}, {352, 288}, {320, 240},
                                       {176, 144}, {160, 120}, {800, 600}};

struct ResampledRow {
  NativeRow Native;
  StreamSize Size;
};

// All sizes except those that are copied.
std::vector<ResampledRow> ResampledRows() {
  std::vector<ResampledRow> rows;
  for (const NativeRow& native : kNativeRows) {
    for (const StreamSize& size : kStreamSizes) {
      const bool isCopied = size.Width == native.Width && size.Height == native.Height;
      if (!isCopied) rows.push_back({native, size});
    }
  }
  return rows;
}

class ResampledDelivery : public ::testing::TestWithParam<ResampledRow> {};

TEST_P(ResampledDelivery, GivesEveryOtherSizeFromThePixelsBehindTheHeader) {
  const auto& [native, size] = GetParam();
  Delivery delivery(native.RawSizeMode, size.Width, size.Height);
  const auto bytes = static_cast<std::uint32_t>(size.Width * size.Height * 2);
  std::vector<std::uint8_t> expected(bytes);
  ASSERT_EQ(ResampleFrame(expected.data(), delivery.Raw() + 64, native.Width, native.Height,
                          size.Width, size.Height, 1),
            1U);
  EXPECT_EQ(delivery.Deliver(), 0);
  EXPECT_EQ(delivery.Bytes(), bytes);
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), delivery.Destination()));
  EXPECT_TRUE(delivery.IsUntouchedFrom(bytes));
}

INSTANTIATE_TEST_SUITE_P(EverySizeFromEveryNativeSize, ResampledDelivery,
                         ::testing::ValuesIn(ResampledRows()));

TEST(FrameDelivery, ASizeThatCannotBeResampledIsReportedAsWrittenAllTheSame) {
  Delivery delivery(1, 1, 1);
  EXPECT_EQ(delivery.Deliver(), 0);
  EXPECT_EQ(delivery.Bytes(), 2U);
  EXPECT_TRUE(delivery.IsUntouchedFrom(0));
}

TEST(FrameDelivery, OneNativeSideIsNotEnoughForACopy) {
  for (const StreamSize size : {StreamSize{640, 240}, StreamSize{320, 480}}) {
    Delivery delivery(1, size.Width, size.Height);
    const auto bytes = static_cast<std::uint32_t>(size.Width * size.Height * 2);
    std::vector<std::uint8_t> expected(bytes);
    ResampleFrame(expected.data(), delivery.Raw() + 64, 640, 480, size.Width, size.Height, 1);
    delivery.Deliver();
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), delivery.Destination()));
  }
}

TEST(FrameDelivery, TheSameRawFrameCanBeDeliveredTwice) {
  Delivery delivery(4, 160, 120);
  delivery.Deliver();
  std::fill_n(delivery.Destination(), 38400, std::uint8_t{0});
  delivery.Deliver();
  EXPECT_TRUE(delivery.HasPixels(38400));
}

TEST(FrameDelivery, ABufferWithoutRoomForAllPixelsGetsNoneAndTheBytesAreReportedAllTheSame) {
  Delivery delivery(4, 160, 120);
  std::uint32_t bytes = 0;
  EXPECT_EQ(DeliverFrameWithin(delivery.Context(), {delivery.Destination(), 38399}, delivery.Raw(),
                               bytes),
            0);
  EXPECT_EQ(bytes, 38400U);
  EXPECT_TRUE(delivery.IsUntouchedFrom(0));
  EXPECT_EQ(DeliverFrameWithin(delivery.Context(), {delivery.Destination(), 38400}, delivery.Raw(),
                               bytes),
            0);
  EXPECT_TRUE(delivery.HasPixels(38400));
}

TEST(FrameDelivery, APictureOfOnePixelNeedsItsTwoBytesOfRoom) {
  Delivery delivery(1, 1, 1);
  std::uint32_t bytes = 0;
  test::TraceLines trace;
  DeliverFrameWithin(delivery.Context(), {delivery.Destination(), 1}, delivery.Raw(), bytes);
  EXPECT_EQ(trace.Take(),
            std::vector<std::string>{"frame too large for its buffer size=1x1 room=1"});
  DeliverFrameWithin(delivery.Context(), {delivery.Destination(), 2}, delivery.Raw(), bytes);
  EXPECT_EQ(trace.Take(), std::vector<std::string>{});
}

TEST(FrameDelivery, DestinationSizeAndRawFrameSizeAreNoBounds) {
  Delivery delivery(4, 160, 120);
  std::uint32_t bytes = 0;
  EXPECT_EQ(DeliverFrame(delivery.Context(), delivery.Destination(), 1, delivery.Raw(), 1, bytes),
            0);
  EXPECT_TRUE(delivery.HasPixels(38400));
}

}  // namespace
}  // namespace lidcam
