// Property requests as control records and back, without a camera.

#include "driver/avstream/properties/control_translation.h"

#include <gtest/gtest.h>

#include "tests/driver/avstream/properties/camera_properties_requests.h"

namespace lidcam::test {
namespace {

using Codes = std::map<ULONG, std::uint32_t>;

constexpr ULONG kIds = 64;
const std::vector<ULONG> kFarIds = {0x100, 0x10000, 0x80000000, 0xFFFFFFFF};

ControlRecord FreshRecord() {
  return {.Code = 0xA0,
          .Value = 0xA1,
          .Value2 = 0xA2,
          .Flags = 0xA3,
          .Caps = 0xA4,
          .Words = {0xA5, 0xA6, 0xA7, 0xA8, 0xA9, 0xAA}};
}

bool operator==(const ControlRecord& a, const ControlRecord& b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0;
}

CameraProperty Request(const GUID& set, ULONG id) {
  return FindCameraProperty({set, id, 0});
}

// A block of the longest request, its words numbered.
Block NumberedBlock() {
  Block block(136);
  for (std::uint32_t offset = 0; offset < 136; offset += 4) block.Put(offset, 0x5000 + offset);
  return block;
}

ControlRecord Set(const GUID& set, ULONG id, Block block) {
  ControlRecord record = FreshRecord();
  EXPECT_EQ(TranslateSet(Request(set, id), block.Data(), record), kSuccess);
  return record;
}

using Translate = NTSTATUS (*)(const CameraProperty&, const void*, ControlRecord&);

void ExpectCodes(Translate translate, const GUID& set, const Codes& expected) {
  std::vector<ULONG> ids = kFarIds;
  for (ULONG id = 0; id < kIds; ++id) ids.push_back(id);
  for (const ULONG id : ids) {
    SCOPED_TRACE(::testing::Message() << "set " << set.Data1 << " id " << id);
    Block block = NumberedBlock();
    ControlRecord record = FreshRecord();
    const NTSTATUS status = translate(Request(set, id), block.Data(), record);
    if (const auto code = expected.find(id); code != expected.end()) {
      EXPECT_EQ(status, kSuccess);
      EXPECT_EQ(record.Code, code->second);
    } else {
      EXPECT_EQ(status, kNotSupported);
      EXPECT_TRUE(record == FreshRecord());
    }
    EXPECT_EQ(block, NumberedBlock()) << "a translation writes nothing to the client";
  }
}

const Codes kVideoProcAmp = {{0, 0}, {1, 1}, {3, 2}, {4, 3}, {5, 4}, {6, 5}, {7, 6}, {8, 7}};
const Codes kCameraControl = {{0, 10}, {1, 10}, {3, 11}, {4, 12}, {5, 16}, {6, 17}};

TEST(PropertyTranslation, SetsOfEveryIdHaveTheirCode) {
  ExpectCodes(TranslateSet, kClientVideoProcAmp, kVideoProcAmp);
  ExpectCodes(TranslateSet, kClientCameraControl, kCameraControl);
  ExpectCodes(TranslateSet, kClientVideoControl, {{3, 23}});
  ExpectCodes(TranslateSet, kClientPrivate,
              {{10, 48},
               {11, 47},
               {13, 40},
               {14, 38},
               {15, 39},
               {16, 37},
               {17, 48},
               {18, 41},
               {19, 43},
               {20, 44},
               {21, 45},
               {22, 46}});
}

TEST(PropertyTranslation, GetsOfEveryIdHaveTheirCode) {
  ExpectCodes(TranslateGet, kClientVideoProcAmp, kVideoProcAmp);
  ExpectCodes(TranslateGet, kClientCameraControl, kCameraControl);
  ExpectCodes(TranslateGet, kClientVideoControl, {{0, 24}, {1, 25}, {3, 23}});
  ExpectCodes(TranslateGet, kClientPrivate,
              {{11, 47},
               {13, 40},
               {14, 38},
               {15, 39},
               {16, 37},
               {17, 42},
               {18, 41},
               {19, 43},
               {20, 44},
               {21, 45},
               {22, 46}});
}

TEST(PropertyTranslation, SettableIdsWithoutAControlHaveACodeAboveAllOthers) {
  EXPECT_GT(Set(kClientPrivate, 10, NumberedBlock()).Code, 47U);
  EXPECT_GT(Set(kClientPrivate, 17, NumberedBlock()).Code, 47U);
}

TEST(PropertyTranslation, PictureControlsCarryValueAndTheTwoModeFlags) {
  for (const auto& [id, code] : kVideoProcAmp) {
    for (std::uint32_t flags = 0; flags < 64; ++flags) {
      const Block block = Block(40).Put(24, 0xFFFFFF9C).Put(28, flags);
      ControlRecord expected = FreshRecord();
      expected.Code = code;
      expected.Value = -100;
      expected.Flags = flags & 3;
      EXPECT_TRUE(Set(kClientVideoProcAmp, id, block) == expected) << id << " flags " << flags;
    }
  }
}

TEST(PropertyTranslation, FlagsBoth1And2OfAPictureControlStay3) {
  EXPECT_EQ(Set(kClientVideoProcAmp, 0, Block(40).Put(28, 3)).Flags, 3U);
}

TEST(PropertyTranslation, RelativeIsDroppedForPictureControlsAnd8ForCameraControls) {
  EXPECT_EQ(Set(kClientVideoProcAmp, 0, Block(40).Put(28, 0x10)).Flags, 0U);
  EXPECT_EQ(Set(kClientCameraControl, 4, Block(40).Put(28, 0x10)).Flags, 8U);
}

TEST(PropertyTranslation, CameraControlsCarryValueModeAndRelative) {
  for (const auto& [id, code] : kCameraControl) {
    for (std::uint32_t flags = 0; flags < 64; ++flags) {
      const Block block = Block(40).Put(24, 77).Put(28, flags);
      ControlRecord expected = FreshRecord();
      expected.Code = code;
      expected.Value = 77;
      expected.Flags = (flags & 3) + (flags & 0x10) / 2;
      EXPECT_TRUE(Set(kClientCameraControl, id, block) == expected) << id << " flags " << flags;
    }
  }
}

TEST(PropertyTranslation, TriggerModeCarriesTwoFlagsAndNoValue) {
  for (std::uint32_t mode = 0; mode < 64; ++mode) {
    ControlRecord expected = FreshRecord();
    expected.Code = 23;
    expected.Flags = (mode & 4) * 16 + (mode & 8) * 16;
    EXPECT_TRUE(Set(kClientVideoControl, 3, Block(32).Put(28, mode)) == expected) << mode;
  }
}

TEST(PropertyTranslation, PrivateSetsCarryTheValueAndTwoOfThemAlsoCaps) {
  const Block block = Block(52).Put(24, 0x80000001).Put(32, 0xFF0B).Put(36, 4);
  for (const ULONG id : {10U, 11U, 13U, 14U, 15U, 16U, 17U, 18U, 19U, 20U, 21U, 22U}) {
    const ControlRecord record = Set(kClientPrivate, id, block);
    ControlRecord expected = FreshRecord();
    expected.Code = record.Code;
    expected.Value = static_cast<std::int32_t>(0x80000001);
    if (id == 16) expected.Caps = 0xFF0B;
    if (id == 18) expected.Caps = 4;
    EXPECT_TRUE(record == expected) << id;
  }
}

TEST(PropertyTranslation, GetsCopyNoInputButTheRegisterAtOffset128) {
  for (const GUID& set :
       {kClientVideoProcAmp, kClientCameraControl, kClientVideoControl, kClientPrivate}) {
    for (ULONG id = 0; id < kIds; ++id) {
      Block block = NumberedBlock();
      ControlRecord record = FreshRecord();
      if (TranslateGet(Request(set, id), block.Data(), record) != kSuccess) continue;
      ControlRecord expected = FreshRecord();
      expected.Code = record.Code;
      if (record.Code == 37) expected.Value = 0x5000 + 128;
      EXPECT_TRUE(record == expected) << set.Data1 << " id " << id;
    }
  }
}

// What a reply leaves in a fresh block: offset and word, all else as it was.
Block Replied(std::size_t bytes, const std::map<std::size_t, std::uint32_t>& words) {
  Block block(bytes);
  for (const auto& [offset, word] : words) block.Put(offset, word);
  return block;
}

Block ReplyTo(const GUID& set, ULONG id, std::size_t bytes, const ControlRecord& record) {
  Block block(bytes);
  TranslateReply(Request(set, id), record, block.Data());
  return block;
}

TEST(PropertyTranslation, RepliesOfPictureControlsShowValueFlagsAndCapabilities) {
  for (const auto& [id, code] : kVideoProcAmp) {
    for (std::uint32_t bits = 0; bits < 64; ++bits) {
      const ControlRecord record{
          .Code = code, .Value = -3, .Value2 = 9, .Flags = bits, .Caps = 63 - bits, .Words = {}};
      EXPECT_EQ(ReplyTo(kClientVideoProcAmp, id, 40, record),
                Replied(40, {{24, 0xFFFFFFFD}, {28, bits & 3}, {32, (63 - bits) & 3}}))
          << id << " bits " << bits;
    }
  }
}

TEST(PropertyTranslation, RelativeCapabilityOfACameraControlComesFromFlagsNotCaps) {
  for (const auto& [id, code] : kCameraControl) {
    for (std::uint32_t bits = 0; bits < 64; ++bits) {
      const std::uint32_t relative = (bits & 8) * 2;
      const ControlRecord record{
          .Code = code, .Value = 55, .Value2 = 9, .Flags = bits, .Caps = 63 - bits, .Words = {}};
      EXPECT_EQ(
          ReplyTo(kClientCameraControl, id, 40, record),
          Replied(40, {{24, 55}, {28, (bits & 3) + relative}, {32, ((63 - bits) & 3) + relative}}))
          << id << " bits " << bits;
    }
  }
}

TEST(PropertyTranslation, RepliesOfVideoControlShowOnlyTheUpperTriggerBits) {
  for (std::uint32_t bits = 0; bits < 0x200; bits += 0x10) {
    const std::uint32_t shown = ((bits & 0x40) != 0 ? 4U : 0U) + ((bits & 0x80) != 0 ? 8U : 0U);
    const ControlRecord caps{
        .Code = 24, .Value = 1, .Value2 = 2, .Flags = ~bits, .Caps = bits, .Words = {}};
    EXPECT_EQ(ReplyTo(kClientVideoControl, 0, 32, caps), Replied(32, {{28, shown}})) << bits;
    const ControlRecord mode{
        .Code = 23, .Value = 1, .Value2 = 2, .Flags = bits, .Caps = ~bits, .Words = {}};
    EXPECT_EQ(ReplyTo(kClientVideoControl, 3, 32, mode), Replied(32, {{28, shown}})) << bits;
  }
}

TEST(PropertyTranslation, FrameIntervalsAreWidenedWithZero) {
  const ControlRecord record{
      .Code = 25, .Value = -2, .Value2 = -1, .Flags = 2, .Caps = 2, .Words = {}};
  EXPECT_EQ(ReplyTo(kClientVideoControl, 1, 56, record),
            Replied(56, {{40, 0xFFFFFFFE}, {44, 0}, {48, 0xFFFFFFFF}, {52, 0}}));
}

TEST(PropertyTranslation, PrivateRepliesShowTheValueAndTheLedOfId18) {
  const ControlRecord record{
      .Code = 0, .Value = -7, .Value2 = 1, .Flags = 2, .Caps = 4, .Words = {}};
  for (const ULONG id : {11U, 13U, 14U, 15U, 17U, 19U, 20U, 21U, 22U}) {
    EXPECT_EQ(ReplyTo(kClientPrivate, id, 52, record), Replied(52, {{24, 0xFFFFFFF9}})) << id;
  }
  EXPECT_EQ(ReplyTo(kClientPrivate, 16, 132, record), Replied(132, {{24, 0xFFFFFFF9}}));
  EXPECT_EQ(ReplyTo(kClientPrivate, 18, 52, record), Replied(52, {{24, 0xFFFFFFF9}, {36, 4}}));
}

TEST(PropertyTranslation, RequestsThatNoControlAnswersGetNoReply) {
  for (const ULONG id : {0U, 9U, 10U, 12U, 23U}) {
    EXPECT_EQ(ReplyTo(kClientPrivate, id, 52, FreshRecord()), Block(52)) << id;
  }
  EXPECT_EQ(ReplyTo(kClientVideoProcAmp, 2, 40, FreshRecord()), Block(40));
  EXPECT_EQ(ReplyTo(kForeignSet, 38, 52, FreshRecord()), Block(52));
}

TEST(PropertyTranslation, AForeignSetGoesOnUnderItsIdWithTheBlocksAddress) {
  Block block(52);
  ControlRecord record = FreshRecord();
  ControlRecord expected = FreshRecord();
  expected.Code = 38;
  EXPECT_EQ(TranslateGet(Request(kForeignSet, 38), block.Data(), record), kSuccess);
  EXPECT_TRUE(record == expected);
  const auto address = reinterpret_cast<std::uintptr_t>(block.Data());
  expected.Value = static_cast<std::int32_t>(static_cast<std::uint32_t>(address & 0xFFFFFFFF));
  EXPECT_EQ(TranslateSet(Request(kForeignSet, 38), block.Data(), record), kSuccess);
  EXPECT_TRUE(record == expected);
  EXPECT_EQ(PropertyBlockBytes(Request(kForeignSet, 38), PropertyDirection::Set), 0U);
  EXPECT_EQ(PropertyBlockBytes(Request(kForeignSet, 38), PropertyDirection::Get), 0U);
}

}  // namespace
}  // namespace lidcam::test
