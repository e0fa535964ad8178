// What a client finds when it lists the camera's properties.

#include "driver/avstream/properties/property_sets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "driver/avstream/properties/control_translation.h"
#include "driver/avstream/properties/frame_rates.h"
#include "tests/driver/avstream/properties/camera_properties_requests.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;

NTSTATUS NTAPI OnGet(PIRP, PKSIDENTIFIER, PVOID) {
  return 1;
}

NTSTATUS NTAPI OnSet(PIRP, PKSIDENTIFIER, PVOID) {
  return 2;
}

constexpr CameraPropertySets kSets{OnGet, OnSet};

struct Range {
  LONG Minimum;
  LONG Maximum;
  LONG Default;
};

struct ItemRow {
  ULONG Id;
  ULONG MinProperty;
  ULONG MinData;
  bool CanGet;
  bool CanSet;
  std::vector<Range> Values;
};

ItemRow Ranged(ULONG id, ULONG bytes, Range range) {
  return {id, bytes, bytes, true, true, {range}};
}

void ExpectRange(const KSPROPERTY_VALUES& values, const Range& expected) {
  const GUID general = {
      0x97E99BA0, 0xBDEA, 0x11CF, {0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00}};
  EXPECT_EQ(std::memcmp(&values.PropTypeSet.Set, &general, 16), 0);
  EXPECT_EQ(values.PropTypeSet.Id, 3U);
  EXPECT_EQ(values.PropTypeSet.Flags, 0U);
  ASSERT_EQ(values.MembersListCount, 2U);

  const KSPROPERTY_MEMBERSLIST& range = values.MembersList[0];
  EXPECT_EQ(range.MembersHeader.MembersFlags, 2U) << "stepped ranges";
  EXPECT_EQ(range.MembersHeader.MembersSize, 16U);
  EXPECT_EQ(range.MembersHeader.MembersCount, 1U);
  EXPECT_EQ(range.MembersHeader.Flags, 0U);
  const auto& stepped = *static_cast<const KSPROPERTY_STEPPING_LONG*>(range.Members);
  EXPECT_EQ(stepped.SteppingDelta, 1U);
  EXPECT_EQ(stepped.Reserved, 0U);
  EXPECT_EQ(stepped.Bounds.SignedMinimum, expected.Minimum);
  EXPECT_EQ(stepped.Bounds.SignedMaximum, expected.Maximum);

  const KSPROPERTY_MEMBERSLIST& member = values.MembersList[1];
  EXPECT_EQ(member.MembersHeader.MembersFlags, 3U) << "values";
  EXPECT_EQ(member.MembersHeader.MembersSize, 4U);
  EXPECT_EQ(member.MembersHeader.MembersCount, 1U);
  EXPECT_EQ(member.MembersHeader.Flags, 1U) << "default";
  EXPECT_EQ(*static_cast<const LONG*>(member.Members), expected.Default);
}

void ExpectSet(const KSPROPERTY_SET& set, const GUID& guid, const std::vector<ItemRow>& rows) {
  EXPECT_EQ(std::memcmp(set.Set, &guid, 16), 0);
  EXPECT_EQ(set.FastIoCount, 0U);
  EXPECT_EQ(set.FastIoTable, nullptr);
  ASSERT_EQ(set.PropertiesCount, rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const KSPROPERTY_ITEM& item = set.PropertyItem[i];
    const ItemRow& row = rows[i];
    SCOPED_TRACE(::testing::Message() << "item " << i + 1 << " id " << row.Id);
    EXPECT_EQ(item.PropertyId, row.Id);
    EXPECT_EQ(item.MinProperty, row.MinProperty);
    EXPECT_EQ(item.MinData, row.MinData);
    EXPECT_EQ(item.GetPropertyHandler, row.CanGet ? OnGet : nullptr);
    EXPECT_EQ(item.SetPropertyHandler, row.CanSet ? OnSet : nullptr);
    EXPECT_EQ(item.RelationsCount, 0U);
    EXPECT_EQ(item.Relations, nullptr);
    EXPECT_EQ(item.SupportHandler, nullptr);
    EXPECT_EQ(item.SerializedSize, row.Values.empty() ? 0U : 4U);
    ASSERT_EQ(item.Values == nullptr, row.Values.empty());
    if (item.Values != nullptr) ExpectRange(*item.Values, row.Values[0]);
  }
}

