#include "driver/frame/resampler/image_resampler.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/processor/floating_point_state.h"
#include "platform/kernel.h"
#include "tests/driver/frame/resampler/support/literal_resize.h"

namespace lidcam {
namespace {

bool g_hasDoubles = true;

struct Frame {
  std::vector<std::uint8_t> Source = RandomPicture(std::size_t{64} * 48 * 3, 1);
  std::vector<std::uint8_t> Destination =
      std::vector<std::uint8_t>(std::size_t{40} * 30 * 3, kUntouched);

  [[nodiscard]] bool IsUntouched() const {
    return Destination == std::vector<std::uint8_t>(Destination.size(), kUntouched);
  }
};

const Frame* g_frame = nullptr;  // compared when the thread's registers are restored
bool g_wasUntouched = false;

class ResampleFrameTest : public testing::Test {
 protected:
  ~ResampleFrameTest() override {
    host::FailPoolAllocation(0);
    host::FailFloatingPointSave(0);
    g_hasDoubles = true;
  }

  [[nodiscard]] std::uint32_t Saves() const {
    return host::FloatingPointUseSoFar().Saves - before_.Saves;
  }
  [[nodiscard]] std::uint32_t Restores() const {
    return host::FloatingPointUseSoFar().Restores - before_.Restores;
  }

