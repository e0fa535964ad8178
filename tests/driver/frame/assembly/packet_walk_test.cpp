// The packet walk with a parser other than the camera's: one that forces publishing and has packets
// stored in part.

#include "driver/frame/assembly/packet_walk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "tests/driver/frame/assembly/assembly_fixture.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Bytes at a packet's head that give the parser's answer: frame end, flags, offset, size.
constexpr std::uint32_t kTagBytes = 4;

std::uint32_t ParseTaggedPacket(CameraContext&, const std::uint8_t* data, std::uint32_t length,
                                std::uint8_t& frameEnd, std::uint32_t& flags,
                                std::uint32_t& offset) {
  frameEnd = 0;
  flags = 0;
  offset = 0;
  if (length < kTagBytes) return length;
  frameEnd = data[0];
  flags = data[1];
  offset = data[2];
  return data[3];
}

struct Tag {
  std::uint8_t FrameEnd = 0;
  std::uint8_t Flags = 0;
  std::uint8_t Offset = 0;
  std::uint8_t Size = 0;
};

Packet Tagged(const Tag& tag, const Packet& payload) {
  return Joined({{tag.FrameEnd, tag.Flags, tag.Offset, tag.Size}, payload});
}

/// A frame in progress with two bytes stored; packets lie end to end in one transfer.
struct TaggedStream : AssemblyFixture {
  TaggedStream() : AssemblyFixture(100, 20) {
    FeedTagged({Tagged({0, 0, 4, 2}, {1, 2})});
    Log.clear();
  }

  void FeedTagged(const std::vector<Packet>& packets) {
    std::vector<TransferPacket> places;
    std::uint32_t offset = 0;
    for (const Packet& packet : packets) {
      places.push_back({offset, static_cast<std::uint32_t>(packet.size())});
      offset += places.back().Length;
    }
    PacketWalk<ParseTaggedPacket> walk(Assembly, Context);
    TakeTransfer(walk, Joined(packets).data(), offset, places.data(),
                 static_cast<std::uint32_t>(places.size()));
  }
};

TEST(OtherParser, ItsOffsetIsLeftOutAndItsSizeIsStored) {
  TaggedStream camera;
  camera.FeedTagged({Tagged({0, 0, 5, 3}, {9, 3, 4, 5, 9})});
  EXPECT_EQ(camera.Stored(), (Packet{1, 2, 3, 4, 5}));
  EXPECT_EQ(camera.Assembly.FillFrameBytes, 5U);
}

TEST(OtherParser, PiecesOfPacketsThatLieEndToEndAreStoredEndToEnd) {
  TaggedStream camera;
  camera.FeedTagged(
      {Tagged({0, 0, 4, 1}, {3, 9}), Tagged({0, 0, 5, 2}, {9, 4, 5}), Tagged({0, 0, 4, 1}, {6})});
  EXPECT_EQ(camera.Stored(), (Packet{1, 2, 3, 4, 5, 6}));
}

// The second packet's piece ends where the first one's begins.
TEST(OtherParser, PiecesOfPacketsThatLieInReverseAreStoredInThePacketsOrder) {
  TaggedStream camera;
  const Packet buffer = {0, 0, 4, 4, 0, 0, 4, 4, 5, 6, 7, 8};
  const TransferPacket places[] = {{4, 8}, {0, 8}};
  PacketWalk<ParseTaggedPacket> walk(camera.Assembly, camera.Context);
  TakeTransfer(walk, buffer.data(), 12, places, 2);
  EXPECT_EQ(camera.Stored(), (Packet{1, 2, 5, 6, 7, 8, 0, 0, 4, 4}));
}

TEST(OtherParser, APacketOfWhichNothingIsToBeStoredChangesNothing) {
  TaggedStream camera;
  camera.FeedTagged({Tagged({0, 0, 4, 0}, {7, 7})});
  EXPECT_EQ(camera.Stored(), (Packet{1, 2}));
  EXPECT_EQ(camera.Assembly.FillFrameBytes, 2U);
}

TEST(OtherParser, TheBufferBoundIsTakenOfTheSizeAndNotOfTheLength) {
  TaggedStream camera;
  camera.FeedTagged({Tagged({0, 0, 4, 18}, Body(30, 3))});
  EXPECT_EQ(camera.Stored(), Joined({{1, 2}, Body(18, 3)}));
}

TEST(OtherParser, AFrameEndStoresItsPieceAsTheNextFramesBegin) {
  TaggedStream camera;
  camera.FeedTagged({Tagged({1, 0, 5, 2}, {9, 3, 4})});
  EXPECT_THAT(camera.Published, ElementsAre(PublishedCopy{{1, 2}, 2}));
  EXPECT_EQ(camera.Stored(), (Packet{3, 4}));
  EXPECT_EQ(camera.Assembly.FillFrameBytes, 2U);
}

TEST(OtherParser, AFrameEndWithNothingToStoreBeginsAnEmptyFrame) {
  TaggedStream camera;
  camera.FeedTagged({Tagged({1, 0, 4, 0}, {9})});
  EXPECT_EQ(camera.Published.size(), 1U);
  EXPECT_THAT(camera.Stored(), IsEmpty());
  EXPECT_EQ(camera.Assembly.FillFrameBytes, 0U);
}

TEST(OtherParser, AForcedFrameEndPublishesWhatWouldBeDiscarded) {
  TaggedStream camera;
  camera.Assembly.DiscardFrame = 1;
  camera.FeedTagged({Tagged({1, 8, 4, 1}, {3})});
  EXPECT_THAT(camera.Published, ElementsAre(PublishedCopy{{1, 2}, 2}));
  EXPECT_EQ(camera.Log, FramePublished(2));
  EXPECT_EQ(camera.Assembly.ForcePublish, 0);
  EXPECT_EQ(camera.Assembly.DiscardFrame, 0);
  EXPECT_EQ(camera.Stored(), Packet{3});
}

TEST(OtherParser, AForcedPublishAskedForWithinAFrameWaitsForItsEnd) {
  TaggedStream camera;
  camera.FeedTagged({Tagged({0, 10, 4, 1}, {3})});
  EXPECT_EQ(camera.Assembly.ForcePublish, 1);
  EXPECT_EQ(camera.Assembly.DiscardFrame, 1);
  EXPECT_THAT(camera.Published, IsEmpty());
  camera.FeedTagged({Tagged({1, 0, 4, 1}, {4})});
  EXPECT_THAT(camera.Published, ElementsAre(PublishedCopy{{1, 2}, 2}));
  EXPECT_EQ(camera.Assembly.ForcePublish, 0);
}

TEST(OtherParser, AForcedFrameEndThatIsBadStillPunishesTheNext) {
  TaggedStream camera;
  camera.Assembly.DiscardFrame = 1;
  camera.FeedTagged({Tagged({1, 10, 4, 1}, {3})});
  EXPECT_EQ(camera.Published.size(), 1U);
  EXPECT_EQ(camera.Assembly.DiscardFrame, 1);
  EXPECT_EQ(camera.Assembly.BadFrameEnd, 0);
  EXPECT_THAT(camera.Stored(), IsEmpty());
}

}  // namespace
}  // namespace lidcam::test