TEST(PropertyTables, PictureControlsComeInTheirOrderWithRangesAndDefaults) {
  ExpectSet(kSets.Sets[0], kClientVideoProcAmp,
            {Ranged(0, 40, {-100, 100, 0}), Ranged(4, 40, {0, 8, 4}), Ranged(3, 40, {0, 255, 120}),
             Ranged(1, 40, {1, 16, 10}), Ranged(5, 40, {1, 20, 12}), Ranged(7, 40, {0, 1, 1}),
             Ranged(8, 40, {0, 1, 0}), Ranged(6, 40, {0, 1, 1})});
}

TEST(PropertyTables, HueIsAbsent) {
  for (const KSPROPERTY_ITEM& item : kSets.VideoProcAmp) EXPECT_NE(item.PropertyId, 2U);
}

TEST(PropertyTables, ExposureIsTheOnlyCameraControl) {
  ExpectSet(kSets.Sets[1], kClientCameraControl, {Ranged(4, 40, {1, 100, 1})});
}

TEST(PropertyTables, VideoControlHasFourItemsWithoutRanges) {
  ExpectSet(kSets.Sets[2], kClientVideoControl,
            {{0, 32, 32, true, false, {}},
             {1, 56, 56, true, false, {}},
             {2, 40, 0, true, false, {}},
             {3, 32, 32, true, true, {}}});
}

TEST(PropertyTables, PrivateSetHasThirteenItemsAndRepeatsTheRegister) {
  ExpectSet(kSets.Sets[3], kClientPrivate,
            {Ranged(14, 52, {0, 500, 1}), Ranged(15, 52, {0, 500, 1}), Ranged(11, 52, {0, 500, 1}),
             Ranged(13, 52, {0, 500, 1}), Ranged(10, 52, {0, 500, 1}), Ranged(17, 52, {0, 500, 1}),
             Ranged(16, 52, {0, 500, 1}), Ranged(18, 52, {0, 500, 1}), Ranged(19, 52, {0, 500, 1}),
             Ranged(20, 52, {0, 20, 0}), Ranged(21, 52, {0, 40, 20}), Ranged(22, 52, {0, 30, 15}),
             Ranged(16, 52, {0, 500, 1})});
}

TEST(PropertyTables, PrivateBlockHas52BytesWhateverPaddingSays) {
  EXPECT_EQ(sizeof(PrivatePropertyBlock), 52U);
  EXPECT_EQ(offsetof(PrivatePropertyBlock, Value), 24U);
  EXPECT_EQ(offsetof(PrivatePropertyBlock, Register), 32U);
  EXPECT_EQ(offsetof(PrivatePropertyBlock, Led), 36U);
}

TEST(PropertyTables, DefaultOfStoredControl44IsReadFromAWritableWord) {
  const auto* const word =
      static_cast<const LONG*>(kSets.Private[9].Values->MembersList[1].Members);
  EXPECT_EQ(word, &DefaultOfStored44);
  EXPECT_EQ(*word, 0);
  DefaultOfStored44 = 5;
  EXPECT_EQ(*word, 5);
  DefaultOfStored44 = 0;
}

TEST(PropertyTables, PlatformChecksExactlyTheBytesThatATranslationNeeds) {
  for (const KSPROPERTY_SET& set : kSets.Sets) {
    for (ULONG i = 0; i < set.PropertiesCount; ++i) {
      const KSPROPERTY_ITEM& item = set.PropertyItem[i];
      const CameraProperty request = FindCameraProperty({*set.Set, item.PropertyId, 0});
      SCOPED_TRACE(::testing::Message() << "set " << set.Set->Data1 << " id " << item.PropertyId);
      const ULONG toSet = PropertyBlockBytes(request, PropertyDirection::Set);
      const ULONG toGet = PropertyBlockBytes(request, PropertyDirection::Get);
      EXPECT_EQ(toSet, item.SetPropertyHandler != nullptr ? item.MinData : 0);
      if (set.Set == &PROPSETID_CAMERA_PRIVATE && item.PropertyId == 10) {
        EXPECT_EQ(toGet, 0U) << "can't be read";
      } else if (set.Set == &PROPSETID_CAMERA_PRIVATE && item.PropertyId == 16) {
        EXPECT_EQ(toGet, 132U) << "the register lies behind the block";
      } else {
        EXPECT_EQ(toGet, item.MinData);
      }
    }
  }
}

TEST(PropertyTables, FrameIntervalsOfBothListsInOrder) {
  EXPECT_THAT(FrameRatesSmall,
              ElementsAre(1000000, 833333, 666666, 555555, 500000, 400000, 333333));
  EXPECT_THAT(FrameRatesLarge, ElementsAre(1666666, 1000000, 833333, 666666));
}

}  // namespace
}  // namespace lidcam::test