 private:
  host::FloatingPointUse before_ = host::FloatingPointUseSoFar();
};

TEST_F(ResampleFrameTest, GivesZeroForANullPointerWithoutAnyCall) {
  Frame frame;
  host::FailPoolAllocation(1);  // still to come afterwards: nothing was allocated
  EXPECT_EQ(ResampleFrame(frame.Destination.data(), nullptr, 64, 48, 40, 30, 1), 0U);
  EXPECT_EQ(ResampleFrame(nullptr, frame.Source.data(), 64, 48, 40, 30, 1), 0U);
  EXPECT_EQ(Saves(), 0U);
  EXPECT_TRUE(frame.IsUntouched());
  EXPECT_EQ(ResampleFrame(frame.Destination.data(), frame.Source.data(), 64, 48, 40, 30, 1), 0U);
  EXPECT_EQ(Saves(), 1U);
}

// Like the oldest 32-bit processors.
TEST_F(ResampleFrameTest, GivesZeroOnAProcessorWithoutDoublesAndSavesNothing) {
  Frame frame;
  g_hasDoubles = false;
  EXPECT_EQ(ResampleFrame(frame.Destination.data(), frame.Source.data(), 64, 48, 40, 30, 1), 0U);
  EXPECT_EQ(Saves(), 0U);
  EXPECT_TRUE(frame.IsUntouched());
}

TEST_F(ResampleFrameTest, ScalesYuy2WithTheWholeFrameAndLinearly) {
  Frame frame;
  std::vector<std::uint8_t> expected = frame.Destination;
  ASSERT_EQ(ResizeYuy2(frame.Source.data(), {64, 48}, 128, {0, 0, 64, 48}, expected.data(), 80,
                       {40, 30}, 40.0 / 64, 30.0 / 48, 2),
            0);
  for (const std::uint32_t yuy2 : {1U, 2U, 0x80000000U}) {
    Frame again;
    EXPECT_EQ(ResampleFrame(again.Destination.data(), again.Source.data(), 64, 48, 40, 30, yuy2),
              1U);
    EXPECT_EQ(again.Destination, expected);
  }
}

TEST_F(ResampleFrameTest, ScalesThreeBytesAPixelWithoutTheYuy2Flag) {
  Frame frame;
  std::vector<std::uint8_t> expected = frame.Destination;
  ASSERT_EQ(ResizeRgb24(frame.Source.data(), {64, 48}, 192, {0, 0, 64, 48}, expected.data(), 120,
                        {40, 30}, 40.0 / 64, 30.0 / 48, 2),
            0);
  EXPECT_EQ(ResampleFrame(frame.Destination.data(), frame.Source.data(), 64, 48, 40, 30, 0), 1U);
  EXPECT_EQ(frame.Destination, expected);
}

TEST_F(ResampleFrameTest, WritesNothingForASourceWidthOf641) {
  std::vector<std::uint8_t> source(std::size_t{641} * 480 * 2, 0x10);
  std::vector<std::uint8_t> destination(std::size_t{352} * 288 * 2, kUntouched);
  const std::vector<std::uint8_t> before = destination;
  EXPECT_EQ(ResampleFrame(destination.data(), source.data(), 641, 480, 352, 288, 1), 0U);
  EXPECT_EQ(destination, before);
  EXPECT_EQ(ResizeYuy2(source.data(), {641, 480}, 1282, {0, 0, 641, 480}, destination.data(), 704,
                       {352, 288}, 352.0 / 641, 288.0 / 480, 2),
            -6);
  EXPECT_EQ(destination, before);
}

TEST_F(ResampleFrameTest, WritesNothingForAnyOddSourceWidthOrAWidthOfOneUpTo100) {
  const std::vector<std::uint8_t> source(std::size_t{100} * 2 * 2, 0x10);
  std::vector<std::uint8_t> destination(std::size_t{100} * 2 * 2, kUntouched);
  const std::vector<std::uint8_t> before = destination;
  for (std::int32_t from = 1; from <= 100; ++from) {
    for (std::int32_t to = 1; to <= 100; ++to) {
      if (from % 2 == 0 && to > 1) continue;
      ASSERT_EQ(ResampleFrame(destination.data(), source.data(), from, 2, to, 2, 1), 0U)
          << from << " to " << to;
    }
  }
  EXPECT_EQ(destination, before);
}

// 176 pairs: the last pixel of each row stays as it was.
TEST_F(ResampleFrameTest, LeavesTheLastPixelOfAWidthOf353Unwritten) {
  const std::vector<std::uint8_t> source(std::size_t{640} * 480 * 2, 0x10);
  std::vector<std::uint8_t> destination(std::size_t{353} * 288 * 2, kUntouched);
  ASSERT_EQ(ResampleFrame(destination.data(), source.data(), 640, 480, 353, 288, 1), 1U);
  for (std::size_t row = 0; row < 288; ++row) {
    for (std::size_t byte = 0; byte < 706; ++byte) {
      ASSERT_EQ(destination[row * 706 + byte], byte < 704 ? 0x10 : kUntouched)
          << row << "," << byte;
    }
  }
}

TEST_F(ResampleFrameTest, ReducesEveryStatusToZero) {
  Frame frame;
  const auto resample = [&frame](std::int32_t sourceWidth, std::int32_t sourceHeight,
                                 std::int32_t width, std::int32_t height) {
    return ResampleFrame(frame.Destination.data(), frame.Source.data(), sourceWidth, sourceHeight,
                         width, height, 1);
  };
  EXPECT_EQ(resample(0, 48, 40, 30), 0U);
  EXPECT_EQ(resample(64, 0, 40, 30), 0U);
  EXPECT_EQ(resample(-64, 48, 40, 30), 0U);
  EXPECT_EQ(resample(64, 48, 0, 30), 0U);
  EXPECT_EQ(resample(64, 48, 1, 30), 0U);
  EXPECT_EQ(resample(64, 48, 40, -30), 0U);
  EXPECT_EQ(resample(63, 48, 40, 30), 0U);
  EXPECT_EQ(resample(0x7FFFFFFE, 48, 40, 30), 0U);
  EXPECT_EQ(resample(64, 48, 0x7FFFFFFE, 30), 0U);
  EXPECT_EQ(resample(64, 48, 2, 0x7FFFFFFF), 0U);
  EXPECT_TRUE(frame.IsUntouched());
  EXPECT_EQ(Saves(), Restores());
}

TEST_F(ResampleFrameTest, SavesAndRestoresTheFloatingPointStateOnceACall) {
  Frame frame;
  ASSERT_EQ(ResampleFrame(frame.Destination.data(), frame.Source.data(), 64, 48, 40, 30, 1), 1U);
  EXPECT_EQ(Saves(), 1U);
  EXPECT_EQ(Restores(), 1U);
  ASSERT_EQ(ResampleFrame(frame.Destination.data(), frame.Source.data(), 63, 48, 40, 30, 1), 0U);
  EXPECT_EQ(Saves(), 2U);
  EXPECT_EQ(Restores(), 2U);
}

TEST_F(ResampleFrameTest, RestoresTheFloatingPointStateBehindTheLastPixel) {
  Frame frame;
  g_frame = &frame;
  g_wasUntouched = true;
  EXPECT_EQ(ResampleFrame(frame.Destination.data(), frame.Source.data(), 64, 48, 40, 30, 1), 1U);
  g_frame = nullptr;
  EXPECT_FALSE(g_wasUntouched);
}

TEST_F(ResampleFrameTest, WritesNothingWhenTheFloatingPointStateCannotBeSaved) {
  Frame frame;
  host::FailFloatingPointSave(1);
  EXPECT_EQ(ResampleFrame(frame.Destination.data(), frame.Source.data(), 64, 48, 40, 30, 1), 0U);
  EXPECT_TRUE(frame.IsUntouched());
  EXPECT_EQ(Saves(), 0U);
  EXPECT_EQ(Restores(), 0U);
  EXPECT_EQ(ResampleFrame(frame.Destination.data(), frame.Source.data(), 64, 48, 40, 30, 1), 1U);
}

}  // namespace
}  // namespace lidcam

// The linker redirects the processor query and the registers' restoring to here (--wrap).
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" bool __real__ZN6lidcam13CpuHasDoublesEv();
extern "C" bool __wrap__ZN6lidcam13CpuHasDoublesEv();
extern "C" bool __wrap__ZN6lidcam13CpuHasDoublesEv() {
  return lidcam::g_hasDoubles && __real__ZN6lidcam13CpuHasDoublesEv();
}

extern "C" NTSTATUS NTAPI __real_KeRestoreFloatingPointState(PKFLOATING_SAVE state);
extern "C" NTSTATUS NTAPI __wrap_KeRestoreFloatingPointState(PKFLOATING_SAVE state);
extern "C" NTSTATUS NTAPI __wrap_KeRestoreFloatingPointState(PKFLOATING_SAVE state) {
  if (lidcam::g_frame != nullptr) lidcam::g_wasUntouched = lidcam::g_frame->IsUntouched();
  return __real_KeRestoreFloatingPointState(state);
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
