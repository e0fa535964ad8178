// Every kernel against the reference, between guard pages. A kernel that this processor can't run
// is skipped; a test of its own reports its name.

#include "driver/frame/resampler/scale_kernels.h"
#include "driver/frame/resampler/jobs/scale_reference.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "driver/frame/resampler/yuy2_scale.h"
#include "tests/driver/frame/resampler/support/guarded_buffer.h"
#include "tests/driver/frame/resampler/support/literal_resize.h"
#include "tests/driver/support/sanitizers.h"

namespace lidcam {
namespace {

// Sanitizers run a quarter of the pairs, every pair of widths and every pair of heights among them.
const std::uint32_t kSizePairs = test::kIsSanitized ? 27500 : 110000;

constexpr std::size_t kLargestPicture = std::size_t{1280} * 1024 * 2 + 4096;

enum class Content { Random, Gradient, Alternating, Black, White };
constexpr Content kContents[] = {Content::Random, Content::Gradient, Content::Alternating,
                                 Content::Black, Content::White};

std::vector<std::uint8_t> MakeContent(Content content) {
  std::vector<std::uint8_t> bytes = RandomPicture(kLargestPicture, 99);
  if (content == Content::Random) return bytes;
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    switch (content) {
      case Content::Gradient:
        bytes[at] = static_cast<std::uint8_t>(at / 2 + (at % 2) * 97);
        break;
      case Content::Alternating:
        bytes[at] = (at / 2 + at / 4) % 2 == 0 ? 0 : 255;
        break;
      case Content::Black:
        bytes[at] = 0;
        break;
      default:
        bytes[at] = 255;
        break;
    }
  }
  return bytes;
}

/// One scale to compare: where the buffers lie and how far their rows are apart.
struct ScaleCase {
  ImageSize From;
  ImageSize To;
  Content What = Content::Random;
  Placement Where = Placement::FlushWithEnd;
  std::int32_t SourcePadding = 0;
  std::int32_t DestinationPadding = 0;
  std::size_t Shift = 0;           ///< bytes away from the guard page
  ImageRegion Region{0, 0, 0, 0};  ///< all of the source if empty
  double XFactor = 0;              ///< 0: that of the sizes
  double YFactor = 0;
};

class ScaleKernelTest : public testing::Test {
 protected:
  void ExpectLikeReference(const ScaleCase& scale) {
    ResizeArguments arguments = Arguments(scale);
    const auto sourceBytes = static_cast<std::size_t>(arguments.SourceStep) *
                             static_cast<std::size_t>(scale.From.Height);
    const auto destinationBytes = static_cast<std::size_t>(arguments.DestinationStep) *
                                      static_cast<std::size_t>(scale.To.Height - 1) +
                                  4 * static_cast<std::size_t>(scale.To.Width / 2);
    std::uint8_t* const source = Placed(source_, sourceBytes, scale);
    std::memcpy(source, Bytes(scale.What) + sourceBytes % 61, sourceBytes);
    std::uint8_t* const destination = Placed(destination_, destinationBytes, scale);
    expected_.assign(destinationBytes, kUntouched);

    arguments.Source = source;
    arguments.Destination = expected_.data();
    ImageSize output{};
    if (CheckYuy2(arguments, output) != ResizeDone || NeedsNearest(arguments)) return;
    const Yuy2Scale reference(arguments, output, ScaleKernels().front());
    ASSERT_NE(reference.Job(), nullptr);
    if (!SuitsEveryKernel(*reference.Job())) return;
    ScaleByReference(*reference.Job());
    arguments.Destination = destination;
    ++compared_;
    for (const ScaleKernel& kernel : ScaleKernels().subspan(1)) {
      if (!kernel.IsSupported()) continue;
      std::memset(destination, kUntouched, destinationBytes);
      const Yuy2Scale scaling(arguments, output, kernel);
      ASSERT_NE(scaling.Job(), nullptr);
      kernel.Scale(*scaling.Job());
      ExpectSame(kernel, scale, destination, arguments.DestinationStep);
      if (HasFatalFailure()) return;
    }
  }

  std::size_t compared_ = 0;

