// Every property of the four sets with every length of buffer around the one that it needs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/driver/avstream/properties/camera_properties_requests.h"

namespace lidcam::test {
namespace {

using ::testing::IsEmpty;

struct Need {
  std::size_t Bytes;
  NTSTATUS Enough;               // the status from that length on
  NTSTATUS Nothing = kTooSmall;  // the status of length 0
};
using Needs = std::map<ULONG, Need>;
using Ask = Reply (*)(PropertyCamera& camera, const GUID& set, ULONG id, Block block);

Reply AskGet(PropertyCamera& camera, const GUID& set, ULONG id, Block block) {
  return camera.Get(set, id, std::move(block));
}

Reply AskGetOf640(PropertyCamera& camera, const GUID& set, ULONG id, Block block) {
  return camera.Get(set, id, std::move(block), 640);
}

Reply AskSet(PropertyCamera& camera, const GUID& set, ULONG id, Block block) {
  return camera.Set(set, id, std::move(block));
}

// A block whose value is harmless for every control, and whose register exists.
Block ClientBlock(std::size_t bytes) {
  Block block(bytes);
  if (bytes >= 28) block.Put(24, 1);
  if (bytes >= 36) block.Put(32, 0xFF0B);
  if (bytes >= 40) block.Put(36, 2);
  if (bytes >= 132) block.Put(128, 0xFF0B);
  return block;
}

void ExpectLength(Ask ask, const GUID& set, ULONG id, const Need& need, std::size_t length) {
  SCOPED_TRACE(::testing::Message() << "set " << set.Data1 << " id " << id << " length " << length);
  PropertyCamera camera;
  const Reply reply = ask(camera, set, id, ClientBlock(length));
  if (length < need.Bytes) {
    EXPECT_EQ(reply.Status, length == 0 ? need.Nothing : kTooSmall);
    EXPECT_EQ(reply.Information, need.Bytes);
    EXPECT_EQ(reply.Data, ClientBlock(length));
    EXPECT_THAT(camera.Packets(), IsEmpty());
  } else {
    EXPECT_EQ(reply.Status, need.Enough);
    if (reply.Information != kUntouched) {
      EXPECT_EQ(reply.Information, need.Bytes) << "frame rates only";
      EXPECT_TRUE(set.Data1 == kClientVideoControl.Data1 && id == 2);
    }
  }
}

void ExpectNeeds(Ask ask, const GUID& set, const Needs& needs) {
  for (ULONG id = 0; id < 40; ++id) {
    const auto known = needs.find(id);
    const Need need = known != needs.end() ? known->second : Need{0, kNotSupported};
    const std::size_t last = known != needs.end() ? need.Bytes + 1 : 133;
    for (std::size_t length = 0; length <= last; ++length) {
      ExpectLength(ask, set, id, need, length);
    }
  }
}

const Needs kVideoProcAmpNeeds = {{0, {40, kSuccess}}, {1, {40, kSuccess}}, {3, {40, kSuccess}},
                                  {4, {40, kSuccess}}, {5, {40, kSuccess}}, {6, {40, kSuccess}},
                                  {7, {40, kSuccess}}, {8, {40, kSuccess}}};

// Unknown codes are refused by the control, after the check of the length.
const Needs kCameraControlNeeds = {{0, {40, kNotSupported}}, {1, {40, kNotSupported}},
                                   {3, {40, kNotSupported}}, {4, {40, kSuccess}},
                                   {5, {40, kNotSupported}}, {6, {40, kNotSupported}}};

TEST(PropertyLengths, GetsOfPictureAndCameraControlsNeed40Bytes) {
  ExpectNeeds(AskGet, kClientVideoProcAmp, kVideoProcAmpNeeds);
  ExpectNeeds(AskGet, kClientCameraControl, kCameraControlNeeds);
}

TEST(PropertyLengths, SetsOfPictureAndCameraControlsNeed40Bytes) {
  ExpectNeeds(AskSet, kClientVideoProcAmp, kVideoProcAmpNeeds);
  ExpectNeeds(AskSet, kClientCameraControl, kCameraControlNeeds);
}

TEST(PropertyLengths, GetsOfVideoControlTellTheirLengthWhenAskedForNothing) {
  ExpectNeeds(AskGet, kClientVideoControl,
              {{0, {32, kSuccess}},
               {1, {56, kSuccess, kOverflow}},
               {2, {64, kSuccess, kOverflow}},
               {3, {32, kSuccess}}});
  ExpectNeeds(AskGetOf640, kClientVideoControl,
              {{0, {32, kSuccess}},
               {1, {56, kSuccess, kOverflow}},
               {2, {40, kSuccess, kOverflow}},
               {3, {32, kSuccess}}});
}

TEST(PropertyLengths, OnlyTheTriggerModeOfVideoControlCanBeSet) {
  ExpectNeeds(AskSet, kClientVideoControl, {{3, {32, kSuccess}}});
}

TEST(PropertyLengths, PrivateGetsNeed52BytesAndARegisterRead132) {
  ExpectNeeds(AskGet, kClientPrivate,
              {{11, {52, kSuccess}},
               {13, {52, kSuccess}},
               {14, {52, kSuccess}},
               {15, {52, kSuccess}},
               {16, {132, kSuccess}},
               {17, {52, kSuccess}},
               {18, {52, kSuccess}},
               {19, {52, kSuccess}},
               {20, {52, kSuccess}},
               {21, {52, kSuccess}},
               {22, {52, kSuccess}}});
}

TEST(PropertyLengths, PrivateSetsNeed52Bytes) {
  ExpectNeeds(AskSet, kClientPrivate,
              {{10, {52, kNotSupported}},
               {11, {52, kSuccess}},
               {13, {52, kSuccess}},
               {14, {52, kSuccess}},
               {15, {52, kSuccess}},
               {16, {52, kSuccess}},
               {17, {52, kNotSupported}},
               {18, {52, kSuccess}},
               {19, {52, kSuccess}},
               {20, {52, kSuccess}},
               {21, {52, kSuccess}},
               {22, {52, kSuccess}}});
}

TEST(PropertyLengths, ARegisterReadFrom131BytesIsTooSmallAndReadsNoRegister) {
  PropertyCamera camera;
  const Reply reply = camera.Get(kClientPrivate, 16, ClientBlock(131));
  EXPECT_EQ(reply.Status, kTooSmall);
  EXPECT_EQ(reply.Information, 132U);
  EXPECT_THAT(camera.Packets(), IsEmpty());
}

}  // namespace
}  // namespace lidcam::test
