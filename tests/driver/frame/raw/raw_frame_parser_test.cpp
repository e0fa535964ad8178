#include "driver/frame/raw/raw_frame_parser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/host/nt/system/debug_print.h"

namespace lidcam {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::array<std::uint8_t, 8> kStart = {0xFF, 0xD8, 1, 2, 3, 4, 5, 6};
constexpr std::array<std::uint8_t, 8> kBody = {7, 0xD8, 0xFF, 0xD8, 3, 4, 5, 6};

/// The parser's results for a packet; starts with values that it must replace.
struct Parsed {
  std::uint32_t Size = 77;
  std::uint8_t FrameEnd = 77;
  std::uint32_t Flags = 77;
  std::uint32_t Offset = 77;
  friend bool operator==(const Parsed&, const Parsed&) = default;
};

Parsed Parse(CameraContext& context, const std::uint8_t* data, std::uint32_t length) {
  Parsed parsed;
  parsed.Size = ParseRawPacket(context, data, length, parsed.FrameEnd, parsed.Flags, parsed.Offset);
  return parsed;
}

/// A camera past its settling, with some bytes of a frame received.
struct ReceivingCamera {
  ReceivingCamera(std::uint32_t rawFrameSize, std::uint32_t received) {
    Context.RawFrameSize = rawFrameSize;
    Context.ReceivedFrameBytes = received;
    Context.FrameSettleCount = 5;
    Context.FramePacketCount = 9;
    Context.FrameStartCount = 3;
  }
  CameraContext Context{};
};

TEST(RawFrameParser, AnEmptyPacketChangesNoCounterAndClearsTheAnswers) {
  ReceivingCamera camera(100, 40);
  EXPECT_EQ(Parse(camera.Context, nullptr, 0), (Parsed{0, 0, 0, 0}));
  EXPECT_EQ(camera.Context.ReceivedFrameBytes, 40U);
  EXPECT_EQ(camera.Context.FramePacketCount, 9U);
  EXPECT_EQ(camera.Context.FrameStartCount, 3U);
  EXPECT_EQ(camera.Context.FrameSettleCount, 5U);
}

TEST(RawFrameParser, APacketWithoutMarkerIsCountedAndStoredWhole) {
  ReceivingCamera camera(100, 40);
  EXPECT_EQ(Parse(camera.Context, kBody.data(), 8), (Parsed{8, 0, 0, 0}));
  EXPECT_EQ(camera.Context.ReceivedFrameBytes, 48U);
  EXPECT_EQ(camera.Context.FramePacketCount, 10U);
  EXPECT_EQ(camera.Context.FrameStartCount, 3U);
}

TEST(RawFrameParser, AMarkerClosesTheFrameAndItsPacketIsTheFirstOfTheNext) {
  ReceivingCamera camera(100, 100);
  EXPECT_EQ(Parse(camera.Context, kStart.data(), 8), (Parsed{8, 1, 0, 0}));
  EXPECT_EQ(camera.Context.ReceivedFrameBytes, 8U);
  EXPECT_EQ(camera.Context.FramePacketCount, 1U);
  EXPECT_EQ(camera.Context.FrameStartCount, 4U);
}

TEST(RawFrameParser, AMarkerInTheMiddleOfAPacketIsNotSeen) {
  ReceivingCamera camera(100, 10);
  constexpr std::array<std::uint8_t, 4> inside = {0, 0xFF, 0xD8, 0};
  EXPECT_EQ(Parse(camera.Context, inside.data(), 4), (Parsed{4, 0, 0, 0}));
  EXPECT_EQ(camera.Context.FrameStartCount, 3U);
}

TEST(RawFrameParser, HalfAMarkerIsNone) {
  ReceivingCamera camera(100, 10);
  constexpr std::array<std::uint8_t, 2> first = {0xFF, 0xD9};
  constexpr std::array<std::uint8_t, 2> second = {0xFE, 0xD8};
  EXPECT_EQ(Parse(camera.Context, first.data(), 2), (Parsed{2, 0, 0, 0}));
  EXPECT_EQ(Parse(camera.Context, second.data(), 2), (Parsed{2, 0, 0, 0}));
}

TEST(RawFrameParser, APacketOfOneByteIsAMarkerByTheByteBehindIt) {
  ReceivingCamera camera(100, 100);
  constexpr std::array<std::uint8_t, 2> marker = {0xFF, 0xD8};
  constexpr std::array<std::uint8_t, 2> none = {0xFF, 0xD7};
  EXPECT_EQ(Parse(camera.Context, none.data(), 1), (Parsed{1, 0, 0, 0}));
  EXPECT_EQ(Parse(camera.Context, marker.data(), 1), (Parsed{1, 1, 0, 0}));
  EXPECT_EQ(camera.Context.ReceivedFrameBytes, 1U);
}

struct SizeCase {
  std::uint32_t Expected;
  std::uint32_t Received;
  bool IsGood;
};

class FrameSize : public ::testing::TestWithParam<SizeCase> {};

TEST_P(FrameSize, IsMeasuredWithAToleranceOfTenBytesAndWrongOnesArePrinted) {
  const SizeCase& row = GetParam();
  ReceivingCamera camera(row.Expected, row.Received);
  const host::DebugPrintCapture capture;
  EXPECT_EQ(Parse(camera.Context, kStart.data(), 8),
            (Parsed{8, 1, row.IsGood ? 0U : kPacketFlagBadFrame, 0}));
  if (row.IsGood) {
    EXPECT_THAT(capture.Messages(), IsEmpty());
  } else {
    EXPECT_THAT(
        capture.Messages(),
        ElementsAre(
            "ReceivedRawFrameBuffer = " + std::to_string(static_cast<std::int32_t>(row.Received)),
            "Correct RawFrameBuffer = " + std::to_string(static_cast<std::int32_t>(row.Expected))));
  }
}

INSTANTIATE_TEST_SUITE_P(
    AroundTheTolerance, FrameSize,
    ::testing::Values(SizeCase{614466, 614466, true}, SizeCase{614466, 614476, true},
                      SizeCase{614466, 614477, false}, SizeCase{614466, 614456, true},
                      SizeCase{614466, 614455, false}, SizeCase{614466, 0, false},
                      SizeCase{614466, 0xFFFFFFFF, false}, SizeCase{10, 0, true},
                      SizeCase{10, 20, true}, SizeCase{10, 21, false}));

INSTANTIATE_TEST_SUITE_P(ExpectedSizeBelowTenWrapsTheLowerBoundSoThatEveryFrameIsBad, FrameSize,
                         ::testing::Values(SizeCase{9, 9, false}, SizeCase{9, 0, false},
                                           SizeCase{9, 19, false}, SizeCase{9, 0xFFFFFFFF, false},
                                           SizeCase{0, 0, false}, SizeCase{0, 10, false},
                                           SizeCase{0, 614466, false}));

TEST(RawFrameParser, ForcePublishIsNeverAskedByThisParser) {
  EXPECT_EQ(kPacketFlagBadFrame, 2U);
  EXPECT_EQ(kPacketFlagForcePublish, 8U);
  ReceivingCamera camera(100, 3);
  EXPECT_EQ(Parse(camera.Context, kStart.data(), 8).Flags & 8U, 0U);
  EXPECT_EQ(Parse(camera.Context, kBody.data(), 8).Flags & 8U, 0U);
}

TEST(FrameSettle, AMarkerThatFindsZeroClosesNothingWhateverTheSize) {
  for (const std::uint32_t received : {100U, 42U}) {
    ReceivingCamera camera(100, received);
    camera.Context.FrameSettleCount = 0;
    EXPECT_EQ(Parse(camera.Context, kStart.data(), 8), (Parsed{8, 0, 2, 0}));
    EXPECT_EQ(camera.Context.FrameSettleCount, 4U);
    EXPECT_EQ(camera.Context.FrameStartCount, 4U);
    EXPECT_EQ(camera.Context.FramePacketCount, 1U);
    EXPECT_EQ(camera.Context.ReceivedFrameBytes, 8U);
  }
}

TEST(FrameSettle, AWrongSizeIsPrintedWhileSettlingToo) {
  ReceivingCamera camera(100, 42);
  camera.Context.FrameSettleCount = 0;
  const host::DebugPrintCapture capture;
  Parse(camera.Context, kStart.data(), 8);
  EXPECT_THAT(capture.Messages(),
              ElementsAre("ReceivedRawFrameBuffer = 42", "Correct RawFrameBuffer = 100"));
}

TEST(FrameSettle, TheCountGoesFromZeroToFourToFiveAndStays) {
  ReceivingCamera camera(100, 100);
  camera.Context.FrameSettleCount = 0;
  std::vector<std::uint32_t> counts;
  for (int marker = 0; marker < 4; ++marker) {
    Parse(camera.Context, kStart.data(), 8);
    Parse(camera.Context, kBody.data(), 8);
    counts.push_back(camera.Context.FrameSettleCount);
  }
  EXPECT_THAT(counts, ElementsAre(4, 5, 5, 5));
}

// Not a count of frames to wait: only 0 holds a frame back.
TEST(FrameSettle, CountsThatAreNeverSetGoUpByOneAndCloseLikeAnyOther) {
  for (const std::uint32_t count : {1U, 2U, 3U}) {
    ReceivingCamera camera(100, 100);
    camera.Context.FrameSettleCount = count;
    EXPECT_EQ(Parse(camera.Context, kStart.data(), 8), (Parsed{8, 1, 0, 0}));
    EXPECT_EQ(camera.Context.FrameSettleCount, count + 1);
  }
}

TEST(FrameSettle, AGoodMarkerAfterTheSettlingClosesAgain) {
  ReceivingCamera camera(100, 100);
  camera.Context.FrameSettleCount = 4;
  EXPECT_EQ(Parse(camera.Context, kStart.data(), 8), (Parsed{8, 1, 0, 0}));
  EXPECT_EQ(camera.Context.FrameSettleCount, 5U);
}

}  // namespace
}  // namespace lidcam
