// Every allocation of a scale fails once.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "driver/frame/resampler/image_resampler.h"
#include "driver/frame/resampler/jobs/resize_arguments.h"
#include "driver/frame/resampler/scale_kernels.h"
#include "platform/host/nt/memory/pool.h"
#include "tests/driver/frame/resampler/support/literal_resize.h"

namespace lidcam {
namespace {

constexpr std::uint32_t kCameraTag = 0x206D6457;
constexpr std::uint32_t kMostAllocations = 20;

class ResizeMemory : public testing::Test {
 protected:
  ~ResizeMemory() override {
    host::FailPoolAllocation(0);
    LimitScaleKernels(SIZE_MAX);
  }

  std::vector<std::uint8_t> source_ = RandomPicture(std::size_t{64} * 48 * 3, 7);
  std::vector<std::uint8_t> destination_ =
      std::vector<std::uint8_t>(std::size_t{40} * 30 * 3, 0xA5);
  ResizeArguments arguments_{.Source = source_.data(),
                             .SourceSize = {64, 48},
                             .SourceStep = 128,
                             .Region = {0, 0, 64, 48},
                             .Destination = destination_.data(),
                             .DestinationStep = 80,
                             .DestinationSize = {40, 30},
                             .XFactor = 40.0 / 64,
                             .YFactor = 30.0 / 48,
                             .Interpolation = 2};

  [[nodiscard]] ResizeStatus Resize(decltype(&ResizeYuy2) entry) const {
    const ResizeArguments& a = arguments_;
    return entry(a.Source, a.SourceSize, a.SourceStep, a.Region, a.Destination, a.DestinationStep,
                 a.DestinationSize, a.XFactor, a.YFactor, a.Interpolation);
  }

  // Makes each allocation fail in turn until none is left; returns their number.
  template <typename Scale>
  std::uint32_t FailEachAllocationOf(Scale scale) {
    const std::vector<std::uint8_t> before = destination_;
    const std::size_t blocks = host::PoolUsageOfTag(kCameraTag).Blocks;
    for (std::uint32_t failing = 1; failing <= kMostAllocations; ++failing) {
      host::FailPoolAllocation(failing);
      const ResizeStatus status = scale();
      host::FailPoolAllocation(0);
      EXPECT_EQ(host::PoolUsageOfTag(kCameraTag).Blocks, blocks);
      if (status == ResizeDone) return failing - 1;
      EXPECT_EQ(status, -9);
      EXPECT_EQ(destination_, before) << failing;
    }
    ADD_FAILURE() << "no end of allocations";
    return kMostAllocations;
  }
};

TEST_F(ResizeMemory, LackOfTheOneBlockLeavesTheDestinationAndThePoolAsTheyWere) {
  EXPECT_EQ(FailEachAllocationOf([this] { return Resize(ResizeYuy2); }), 1U);
}

// A region further right than its pixels: only the reference takes it.
TEST_F(ResizeMemory, LackOfTheOneBlockOfARegionLeavesTheDestinationAndThePoolAsTheyWere) {
  arguments_.Region = {32, 20, 32, 28};
  EXPECT_EQ(FailEachAllocationOf([this] { return Resize(ResizeYuy2); }), 1U);
}

TEST_F(ResizeMemory, LackOfItWithThreeBytesAPixelLeavesTheDestinationAsItWas) {
  arguments_.SourceStep = 192;
  arguments_.DestinationStep = 120;
  EXPECT_EQ(FailEachAllocationOf([this] { return Resize(ResizeRgb24); }), 1U);
}

TEST_F(ResizeMemory, LackOfTheOneBlockOfAnyKernelLeavesTheDestinationAndThePoolAsTheyWere) {
  for (std::size_t kernels = 1; kernels <= ScaleKernels().size(); ++kernels) {
    LimitScaleKernels(kernels);
    SCOPED_TRACE(ChosenScaleKernel().Name);
    std::fill(destination_.begin(), destination_.end(), std::uint8_t{0xA5});
    EXPECT_EQ(FailEachAllocationOf([this] { return Resize(ResizeYuy2); }), 1U);
  }
}

// Too narrow for the wide registers, too far apart for a shuffle: the job is passed from kernel to
// kernel, all in the first one's memory.
TEST_F(ResizeMemory, AJobThatIsPassedToAnotherKernelTakesNoMemoryOfItsOwn) {
  arguments_.DestinationSize = {8, 30};
  arguments_.XFactor = 8.0 / 64;
  for (std::size_t kernels = 1; kernels <= ScaleKernels().size(); ++kernels) {
    LimitScaleKernels(kernels);
    SCOPED_TRACE(ChosenScaleKernel().Name);
    std::fill(destination_.begin(), destination_.end(), std::uint8_t{0xA5});
    EXPECT_EQ(FailEachAllocationOf([this] { return Resize(ResizeYuy2); }), 1U);
  }
}

TEST_F(ResizeMemory, TablesTooLargeForAnyPoolAreNoMemory) {
  const std::vector<std::uint8_t> before = destination_;
  arguments_.DestinationSize = {2, 2147483647};
  arguments_.YFactor = 1e300;
  EXPECT_EQ(Resize(ResizeYuy2), -9);
  EXPECT_EQ(Resize(ResizeRgb24), -9);
  arguments_.DestinationSize = {2147483646, 2};
  arguments_.XFactor = 1e300;
  EXPECT_EQ(Resize(ResizeYuy2), -9);
  EXPECT_EQ(Resize(ResizeRgb24), -9);
  EXPECT_EQ(destination_, before);
}

}  // namespace
}  // namespace lidcam
