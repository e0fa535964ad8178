#include "driver/avstream/filter/capture_filter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/host/nt/memory/pool.h"
#include "tests/driver/avstream/support/surface_world.h"
#include "tests/driver/support/statuses.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;

struct WorldFilter {
  FakeBag Bag;
  KSFILTER Filter{};

  WorldFilter() { Filter.Bag = &Bag; }
  NTSTATUS Create() { return kFilterEntries.Dispatch->Create(&Filter, nullptr); }
};

TEST(FilterCreate, AFilterGetsItsPinUnderItsControlMutex) {
  InSurface([](SurfaceWorld& world) {
    WorldFilter filter;
    EXPECT_EQ(filter.Create(), STATUS_SUCCESS);
    EXPECT_THAT(world.Ks.Calls, ElementsAre("bag", "format list", "format count", "acquire control",
                                            "pin factory", "release control"));
    ASSERT_NE(filter.Filter.Context, nullptr);
    EXPECT_EQ(static_cast<CaptureFilter*>(filter.Filter.Context)->Filter, &filter.Filter);
    EXPECT_TRUE(filter.Bag.Has(filter.Filter.Context));
    ExpectOneObject(sizeof(CaptureFilter));
    EXPECT_EQ(world.Ks.PinDescriptor.Dispatch, kPinEntries.Dispatch);
    EXPECT_EQ(world.Ks.PinDescriptor.AutomationTable, kPinEntries.AutomationTable);
    EXPECT_EQ(world.Ks.PinDescriptor.IntersectHandler, kPinEntries.IntersectHandler);
  });
}

TEST(FilterCreate, AClientSeesFiveRangesTheFirst640By480) {
  InSurface([](SurfaceWorld& world) {
    WorldFilter filter;
    EXPECT_EQ(filter.Create(), STATUS_SUCCESS);
    const KSPIN_DESCRIPTOR& pin = world.Ks.PinDescriptor.PinDescriptor;
    ASSERT_EQ(pin.DataRangesCount, 5U);
    const auto* const first = reinterpret_cast<const KS_DATARANGE_VIDEO*>(pin.DataRanges[0]);
    EXPECT_EQ(first->VideoInfoHeader.bmiHeader.biWidth, 640);
    EXPECT_EQ(first->VideoInfoHeader.bmiHeader.biHeight, 480);
    for (int i = 0; i < 5; ++i) {
      EXPECT_EQ(std::memcmp(&pin.DataRanges[i]->SubFormat, &kYuy2Subtype, sizeof(GUID)), 0);
    }
  });
}

TEST(FilterCreate, ListAndCountAreWhatTheDeviceSays) {
  InSurface([](SurfaceWorld& world) {
    world.Device.ListIndex = 1;
    world.Device.FormatCount = 1;
    WorldFilter filter;
    EXPECT_EQ(filter.Create(), STATUS_SUCCESS);
    EXPECT_EQ(world.Ks.PinDescriptor.PinDescriptor.DataRanges, CameraFormatList[1]);
    EXPECT_EQ(world.Ks.PinDescriptor.PinDescriptor.ConstrainedDataRangesCount, 1U);
  });
}

TEST(FilterCreate, AFilterOfADeviceOfWhichNothingIsKnownOffersNoFormat) {
  InSurface([](SurfaceWorld& world) {
    world.Device.TransportRecord = nullptr;
    world.Device.FormatCount = 0;
    WorldFilter filter;
    EXPECT_EQ(filter.Create(), STATUS_SUCCESS);
    EXPECT_EQ(world.Ks.PinDescriptor.PinDescriptor.DataRangesCount, 0U);
    EXPECT_EQ(world.Ks.PinDescriptor.PinDescriptor.ConstrainedDataRangesCount, 0U);
  });
}

// A start that failed half-way leaves the filter in place, and it can be opened: with the formats
// that were known by then.
TEST(FilterCreate, AFilterOfAFailedStartIsOpenedEvenWithoutFormats) {
  InSurface([](SurfaceWorld& world) {
    world.Device.FormatCount = 0;
    WorldFilter filter;
    EXPECT_EQ(filter.Create(), STATUS_SUCCESS);
    EXPECT_EQ(world.Ks.PinDescriptor.PinDescriptor.DataRangesCount, 0U);
  });
}

TEST(FilterCreate, WhateverFailsTheFilterFailsAndNothingIsLeft) {
  InSurface([](SurfaceWorld& world) {
    {
      WorldFilter filter;
      host::FailPoolAllocation(1);
      EXPECT_EQ(filter.Create(), kNoMemory);
    }
    {
      WorldFilter filter;
      world.Ks.FailBagAt = 1;
      EXPECT_EQ(filter.Create(), world.Ks.Failure);
      EXPECT_EQ(filter.Filter.Context, nullptr);
    }
    WorldFilter filter;
    world.Ks.PinFactoryStatus = kRefused;
    EXPECT_EQ(filter.Create(), kRefused);
    EXPECT_EQ(world.Ks.Calls.back(), "release control");
  });
}

TEST(FilterEntries, AFilterHasNoCloseProcessOrReset) {
  EXPECT_EQ(kFilterEntries.Dispatch->Close, nullptr);
  EXPECT_EQ(kFilterEntries.Dispatch->Process, nullptr);
  EXPECT_EQ(kFilterEntries.Dispatch->Reset, nullptr);
  EXPECT_EQ(kFilterEntries.AutomationTable->PropertySetsCount, 4U);
}

}  // namespace
}  // namespace lidcam::test
