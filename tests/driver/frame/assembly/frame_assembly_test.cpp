#include "driver/frame/assembly/frame_assembly.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "tests/driver/frame/assembly/assembly_fixture.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

enum class Arriving { NoMarker, GoodMarker, BadMarker, SettlingGoodMarker, SettlingBadMarker };

struct StateRow {
  std::uint8_t DiscardBefore;
  Arriving Packet;
  bool Published;
  bool Stored;
  std::uint8_t DiscardAfter;
};

class FrameState : public ::testing::TestWithParam<std::tuple<StateRow, Entry>> {};

// With twenty bytes of the frame in progress in the buffer, a packet of thirty comes.
TEST_P(FrameState, DecidesWhatAPacketDoes) {
  const auto& [row, entry] = GetParam();
  const bool isMarker = row.Packet != Arriving::NoMarker;
  const bool isGood =
      row.Packet == Arriving::GoodMarker || row.Packet == Arriving::SettlingGoodMarker;
  const bool isSettling =
      row.Packet == Arriving::SettlingGoodMarker || row.Packet == Arriving::SettlingBadMarker;
  AssemblyFixture camera(kFrame, kBuffer, entry);
  camera.Feed(Body(20, 1));
  camera.Context.ReceivedFrameBytes = isGood ? kFrame : kFrame + 11;
  camera.Context.FrameSettleCount = isSettling ? 0 : 5;
  camera.Assembly.DiscardFrame = row.DiscardBefore;

  const Packet packet = isMarker ? Start(30, 2) : Body(30, 2);
  camera.Feed(packet);

  const bool isNewFrame = isMarker && row.Stored;
  const Packet kept = Body(20, 1);
  EXPECT_EQ(camera.Published.size(), row.Published ? 1U : 0U);
  if (row.Published) {
    EXPECT_EQ(camera.Published.at(0), (PublishedCopy{kept, 20}));
  }
  Packet expected = isNewFrame || row.Published ? Packet{} : kept;
  if (row.Stored) expected.insert(expected.end(), packet.begin(), packet.end());
  EXPECT_EQ(camera.Stored(), expected);
  EXPECT_EQ(camera.Assembly.DiscardFrame, row.DiscardAfter);
  EXPECT_EQ(camera.Assembly.BadFrameEnd, 0);
}

const auto kEachEntry = ::testing::Values(Entry::Packets, Entry::Transfers);

INSTANTIATE_TEST_SUITE_P(
    WholeTable, FrameState,
    ::testing::Combine(::testing::Values(StateRow{0, Arriving::NoMarker, false, true, 0},
                                         StateRow{0, Arriving::GoodMarker, true, true, 0},
                                         StateRow{0, Arriving::BadMarker, true, false, 1},
                                         StateRow{1, Arriving::NoMarker, false, false, 1},
                                         StateRow{1, Arriving::GoodMarker, false, true, 0},
                                         StateRow{1, Arriving::BadMarker, false, false, 1}),
                       kEachEntry));

INSTANTIATE_TEST_SUITE_P(
    WhileSettlingAMarkerIsAPacketThatSetsDiscardFrame, FrameState,
    ::testing::Combine(::testing::Values(StateRow{0, Arriving::SettlingGoodMarker, false, false, 1},
                                         StateRow{0, Arriving::SettlingBadMarker, false, false, 1},
                                         StateRow{1, Arriving::SettlingGoodMarker, false, false, 1},
                                         StateRow{1, Arriving::SettlingBadMarker, false, false, 1}),
                       kEachEntry));

class FrameStorage : public EachEntry {};
LIDCAM_BY_EACH_ENTRY(FrameStorage);
class ForcePublish : public EachEntry {};
LIDCAM_BY_EACH_ENTRY(ForcePublish);
class RawBufferBound : public EachEntry {};
LIDCAM_BY_EACH_ENTRY(RawBufferBound);

TEST_P(FrameStorage, AFrameIsTheConcatenationOfItsPacketsMarkerIncluded) {
  AssemblyFixture camera(kFrame, kBuffer, GetParam());
  const std::vector<Packet> frame = {Start(40, 1), Body(40, 2), Body(20, 3)};
  camera.Context.ReceivedFrameBytes = kFrame;
  camera.BeginStream(5);
  camera.Feed(frame);
  camera.Feed(Start(40, 4));
  EXPECT_THAT(camera.Published, ElementsAre(PublishedCopy{Joined(frame), kFrame}));
}

