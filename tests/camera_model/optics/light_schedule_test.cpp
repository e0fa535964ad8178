#include "camera_model/optics/light_schedule.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace lidcam::camera_model {
namespace {

using testing::AllOf;
using testing::HasSubstr;

TEST(LightSchedule, AStrengthAloneIsConstantLight) {
  EXPECT_EQ(ParseLightSchedule("300lx"), (LightSchedule{{0, 300}}));
  EXPECT_EQ(ParseLightSchedule("0.03lx@0s"), (LightSchedule{{0, 0.03}}));
  EXPECT_EQ(ParseLightSchedule("100000lx@0ms"), (LightSchedule{{0, 100000}}));
  EXPECT_EQ(ParseLightSchedule("0lx"), (LightSchedule{{0, 0}}));
}

TEST(LightSchedule, StepsAreSeparatedByCommaOrSemicolon) {
  const LightSchedule expected{{0, 300}, {4, 5}, {12, 300}};
  EXPECT_EQ(ParseLightSchedule("300lx@0s,5lx@4s,300lx@12s"), expected);
  EXPECT_EQ(ParseLightSchedule("300lx@0s;5lx@4s;300lx@12s"), expected);
  EXPECT_EQ(ParseLightSchedule("300lx;5lx@4s,300lx@12s"), expected);
}

TEST(LightSchedule, TimesAreSecondsOrMilliseconds) {
  EXPECT_EQ(ParseLightSchedule("1lx,2lx@500ms,3lx@2.5s,4lx@2501ms"),
            (LightSchedule{{0, 1}, {0.5, 2}, {2.5, 3}, {2.501, 4}}));
}

struct BadStep {
  const char* Text;
  const char* Wrong;
  const char* Right;
};

class BadLight : public testing::TestWithParam<BadStep> {};

TEST_P(BadLight, IsToldWithWhatWouldBeRight) {
  try {
    (void)ParseLightSchedule(GetParam().Text);
    FAIL() << GetParam().Text << " was accepted";
  } catch (const std::invalid_argument& error) {
    EXPECT_THAT(error.what(), AllOf(HasSubstr("light \"" + std::string(GetParam().Text) + "\""),
                                    HasSubstr(GetParam().Wrong), HasSubstr(GetParam().Right)));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Texts, BadLight,
    testing::Values(BadStep{"", "a step is empty", "LIGHT@TIME"},
                    BadStep{"300lx,", "a step is empty", "5lx@4s"},
                    BadStep{"300lx;;5lx@4s", "a step is empty", "5lx@4s"},
                    BadStep{"bright", "\"bright\" is no light", "such as 300lx"},
                    BadStep{"300", "\"300\" is no light", "such as 300lx"},
                    BadStep{"lx", "\"lx\" is no light", "such as 300lx"},
                    BadStep{"@0s", "\"\" is no light", "such as 300lx"},
                    BadStep{"-5lx", "\"-5lx\" is no light", "such as 300lx"},
                    BadStep{"1e3lx", "\"1e3lx\" is no light", "such as 300lx"},
                    BadStep{"inflx", "\"inflx\" is no light", "such as 300lx"},
                    BadStep{"1.2.3lx", "\"1.2.3lx\" is no light", "such as 300lx"},
                    BadStep{".lx", "\".lx\" is no light", "such as 300lx"},
                    BadStep{"300 lx", "\"300 lx\" is no light", "such as 300lx"},
                    BadStep{"100001lx", "\"100001lx\" is more light", "0lx to 100000lx"},
                    BadStep{"300lx@", "\"\" is no time", "such as 4s"},
                    BadStep{"300lx@0", "\"0\" is no time", "such as 4s"},
                    BadStep{"300lx@0min", "\"0min\" is no time", "such as 4s"},
                    BadStep{"300lx@0s,5lx@-4s", "\"-4s\" is no time", "such as 4s"},
                    BadStep{"300lx@0s@1s", "\"0s@1s\" is no time", "such as 4s"},
                    BadStep{"300lx@1s", "\"300lx@1s\" is the first step", "begin at 0s"},
                    BadStep{"300lx@0s,5lx", "\"5lx\" has no time", "LIGHT@TIME"},
                    BadStep{"300lx@0s,5lx@4s,6lx@4s", "\"6lx@4s\" is not later", "ascend"},
                    BadStep{"300lx@0s,5lx@4s,6lx@3999ms", "\"6lx@3999ms\" is not later", "ascend"},
                    BadStep{"300lx@0s,5lx@0s", "\"5lx@0s\" is not later", "ascend"}));

TEST(LightSchedule, AStepHoldsFromItsMomentOn) {
  const LightSchedule schedule{{0, 300}, {4, 5}, {12, 50}};
  EXPECT_EQ(LuxAt(schedule, -1), 300);
  EXPECT_EQ(LuxAt(schedule, 0), 300);
  EXPECT_EQ(LuxAt(schedule, 3.999999), 300);
  EXPECT_EQ(LuxAt(schedule, 4), 5);
  EXPECT_EQ(LuxAt(schedule, 11.999999), 5);
  EXPECT_EQ(LuxAt(schedule, 12), 50);
  EXPECT_EQ(LuxAt(schedule, 1e9), 50);
  EXPECT_EQ(LuxAt({}, 4), kRoomLux);
}

}  // namespace
}  // namespace lidcam::camera_model
