#include <gtest/gtest.h>

#include <bit>

#include "driver/usb/stream/camera_usb_device.h"

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

TEST(SlotOrder, CaptureDeviceDeclaresSlots0To27) {
  using D = CaptureDevice;
  EXPECT_EQ(SlotOf(&D::GetFormatListIndex), 0U);
  EXPECT_EQ(SlotOf(&D::GetFormatCount), 1U);
  EXPECT_EQ(SlotOf(&D::StartHardware), 2U);
  EXPECT_EQ(SlotOf(&D::StopHardware), 3U);
  EXPECT_EQ(SlotOf(&D::OnDeviceGone), 4U);
  EXPECT_EQ(SlotOf(&D::AcquireStream), 5U);
  EXPECT_EQ(SlotOf(&D::RunStream), 6U);
  EXPECT_EQ(SlotOf(&D::ReleaseStream), 7U);
  EXPECT_EQ(SlotOf(&D::ResumeStream), 8U);
  EXPECT_EQ(SlotOf(&D::PauseStream), 9U);
  EXPECT_EQ(SlotOf(&D::PowerDown), 10U);
  EXPECT_EQ(SlotOf(&D::PowerUp), 11U);
  EXPECT_EQ(SlotOf(&D::Bind), 12U);
  EXPECT_EQ(SlotOf(&D::PnpStart), 13U);
  EXPECT_EQ(SlotOf(&D::PnpPostStart), 14U);
  EXPECT_EQ(SlotOf(&D::PnpQueryStop), 15U);
  EXPECT_EQ(SlotOf(&D::PnpCancelStop), 16U);
  EXPECT_EQ(SlotOf(&D::PnpStop), 17U);
  EXPECT_EQ(SlotOf(&D::PnpQueryRemove), 18U);
  EXPECT_EQ(SlotOf(&D::PnpCancelRemove), 19U);
  EXPECT_EQ(SlotOf(&D::PnpRemove), 20U);
  EXPECT_EQ(SlotOf(&D::PnpSurpriseRemoval), 21U);
  EXPECT_EQ(SlotOf(&D::PnpQueryCapabilities), 22U);
  EXPECT_EQ(SlotOf(&D::PnpQueryInterface), 23U);
  EXPECT_EQ(SlotOf(&D::PowerQuery), 24U);
  EXPECT_EQ(SlotOf(&D::PowerSet), 25U);
  EXPECT_EQ(SlotOf(&D::SetCameraProperty), 26U);
  EXPECT_EQ(SlotOf(&D::GetCameraProperty), 27U);
}

TEST(SlotOrder, UsbCaptureDeviceDeclaresSlots28To36) {
  using D = UsbCaptureDevice;
  EXPECT_EQ(SlotOf(&D::SetStreamFormat), 28U);
  EXPECT_EQ(SlotOf(&D::GetPipelineSize), 29U);
  EXPECT_EQ(SlotOf(&D::AnyTransferInFlight), 30U);
  EXPECT_EQ(SlotOf(&D::AttachPipeline), 31U);
  EXPECT_EQ(SlotOf(&D::DetachPipeline), 32U);
  EXPECT_EQ(SlotOf(&D::CreateStreamResources), 33U);
  EXPECT_EQ(SlotOf(&D::ReleaseStreamResources), 34U);
  EXPECT_EQ(SlotOf(&D::StartTransfers), 35U);
  EXPECT_EQ(SlotOf(&D::DrainTransfers), 36U);
}

}  // namespace
}  // namespace lidcam::test