TEST_P(FrameStorage, AnEmptyPacketChangesNoCounterAndNoFlag) {
  AssemblyFixture camera(kFrame, kBuffer, GetParam());
  camera.Feed(Body(20, 1));
  camera.Assembly.ForcePublish = 1;
  camera.Feed(Packet{});
  EXPECT_EQ(camera.Stored(), Body(20, 1));
  EXPECT_EQ(camera.Assembly.FillFrameBytes, 20U);
  EXPECT_EQ(camera.Assembly.ForcePublish, 1);
  EXPECT_EQ(camera.Assembly.DiscardFrame, 0);
  EXPECT_EQ(camera.Context.ReceivedFrameBytes, 20U);
  EXPECT_EQ(camera.Context.FramePacketCount, 1U);
  EXPECT_THAT(camera.Log, IsEmpty());
}

TEST_P(FrameStorage, AStreamBeginsByDiscardingAndWithoutABadFrameEnd) {
  AssemblyFixture camera(kFrame, kBuffer, GetParam());
  camera.Assembly.BadFrameEnd = 1;
  camera.Context.ReceivedFrameBytes = 33;
  BeginAssembly(camera.Assembly);
  EXPECT_EQ(camera.Assembly.DiscardFrame, 1);
  EXPECT_EQ(camera.Assembly.BadFrameEnd, 0);
  EXPECT_EQ(camera.Context.ReceivedFrameBytes, 33U) << "the previous stream's bytes stay counted";
}

TEST(RawBuffers, TheFirstHalfIsReadyAndTheSecondIsFilledFromItsBegin) {
  std::array<std::uint8_t, 20> block{};
  FrameAssembly assembly{};
  assembly.FillOffset = 7;
  PlaceRawBuffers(assembly, block.data(), 10);
  EXPECT_EQ(assembly.RawBuffers, block.data());
  EXPECT_EQ(assembly.ReadyBuffer, block.data());
  EXPECT_EQ(assembly.FillBuffer, block.data() + 10);
  EXPECT_EQ(assembly.FillOffset, 0U);
  EXPECT_EQ(assembly.RawBufferSize, 10U);
}

struct WidthRow {
  const char* Field;
  std::size_t Bytes;
  std::size_t Expected;
};

constexpr WidthRow kWidths[] = {
    {"DiscardFrame", sizeof(FrameAssembly::DiscardFrame), 1},
    {"BadFrameEnd", sizeof(FrameAssembly::BadFrameEnd), 1},
    {"ForcePublish", sizeof(FrameAssembly::ForcePublish), 1},
    {"RawBuffers", sizeof(FrameAssembly::RawBuffers), sizeof(void*)},
    {"ReadyBuffer", sizeof(FrameAssembly::ReadyBuffer), sizeof(void*)},
    {"FillBuffer", sizeof(FrameAssembly::FillBuffer), sizeof(void*)},
    {"FillOffset", sizeof(FrameAssembly::FillOffset), 4},
    {"RawBufferSize", sizeof(FrameAssembly::RawBufferSize), 4},
    {"FillFrameBytes", sizeof(FrameAssembly::FillFrameBytes), 4},
    {"PublishedRawFrame", sizeof(PublishedFrame::PublishedRawFrame), sizeof(void*)},
    {"PublishedRawFrameSize", sizeof(PublishedFrame::PublishedRawFrameSize), 4},
};

TEST(AssemblyRecord, HasTheWidthsThatItsReadersCountOn) {
  for (const WidthRow& row : kWidths) EXPECT_EQ(row.Bytes, row.Expected) << row.Field;
}

TEST_P(FrameStorage, TheTwoRawBuffersTakeTurns) {
  AssemblyFixture camera(kFrame, kBuffer, GetParam());
  std::uint8_t* const first = camera.Assembly.RawBuffers;
  std::uint8_t* const second = first + kBuffer;
  camera.Feed(Body(kFrame, 1));
  EXPECT_EQ(camera.Assembly.FillBuffer, second);
  camera.Feed(Start(kFrame, 2));
  EXPECT_EQ(camera.Assembly.ReadyBuffer, second);
  EXPECT_EQ(camera.Assembly.FillBuffer, first);
  camera.Feed(Start(kFrame, 3));
  EXPECT_EQ(camera.Assembly.ReadyBuffer, first);
  EXPECT_EQ(camera.Assembly.FillBuffer, second);
}

TEST_P(FrameStorage, TheConsumerIsNotWokenWhileTheStreamIsNotRunning) {
  AssemblyFixture camera(kFrame, kBuffer, GetParam());
  camera.Running = false;
  camera.Feed(Body(kFrame, 1));
  camera.Feed(Start(30, 2));
  EXPECT_EQ(camera.Log, (GoodEnd(100, 100) + Lines{"frame published bytes=100", "publish 100"}));
}

