#include <gtest/gtest.h>

#include <vector>

#include "simulation/stamped_camera.h"

namespace lidcam::simulation {
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

}  // namespace
}  // namespace lidcam::simulation