 private:
  static ResizeArguments Arguments(const ScaleCase& scale) {
    ImageRegion region = scale.Region;
    if (region.Width == 0) region = {0, 0, scale.From.Width, scale.From.Height};
    const double xFactor = static_cast<double>(scale.To.Width) / region.Width;
    const double yFactor = static_cast<double>(scale.To.Height) / region.Height;
    return {.Source = nullptr,
            .SourceSize = scale.From,
            .SourceStep = 2 * scale.From.Width + scale.SourcePadding,
            .Region = region,
            .Destination = nullptr,
            .DestinationStep = 2 * scale.To.Width + scale.DestinationPadding,
            .DestinationSize = scale.To,
            .XFactor = scale.XFactor > 0 ? scale.XFactor : xFactor,
            .YFactor = scale.YFactor > 0 ? scale.YFactor : yFactor,
            .Interpolation = 2};
  }

  static std::uint8_t* Placed(const GuardedBuffer& buffer, std::size_t bytes,
                              const ScaleCase& scale) {
    std::uint8_t* const place = buffer.Place(bytes + scale.Shift, scale.Where);
    return scale.Where == Placement::FlushWithStart ? place + scale.Shift : place;
  }

  static const std::uint8_t* Bytes(Content content) {
    static const std::vector<std::vector<std::uint8_t>> contents = [] {
      std::vector<std::vector<std::uint8_t>> all;
      for (const Content each : kContents) all.push_back(MakeContent(each));
      return all;
    }();
    return contents[static_cast<std::size_t>(content)].data();
  }

  void ExpectSame(const ScaleKernel& kernel, const ScaleCase& scale,
                  const std::uint8_t* destination, std::int32_t step) {
    if (std::memcmp(destination, expected_.data(), expected_.size()) == 0) return;
    std::size_t at = 0;
    while (destination[at] == expected_[at]) ++at;
    const auto width = static_cast<std::size_t>(step);
    FAIL() << kernel.Name << ", " << scale.From.Width << "x" << scale.From.Height << " to "
           << scale.To.Width << "x" << scale.To.Height << ", region " << scale.Region.X << ","
           << scale.Region.Y << " " << scale.Region.Width << "x" << scale.Region.Height
           << ", content " << static_cast<int>(scale.What) << ", row " << at / width << " byte "
           << at % width << ": " << int{destination[at]} << " instead of " << int{expected_[at]};
  }