// A stream that stops while a frame is published needs no consumer any more.
TEST_P(FrameStorage, AStreamThatStopsWithThePublishingDoesNotWakeTheConsumer) {
  AssemblyFixture camera(kFrame, kBuffer, GetParam());
  camera.Assembly.Sink.PublishRawFrame = [](void* context, std::uint8_t*, std::uint32_t) {
    static_cast<AssemblyFixture*>(context)->Running = false;
  };
  camera.Feed(Body(kFrame, 1));
  camera.Feed(Start(30, 2));
  EXPECT_EQ(camera.Log, GoodEnd(100, 100) + Lines{"frame published bytes=100"});
}

// A consumer that runs at once must not read the write position of a frame not yet begun.
TEST_P(FrameStorage, TheConsumerIsWokenAheadOfTheWritePositionsReturn) {
  AssemblyFixture camera(kFrame, kBuffer, GetParam());
  camera.Feed(Body(kFrame, 1));
  camera.Feed(Start(30, 2));
  EXPECT_THAT(camera.FillOffsetsAtWake, ElementsAre(kFrame));
  EXPECT_EQ(camera.Assembly.FillOffset, 30U);
}

TEST_P(FrameStorage, WhileTheConsumerReadsTheFinishedFrameIsOverwrittenByTheNext) {
  AssemblyFixture camera(kFrame, kBuffer, GetParam());
  std::uint8_t* const filled = camera.Assembly.FillBuffer;
  std::uint8_t* const ready = camera.Assembly.ReadyBuffer;
  camera.Feed(Body(kFrame, 1));
  camera.Busy = true;
  camera.Feed(Start(30, 2));
  EXPECT_EQ(camera.Assembly.FillBuffer, filled);
  EXPECT_EQ(camera.Assembly.ReadyBuffer, ready);
  EXPECT_EQ(camera.Stored(), Start(30, 2));
  EXPECT_EQ(camera.Assembly.FillFrameBytes, 30U);
  EXPECT_EQ(camera.Assembly.DiscardFrame, 0);
  EXPECT_EQ(camera.Context.FrameStartCount, 1U);
  EXPECT_EQ(camera.Log, GoodEnd(100, 100) + FrameBusy(100));
  EXPECT_THAT(camera.Published, IsEmpty());
}

TEST_P(ForcePublish, PublishesAFrameThatWouldBeDiscardedAndIsUsedUp) {
  AssemblyFixture camera(kFrame, kBuffer, GetParam());
  camera.Feed(Body(25, 1));
  camera.Assembly.DiscardFrame = 1;
  camera.Assembly.ForcePublish = 1;
  camera.Context.ReceivedFrameBytes = kFrame;
  camera.Feed(Start(30, 2));
  EXPECT_THAT(camera.Published, ElementsAre(PublishedCopy{Body(25, 1), 25}));
  EXPECT_EQ(camera.Assembly.ForcePublish, 0);
  EXPECT_EQ(camera.Assembly.DiscardFrame, 0);
  EXPECT_EQ(camera.Stored(), Start(30, 2));
}

TEST_P(ForcePublish, StaysUntilTheNextFrameEnd) {
  AssemblyFixture camera(kFrame, kBuffer, GetParam());
  camera.Assembly.ForcePublish = 1;
  camera.Feed(Body(25, 1));
  camera.Context.FrameSettleCount = 0;
  camera.Feed(Start(30, 2));
  EXPECT_EQ(camera.Assembly.ForcePublish, 1) << "a settling marker is no frame end";
  EXPECT_THAT(camera.Published, IsEmpty());
}

TEST_P(ForcePublish, IsUsedUpByABusyConsumerAndABadFrameEndStillPunishesTheNext) {
  AssemblyFixture camera(kFrame, kBuffer, GetParam());
  camera.Feed(Body(25, 1));
  camera.Assembly.ForcePublish = 1;
  camera.Busy = true;
  camera.Feed(Start(30, 2));
  EXPECT_EQ(camera.Assembly.ForcePublish, 0);
  EXPECT_EQ(camera.Assembly.DiscardFrame, 1);
  EXPECT_EQ(camera.Assembly.FillOffset, 0U);
  EXPECT_EQ(camera.Log, BadEnd(25, 100) + FrameBusy(25));
}

TEST(TransferWalk, TakesThePacketsInOrderFromTheirOffsetsAndByTheirLengths) {
  AssemblyFixture camera(kFrame, kBuffer);
  const std::vector<std::uint8_t> buffer = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  camera.FeedFrom(buffer, {{8, 3}, {4, 0}, {0, 2}, {4, 4}});
  EXPECT_EQ(camera.Stored(), (Packet{9, 10, 11, 1, 2, 5, 6, 7, 8}));
  EXPECT_EQ(camera.Context.FramePacketCount, 3U);
}

