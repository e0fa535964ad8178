// The trace lines of plug and play, power, filters and pins.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/driver/avstream/support/surface_world.h"
#include "tests/driver/support/trace_lines.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;

TEST(SurfaceTrace, TellsWhatBecameOfTheFilterFactory) {
  InSurface([](SurfaceWorld& world) {
    TraceLines trace;
    EXPECT_EQ(world.Device.PnpStart(&world.Ks.Device, nullptr, nullptr, nullptr), STATUS_SUCCESS);
    EXPECT_THAT(trace.Take(), ElementsAre("device filter -> 00000000"));
    world.Ks.FactoryStatus = kRefused;
    EXPECT_EQ(world.Device.PnpStart(&world.Ks.Device, nullptr, nullptr, nullptr), STATUS_SUCCESS);
    EXPECT_THAT(trace.Take(), ElementsAre("device filter -> C00000B5"));
  });
}

TEST(SurfaceTrace, TellsEachPowerStateByItsName) {
  InSurface([](SurfaceWorld& world) {
    world.Device.HardwareStarted = 1;
    TraceLines trace;
    for (const int state : {2, 3, 4, 1}) {
      world.Device.PowerSet(&world.Ks.Device, nullptr, static_cast<DEVICE_POWER_STATE>(state),
                            PowerDeviceD0);
    }
    EXPECT_THAT(trace.Take(), ElementsAre("device power D1", "device power D2", "device power D3",
                                          "device power D0"));
    world.Device.PowerSet(&world.Ks.Device, nullptr, PowerDeviceD0, PowerDeviceD0);
    EXPECT_TRUE(trace.Take().empty()) << "nothing changes";
  });
}

TEST(SurfaceTrace, TellsWhatBecameOfEachFilter) {
  InSurface([](SurfaceWorld& world) {
    FakeBag bag;
    KSFILTER filter{};
    filter.Bag = &bag;
    TraceLines trace;
    EXPECT_EQ(kFilterEntries.Dispatch->Create(&filter, nullptr), STATUS_SUCCESS);
    world.Ks.PinFactoryStatus = kRefused;
    EXPECT_EQ(kFilterEntries.Dispatch->Create(&filter, nullptr), kRefused);
    EXPECT_THAT(trace.Take(),
                ElementsAre("filter create -> 00000000", "filter create -> C00000B5"));
  });
}

TEST(SurfaceTrace, TellsWhatBecameOfEachPinAndItsFormats) {
  InSurface([](SurfaceWorld& world) {
    WorldPin pin(world);
    TraceLines trace;
    KSDATAFORMAT* const format = pin.Pin.ConnectionFormat;
    const auto* const range =
        reinterpret_cast<const KSDATARANGE*>(pin.Descriptor.PinDescriptor.DataRanges[0]);
    const auto& entry = *kPinEntries.Dispatch->SetDataFormat;
    EXPECT_EQ(entry(&pin.Pin, nullptr, nullptr, range, nullptr), STATUS_SUCCESS);
    EXPECT_EQ(pin.Create(), STATUS_SUCCESS);
    EXPECT_EQ(entry(&pin.Pin, format, nullptr, range, nullptr), STATUS_SUCCESS);
    const auto* const other =
        reinterpret_cast<const KSDATARANGE*>(pin.Descriptor.PinDescriptor.DataRanges[1]);
    EXPECT_EQ(entry(&pin.Pin, format, nullptr, other, nullptr), static_cast<NTSTATUS>(0xC0000272));
    EXPECT_THAT(trace.Take(),
                ElementsAre("pin format check -> 00000000", "pin create -> 00000000",
                            "pin format change -> 00000000", "pin format change -> C0000272"));
    world.Ks.FailBagAt = 1;
    WorldPin refused(world);
    EXPECT_EQ(refused.Create(), world.Ks.Failure);
    EXPECT_THAT(trace.Take(), ElementsAre("pin create -> C00000E9"));
  });
}

TEST(SurfaceTrace, TellsEachStateOfAPinWithItsResult) {
  InSurface([](SurfaceWorld& world) {
    WorldPin pin(world);
    ASSERT_EQ(pin.Create(), STATUS_SUCCESS);
    TraceLines trace;
    pin.SetState(1, 0);
    pin.SetState(2, 1);
    world.Device.Run = kRefused;
    pin.SetState(3, 2);
    pin.SetState(4, 2);
    pin.SetState(0, 2);
    EXPECT_THAT(trace.Take(),
                ElementsAre("pin state 0 -> 1 status=00000000", "pin state 1 -> 2 status=00000000",
                            "pin state 2 -> 3 status=C00000B5", "pin state 2 -> 4 status=C0000002",
                            "pin state 2 -> 0 status=00000000"));
  });
}

}  // namespace
}  // namespace lidcam::test