  GuardedBuffer source_{kLargestPicture};
  GuardedBuffer destination_{kLargestPicture};
  std::vector<std::uint8_t> expected_;
};

// The camera's native sizes are among them.
constexpr ImageSize kStreamSizes[] = {{640, 480}, {352, 288}, {320, 240}, {176, 144}, {160, 120}};

TEST_F(ScaleKernelTest, ScalesEveryStreamSizeToEveryOtherLikeTheReference) {
  for (const ImageSize from : kStreamSizes) {
    for (const ImageSize to : kStreamSizes) {
      for (const Content content : kContents) {
        for (const Placement where : {Placement::FlushWithStart, Placement::FlushWithEnd}) {
          ExpectLikeReference({.From = from, .To = to, .What = content, .Where = where});
          if (HasFatalFailure()) return;
        }
      }
    }
  }
  EXPECT_EQ(compared_, 5U * 5 * 5 * 2);
}

TEST_F(ScaleKernelTest, ScalesTo353Columns) {
  ExpectLikeReference({.From = {640, 480}, .To = {353, 288}});
  ExpectLikeReference({.From = {1280, 1024}, .To = {641, 479}});
  EXPECT_EQ(compared_, 2U);
}

// Every even width from 2 to 100 to every width, and every height from 1 to 100 to every height, the
// two walked against each other.
TEST_F(ScaleKernelTest, ScalesPicturesUpTo100By100LikeTheReference) {
  constexpr std::uint32_t kWidthPairs = 50 * 99;
  constexpr std::uint32_t kHeightPairs = 100 * 100;
  std::mt19937 random(20090702);
  for (std::uint32_t n = 0; n < kSizePairs; ++n) {
    const std::uint32_t widths = n % kWidthPairs;
    const std::uint32_t heights = (n * 7919 + n / kHeightPairs) % kHeightPairs;
    const auto bits = static_cast<std::uint32_t>(random());
    ScaleCase scale{.From = {static_cast<std::int32_t>(2 + 2 * (widths / 99)),
                             static_cast<std::int32_t>(1 + heights / 100)},
                    .To = {static_cast<std::int32_t>(2 + widths % 99),
                           static_cast<std::int32_t>(1 + heights % 100)}};
    scale.What = kContents[bits % 5];
    scale.Where = (bits & 0x100U) != 0 ? Placement::FlushWithEnd : Placement::FlushWithStart;
    scale.Shift = (bits & 0x200U) != 0 ? (bits >> 10U) % 64 : 0;
    scale.SourcePadding =
        (bits & 0x10000U) != 0 ? static_cast<std::int32_t>((bits >> 17U) % 40) : 0;
    scale.DestinationPadding =
        (bits & 0x800000U) != 0 ? static_cast<std::int32_t>((bits >> 24U) % 40) : 0;
    ExpectLikeReference(scale);
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(compared_, kSizePairs / 11 * 10);
}

TEST_F(ScaleKernelTest, ScalesRegionsAndFactorsApartFromTheSizesLikeTheReference) {
  std::mt19937 random(20090703);
  const auto below = [&random](std::int32_t bound) {
    return static_cast<std::int32_t>(random() % static_cast<std::uint32_t>(bound));
  };
  for (int n = 0; n < 10000; ++n) {
    const ImageSize from{4 + 2 * below(60), 2 + below(60)};
    const ImageSize to{2 + below(130), 1 + below(90)};
    ScaleCase scale{.From = from, .To = to};
    scale.Region.X = below(3) == 0 ? 2 * below(from.Width / 2) : 0;
    scale.Region.Y = below(from.Height);
    scale.Region.Width = 2 + 2 * below(from.Width);
    scale.Region.Height = 1 + below(2 * from.Height);
    scale.What = kContents[below(5)];
    scale.Where = below(2) == 0 ? Placement::FlushWithEnd : Placement::FlushWithStart;
    scale.SourcePadding = below(2) == 0 ? below(20) : 0;
    if (below(2) == 0) {
      scale.XFactor = (1 + below(4000)) / 1000.0;
      scale.YFactor = (1 + below(4000)) / 1000.0;
    }
    ExpectLikeReference(scale);
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(compared_, 5000U);
}

TEST_F(ScaleKernelTest, ScalesByExtremeFactorsLikeTheReference) {
  const ImageSize extremes[][2] = {
      {{4, 2}, {4000, 2}},   {{4000, 2}, {2, 2}},   {{4000, 2}, {4, 1}},    {{4, 2}, {2, 4000}},
      {{4, 4000}, {2, 1}},   {{4, 4000}, {6, 2}},   {{6, 3}, {998, 600}},   {{998, 600}, {6, 3}},
      {{4, 300}, {2000, 2}}, {{2000, 3}, {2, 300}}, {{4000, 2}, {3999, 3}}, {{3998, 3}, {4000, 2}},
      {{4, 2}, {2, 1}},      {{4, 2}, {4, 2}},      {{1280, 4}, {640, 2}},  {{640, 4}, {1280, 8}},
  };
  for (const auto& [from, to] : extremes) {
    for (const Content content : kContents) {
      for (const Placement where : {Placement::FlushWithStart, Placement::FlushWithEnd}) {
        ExpectLikeReference({.From = from, .To = to, .What = content, .Where = where});
        if (HasFatalFailure()) return;
      }
    }
  }
  EXPECT_EQ(compared_, 16U * 5 * 2);
}

TEST_F(ScaleKernelTest, ScalesFromAndToAnyAlignmentLikeTheReference) {
  for (std::size_t shift = 0; shift < 64; ++shift) {
    for (const Placement where : {Placement::FlushWithStart, Placement::FlushWithEnd}) {
      ExpectLikeReference({.From = {160, 8}, .To = {88, 6}, .Where = where, .Shift = shift});
      ExpectLikeReference({.From = {64, 8}, .To = {160, 12}, .Where = where, .Shift = shift});
      ExpectLikeReference({.From = {128, 8}, .To = {64, 4}, .Where = where, .Shift = shift});
      if (HasFatalFailure()) return;
    }
  }
  EXPECT_EQ(compared_, 64U * 2 * 3);
}

// Rows that overlap in the source, down to the last byte that is needed: behind it is the guard page.
TEST_F(ScaleKernelTest, ReadsNoByteBehindRowsThatAreNarrowerThanTheirPixels) {
  for (const std::int32_t width : {40, 100, 200}) {
    for (const std::int32_t to : {8, 10, 16, 24, 40}) {
      for (std::int32_t step = width; step <= 2 * width; ++step) {
        ExpectLikeReference({.From = {width, 2},
                             .To = {to, 2},
                             .SourcePadding = step - 2 * width,
                             .XFactor = 0.1,
                             .YFactor = 1.0});
        if (HasFatalFailure()) return;
      }
    }
  }
  EXPECT_GT(compared_, 500U);
}

class ScaleKernelOfThisProcessor : public testing::TestWithParam<const ScaleKernel*> {};

// Skipped by name where the comparisons above went without a kernel.
TEST_P(ScaleKernelOfThisProcessor, WritesEveryPairOfItsRowsAndNoByteMore) {
  const ScaleKernel& kernel = *GetParam();
  if (!kernel.IsSupported()) GTEST_SKIP() << "this processor lacks " << kernel.Name;
  const std::vector<std::uint8_t> source(std::size_t{640} * 4 * 2, 0x5A);
  std::vector<std::uint8_t> destination(std::size_t{720} * 3, kUntouched);
  const Yuy2Scale scaling({.Source = source.data(),
                           .SourceSize = {640, 4},
                           .SourceStep = 1280,
                           .Region = {0, 0, 640, 4},
                           .Destination = destination.data(),
                           .DestinationStep = 720,
                           .DestinationSize = {353, 3},
                           .XFactor = 353.0 / 640,
                           .YFactor = 3.0 / 4,
                           .Interpolation = 2},
                          {353, 3}, kernel);
  ASSERT_NE(scaling.Job(), nullptr);
  kernel.Scale(*scaling.Job());
  for (std::size_t at = 0; at < destination.size(); ++at) {
    ASSERT_EQ(destination[at], at % 720 < 704 ? 0x5A : kUntouched) << at;
  }
}

std::vector<const ScaleKernel*> AllKernels() {
  std::vector<const ScaleKernel*> kernels;
  for (const ScaleKernel& kernel : ScaleKernels()) kernels.push_back(&kernel);
  return kernels;
}

INSTANTIATE_TEST_SUITE_P(Kernels, ScaleKernelOfThisProcessor, testing::ValuesIn(AllKernels()),
                         [](const auto& test) {
                           std::string name = test.param->Name;
                           std::erase_if(
                               name, [](char letter) { return letter == '-' || letter == ' '; });
                           return name;
                         });

TEST(ScaleKernels, StartWithTheReferenceWhichEveryMachineRuns) {
  ASSERT_FALSE(ScaleKernels().empty());
  EXPECT_STREQ(ScaleKernels().front().Name, "reference");
  EXPECT_TRUE(ScaleKernels().front().IsSupported());
  EXPECT_EQ(ScaleKernels().front().Scale, ScaleByReference);
}

TEST(ScaleKernels, ChooseTheLastOneThatIsSupported) {
  const ScaleKernel* fastest = nullptr;
  for (const ScaleKernel& kernel : ScaleKernels()) {
    if (kernel.IsSupported()) fastest = &kernel;
  }
  EXPECT_EQ(&ChosenScaleKernel(), fastest);
  EXPECT_EQ(&ChosenScaleKernel(), fastest);
}

TEST(ScaleKernels, AreChosenOfTheFirstOnlyWhileTheyAreLimited) {
  const ScaleKernel* const fastest = &ChosenScaleKernel();
  LimitScaleKernels(1);
  EXPECT_EQ(&ChosenScaleKernel(), &ScaleKernels().front());
  LimitScaleKernels(SIZE_MAX);
  EXPECT_EQ(&ChosenScaleKernel(), fastest);
}

#if defined(__x86_64__)
TEST(ScaleKernels, AreOneForEachRegisterSet) {
  std::vector<std::string> names;
  for (const ScaleKernel& kernel : ScaleKernels()) names.emplace_back(kernel.Name);
  EXPECT_EQ(names, (std::vector<std::string>{"reference", "SSE2", "SSSE3", "AVX2", "AVX-512",
                                             "AVX-512 VBMI"}));
}
#endif

}  // namespace
}  // namespace lidcam