TEST(TransferWalk, AFrameThatEndsInTheMiddleOfATransferIsPublishedWithAllItsBytes) {
  AssemblyFixture camera(10, kBuffer);
  camera.Context.ReceivedFrameBytes = 10;
  camera.BeginStream(5);
  camera.FeedFrom({0xFF, 0xD8, 1, 2, 3, 4, 5, 6, 0xFF, 0xD8, 7, 8},
                  {{0, 4}, {4, 4}, {8, 2}, {10, 2}});
  EXPECT_THAT(camera.Published, ElementsAre(PublishedCopy{{0xFF, 0xD8, 1, 2, 3, 4, 5, 6}, 8}));
  EXPECT_EQ(camera.Stored(), (Packet{0xFF, 0xD8, 7, 8}));
}

TEST(TransferWalk, APacketOfOneByteIsAMarkerByTheByteBehindItInTheBuffer) {
  AssemblyFixture camera(kFrame, kBuffer);
  camera.FeedFrom({0xFF, 0xD8, 0xFF, 0xD7}, {{0, 1}, {2, 1}});
  EXPECT_EQ(camera.Context.FrameStartCount, 1U);
  EXPECT_EQ(camera.Context.ReceivedFrameBytes, 2U);
}

TEST(TransferWalk, TheLastByteOfTheBufferAloneIsNoMarkerAndIsStored) {
  AssemblyFixture camera(kFrame, kBuffer);
  camera.FeedFrom({7, 0xFF}, {{0, 1}, {1, 1}});
  EXPECT_EQ(camera.Context.FrameStartCount, 0U);
  EXPECT_EQ(camera.Stored(), (Packet{7, 0xFF}));
}

TEST(TransferWalk, APacketThatReachesBeyondTheBufferCountsAsEmpty) {
  AssemblyFixture camera(kFrame, kBuffer);
  camera.FeedFrom({1, 2, 3, 4}, {{3, 2}, {5, 1}, {0xFFFFFFFF, 2}, {0, 5}, {4, 0}, {2, 2}});
  EXPECT_EQ(camera.Stored(), (Packet{3, 4}));
  EXPECT_EQ(camera.Context.FramePacketCount, 1U);
}

TEST_P(RawBufferBound, APacketThatFillsTheBufferToItsLastByteIsStored) {
  AssemblyFixture camera(kFrame, 50, GetParam());
  camera.Feed({Body(20, 1), Body(30, 2)});
  EXPECT_EQ(camera.Assembly.FillOffset, 50U);
  camera.Feed(Body(1, 3));
  EXPECT_EQ(camera.Assembly.FillOffset, 50U);
  EXPECT_EQ(camera.Assembly.FillFrameBytes, 50U);
}

TEST_P(RawBufferBound, APacketThatDoesNotFitIsDroppedAndALaterOneThatFitsIsStored) {
  AssemblyFixture camera(kFrame, 50, GetParam());
  camera.Feed({Body(30, 1), Body(21, 2), Body(20, 3)});
  EXPECT_EQ(camera.Stored(), Joined({Body(30, 1), Body(20, 3)}));
  EXPECT_EQ(camera.Assembly.FillFrameBytes, 50U);
  EXPECT_EQ(camera.Context.ReceivedFrameBytes, 71U);
}

TEST_P(RawBufferBound, AStartPacketLargerThanTheBufferIsCountedAndNotStored) {
  AssemblyFixture camera(kFrame, 50, GetParam());
  camera.Context.ReceivedFrameBytes = kFrame;
  camera.Feed({Start(60, 1), Body(40, 2)});
  EXPECT_EQ(camera.Stored(), Body(40, 2));
  EXPECT_EQ(camera.Assembly.FillFrameBytes, 100U);
  camera.Feed(Start(10, 3));
  EXPECT_EQ(camera.Published.back(), (PublishedCopy{Body(40, 2), 100}));
}

// The bytes are never touched: a length close to 2^32 must not wrap to a place in the buffer.
TEST_P(RawBufferBound, APacketLengthCloseToTheEndOfThirtyTwoBitsDoesNotWrap) {
  AssemblyFixture camera(kFrame, 50);
  camera.Feed(Body(20, 1));
  const std::vector<std::uint8_t> bytes(64, 2);
  AssemblePacket(camera.Assembly, camera.Context, bytes.data(), 0xFFFFFFF0);
  EXPECT_EQ(camera.Stored(), Body(20, 1));
  EXPECT_EQ(camera.Assembly.FillFrameBytes, 20U);
  EXPECT_EQ(camera.Context.ReceivedFrameBytes, 4U) << "the count itself is 32 bits wide";
}

}  // namespace
}  // namespace lidcam::test
