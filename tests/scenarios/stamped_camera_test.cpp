#include <gtest/gtest.h>

#include <vector>

#include "scenarios/camera/stamped_camera.h"

namespace lidcam::scenarios {
namespace {

std::vector<std::uint8_t> Frame(std::uint8_t number) {
  std::vector<std::uint8_t> frame(38466, number);
  std::fill_n(frame.begin(), 64, std::uint8_t{0});
  frame[0] = 0xFF;
  frame[1] = 0xD8;
  frame[2] = number;
  return frame;
}

TEST(StampedCamera, FrameOfOneStampIsWhole) {
  EXPECT_EQ(StampedCamera::Check(Frame(5)), FrameContent::Whole);
}

TEST(StampedCamera, FrameWithOneByteOfAnotherIsTorn) {
  std::vector<std::uint8_t> frame = Frame(5);
  frame.back() = 6;
  EXPECT_EQ(StampedCamera::Check(frame), FrameContent::Torn);
}

TEST(StampedCamera, FrameWithTheHeaderOfAnotherIsTorn) {
  std::vector<std::uint8_t> frame = Frame(5);
  frame[2] = 6;
  EXPECT_EQ(StampedCamera::Check(frame), FrameContent::Torn);
}

TEST(StampedCamera, FrameWithoutItsMarkerIsTorn) {
  std::vector<std::uint8_t> frame = Frame(5);
  frame[0] = 0;
  EXPECT_EQ(StampedCamera::Check(frame), FrameContent::Torn);
}

TEST(StampedCamera, HeaderAloneIsShort) {
  EXPECT_EQ(StampedCamera::Check(std::vector<std::uint8_t>(64)), FrameContent::Short);
}

// Each access is a select, which is a write of register 0xFFFF, and the access itself.
void Write(StampedCamera& camera, std::uint16_t index, std::uint16_t value) {
  EXPECT_EQ(camera.ControlTransfer({0x40, 0xA0, value, index, 0}, {}).Status, bus::UsbStatus::Ok);
}

TEST(StampedCamera, AccessesOneAfterTheOtherAreNotMixed) {
  StampedCamera camera({});
  for (int i = 0; i < 3; ++i) {
    Write(camera, 0xFFFF, 0);
    Write(camera, 0xFF26, 0x20);
  }
  Write(camera, 0xFF26, 0x20);  // under the current select, as a client may request
  EXPECT_FALSE(camera.HasMixedAccesses());
}

TEST(StampedCamera, SelectBehindASelectTellsOfMixedAccesses) {
  StampedCamera camera({});
  Write(camera, 0xFFFF, 0);
  Write(camera, 0xFFFF, 2);
  Write(camera, 0xFF26, 0x20);
  Write(camera, 0xFF26, 0x20);
  EXPECT_TRUE(camera.HasMixedAccesses());
}

}  // namespace
}  // namespace lidcam::scenarios
