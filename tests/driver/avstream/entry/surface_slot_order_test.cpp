#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <vector>

#include "tests/driver/avstream/support/surface_world.h"

namespace lidcam::test {
namespace {

// In the C++ object model of this build a pointer to a virtual member function holds 1 plus the
// offset of its slot.
template <typename Operation>
std::size_t SlotOf(Operation operation) {
  struct Parts {
    std::uintptr_t Place;
    std::ptrdiff_t Adjustment;
  };
  const auto parts = std::bit_cast<Parts>(operation);
  EXPECT_EQ(parts.Place & 1, 1U) << "not virtual";
  return (parts.Place - 1) / sizeof(void*);
}

TEST(SurfaceSlotOrder, CapturePinDeclaresSlots0To9) {
  using P = CapturePin;
  EXPECT_EQ(SlotOf(&P::Create), 0U);
  EXPECT_EQ(SlotOf(&P::IsProcessing), 1U);
  EXPECT_EQ(SlotOf(&P::Close), 2U);
  EXPECT_EQ(SlotOf(&P::Process), 3U);
  EXPECT_EQ(SlotOf(&P::Reset), 4U);
  EXPECT_EQ(SlotOf(&P::SetDataFormat), 5U);
  EXPECT_EQ(SlotOf(&P::SetDeviceState), 6U);
  EXPECT_EQ(SlotOf(&P::SetProperty), 7U);
  EXPECT_EQ(SlotOf(&P::GetDroppedFrames), 8U);
  EXPECT_EQ(SlotOf(&P::AddEvent), 9U);
}

TEST(SurfaceSlotOrder, CaptureFilterHasOneSlotAndOneField) {
  EXPECT_EQ(SlotOf(&CaptureFilter::Create), 0U);
  EXPECT_EQ(sizeof(CaptureFilter), 2 * sizeof(void*));
}

template <typename Object, typename Field>
std::size_t At(const Object& object, const Field& field) {
  return static_cast<std::size_t>(reinterpret_cast<const volatile char*>(&field) -
                                  reinterpret_cast<const volatile char*>(&object));
}

TEST(SurfaceSlotOrder, ThePinsFieldsStandInTheirOrder) {
  InSurface([](SurfaceWorld& world) {
    WorldPin worldPin(world);
    ASSERT_EQ(worldPin.Create(), STATUS_SUCCESS);
    const CapturePin& pin = worldPin.Object();
    const std::vector<std::size_t> places = {At(pin, pin.Pin),
                                             At(pin, pin.Device),
                                             At(pin, pin.VideoInfo),
                                             At(pin, pin.Clock),
                                             At(pin, pin.FrameInfo),
                                             At(pin, pin.StreamState),
                                             At(pin, pin.Acquired),
                                             At(pin, pin.HasClock),
                                             At(pin, pin.Camera),
                                             At(pin, pin.PublishedFrameSize),
                                             At(pin, pin.ProcessingCount),
                                             At(pin, pin.FrameCounter),
                                             At(pin, pin.LastPresentationTime),
                                             At(pin, pin.ExpectedFrameTime),
                                             At(pin, pin.LastClockTime)};
    EXPECT_EQ(places.front(), sizeof(void*));
    EXPECT_TRUE(std::is_sorted(places.begin(), places.end()));
  });
}

TEST(SurfaceSlotOrder, TheDevicesFieldsStandInTheirOrder) {
  InSurface([](SurfaceWorld& world) {
    const CaptureDevice& device = world.Device;
    const std::vector<std::size_t> places = {
        At(device, device.DevicePowerState),
        At(device, device.KsDevice),
        At(device, device.FilterDescriptor),
        At(device, device.StreamVideoInfo),
        At(device, device.Camera),
        At(device, device.TransportRecord),
        At(device, device.Published.PublishedRawFrame),
        At(device, device.Published.PublishedRawFrameSize),
        At(device, device.HardwareStarted),
        At(device, device.StreamSlot),
        At(device, device.WdmLevel),
    };
    EXPECT_EQ(places.front(), sizeof(void*));
    EXPECT_TRUE(std::is_sorted(places.begin(), places.end()));
    EXPECT_EQ(std::ranges::adjacent_find(places), places.end());
  });
}

}  // namespace
}  // namespace lidcam::test
