// Streams of whole frames with one disturbance each, and the exact sequence of messages, decisions
// and handovers that follows.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "tests/driver/frame/assembly/assembly_fixture.h"

namespace lidcam::test {
namespace {

using ::testing::IsEmpty;

/// A frame of 100 bytes in packets of 40, 40 and 20.
std::vector<Packet> Frame(std::uint8_t fill) {
  return {Start(40, fill), Body(40, fill), Body(20, fill)};
}

/// A frame of 100 bytes with its last packet lengthened or shortened.
std::vector<Packet> FrameOf(std::uint32_t bytes, std::uint8_t fill) {
  return {Start(40, fill), Body(40, fill), Body(bytes - 80, fill)};
}

PublishedCopy Copy(const std::vector<Packet>& packets) {
  const Packet bytes = Joined(packets);
  return {bytes, static_cast<std::uint32_t>(bytes.size())};
}

/// A camera in an undisturbed stream: the frame filled with 1 is whole in the buffer.
struct StreamingCamera : AssemblyFixture {
  explicit StreamingCamera(Entry entry) : AssemblyFixture(kFrame, kBuffer, entry) {
    Context.ReceivedFrameBytes = kFrame;
    Feed(Frame(1));
    Published.clear();
    Log.clear();
  }

  void FeedAll(const std::vector<std::vector<Packet>>& frames) {
    for (const std::vector<Packet>& frame : frames) Feed(frame);
  }
};

class UndisturbedStream : public EachEntry {};
LIDCAM_BY_EACH_ENTRY(UndisturbedStream);
class StreamStart : public EachEntry {};
LIDCAM_BY_EACH_ENTRY(StreamStart);
class DisturbedStream : public EachEntry {};
LIDCAM_BY_EACH_ENTRY(DisturbedStream);
class SettlingStream : public EachEntry {};
LIDCAM_BY_EACH_ENTRY(SettlingStream);
class UnknownFrameSize : public EachEntry {};
LIDCAM_BY_EACH_ENTRY(UnknownFrameSize);

TEST_P(UndisturbedStream, PublishesEveryFrameAtTheStartOfTheNext) {
  StreamingCamera camera(GetParam());
  camera.FeedAll({Frame(2), Frame(3)});
  EXPECT_EQ(camera.Log, GoodEnd(100, 100) + FramePublished(100) +  //
                            GoodEnd(100, 100) + FramePublished(100));
  EXPECT_EQ(camera.Published, (std::vector{Copy(Frame(1)), Copy(Frame(2))}));
}

TEST_P(StreamStart, FirstMarkerMeasuresTheBytesOfTheStreamBeforeAndIsBad) {
  AssemblyFixture camera(kFrame, kBuffer, GetParam());
  camera.Context.ReceivedFrameBytes = 33;
  camera.BeginStream(5);
  for (std::uint8_t fill = 1; fill <= 3; ++fill) camera.Feed(Frame(fill));
  EXPECT_EQ(camera.Log, BadEnd(33, 100) + FrameDiscarded() +        // frame 1 is thrown away
                            GoodEnd(100, 100) + FrameDiscarded() +  // frame 2 starts clean
                            GoodEnd(100, 100) + FramePublished(100));
  EXPECT_EQ(camera.Published, std::vector{Copy(Frame(2))});
  EXPECT_EQ(camera.Context.FrameStartCount, 3U);
}

TEST_P(StreamStart, FirstPublishComesAtTheSecondMarkerIfTheFirstIsGood) {
  AssemblyFixture camera(kFrame, kBuffer, GetParam());
  camera.Context.ReceivedFrameBytes = kFrame;
  camera.BeginStream(5);
  camera.Feed(Frame(1));
  camera.Feed(Frame(2));
  EXPECT_EQ(camera.Log, GoodEnd(100, 100) + FrameDiscarded() +  //
                            GoodEnd(100, 100) + FramePublished(100));
  EXPECT_EQ(camera.Published, std::vector{Copy(Frame(1))});
}

TEST_P(StreamStart, FirstPublishComesAtTheThirdMarkerIfTheFirstFindsSettleCountZero) {
  AssemblyFixture camera(kFrame, kBuffer, GetParam());
  camera.Context.ReceivedFrameBytes = kFrame;
  camera.BeginStream(0);
  for (std::uint8_t fill = 1; fill <= 3; ++fill) camera.Feed(Frame(fill));
  EXPECT_EQ(camera.Log, SettlingEnd(100, 100) +                     //
                            GoodEnd(100, 100) + FrameDiscarded() +  //
                            GoodEnd(100, 100) + FramePublished(100));
  EXPECT_EQ(camera.Published, std::vector{Copy(Frame(2))});
}

TEST_P(StreamStart, BytesAheadOfTheFirstMarkerAreNotStored) {
  AssemblyFixture camera(kFrame, kBuffer, GetParam());
  camera.BeginStream(5);
  camera.Feed({Body(40, 9), Body(20, 9)});
  EXPECT_EQ(camera.Assembly.FillOffset, 0U);
  EXPECT_EQ(camera.Context.ReceivedFrameBytes, 60U);
}

TEST_P(DisturbedStream, ALostPacketPublishesTheShortFrameAndDropsTheNextWhole) {
  StreamingCamera camera(GetParam());
  const std::vector<Packet> withLoss = {Start(40, 2), Body(20, 2)};
  camera.FeedAll({withLoss, Frame(3), Frame(4), Frame(5)});
  EXPECT_EQ(camera.Log, GoodEnd(100, 100) + FramePublished(100) +      // frame 1
                            BadEnd(60, 100) + FramePublished(60) +     // frame 2, with its size
                            GoodEnd(100, 100) + FrameDiscarded() +     // frame 3
                            GoodEnd(100, 100) + FramePublished(100));  // frame 4
  EXPECT_EQ(camera.Published, (std::vector{Copy(Frame(1)), Copy(withLoss), Copy(Frame(4))}));
}

TEST_P(DisturbedStream, ALostStartPacketJoinsTwoFramesUpToTheBuffersEnd) {
  StreamingCamera camera(GetParam());
  camera.FeedAll({Frame(2), {Body(40, 3), Body(20, 3)}, Frame(4), Frame(5), Frame(6)});
  EXPECT_EQ(camera.Log, GoodEnd(100, 100) + FramePublished(100) +      // frame 1
                            BadEnd(160, 100) + FramePublished(160) +   // 2 and the rest of 3
                            GoodEnd(100, 100) + FrameDiscarded() +     // frame 4
                            GoodEnd(100, 100) + FramePublished(100));  // frame 5
}

TEST_P(DisturbedStream, AShortPacketInsideTheToleranceChangesNothing) {
  StreamingCamera camera(GetParam());
  camera.FeedAll({FrameOf(90, 2), Frame(3)});
  EXPECT_EQ(camera.Log, GoodEnd(100, 100) + FramePublished(100) +  //
                            GoodEnd(90, 100) + FramePublished(90));
  EXPECT_EQ(camera.Published.back(), Copy(FrameOf(90, 2)));
}

TEST_P(DisturbedStream, AShortPacketOneByteOutsideTheToleranceMakesABadFrame) {
  StreamingCamera camera(GetParam());
  camera.FeedAll({FrameOf(89, 2), Frame(3), Frame(4)});
  EXPECT_EQ(camera.Log, GoodEnd(100, 100) + FramePublished(100) +   //
                            BadEnd(89, 100) + FramePublished(89) +  //
                            GoodEnd(100, 100) + FrameDiscarded());
}

TEST_P(DisturbedStream, AnOversizedPacketInsideTheToleranceChangesNothing) {
  StreamingCamera camera(GetParam());
  camera.FeedAll({FrameOf(110, 2), Frame(3)});
  EXPECT_EQ(camera.Log, GoodEnd(100, 100) + FramePublished(100) +  //
                            GoodEnd(110, 100) + FramePublished(110));
}

TEST_P(DisturbedStream, AnOversizedPacketOneByteOutsideTheToleranceMakesABadFrame) {
  StreamingCamera camera(GetParam());
  camera.FeedAll({FrameOf(111, 2), Frame(3), Frame(4)});
  EXPECT_EQ(camera.Log, GoodEnd(100, 100) + FramePublished(100) +     //
                            BadEnd(111, 100) + FramePublished(111) +  //
                            GoodEnd(100, 100) + FrameDiscarded());
}

TEST_P(DisturbedStream, AMarkerAtThePayloadsHeadCutsTheFrameInTwoAndCostsTheNext) {
  StreamingCamera camera(GetParam());
  const std::vector<Packet> cut = {Start(40, 2), Start(40, 3), Body(20, 2)};
  camera.FeedAll({cut, Frame(4), Frame(5), Frame(6)});
  EXPECT_EQ(camera.Log, GoodEnd(100, 100) + FramePublished(100) +      // frame 1
                            BadEnd(40, 100) + FramePublished(40) +     // head of frame 2
                            BadEnd(60, 100) + FrameDiscarded() +       // rest of frame 2
                            GoodEnd(100, 100) + FrameDiscarded() +     // frame 4
                            GoodEnd(100, 100) + FramePublished(100));  // frame 5
  EXPECT_EQ(camera.Published.back(), Copy(Frame(5)));
}

TEST_P(DisturbedStream, AMarkerInsideThePayloadIsPayload) {
  StreamingCamera camera(GetParam());
  std::vector<Packet> frame = Frame(2);
  frame[1][17] = 0xFF;
  frame[1][18] = 0xD8;
  camera.FeedAll({frame, Frame(3)});
  EXPECT_EQ(camera.Log, GoodEnd(100, 100) + FramePublished(100) +  //
                            GoodEnd(100, 100) + FramePublished(100));
  EXPECT_EQ(camera.Published.back(), Copy(frame));
}

TEST_P(DisturbedStream, EmptyPacketsAnywhereChangeNothing) {
  StreamingCamera camera(GetParam());
  camera.FeedAll(
      {{Packet{}, Packet{}, Start(40, 2), Packet{}, Body(40, 2), Body(20, 2), Packet{}}, Frame(3)});
  EXPECT_EQ(camera.Log, GoodEnd(100, 100) + FramePublished(100) +  //
                            GoodEnd(100, 100) + FramePublished(100));
  EXPECT_EQ(camera.Published.back(), Copy(Frame(2)));
}

TEST_P(DisturbedStream, APacketOfOneByteThatLooksLikeAMarkerEndsTheFrame) {
  StreamingCamera camera(GetParam());
  camera.Feed({Start(40, 2)});
  camera.TakeLog();
  const std::vector<std::uint8_t> buffer = {0xFF, 0xD8};
  camera.FeedFrom(buffer, {{0, 1}});
  camera.Feed({Body(59, 2)});
  camera.FeedAll({Frame(3), Frame(4), Frame(5)});
  EXPECT_EQ(camera.Log, BadEnd(40, 100) + FramePublished(40) +      //
                            BadEnd(60, 100) + FrameDiscarded() +    // the byte and what follows
                            GoodEnd(100, 100) + FrameDiscarded() +  // frame 3
                            GoodEnd(100, 100) + FramePublished(100));
}

TEST_P(DisturbedStream, ARunOfBadFramesPublishesTheFirstOnly) {
  StreamingCamera camera(GetParam());
  camera.FeedAll({FrameOf(85, 2), FrameOf(85, 3), FrameOf(85, 4), Frame(5), Frame(6), Frame(7)});
  EXPECT_EQ(camera.Log, GoodEnd(100, 100) + FramePublished(100) +   // frame 1
                            BadEnd(85, 100) + FramePublished(85) +  // frame 2
                            BadEnd(85, 100) + FrameDiscarded() +    // frame 3
                            BadEnd(85, 100) + FrameDiscarded() +    // frame 4
                            GoodEnd(100, 100) + FrameDiscarded() +  // frame 5
                            GoodEnd(100, 100) + FramePublished(100));
  EXPECT_EQ(camera.Published.back(), Copy(Frame(6)));
}

TEST_P(DisturbedStream, ABusyConsumerLosesTheFrameAndNothingElse) {
  StreamingCamera camera(GetParam());
  camera.Busy = true;
  camera.Feed(Frame(2));
  camera.Busy = false;
  camera.Feed(Frame(3));
  EXPECT_EQ(camera.Log, GoodEnd(100, 100) + FrameBusy(100) +  //
                            GoodEnd(100, 100) + FramePublished(100));
  EXPECT_EQ(camera.Published, std::vector{Copy(Frame(2))});
  EXPECT_EQ(camera.Context.FrameStartCount, 3U);
}

TEST_P(DisturbedStream, ABadFrameThatABusyConsumerMissesStillPunishesTheNext) {
  StreamingCamera camera(GetParam());
  camera.Feed(FrameOf(85, 2));
  camera.Busy = true;
  camera.Feed(Frame(3));
  camera.Busy = false;
  camera.FeedAll({Frame(4), Frame(5)});
  EXPECT_EQ(camera.Log, GoodEnd(100, 100) + FramePublished(100) +   // frame 1
                            BadEnd(85, 100) + FrameBusy(85) +       // frame 2
                            GoodEnd(100, 100) + FrameDiscarded() +  // frame 3
                            GoodEnd(100, 100) + FramePublished(100));
  EXPECT_EQ(camera.Published.back(), Copy(Frame(4)));
}

TEST_P(DisturbedStream, AFrameLongerThanTheBufferIsPublishedWithItsStoredBytesAndAHole) {
  StreamingCamera camera(GetParam());
  const std::vector<Packet> tooLong = {Start(40, 2), Body(40, 3),
                                       Body(40, 4),  Body(50, 5),  // 170 is beyond the buffer
                                       Body(30, 6),                // 150 is not
                                       Body(20, 7)};
  const std::vector<Packet> stored = {Start(40, 2), Body(40, 3), Body(40, 4), Body(30, 6)};
  camera.FeedAll({tooLong, Frame(8), Frame(9)});
  EXPECT_EQ(camera.Log, GoodEnd(100, 100) + FramePublished(100) +     //
                            BadEnd(220, 100) + FramePublished(150) +  //
                            GoodEnd(100, 100) + FrameDiscarded());
  EXPECT_EQ(camera.Published.back(), Copy(stored));
}

TEST_P(SettlingStream, TwoFramesAreLostAtAChangeOfLightState) {
  StreamingCamera camera(GetParam());
  camera.Feed(Frame(2));
  camera.Context.FrameSettleCount = 0;
  camera.FeedAll({Frame(3), Frame(4), Frame(5)});
  EXPECT_EQ(camera.Log, GoodEnd(100, 100) + FramePublished(100) +   // frame 1
                            SettlingEnd(100, 100) +                 // frame 2 is not published
                            GoodEnd(100, 100) + FrameDiscarded() +  // frame 3 was not stored
                            GoodEnd(100, 100) + FramePublished(100));
  EXPECT_EQ(camera.Published, (std::vector{Copy(Frame(1)), Copy(Frame(4))}));
  EXPECT_EQ(camera.Context.FrameSettleCount, 5U);
}

TEST_P(SettlingStream, AWrongSizeAtTheSettlingMarkerIsPrintedAndCostsNoThirdFrame) {
  StreamingCamera camera(GetParam());
  camera.Feed(FrameOf(85, 2));
  camera.Context.FrameSettleCount = 0;
  camera.FeedAll({Frame(3), Frame(4), Frame(5)});
  const Lines printed = {"ReceivedRawFrameBuffer = 85", "Correct RawFrameBuffer = 100"};
  EXPECT_EQ(camera.Log, GoodEnd(100, 100) + FramePublished(100) +   //
                            printed + SettlingEnd(85, 100) +        //
                            GoodEnd(100, 100) + FrameDiscarded() +  //
                            GoodEnd(100, 100) + FramePublished(100));
  EXPECT_EQ(camera.Published.back(), Copy(Frame(4)));
}

TEST_P(UnknownFrameSize, BelowTenNoFrameIsGoodAndNoneIsPublished) {
  AssemblyFixture camera(9, kBuffer, GetParam());
  camera.Context.ReceivedFrameBytes = 9;
  camera.BeginStream(5);
  const std::vector<Packet> tiny = {Start(9, 1)};
  for (int frame = 0; frame < 3; ++frame) camera.Feed(tiny);
  EXPECT_EQ(camera.Log, BadEnd(9, 9) + FrameDiscarded() +  //
                            BadEnd(9, 9) + FrameDiscarded() + BadEnd(9, 9) + FrameDiscarded());
  EXPECT_THAT(camera.Published, IsEmpty());
}

}  // namespace
}  // namespace lidcam::test
