// The checks of both resize entries: every offence, and which of two is reported.

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "driver/frame/resampler/image_resampler.h"
#include "driver/frame/resampler/jobs/resize_arguments.h"
#include "tests/driver/frame/resampler/support/literal_resize.h"

namespace lidcam {
namespace {

constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

using Entry = decltype(&ResizeYuy2);

struct Call {
  std::vector<std::uint8_t> SourceBytes = std::vector<std::uint8_t>(8 * 4 * 3, 0x40);
  std::vector<std::uint8_t> DestinationBytes = std::vector<std::uint8_t>(4 * 4 * 3, kUntouched);
  ResizeArguments Arguments{.Source = SourceBytes.data(),
                            .SourceSize = {8, 4},
                            .SourceStep = 24,
                            .Region = {0, 0, 8, 4},
                            .Destination = DestinationBytes.data(),
                            .DestinationStep = 12,
                            .DestinationSize = {4, 2},
                            .XFactor = 0.5,
                            .YFactor = 0.5,
                            .Interpolation = 2};

  ResizeStatus Run(Entry entry) const {
    const ResizeArguments& a = Arguments;
    return entry(a.Source, a.SourceSize, a.SourceStep, a.Region, a.Destination, a.DestinationStep,
                 a.DestinationSize, a.XFactor, a.YFactor, a.Interpolation);
  }

