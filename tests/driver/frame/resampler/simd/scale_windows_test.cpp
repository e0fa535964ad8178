// Shuffles across lanes are rare among processors, so the code around them is tested without them.

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string_view>
#include <vector>

#include "driver/frame/resampler/jobs/cpu_features.h"
#include "driver/frame/resampler/jobs/scale_reference.h"
#include "driver/frame/resampler/scale_kernels.h"
#include "driver/frame/resampler/yuy2_scale.h"
#include "tests/driver/frame/resampler/support/bytewise_windows.h"
#include "tests/driver/frame/resampler/support/guarded_buffer.h"
#include "tests/driver/frame/resampler/support/literal_resize.h"

namespace lidcam {
namespace {

constexpr std::size_t kMostBytes = std::size_t{1280} * 480 * 2;

int g_unfitJobs = 0;

void CountUnfit(const ScaleJob& job) {
  ++g_unfitJobs;
  ScaleByReference(job);
}

// The kernel of this processor whose memory and tables such a kernel needs.
const ScaleKernel& WideKernel() {
  for (const ScaleKernel& kernel : ScaleKernels()) {
    if (kernel.Name == std::string_view("AVX-512")) return kernel;
  }
  return ScaleKernels().front();
}

class ScaleByWindowsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!CpuHasAvx512()) GTEST_SKIP() << "this processor has no 512-bit registers";
    g_unfitJobs = 0;
  }

  void ExpectLikeReference(ImageSize from, ImageSize to, Placement where) {
    const std::size_t sourceBytes = BytesOf(from.Width, from.Height);
    const std::size_t outputBytes = BytesOf(to.Width, to.Height);
    std::uint8_t* const source = source_.Place(sourceBytes, where);
    std::uint8_t* const output = output_.Place(outputBytes, where);
    std::memcpy(source, picture_.data(), sourceBytes);
    std::memset(output, 0xA5, outputBytes);
    std::vector<std::uint8_t> expected(outputBytes, 0xA5);
    const ResizeArguments arguments{source,
                                    from,
                                    from.Width * 2,
                                    {0, 0, from.Width, from.Height},
                                    output,
                                    to.Width * 2,
                                    to,
                                    static_cast<double>(to.Width) / from.Width,
                                    static_cast<double>(to.Height) / from.Height,
                                    InterpolationLinear};
    ImageSize size{};
    ASSERT_EQ(CheckYuy2(arguments, size), ResizeDone);
    const Yuy2Scale scale(arguments, size, WideKernel());
    ASSERT_NE(scale.Job(), nullptr);
    ScaleByBytewiseWindows(*scale.Job(), CountUnfit);
    ScaleJob job = *scale.Job();
    job.Destination = expected.data();
    ScaleByReference(job);
    ASSERT_EQ(std::memcmp(output, expected.data(), outputBytes), 0)
        << from.Width << "x" << from.Height << " to " << to.Width << "x" << to.Height;
  }

 private:
  static std::size_t BytesOf(std::int32_t width, std::int32_t height) {
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 2;
  }

  std::vector<std::uint8_t> picture_ = RandomPicture(kMostBytes, 5);
  GuardedBuffer source_{kMostBytes};
  GuardedBuffer output_{kMostBytes};
};

TEST_F(ScaleByWindowsTest, ScalesEveryStreamSizeToEveryOtherLikeTheReference) {
  constexpr ImageSize kSizes[] = {{640, 480}, {352, 288}, {320, 240}, {176, 144}, {160, 120}};
  for (const ImageSize from : kSizes) {
    for (const ImageSize to : kSizes) {
      ExpectLikeReference(from, to, Placement::FlushWithEnd);
      ExpectLikeReference(from, to, Placement::FlushWithStart);
    }
  }
  EXPECT_EQ(g_unfitJobs, 0);
}

TEST_F(ScaleByWindowsTest, ScalesAnySizeLikeTheReference) {
  std::mt19937 random(11);
  const auto pick = [&random](std::uint32_t least, std::uint32_t most) {
    return static_cast<std::int32_t>(least + random() % (most - least + 1));
  };
  for (int n = 0; n < 2000; ++n) {
    const ImageSize from{2 * pick(2, 300), pick(2, 20)};
    const ImageSize to{pick(2, 600), pick(1, 30)};
    ExpectLikeReference(from, to, n % 2 == 0 ? Placement::FlushWithEnd : Placement::FlushWithStart);
    if (HasFatalFailure()) return;
  }
}

TEST_F(ScaleByWindowsTest, GivesAwayPicturesThatAreTooNarrowOrShrinkTooFar) {
  ExpectLikeReference({640, 4}, {30, 4}, Placement::FlushWithEnd);
  ExpectLikeReference({1280, 4}, {64, 4}, Placement::FlushWithEnd);
  EXPECT_EQ(g_unfitJobs, 2);
}

}  // namespace
}  // namespace lidcam