  [[nodiscard]] bool IsUntouched() const {
    return DestinationBytes == std::vector<std::uint8_t>(DestinationBytes.size(), kUntouched);
  }
};

struct Offence {
  std::string Name;
  std::string Field;
  int Status;
  void (*Commit)(ResizeArguments& arguments);
  bool IsOfPairsOnly = false;
};

#define OFFENCE(field, value, status)                                                 \
  {                                                                                   \
#field " = " #value, #field, status, [](ResizeArguments & a) { a.field = value; } \
  }
#define PAIR_OFFENCE(field, value, status)                                                  \
  {                                                                                         \
#field " = " #value, #field, status, [](ResizeArguments & a) { a.field = value; }, true \
  }

// In the order of the checks.
const std::vector<Offence> kOffences = {
    OFFENCE(Source, nullptr, -8),
    OFFENCE(Destination, nullptr, -8),
    OFFENCE(SourceSize.Width, 0, -6),
    OFFENCE(SourceSize.Width, -8, -6),
    OFFENCE(SourceSize.Height, 0, -6),
    OFFENCE(SourceSize.Height, -4, -6),
    OFFENCE(Region.Width, 0, -6),
    OFFENCE(Region.Width, -2, -6),
    OFFENCE(Region.Height, 0, -6),
    OFFENCE(Region.Height, -1, -6),
    OFFENCE(Region.X, -2, -6),
    OFFENCE(Region.Y, -1, -6),
    OFFENCE(Region.X, 8, 29),
    OFFENCE(Region.X, 9, 29),
    OFFENCE(Region.Y, 4, 29),
    OFFENCE(DestinationSize.Width, 0, -6),
    OFFENCE(DestinationSize.Width, -4, -6),
    OFFENCE(DestinationSize.Height, 0, -6),
    OFFENCE(DestinationSize.Height, -2, -6),
    PAIR_OFFENCE(SourceSize.Width, 7, -6),
    PAIR_OFFENCE(Region.Width, 5, -6),
    PAIR_OFFENCE(Region.X, 3, -6),
    PAIR_OFFENCE(DestinationSize.Width, 1, -6),
    OFFENCE(XFactor, 0.0, -23),
    OFFENCE(XFactor, -0.5, -23),
    OFFENCE(XFactor, kNotANumber, -23),
    OFFENCE(XFactor, -kInfinity, -23),
    OFFENCE(YFactor, 0.0, -23),
    OFFENCE(YFactor, -0.5, -23),
    OFFENCE(YFactor, kNotANumber, -23),
    OFFENCE(Interpolation, 0, -22),
    OFFENCE(Interpolation, 3, -22),
    OFFENCE(Interpolation, -2, -22),
    PAIR_OFFENCE(Interpolation, 16, -22),
    OFFENCE(SourceStep, 0, -6),
    OFFENCE(SourceStep, -24, -6),
    OFFENCE(DestinationStep, 0, -6),
    OFFENCE(DestinationStep, -12, -6),
    OFFENCE(XFactor, 0.000001, -201),
    OFFENCE(YFactor, 0.000001, -201),
};

struct EntryCase {
  std::string Name;
  Entry Function;
  bool IsPaired;
};

class ResizeChecks : public testing::TestWithParam<EntryCase> {
 protected:
  [[nodiscard]] static std::vector<Offence> Offences() {
    std::vector<Offence> offences;
    for (const Offence& offence : kOffences) {
      if (GetParam().IsPaired || !offence.IsOfPairsOnly) offences.push_back(offence);
    }
    return offences;
  }
};

TEST_P(ResizeChecks, PassWithArgumentsInOrder) {
  const Call call;
  EXPECT_EQ(call.Run(GetParam().Function), 0);
  EXPECT_FALSE(call.IsUntouched());
}

TEST_P(ResizeChecks, TellEveryOffenceByItsStatusAndTouchNothing) {
  for (const Offence& offence : Offences()) {
    SCOPED_TRACE(offence.Name);
    Call call;
    offence.Commit(call.Arguments);
    EXPECT_EQ(call.Run(GetParam().Function), offence.Status);
    EXPECT_TRUE(call.IsUntouched());
  }
}

TEST_P(ResizeChecks, TellTheFirstOfAnyTwoOffences) {
  const std::vector<Offence> offences = Offences();
  for (std::size_t first = 0; first < offences.size(); ++first) {
    for (std::size_t second = first + 1; second < offences.size(); ++second) {
      if (offences[first].Field == offences[second].Field) continue;
      SCOPED_TRACE(offences[first].Name + " and " + offences[second].Name);
      Call call;
      offences[first].Commit(call.Arguments);
      offences[second].Commit(call.Arguments);
      EXPECT_EQ(call.Run(GetParam().Function), offences[first].Status);
      EXPECT_TRUE(call.IsUntouched());
    }
  }
}

TEST_P(ResizeChecks, TakeAnInfiniteFactorForALargeOne) {
  Call call;
  call.Arguments.XFactor = kInfinity;
  call.Arguments.YFactor = kInfinity;
  EXPECT_EQ(call.Run(GetParam().Function), 0);
  EXPECT_FALSE(call.IsUntouched());
}

INSTANTIATE_TEST_SUITE_P(Entries, ResizeChecks,
                         testing::Values(EntryCase{"Yuy2", ResizeYuy2, true},
                                         EntryCase{"Rgb24", ResizeRgb24, false}),
                         [](const auto& test) { return test.param.Name; });

TEST(ResizeChecksOfYuy2, KnowTheInterpolationCodes1And2And4And8) {
  for (std::int32_t code = -1; code <= 33; ++code) {
    Call call;
    call.Arguments.Interpolation = code;
    const bool isKnown = code == 1 || code == 2 || code == 4 || code == 8;
    EXPECT_EQ(call.Run(ResizeYuy2), isKnown ? 0 : -22) << code;
  }
}

TEST(ResizeChecksOfRgb24, KnowTheInterpolationCodes1And2And4And8And16) {
  for (std::int32_t code = -1; code <= 33; ++code) {
    Call call;
    call.Arguments.Interpolation = code;
    const bool isKnown = code == 1 || code == 2 || code == 4 || code == 8 || code == 16;
    EXPECT_EQ(call.Run(ResizeRgb24), isKnown ? 0 : -22) << code;
  }
}

TEST(ResizeChecksOfRgb24, RefuseCode8WhereAFactorIsAboveOne) {
  Call call;
  call.Arguments.Interpolation = 8;
  call.Arguments.XFactor = 1.0;
  call.Arguments.YFactor = 1.0;
  EXPECT_EQ(call.Run(ResizeRgb24), 0);
  call.Arguments.XFactor = 1.001;
  EXPECT_EQ(call.Run(ResizeRgb24), -22);
  call.Arguments.XFactor = 1.0;
  call.Arguments.YFactor = 1.001;
  EXPECT_EQ(call.Run(ResizeRgb24), -22);
  call.Arguments.Interpolation = 2;
  EXPECT_EQ(call.Run(ResizeRgb24), 0);
}

}  // namespace
}  // namespace lidcam
